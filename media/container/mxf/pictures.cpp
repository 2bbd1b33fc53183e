// Finds pictures by the numbers of their elements and the partitions that they stand in.

#include "container/mxf/pictures.h"

#include <algorithm>

namespace qlnmedia::mxf {

namespace {

constexpr uint64_t kMostPictureBytes = uint64_t{512} << 20;
// How far a temporal offset reaches.
constexpr uint64_t kReach = 128;

}  // namespace

UnitTimes::UnitTimes(const Source& source, const Layout& layout, uint32_t bodySid) {
  Reader reader(source, size_t{1} << 16);
  for (const IndexSegment& segment : layout.index) {
    if (layout.BodySidOf(segment) != bodySid || segment.start < 0) continue;
    constant_ = constant_ || (segment.unitBytes != 0 && segment.entries == 0);
    if (segment.entries == 0) continue;
    Run run;
    run.start = static_cast<uint64_t>(segment.start);
    for (uint64_t i = 0; i < segment.entries; ++i) {
      const uint64_t at = segment.entriesAt + i * segment.entryBytes;
      run.offsets.push_back(static_cast<int8_t>(reader.U8(at + kTemporalOffsetAt)));
      run.flags.push_back(reader.U8(at + kEntryFlagsAt));
    }
    runs_.push_back(std::move(run));
  }
  std::stable_sort(runs_.begin(), runs_.end(), [](const Run& a, const Run& b) { return a.start < b.start; });
  // Of segments that are repeated the first one counts.
  std::vector<Run> without;
  for (Run& run : runs_) {
    if (!without.empty() && run.start - without.back().start < without.back().offsets.size()) continue;
    without.push_back(std::move(run));
  }
  runs_ = std::move(without);
}

const UnitTimes::Run* UnitTimes::RunOf(uint64_t unit) const {
  const auto behind = std::upper_bound(runs_.begin(), runs_.end(), unit,
                                       [](uint64_t at, const Run& run) { return at < run.start; });
  if (behind == runs_.begin()) return nullptr;
  const Run& run = *std::prev(behind);
  return unit - run.start < run.offsets.size() ? &run : nullptr;
}

std::optional<int64_t> UnitTimes::ShownAt(uint64_t stored) const {
  const auto is = [&](uint64_t shown) {
    const Run* const run = RunOf(shown);
    return run != nullptr &&
           static_cast<int64_t>(shown) + run->offsets[shown - run->start] == static_cast<int64_t>(stored);
  };
  for (uint64_t away = 0; away <= kReach; ++away) {
    if (is(stored + away)) return static_cast<int64_t>(stored + away);
    if (away <= stored && is(stored - away)) return static_cast<int64_t>(stored - away);
  }
  if (runs_.empty() && constant_) return static_cast<int64_t>(stored);
  return {};
}

bool UnitTimes::IsEntry(uint64_t stored) const {
  const Run* const run = RunOf(stored);
  if (run == nullptr) return constant_;
  return (run->flags[stored - run->start] & kRandomAccess) != 0;
}

// A time belongs to one stored unit, so that each having one is enough.
bool UnitTimes::Complete(uint64_t units) const {
  for (uint64_t unit = 0; unit < units; ++unit) {
    if (!ShownAt(unit)) return false;
  }
  return units != 0;
}

PictureReader::PictureReader(const Source& source, const Layout& layout,
                             const std::vector<PictureTrack>& tracks)
    : layout_(layout), tracks_(tracks), triplets_(source, layout.runIn), counts_(tracks.size()) {}

bool PictureReader::Next(Picture& picture) {
  for (Klv klv; triplets_.Next(klv);) {
    if (klv.kind() != Kind::kEssence || klv.size == 0) continue;
    const Partition* const partition = layout_.PartitionAt(klv.at);
    for (size_t i = 0; i < tracks_.size(); ++i) {
      const PictureTrack& track = tracks_[i];
      if (klv.number() != track.number || (track.bodySid != 0 && partition->bodySid != track.bodySid))
        continue;
      const Source& source = triplets_.reader().source();
      if (klv.size > kMostPictureBytes)
        throw source.Fault(klv.at, "an element of essence is larger than a picture may be");
      picture.klv = klv;
      picture.track = i;
      picture.number = counts_[i]++;
      picture.bytes.resize(static_cast<size_t>(klv.size));
      source.Read(klv.valueAt(), picture.bytes);
      return true;
    }
  }
  return false;
}

bool BeginsWithHevc(const Source& source) {
  constexpr uint8_t kPictureItems[] = {0x05, 0x15};
  constexpr size_t kLongestStartCode = 4, kHead = 2;
  constexpr uint8_t kDelimiterHead = 35 << 1, kVideoSetHead = 32 << 1;
  KlvReader triplets(source);
  for (Klv klv; triplets.Next(klv);) {
    const bool picture =
        std::find(std::begin(kPictureItems), std::end(kPictureItems), klv.key[12]) != std::end(kPictureItems);
    if (klv.kind() != Kind::kEssence || !picture || klv.size < kLongestStartCode + kHead) continue;
    const Bytes begin = triplets.reader().Run(klv.valueAt(), kLongestStartCode + kHead);
    const size_t one = begin[2] == 1 ? 2 : 3;
    if (begin[0] != 0 || begin[1] != 0 || begin[one] != 1) return false;
    const uint8_t head = begin[one + 1];
    return (head == kDelimiterHead || head == kVideoSetHead) && begin[one + 2] == 1;
  }
  return false;
}

}  // namespace qlnmedia::mxf
