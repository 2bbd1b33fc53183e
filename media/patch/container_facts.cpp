// Writes values of a stream as boxes hold them.

#include "patch/container_facts.h"

#include <algorithm>

#include "sets/sps_facts.h"
#include "units/access_unit.h"

namespace qlnmedia {

namespace {

// The message's order (ITU-T H.265 D.2.28): green, blue, red, white point, most and least luminance.
std::array<uint8_t, 24> BodyOf(const MasteringDisplay& display) {
  mp4::Bytes body;
  for (const auto& point : {display.green, display.blue, display.red, display.white}) {
    mp4::PutNumber(body, point.x, 2);
    mp4::PutNumber(body, point.y, 2);
  }
  mp4::PutNumber(body, display.maxLuminance, 4);
  mp4::PutNumber(body, display.minLuminance, 4);
  std::array<uint8_t, 24> out{};
  std::copy(body.begin(), body.end(), out.begin());
  return out;
}

std::optional<SpsFacts> FirstSps(Codec codec, const std::vector<Bytes>& units) {
  for (const Bytes& unit : units) {
    if (!IsSps(codec, UnitType(codec, unit)) || !IsBaseLayer(codec, unit)) continue;
    if (std::optional<SpsFacts> facts = ReadSpsFacts(codec, unit)) return facts;
  }
  return {};
}

}  // namespace

std::optional<mp4::PictureSize> PictureSizeOf(Codec codec, const std::vector<Bytes>& before,
                                              const std::vector<Bytes>& after) {
  const std::optional<SpsFacts> was = FirstSps(codec, before);
  const std::optional<SpsFacts> is = FirstSps(codec, after);
  if (!was || !is) return {};
  mp4::PictureSize size;
  size.wasWidth = was->width;
  size.wasHeight = was->height;
  size.width = is->width;
  size.height = is->height;
  size.left = int64_t{is->cropping.left} - int64_t{was->cropping.left};
  size.top = int64_t{is->cropping.top} - int64_t{was->cropping.top};
  return size;
}

mp4::ContainerFacts FactsOf(const StreamChanges& changes, const StreamDescription& stream) {
  mp4::ContainerFacts facts;
  if (changes.colour || changes.fullRange) {
    mp4::Colour colour;
    if (changes.colour) {
      colour.primaries = changes.colour->primaries;
      colour.transfer = changes.colour->transfer;
      colour.matrix = changes.colour->matrix;
    }
    colour.fullRange = changes.fullRange;
    facts.colour = colour;
  }
  // A shape that nobody tells has no box; the one that is there stays.
  if (changes.sampleAspect && changes.sampleAspect->width != 0)
    facts.pixelShape = {changes.sampleAspect->width, changes.sampleAspect->height};
  if (changes.mastering) facts.mastering = BodyOf(*changes.mastering);
  if (changes.lightLevel) facts.lightLevel = {changes.lightLevel->maxContent, changes.lightLevel->maxAverage};
  if (changes.interlaced) {
    // Fields of a frame; the one that is shown first is coded first (QuickTime File Format Specification).
    constexpr uint8_t kTopFirst = 1;
    constexpr uint8_t kBottomFirst = 6;
    facts.fields = {1, 0};
    if (*changes.interlaced) facts.fields = {2, stream.bottomFirst ? kBottomFirst : kTopFirst};
  }
  return facts;
}

}  // namespace qlnmedia
