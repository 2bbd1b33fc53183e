// Spreads captions over pictures that are not there yet.

#include "patch/live/captions.h"

#include "timing/picture_clock.h"

namespace qlnmedia {

void LiveCaptions::SpreadOver(const StreamDescription& stream, const std::string& path, unsigned index,
                              const std::string& rate) {
  survey_.stream = index;
  survey_.order.timeBase = stream.timeBase;
  survey_.pace = PaceOf(stream, survey_.order);
  file_.SpreadOver(survey_, path, index, rate);
  provider_ = file_.provider();
}

CaptionProvider LiveCaptions::ProviderFrom(uint32_t first) {
  return [this, first](uint32_t place) {
    const uint64_t wanted = uint64_t{first} + place;
    if (wanted < next_) return std::vector<captions::Triplet>();
    for (; next_ < wanted; ++next_) provider_(static_cast<uint32_t>(next_));
    return provider_(static_cast<uint32_t>(next_++));
  };
}

}  // namespace qlnmedia
