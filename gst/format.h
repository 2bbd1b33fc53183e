// What caps say of a coded stream, and what they shall say of the edited one.
#ifndef GST_FORMAT_H
#define GST_FORMAT_H

#include <gst/gst.h>

#include <vector>

#include "handles.h"
#include "qlnmedia/stream_editor.h"

namespace qlngst {

// The pad templates' caps, as text.
#define QLN_CODED_VIDEO                                                                          \
  "video/x-h264, stream-format = (string) { byte-stream, avc, avc3 }, alignment = (string) au; " \
  "video/x-h265, stream-format = (string) { byte-stream, hvc1, hev1 }, alignment = (string) au"

struct StreamFormat {
  CapsPtr caps;
  qlnmedia::StreamDescription description;  // times in nanoseconds
  int lengthBytes = 0;                      // 0: start codes
};

// Throws qlnmedia::Error for caps whose configuration record is missing or breaks off.
StreamFormat FormatOf(GstCaps* caps);

// The caps of what the editor gives: codec_data, colorimetry, mastering-display-info and content-light-level
// follow the changes, all else stays.
CapsPtr EditedCaps(const StreamFormat& format, const qlnmedia::StreamChanges& changes,
                   const std::vector<uint8_t>& privateData);

// Caps without the fields that EditedCaps changes; takes `caps`.
CapsPtr WithoutChangedFields(CapsPtr caps);

}  // namespace qlngst

#endif
