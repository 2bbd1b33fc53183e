// Counts with GStreamer's own timecodes.

#include "timecodes.h"

#include <gst/video/gstvideometa.h>
#include <gst/video/gstvideotimecode.h>

#include <memory>

#include "qlnmedia/error.h"

namespace qlngst {

namespace {

struct FreeTimecode {
  void operator()(GstVideoTimeCode* timecode) const { gst_video_time_code_free(timecode); }
};
using TimecodePtr = std::unique_ptr<GstVideoTimeCode, FreeTimecode>;

std::string TextOf(const GstVideoTimeCode& timecode) {
  const bool drop = (timecode.config.flags & GST_VIDEO_TIME_CODE_FLAGS_DROP_FRAME) != 0;
  gchar text[32];
  g_snprintf(text, sizeof text, "%02u:%02u:%02u%c%02u", timecode.hours, timecode.minutes, timecode.seconds,
             drop ? ';' : ':', timecode.frames);
  return text;
}

}  // namespace

int64_t FrameAt(int64_t nanoseconds, qlnmedia::Rational rate) {
  // Four times the frame, so that a quarter can be added.
  const bool before = nanoseconds < 0;
  const guint64 quarters = gst_util_uint64_scale_round(
      static_cast<guint64>(before ? -nanoseconds : nanoseconds), static_cast<guint64>(rate.numerator) * 4,
      static_cast<guint64>(rate.denominator) * GST_SECOND);
  const int64_t moved = (before ? -static_cast<int64_t>(quarters) : static_cast<int64_t>(quarters)) + 1;
  return moved >= 0 ? moved / 4 : -((3 - moved) / 4);
}

std::string TimecodeBehind(const std::string& first, int64_t frames, qlnmedia::Rational rate) {
  const TimecodePtr parsed(gst_video_time_code_new_from_string(first.c_str()));
  if (parsed == nullptr) throw qlnmedia::Error("timecode " + first, "is no timecode", "write HH:MM:SS:FF");
  const bool drop = first.find_first_of(";,") != std::string::npos;
  GstVideoTimeCode timecode{};
  gst_video_time_code_init(&timecode, static_cast<guint>(rate.numerator),
                           static_cast<guint>(rate.denominator), nullptr,
                           drop ? GST_VIDEO_TIME_CODE_FLAGS_DROP_FRAME : GST_VIDEO_TIME_CODE_FLAGS_NONE,
                           parsed->hours, parsed->minutes, parsed->seconds, parsed->frames, 0);
  if (gst_video_time_code_is_valid(&timecode) == FALSE)
    throw qlnmedia::Error("timecode " + first, "does not exist at " + std::to_string(rate.numerator) + "/" +
                                                   std::to_string(rate.denominator) + " frames a second");
  if (frames != 0) gst_video_time_code_add_frames(&timecode, frames);
  std::string text = TextOf(timecode);
  gst_video_time_code_clear(&timecode);
  return text;
}

std::string TimecodeOf(GstBuffer* buffer, qlnmedia::Rational rate, std::string* problem) {
  const GstVideoTimeCodeMeta* const meta = gst_buffer_get_video_time_code_meta(buffer);
  if (meta == nullptr) return {};
  const GstVideoTimeCode& timecode = meta->tc;
  const bool counts = gst_video_time_code_is_valid(&timecode) != FALSE &&
                      gst_util_fraction_compare(static_cast<gint>(timecode.config.fps_n),
                                                static_cast<gint>(timecode.config.fps_d), rate.numerator,
                                                rate.denominator) == 0;
  if (counts) return TextOf(timecode);
  *problem = "a timecode of " + std::to_string(timecode.config.fps_n) + "/" +
             std::to_string(timecode.config.fps_d) + " frames a second does not count those of the stream";
  return {};
}

}  // namespace qlngst
