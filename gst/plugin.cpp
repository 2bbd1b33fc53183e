// The plug-in, as GStreamer finds it.

#include <gst/gst.h>

#include "elements.h"

namespace {

gboolean Initialize(GstPlugin* plugin) {
  return static_cast<gboolean>(gst_element_register(plugin, "qlnedit", GST_RANK_NONE, qln_edit_type()) &&
                               gst_element_register(plugin, "qlncheck", GST_RANK_NONE, qln_check_type()));
}

}  // namespace

#define PACKAGE "qlnutil"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, qlnutil,
                  "Changes and checks what H.264 and HEVC streams say of themselves", Initialize, QLN_VERSION,
                  "Proprietary", "qlnutil", "https://example.org/qlnutil")
