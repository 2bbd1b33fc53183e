// Every place moves by the growth in front of it, so that each number follows from where it points.

#include "container/mxf/place_edit.h"

#include <fmt/format.h>

#include <algorithm>

namespace qlnmedia::mxf {

namespace {

constexpr uint64_t kFieldsAt = kThisPartitionAt, kFieldsEnd = kBodySidAt;
constexpr size_t kChunkBytes = size_t{64} << 10;
constexpr uint64_t kRandomIndexTail = 4;
constexpr uint64_t kMostRandomIndex = uint64_t{64} << 20;

void Store(std::span<uint8_t> to, uint64_t at, uint64_t value, size_t bytes) {
  for (size_t i = 0; i < bytes; ++i) to[at + i] = static_cast<uint8_t>(value >> 8 * (bytes - 1 - i));
}

}  // namespace

PlaceEdit::PlaceEdit(Carrier& carrier)
    : carrier_(carrier),
      source_(carrier.source_),
      layout_(carrier.layout_),
      shape_(carrier.shape_),
      keys_(carrier.source_, 64) {
  for (const auto& [bodySid, list] : layout_.bodies) {
    for (const size_t index : list) {
      const Partition& partition = layout_.partitions[index];
      before_[&partition] = grown_[bodySid];
      grown_[bodySid] += shape_.GrowthIn(*partition.essenceAt, partition.end);
      if (shape_.FirstFrom(*partition.essenceAt) != shape_.FirstFrom(partition.end)) moving_.insert(bodySid);
    }
  }
}

void PlaceEdit::Run() {
  if (!shape_.anyGrowth()) return;
  for (const Partition& partition : layout_.partitions) EditPack(partition);
  if (layout_.randomIndex) EditRandomIndex(*layout_.randomIndex);
  for (const IndexSegment& segment : layout_.index) EditSegment(segment);
  const bool grown = std::any_of(grown_.begin(), grown_.end(), [](const auto& of) { return of.second != 0; });
  if (grown && layout_.damagedIndexAt)
    throw source_.Fault(*layout_.damagedIndexAt,
                        "an index table segment is damaged, and what it points to moves");
}

// Offsets of partitions count from the header partition's begin. One that is not in the file stays.
uint64_t PlaceEdit::Moved(uint64_t offset) const {
  if (offset > source_.size() || layout_.runIn + offset > source_.size()) return offset;
  return static_cast<uint64_t>(static_cast<int64_t>(offset) + shape_.ShiftAt(layout_.runIn + offset));
}

uint64_t PlaceEdit::Grown(std::optional<uint64_t> begin, uint64_t bytes, const Partition& partition) const {
  if (bytes == 0 || !begin || bytes > partition.end - *begin) return bytes;
  return static_cast<uint64_t>(static_cast<int64_t>(bytes) + shape_.GrowthIn(*begin, *begin + bytes));
}

void PlaceEdit::Put(const Klv& klv, uint64_t at, ByteSpan was, Bytes is) {
  const auto inserted = carrier_.insertions_.find(klv.end());
  if (at + was.size() == klv.end() && inserted != carrier_.insertions_.end() &&
      !std::equal(was.begin(), was.end(), is.begin(), is.end())) {
    is.insert(is.end(), inserted->second.begin(), inserted->second.end());
    carrier_.insertions_.erase(inserted);
  }
  carrier_.final_.AddDifference(at, was, is);
}

void PlaceEdit::EditPack(const Partition& partition) {
  const uint64_t at = partition.pack.valueAt() + kFieldsAt;
  const Bytes was = keys_.Run(at, kFieldsEnd - kFieldsAt);
  Bytes is = was;
  const auto put = [&](uint64_t field, uint64_t value) { Store(is, field - kFieldsAt, value, 8); };
  put(kThisPartitionAt, Moved(partition.thisPartition));
  put(kPreviousPartitionAt, Moved(partition.previous));
  put(kFooterPartitionAt, Moved(partition.footer));
  put(kHeaderBytesAt, Grown(partition.headerAt, partition.headerBytes, partition));
  put(kIndexBytesAt, Grown(partition.indexAt, partition.indexBytes, partition));
  if (const auto before = before_.find(&partition); before != before_.end())
    put(kBodyOffsetAt, static_cast<uint64_t>(static_cast<int64_t>(partition.bodyOffset) + before->second));
  Put(partition.pack, at, was, std::move(is));
}

void PlaceEdit::EditRandomIndex(const Klv& klv) {
  if (klv.size > kMostRandomIndex || klv.size < kRandomIndexTail) return;
  const Bytes was = keys_.Run(klv.valueAt(), klv.size);
  Bytes is = was;
  for (uint64_t at = 0; at + kRandomIndexEntry + kRandomIndexTail <= klv.size; at += kRandomIndexEntry)
    Store(is, at + 4, Moved(mp4::LoadNumber(was.data() + at + 4, 8)), 8);
  Put(klv, klv.valueAt(), was, std::move(is));
}

int64_t PlaceEdit::StreamShift(uint64_t place) const {
  const Partition* partition = layout_.PartitionAt(place);
  auto before = before_.find(partition);
  // The end of one partition's essence, where the next one has begun.
  if (before == before_.end() || place < *partition->essenceAt) {
    partition = layout_.PartitionAt(partition->pack.at - 1);
    before = before_.find(partition);
    if (before == before_.end()) return 0;
  }
  return before->second + shape_.GrowthIn(*partition->essenceAt, place);
}

bool PlaceEdit::BeginsTriplet(uint64_t place) {
  return place + 4 <= source_.size() && keys_.U32(place) == 0x060E2B34;
}

void PlaceEdit::EditSegment(const IndexSegment& segment) {
  const uint32_t bodySid = layout_.BodySidOf(segment);
  if (moving_.count(bodySid) == 0) return;
  std::vector<std::optional<int64_t>> deltas(segment.deltas.size());
  if (segment.entries == 0) {
    if (segment.unitBytes != 0) RequireUnitsKept(segment, bodySid);
    return;
  }
  EditEntries(segment, bodySid, deltas);
  EditDeltas(segment, deltas);
  EditLastUnit(segment, bodySid);
}

// What is told by one size for all edit units cannot be told of units that differ.
void PlaceEdit::RequireUnitsKept(const IndexSegment& segment, uint32_t bodySid) const {
  const int64_t growth = grown_.at(bodySid);
  if (growth != 0)
    throw source_.Fault(segment.klv.at,
                        fmt::format("the index gives every edit unit {} bytes, and they become {} bytes more "
                                    "in all",
                                    segment.unitBytes, growth));
}

void PlaceEdit::EditEntries(const IndexSegment& segment, uint32_t bodySid,
                            std::vector<std::optional<int64_t>>& deltas) {
  const uint64_t chunk = std::max<uint64_t>(1, kChunkBytes / segment.entryBytes);
  for (uint64_t first = 0; first < segment.entries; first += chunk) {
    const uint64_t count = std::min(chunk, segment.entries - first);
    const uint64_t at = segment.entriesAt + first * segment.entryBytes;
    const Bytes was = keys_.Run(at, count * segment.entryBytes);
    Bytes is = was;
    for (uint64_t i = 0; i < count; ++i) {
      const uint64_t offset = i * segment.entryBytes;
      EditEntry(segment, bodySid, at + offset,
                std::span<uint8_t>(is).subspan(static_cast<size_t>(offset), segment.entryBytes), deltas);
    }
    Put(segment.klv, at, was, std::move(is));
  }
}

void PlaceEdit::EditEntry(const IndexSegment& segment, uint32_t bodySid, uint64_t at,
                          std::span<uint8_t> entry, std::vector<std::optional<int64_t>>& deltas) {
  const uint64_t offset = mp4::LoadNumber(entry.data() + kStreamOffsetAt, 8);
  const std::optional<uint64_t> place = layout_.PlaceOf(bodySid, offset);
  if (!place) {
    // Of a unit that is not in the file.
    Store(entry, kStreamOffsetAt, static_cast<uint64_t>(static_cast<int64_t>(offset) + grown_.at(bodySid)),
          8);
    return;
  }
  const Partition* const partition = layout_.PartitionAt(*place);
  if (!BeginsTriplet(*place) && *place != partition->end && *place != source_.size())
    throw source_.Fault(at,
                        "an index entry points to no element of essence, and what it means to point to "
                        "may move");
  Store(entry, kStreamOffsetAt, static_cast<uint64_t>(static_cast<int64_t>(offset) + StreamShift(*place)), 8);
  std::vector<uint64_t> slices = {*place};
  for (uint64_t i = 0; i < segment.slices; ++i) {
    const uint64_t field = kSliceOffsetsAt + 4 * i;
    const uint64_t was = mp4::LoadNumber(entry.data() + field, 4);
    const uint64_t begin = std::min(*place + was, source_.size());
    const int64_t is = static_cast<int64_t>(was) + shape_.GrowthIn(*place, begin);
    if (is < 0 || is > UINT32_MAX)
      throw source_.Fault(at, "a slice of an edit unit begins too far behind it");
    Store(entry, field, static_cast<uint64_t>(is), 4);
    slices.push_back(begin);
  }
  FollowDeltas(segment, at, slices, deltas);
}

// One delta holds for all edit units: where it was true of one, it has to grow by the same for all.
void PlaceEdit::FollowDeltas(const IndexSegment& segment, uint64_t at, const std::vector<uint64_t>& slices,
                             std::vector<std::optional<int64_t>>& deltas) {
  for (size_t i = 0; i < deltas.size(); ++i) {
    const DeltaEntry& delta = segment.deltas[i];
    if (delta.delta == 0 || delta.slice >= slices.size()) continue;
    const uint64_t begin = slices[delta.slice];
    const uint64_t place = begin + delta.delta;
    if (place > source_.size() || !BeginsTriplet(place)) continue;
    const int64_t growth = shape_.GrowthIn(begin, place);
    if (deltas[i].value_or(growth) != growth)
      throw source_.Fault(at,
                          "the index takes what stands in front of an element for equally long in all edit "
                          "units, and it would no longer be");
    deltas[i] = growth;
  }
}

void PlaceEdit::EditDeltas(const IndexSegment& segment, const std::vector<std::optional<int64_t>>& deltas) {
  for (size_t i = 0; i < deltas.size(); ++i) {
    if (deltas[i].value_or(0) == 0) continue;
    const uint64_t at = segment.deltasAt + i * kDeltaEntryBytes + kElementDeltaAt;
    const int64_t is = static_cast<int64_t>(segment.deltas[i].delta) + *deltas[i];
    if (is < 0 || is > UINT32_MAX)
      throw source_.Fault(at, "an element of an edit unit begins too far behind it");
    Put(segment.klv, at, keys_.Run(at, 4), mp4::NumberBytes(static_cast<uint64_t>(is), 4));
  }
}

// The bytes of the segment's last edit unit, which some segments tell.
void PlaceEdit::EditLastUnit(const IndexSegment& segment, uint32_t bodySid) {
  if (segment.lastUnitBytes == 0) return;
  const uint64_t entry = segment.entriesAt + (segment.entries - 1) * segment.entryBytes;
  const auto place = layout_.PlaceOf(bodySid, keys_.U64(entry + kStreamOffsetAt));
  if (!place || segment.lastUnitBytes > source_.size() - *place) return;
  const int64_t growth = shape_.GrowthIn(*place, *place + segment.lastUnitBytes);
  const auto is = static_cast<uint64_t>(static_cast<int64_t>(segment.lastUnitBytes) + growth);
  Put(segment.klv, segment.lastUnitBytesAt, mp4::NumberBytes(segment.lastUnitBytes, 8),
      mp4::NumberBytes(is, 8));
}

}  // namespace qlnmedia::mxf
