// Starts GStreamer with the plug-in that was built, and a registry of its own.

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <cstdlib>

int main(int count, char** arguments) {
  setenv("GST_REGISTRY", QLN_GST_REGISTRY, 1);
  // Messages of other plug-ins that cannot be loaded are none of ours.
  setenv("GST_DEBUG", "0", 0);
  testing::InitGoogleTest(&count, arguments);
  gst_init(&count, &arguments);
  GError* error = nullptr;
  GstPlugin* const plugin = gst_plugin_load_file(QLN_GST_PLUGIN, &error);
  if (plugin == nullptr) {
    g_printerr("%s\n", error->message);
    return 1;
  }
  gst_object_unref(plugin);
  const int result = RUN_ALL_TESTS();
  gst_deinit();
  return result;
}
