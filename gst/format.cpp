// Reads and writes caps.

#include "format.h"

#include <gst/video/video-hdr.h>
#include <gst/video/video.h>

#include <optional>
#include <string>

namespace qlngst {

namespace {

constexpr const char* kColorimetry = "colorimetry";
constexpr const char* kMastering = "mastering-display-info";
constexpr const char* kLightLevel = "content-light-level";
constexpr const char* kCodecData = "codec_data";

// Where lengthSizeMinusOne stands (ISO/IEC 14496-15 clauses 5.3.3.1 and 8.3.3.1).
constexpr size_t kAvccLengthSize = 4;
constexpr size_t kHvccLengthSize = 21;

int LengthBytesOf(const StreamFormat& format, bool h264) {
  const std::vector<uint8_t>& record = format.description.privateData;
  const size_t at = h264 ? kAvccLengthSize : kHvccLengthSize;
  if (record.size() <= at)
    throw qlnmedia::Error("caps", record.empty() ? "have no codec_data" : "have a codec_data that breaks off",
                          "put a parser in front");
  return (record[at] & 3) + 1;
}

// Colour as caps write it; nothing where caps have no word for the codes.
std::optional<std::string> ColorimetryText(const GstVideoColorimetry& colorimetry) {
  const TextPtr text(gst_video_colorimetry_to_string(&colorimetry));
  if (text == nullptr) return {};
  return std::string(text.get());
}

void SetColorimetry(GstCaps* caps, const qlnmedia::StreamChanges& changes) {
  GstStructure* const structure = gst_caps_get_structure(caps, 0);
  GstVideoColorimetry colorimetry{};
  const gchar* const before = gst_structure_get_string(structure, kColorimetry);
  const bool known = before != nullptr && gst_video_colorimetry_from_string(&colorimetry, before);
  if (!changes.colour && !known) return;
  if (changes.colour) {
    colorimetry.primaries = gst_video_color_primaries_from_iso(changes.colour->primaries);
    colorimetry.transfer = gst_video_transfer_function_from_iso(changes.colour->transfer);
    colorimetry.matrix = gst_video_color_matrix_from_iso(changes.colour->matrix);
    if (!known) colorimetry.range = GST_VIDEO_COLOR_RANGE_16_235;
  }
  if (changes.fullRange)
    colorimetry.range = *changes.fullRange ? GST_VIDEO_COLOR_RANGE_0_255 : GST_VIDEO_COLOR_RANGE_16_235;
  const std::optional<std::string> text = ColorimetryText(colorimetry);
  if (text) {
    gst_structure_set(structure, kColorimetry, G_TYPE_STRING, text->c_str(), nullptr);
  } else {
    gst_structure_remove_field(structure, kColorimetry);
  }
}

void SetMastering(GstCaps* caps, const qlnmedia::MasteringDisplay& display) {
  GstVideoMasteringDisplayInfo info{};
  const qlnmedia::MasteringDisplay::Point* const points[] = {&display.red, &display.green, &display.blue};
  for (size_t i = 0; i < 3; ++i) {
    info.display_primaries[i].x = points[i]->x;
    info.display_primaries[i].y = points[i]->y;
  }
  info.white_point.x = display.white.x;
  info.white_point.y = display.white.y;
  info.max_display_mastering_luminance = display.maxLuminance;
  info.min_display_mastering_luminance = display.minLuminance;
  gst_video_mastering_display_info_add_to_caps(&info, caps);
}

}  // namespace

StreamFormat FormatOf(GstCaps* caps) {
  StreamFormat format;
  format.caps.reset(gst_caps_ref(caps));
  const GstStructure* const structure = gst_caps_get_structure(caps, 0);
  const bool h264 = gst_structure_has_name(structure, "video/x-h264") != FALSE;
  qlnmedia::StreamDescription& description = format.description;
  description.codec = h264 ? qlnmedia::VideoCodec::kH264 : qlnmedia::VideoCodec::kHevc;
  description.timeBase = {1, static_cast<int32_t>(GST_SECOND)};
  gint numerator = 0;
  gint denominator = 1;
  if (gst_structure_get_fraction(structure, "framerate", &numerator, &denominator) != FALSE && numerator > 0)
    description.averageRate = description.baseRate = {numerator, denominator};
  gint height = 0;
  if (gst_structure_get_int(structure, "height", &height) != FALSE && height > 0)
    description.height = static_cast<uint32_t>(height);
  // A parser takes its marks from the pictures.
  description.ownMarks = false;
  const gchar* const streamFormat = gst_structure_get_string(structure, "stream-format");
  if (g_strcmp0(streamFormat, "byte-stream") == 0) return format;
  const GValue* const value = gst_structure_get_value(structure, kCodecData);
  if (value != nullptr && GST_VALUE_HOLDS_BUFFER(value)) {
    const Mapped record(gst_value_get_buffer(value));
    description.privateData.assign(record.data(), record.data() + record.size());
  }
  format.lengthBytes = LengthBytesOf(format, h264);
  return format;
}

CapsPtr EditedCaps(const StreamFormat& format, const qlnmedia::StreamChanges& changes,
                   const std::vector<uint8_t>& privateData) {
  CapsPtr caps(gst_caps_copy(format.caps.get()));
  if (changes.colour || changes.fullRange) SetColorimetry(caps.get(), changes);
  if (changes.mastering) SetMastering(caps.get(), *changes.mastering);
  if (changes.lightLevel) {
    GstVideoContentLightLevel level{};
    level.max_content_light_level = changes.lightLevel->maxContent;
    level.max_frame_average_light_level = changes.lightLevel->maxAverage;
    gst_video_content_light_level_add_to_caps(&level, caps.get());
  }
  if (format.lengthBytes != 0 && privateData != format.description.privateData) {
    const BufferPtr record(gst_buffer_new_memdup(privateData.data(), privateData.size()));
    gst_caps_set_simple(caps.get(), kCodecData, GST_TYPE_BUFFER, record.get(), nullptr);
  }
  return caps;
}

CapsPtr WithoutChangedFields(CapsPtr caps) {
  CapsPtr bare(gst_caps_make_writable(caps.release()));
  for (guint i = 0; i < gst_caps_get_size(bare.get()); ++i)
    gst_structure_remove_fields(gst_caps_get_structure(bare.get(), i), kColorimetry, kMastering, kLightLevel,
                                kCodecData, nullptr);
  return bare;
}

}  // namespace qlngst
