// HDR metadata between containers, SEI and the library's records.

#include "hdr/stream_hdr.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "qlnutil/qlninband.h"
#include "units/access_unit.h"

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

StreamHdr HdrOf(Codec codec, const std::vector<Unit>& units) {
  // The library copies the frame that it looks through: slices stay out of it.
  std::vector<Unit> messages;
  for (const Unit& unit : units) {
    if (IsSei(codec, UnitType(codec, unit.bytes))) messages.push_back(unit);
  }
  StreamHdr hdr;
  if (messages.empty()) return hdr;
  Bytes data = ToMarkerForm(messages);
  DFrame frame{};
  frame.frameData = data.data();
  frame.frameSize = frame.frameCapacity = static_cast<uint32_t>(data.size());
  ContentLightRecord light{};
  MasteringDisplayRecord display{};
  const bool hasLight = qlnutilFindColorSEI(&frame, &light, nullptr) != 0;
  qlnutilFindColorSEI(&frame, nullptr, &display);
  const auto point = [](uint32_t x, uint32_t y) {
    return MasteringDisplay::Point{static_cast<uint16_t>(x), static_cast<uint16_t>(y)};
  };
  if (display.primariesValid != 0)
    hdr.mastering = MasteringDisplay{point(display.redX, display.redY),
                                     point(display.greenX, display.greenY),
                                     point(display.blueX, display.blueY),
                                     point(display.whitePointX, display.whitePointY),
                                     display.maxLuminance,
                                     display.minLuminance};
  if (hasLight)
    hdr.lightLevel = LightLevel{static_cast<uint16_t>(light.max_content_light_level),
                                static_cast<uint16_t>(light.max_pic_average_light_level)};
  return hdr;
}

Bytes MakeHdrUnit(Codec codec, const StreamHdr& hdr) {
  if (!hdr.mastering && !hdr.lightLevel) return {};
  // A frame that holds nothing but the beginning of a slice; the unit comes to stand in front of it.
  static constexpr uint8_t kH264Stub[] = {0, 0, 0, 1, 0x65, 0x88, 0x80};
  static constexpr uint8_t kHevcStub[] = {0, 0, 0, 1, 0x26, 0x01, 0x80};
  const ByteSpan stub(codec == Codec::kH264 ? kH264Stub : kHevcStub);
  Bytes data(512);
  std::copy(stub.begin(), stub.end(), data.begin());
  DFrame frame{};
  frame.frameData = data.data();
  frame.frameSize = static_cast<uint32_t>(stub.size());
  frame.frameCapacity = static_cast<uint32_t>(data.size());
  if (hdr.mastering) {
    const MasteringDisplay& display = *hdr.mastering;
    const MasteringDisplay::Point points[4] = {display.red, display.green, display.blue, display.white};
    // The library truncates: half a unit more keeps the number that was meant.
    for (int i = 0; i < 4; ++i) {
      frame.displayPrimaries[2 * i] = (points[i].x + 0.5) / 50000;
      frame.displayPrimaries[2 * i + 1] = (points[i].y + 0.5) / 50000;
    }
    frame.maxDisplayLuminance = (display.maxLuminance + 0.5) / 10000;
    frame.minDisplayLuminance = (display.minLuminance + 0.5) / 10000;
    frame.colorFlags |= QLN_COLOR_MASTERING;
  }
  if (hdr.lightLevel) {
    frame.maxContentLightLevel = hdr.lightLevel->maxContent;
    frame.maxFrameAverageLightLevel = hdr.lightLevel->maxAverage;
    frame.colorFlags |= QLN_COLOR_MAX_CLL | QLN_COLOR_MAX_FALL;
  }
  const uint32_t fourcc = codec == Codec::kH264 ? MKTAG('a', 'v', 'c', '1') : MKTAG('h', 'v', 'c', '1');
  if (qlnutilWrite_HDR_WCG_SEI_Packet(&frame, fourcc) == 0) throw std::bad_alloc();
  return TakeApart(ByteSpan(data).first(frame.frameSize), Framing{}).units.front().bytes;
}

}  // namespace qlnmedia
