// HDR metadata from libavformat's side data in the engine's values.

#include "container/hdr_side_data.h"

#include <cmath>

namespace qlnmedia {

namespace {

uint32_t Units(AVRational value, double scale) {
  return value.den == 0 ? 0 : static_cast<uint32_t>(std::llround(av_q2d(value) * scale));
}

}  // namespace

StreamHdr ContainerHdr(const AVStream& stream) {
  StreamHdr hdr;
  const auto* const display = reinterpret_cast<const AVMasteringDisplayMetadata*>(
      av_stream_get_side_data(&stream, AV_PKT_DATA_MASTERING_DISPLAY_METADATA, nullptr));
  if (display != nullptr && display->has_primaries != 0 && display->has_luminance != 0) {
    const auto point = [](const AVRational(&pair)[2]) {
      return MasteringDisplay::Point{static_cast<uint16_t>(Units(pair[0], 50000)),
                                     static_cast<uint16_t>(Units(pair[1], 50000))};
    };
    hdr.mastering =
        MasteringDisplay{point(display->display_primaries[0]), point(display->display_primaries[1]),
                         point(display->display_primaries[2]), point(display->white_point),
                         Units(display->max_luminance, 10000), Units(display->min_luminance, 10000)};
  }
  const auto* const light = reinterpret_cast<const AVContentLightMetadata*>(
      av_stream_get_side_data(&stream, AV_PKT_DATA_CONTENT_LIGHT_LEVEL, nullptr));
  if (light != nullptr)
    hdr.lightLevel = LightLevel{static_cast<uint16_t>(light->MaxCLL), static_cast<uint16_t>(light->MaxFALL)};
  return hdr;
}

}  // namespace qlnmedia
