// Reads timecode messages by the parameter sets of their pictures.

#include "inspect/timecode.h"

#include <algorithm>

#include "pictures/presentation_order.h"
#include "units/access_unit.h"

namespace qlnmedia {

namespace {

std::optional<ClockTime> FirstWhole(const ClockTime* begin, const ClockTime* end) {
  const ClockTime* const found = std::find_if(begin, end, [](const ClockTime& time) { return time.whole; });
  return found == end ? std::nullopt : std::optional<ClockTime>(*found);
}

}  // namespace

StreamTimecodes::StreamTimecodes(const CodedStream& stream) : codec_(stream.codec) {
  PictureTracker tracker(codec_);
  for (const Bytes& unit : stream.config.units()) tracker.TakeSet(unit);
  std::optional<PresentationKey> firstKey;
  for (const CodedPacket& packet : stream.packets) {
    const UnitRun run = TakeApart(packet.data, stream.config.framing);
    const std::vector<CodedPicture> pictures = tracker.Take(run.units);
    times_.emplace_back();
    const CodedPicture* const first = FirstPlaced(pictures);
    if (first == nullptr) continue;
    times_.back() = Read(run.units, *first->head->sps);
    const PresentationKey key = KeyOfHeader(*first);
    if (!times_.back() || (firstKey && *firstKey < key)) continue;
    firstKey = key;
    first_ = times_.back();
  }
}

std::optional<ClockTime> StreamTimecodes::Read(const std::vector<Unit>& units, const SpsFacts& sps) const {
  for (const Unit& unit : units) {
    if (!IsSei(codec_, UnitType(codec_, unit.bytes))) continue;
    for (const SeiMessage& message : ReadSeiMessages(codec_, unit.bytes)) {
      std::optional<ClockTime> time;
      if (codec_ == Codec::kHevc && message.type == sei::kTimeCode) {
        const std::vector<ClockTime> times = ReadTimeCode(message.payload);
        time = FirstWhole(times.data(), times.data() + times.size());
      } else if (codec_ == Codec::kH264 && message.type == sei::kPictureTiming) {
        const std::optional<PictureTiming> timing = ReadPictureTiming(message.payload, sps);
        if (timing) time = FirstWhole(std::begin(timing->times), std::end(timing->times));
      }
      if (time) return time;
    }
  }
  return {};
}

void StreamTimecodes::AddToStream(Section& section) const {
  if (first_) section.Add("timecode", "Timecode", first_->Text(), "", "the first of the frames below");
}

void StreamTimecodes::AddToFrame(Section& frame, size_t number) const {
  if (number >= times_.size() || !times_[number]) return;
  frame.Add("timecode", "Timecode", times_[number]->Text());
}

}  // namespace qlnmedia
