// HDR metadata between SEI and the library's records.

#include "hdr/stream_hdr.h"

#include <new>

#include "qlnutil/qlninband.h"
#include "units/access_unit.h"
#include "units/library_frame.h"

namespace qlnmedia {

namespace {

// Formats of frames as the library's makers take them.
constexpr uint32_t FourCc(const char (&text)[5]) {
  uint32_t code = 0;
  for (int i = 3; i >= 0; --i) code = code << 8 | static_cast<uint8_t>(text[i]);
  return code;
}
constexpr uint32_t kAvc1 = FourCc("avc1");
constexpr uint32_t kHvc1 = FourCc("hvc1");

}  // namespace

StreamHdr HdrOf(Codec codec, const std::vector<Unit>& units) {
  // The library copies the frame that it looks through: slices stay out of it.
  std::vector<Bytes> messages;
  for (const Unit& unit : units) {
    if (IsSei(codec, UnitType(codec, unit.bytes))) messages.push_back(unit.bytes);
  }
  StreamHdr hdr;
  if (messages.empty()) return hdr;
  LibraryFrame looked(messages);
  DFrame& frame = looked.frame();
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
  // The unit comes to stand in front of the slice.
  LibraryFrame made({SliceStub(codec)});
  DFrame& frame = made.frame();
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
  const uint32_t fourcc = codec == Codec::kH264 ? kAvc1 : kHvc1;
  if (qlnutilWrite_HDR_WCG_SEI_Packet(&frame, fourcc) == 0) throw std::bad_alloc();
  return made.units().front().bytes;
}

}  // namespace qlnmedia
