// HDR metadata between libavformat's side data and the engine's values.

#include "container/hdr_side_data.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace qlnmedia {

namespace {

template <class Data>
void AddSideData(AVStream* stream, AVPacketSideDataType type, Data* made, size_t size) {
  if (made == nullptr || av_stream_add_side_data(stream, type, reinterpret_cast<uint8_t*>(made), size) < 0) {
    av_free(made);
    throw std::bad_alloc();
  }
}

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

void SetContainerMastering(AVStream* stream, const MasteringDisplay& display) {
  auto* const data = static_cast<AVMasteringDisplayMetadata*>(av_mallocz(sizeof(AVMasteringDisplayMetadata)));
  AddSideData(stream, AV_PKT_DATA_MASTERING_DISPLAY_METADATA, data, sizeof(AVMasteringDisplayMetadata));
  const MasteringDisplay::Point points[3] = {display.red, display.green, display.blue};
  for (int i = 0; i < 3; ++i) {
    data->display_primaries[i][0] = {points[i].x, 50000};
    data->display_primaries[i][1] = {points[i].y, 50000};
  }
  data->white_point[0] = {display.white.x, 50000};
  data->white_point[1] = {display.white.y, 50000};
  data->max_luminance = {static_cast<int>(display.maxLuminance), 10000};
  data->min_luminance = {static_cast<int>(display.minLuminance), 10000};
  data->has_primaries = data->has_luminance = 1;
}

void SetContainerLightLevel(AVStream* stream, const LightLevel& level) {
  size_t size = 0;
  AVContentLightMetadata* const data = av_content_light_metadata_alloc(&size);
  AddSideData(stream, AV_PKT_DATA_CONTENT_LIGHT_LEVEL, data, size);
  data->MaxCLL = level.maxContent;
  data->MaxFALL = level.maxAverage;
}

}  // namespace qlnmedia
