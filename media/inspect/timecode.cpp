// Reads timecode messages by the parameter sets of their pictures.

#include "inspect/timecode.h"

#include "pictures/presentation_order.h"
#include "units/access_unit.h"

namespace qlnmedia {

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
    times_.back() = ReadClock(codec_, run.units, *first->head->sps);
    const PresentationKey key = KeyOfHeader(*first);
    if (!times_.back() || (firstKey && *firstKey < key)) continue;
    firstKey = key;
    first_ = times_.back();
  }
}

void StreamTimecodes::AddToStream(Section& section) const {
  if (first_) section.Add("timecode", "Timecode", first_->Text(), "", "the first of the frames below");
}

void StreamTimecodes::AddToFrame(Section& frame, size_t number) const {
  if (number >= times_.size() || !times_[number]) return;
  const ClockTime& time = *times_[number];
  frame.Add("timecode", "Timecode", time.Text());
  if (time.dropped) frame.Add("cnt_dropped_flag", "Numbers", true, "some are left out in front of this one");
}

}  // namespace qlnmedia
