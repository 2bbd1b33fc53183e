// Keys out of times, picture order counts, or temporal references; and which pictures near one in coding
// order change sides with it.

#include "pictures/presentation_order.h"

#include <algorithm>

#include "units/mpeg2.h"

namespace qlnmedia {

namespace {

constexpr int64_t kTemporalReferences = 1024;

}  // namespace

PresentationKey KeyOfHeader(const CodedPicture& picture) {
  return {picture.order.group, std::min(picture.order.top, picture.order.bottom)};
}

PresentationKeys::PresentationKeys(const StreamDescription& stream)
    : timed_(!stream.raw && !stream.ownOrder),
      mpeg2_(stream.codec == VideoCodec::kMpeg2),
      unit_(stream.timeBase.value()) {}

PresentationKey PresentationKeys::NextOfTimes(const PacketView& packet) {
  // Decoding times go back only where one recording ends and another begins.
  if (packet.dts != kNoTime) {
    const bool anew = lastDecoding_ != kNoTime && static_cast<double>(lastDecoding_ - packet.dts) * unit_ > 1;
    if (anew) ++group_;
    lastDecoding_ = packet.dts;
  }
  if (packet.pts != kNoTime) {
    last_ = packet.pts;
  } else if (packet.dts != kNoTime) {
    last_ = packet.dts;
  }
  return {group_, last_};
}

std::optional<PresentationKey> PresentationKeys::NextOfReferences(ByteSpan data) {
  timed_ = false;
  const Mpeg2Picture picture = ReadMpeg2Picture(data);
  if (!picture.found) return {};
  // References begin anew with a group of pictures, and wrap in streams that have none.
  if (picture.beginsGroup || picture.temporalReference + kTemporalReferences / 2 < last_) ++group_;
  last_ = picture.temporalReference;
  return PresentationKey{group_, last_};
}

std::optional<PresentationKey> PresentationKeys::Next(const PacketView& packet,
                                                      const std::vector<CodedPicture>& pictures) {
  if (mpeg2_) {
    if (timed_ && packet.pts != kNoTime) return NextOfTimes(packet);
    return NextOfReferences(packet.data);
  }
  const CodedPicture* const first = FirstPlaced(pictures);
  if (first == nullptr ? !timed_ : first->secondField) return {};
  if (timed_) return NextOfTimes(packet);
  return KeyOfHeader(*first);
}

uint32_t PresentationOrder::Take() {
  const PresentationKey key = pending_.front();
  pending_.pop_front();
  const auto later =
      std::count_if(taken_.begin(), taken_.end(), [key](const auto& other) { return other > key; });
  const auto earlier =
      std::count_if(pending_.begin(), pending_.end(), [key](const auto& other) { return other < key; });
  const uint32_t place = count_ - static_cast<uint32_t>(later) + static_cast<uint32_t>(earlier);
  ++count_;
  taken_.push_back(key);
  if (taken_.size() > kAhead) taken_.pop_front();
  return place;
}

}  // namespace qlnmedia
