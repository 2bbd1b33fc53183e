// One element under test, with what comes out of it and what it says.
#ifndef TESTS_GST_HARNESS_H
#define TESTS_GST_HARNESS_H

#include <gst/check/gstharness.h>
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/edit/edited_pictures.h"

namespace qlngst::test {

using qlnmedia::Bytes;
using qlnmedia::test::CodedFrame;

// What came out of an element.
struct Pulled {
  Bytes data;
  GstClockTime pts = GST_CLOCK_TIME_NONE;
  GstClockTime dts = GST_CLOCK_TIME_NONE;
  GstClockTime duration = GST_CLOCK_TIME_NONE;
  guint flags = 0;
};

class Harness {
 public:
  explicit Harness(const char* element = "qlnedit")
      : harness_(gst_harness_new(element)), bus_(gst_bus_new()) {
    gst_element_set_bus(harness_->element, bus_);
  }
  ~Harness() {
    gst_element_set_bus(harness_->element, nullptr);
    gst_harness_teardown(harness_);
    gst_object_unref(bus_);
  }
  Harness(const Harness&) = delete;
  Harness& operator=(const Harness&) = delete;

  GstHarness* get() { return harness_; }
  GstElement* element() { return harness_->element; }
  template <class... Values>
  void Set(const char* name, Values... values) {
    g_object_set(harness_->element, name, values..., nullptr);
  }

  // Caps as text, with codec_data where some is given.
  void Caps(const std::string& text, const Bytes& codecData = {}) {
    GstCaps* const caps = gst_caps_from_string(text.c_str());
    if (!codecData.empty()) {
      GstBuffer* const record = gst_buffer_new_memdup(codecData.data(), codecData.size());
      gst_caps_set_simple(caps, "codec_data", GST_TYPE_BUFFER, record, nullptr);
      gst_buffer_unref(record);
    }
    gst_harness_set_src_caps(harness_, caps);
  }

  // A buffer of the harness's own.
  static GstBuffer* Buffer(const Bytes& data, GstClockTime pts, bool key,
                           GstClockTime dts = GST_CLOCK_TIME_NONE) {
    GstBuffer* const buffer =
        data.empty() ? gst_buffer_new() : gst_buffer_new_memdup(data.data(), data.size());
    GST_BUFFER_PTS(buffer) = pts;
    GST_BUFFER_DTS(buffer) = dts;
    if (!key) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
    return buffer;
  }
  GstFlowReturn Push(const Bytes& data, GstClockTime pts, bool key) {
    return gst_harness_push(harness_, Buffer(data, pts, key));
  }
  // A packet of a made stream, whose times are in units of 1/90000 second.
  GstFlowReturn Push(const qlnmedia::AccessUnit& unit) { return gst_harness_push(harness_, BufferOf(unit)); }
  static GstBuffer* BufferOf(const qlnmedia::AccessUnit& unit) {
    return Buffer(unit.data, Time(unit.pts), unit.key, Time(unit.dts));
  }
  static GstClockTime Time(int64_t ticks) {
    return gst_util_uint64_scale_round(static_cast<guint64>(ticks), GST_SECOND, 90000);
  }

  // The next buffer; nothing where none waits.
  std::optional<Pulled> Pull() {
    GstBuffer* const buffer = gst_harness_try_pull(harness_);
    if (buffer == nullptr) return {};
    Pulled pulled = Read(buffer);
    gst_buffer_unref(buffer);
    return pulled;
  }
  static Pulled Read(GstBuffer* buffer) {
    Pulled pulled;
    pulled.data.resize(gst_buffer_get_size(buffer));
    if (!pulled.data.empty()) gst_buffer_extract(buffer, 0, pulled.data.data(), pulled.data.size());
    pulled.pts = GST_BUFFER_PTS(buffer);
    pulled.dts = GST_BUFFER_DTS(buffer);
    pulled.duration = GST_BUFFER_DURATION(buffer);
    pulled.flags = GST_BUFFER_FLAGS(buffer);
    return pulled;
  }
  std::vector<Pulled> PullAll() {
    std::vector<Pulled> all;
    while (std::optional<Pulled> pulled = Pull()) all.push_back(std::move(*pulled));
    return all;
  }

  // The caps that went out last.
  std::string OutputCaps() {
    GstPad* const pad = gst_element_get_static_pad(harness_->element, "src");
    GstCaps* const caps = gst_pad_get_current_caps(pad);
    gst_object_unref(pad);
    if (caps == nullptr) return {};
    gchar* const text = gst_caps_to_string(caps);
    std::string result = text;
    g_free(text);
    gst_caps_unref(caps);
    return result;
  }
  // A field of them as text; empty where there is none.
  std::string OutputField(const char* name) {
    GstPad* const pad = gst_element_get_static_pad(harness_->element, "src");
    GstCaps* const caps = gst_pad_get_current_caps(pad);
    gst_object_unref(pad);
    std::string result;
    if (caps == nullptr) return result;
    const gchar* const text = gst_structure_get_string(gst_caps_get_structure(caps, 0), name);
    if (text != nullptr) result = text;
    gst_caps_unref(caps);
    return result;
  }
  Bytes OutputCodecData() {
    GstPad* const pad = gst_element_get_static_pad(harness_->element, "src");
    GstCaps* const caps = gst_pad_get_current_caps(pad);
    gst_object_unref(pad);
    Bytes result;
    GstBuffer* record = nullptr;
    if (gst_structure_get(gst_caps_get_structure(caps, 0), "codec_data", GST_TYPE_BUFFER, &record, nullptr)) {
      result = Read(record).data;
      gst_buffer_unref(record);
    }
    gst_caps_unref(caps);
    return result;
  }

  // Texts of warnings and errors so far.
  std::vector<std::string> Warnings() { return Texts(GST_MESSAGE_WARNING); }
  std::vector<std::string> Errors() { return Texts(GST_MESSAGE_ERROR); }
  GstMessage* Message(GstMessageType type) { return gst_bus_pop_filtered(bus_, type); }

 private:
  std::vector<std::string> Texts(GstMessageType type) {
    std::vector<std::string> texts;
    std::vector<GstMessage*> others;
    while (GstMessage* const message = gst_bus_pop(bus_)) {
      if (GST_MESSAGE_TYPE(message) != type) {
        others.push_back(message);
        continue;
      }
      GError* error = nullptr;
      if (type == GST_MESSAGE_WARNING) {
        gst_message_parse_warning(message, &error, nullptr);
      } else {
        gst_message_parse_error(message, &error, nullptr);
      }
      texts.emplace_back(error->message);
      g_error_free(error);
      gst_message_unref(message);
    }
    for (GstMessage* const message : others) gst_bus_post(bus_, message);
    return texts;
  }

  GstHarness* harness_;
  GstBus* bus_;
};

// The timecodes of H.264 pictures with start codes, empty for one that has none.
inline std::vector<std::string> TimecodesIn(const std::vector<Pulled>& pulled) {
  qlnmedia::test::Stream stream;
  stream.description.codec = qlnmedia::VideoCodec::kH264;
  for (const Pulled& picture : pulled) stream.packets.push_back({picture.data, 0, 0, false});
  std::vector<std::string> all;
  for (const std::vector<std::string>& own : qlnmedia::test::TimecodesOf(stream))
    all.push_back(own.empty() ? "" : own[0]);
  return all;
}

inline const std::string kByteStream =
    "video/x-h264, stream-format=byte-stream, alignment=au, framerate=25/1, width=64, height=64";
inline const std::string kAvc =
    "video/x-h264, stream-format=avc, alignment=au, framerate=25/1, width=64, height=64";

}  // namespace qlngst::test

#endif
