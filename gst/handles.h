// Owners of what GStreamer counts references of.
#ifndef GST_HANDLES_H
#define GST_HANDLES_H

#include <gst/gst.h>

#include <memory>

namespace qlngst {

struct Unreference {
  void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
  void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
  void operator()(GstEvent* event) const { gst_event_unref(event); }
  void operator()(gchar* text) const { g_free(text); }
};

using BufferPtr = std::unique_ptr<GstBuffer, Unreference>;
using CapsPtr = std::unique_ptr<GstCaps, Unreference>;
using EventPtr = std::unique_ptr<GstEvent, Unreference>;
using TextPtr = std::unique_ptr<gchar, Unreference>;

// The bytes of a buffer, to look at.
class Mapped {
 public:
  explicit Mapped(GstBuffer* buffer) : buffer_(buffer) {
    good_ = gst_buffer_map(buffer_, &info_, GST_MAP_READ) != FALSE;
  }
  ~Mapped() {
    if (good_) gst_buffer_unmap(buffer_, &info_);
  }
  Mapped(const Mapped&) = delete;
  Mapped& operator=(const Mapped&) = delete;

  bool good() const { return good_; }
  const guint8* data() const { return good_ ? info_.data : nullptr; }
  gsize size() const { return good_ ? info_.size : 0; }

 private:
  GstBuffer* buffer_;
  GstMapInfo info_ = GST_MAP_INFO_INIT;
  bool good_ = false;
};

}  // namespace qlngst

#endif
