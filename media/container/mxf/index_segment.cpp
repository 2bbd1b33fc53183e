// Reads a segment property by property, and its arrays in place: they may be long.

#include "container/mxf/index_segment.h"

namespace qlnmedia::mxf {

namespace {

constexpr uint16_t kUnitBytes = 0x3F05, kSlices = 0x3F08;
constexpr uint16_t kDeltas = 0x3F09, kEntries = 0x3F0A, kStart = 0x3F0C, kDuration = 0x3F0D;
constexpr uint16_t kPositionTables = 0x3F0E, kLastUnitBytes = 0x3F10;
constexpr uint64_t kArrayHead = 8;
constexpr uint64_t kRationalBytes = 8, kSliceOffsetBytes = 4;

struct Array {
  uint64_t at = 0;
  uint64_t count = 0;
  uint32_t entryBytes = 0;
};

// An array whose entries all stand in its property.
std::optional<Array> ReadArray(Reader& reader, uint64_t at, uint64_t size) {
  if (size < kArrayHead) return {};
  const Array array{at + kArrayHead, reader.U32(at), reader.U32(at + 4)};
  if (array.count != 0 && (array.entryBytes == 0 || array.count > (size - kArrayHead) / array.entryBytes))
    return {};
  return array;
}

bool TakeDeltas(Reader& reader, const std::optional<Array>& array, IndexSegment& segment) {
  if (!array) return false;
  if (array->count != 0 && array->entryBytes != kDeltaEntryBytes) return false;
  segment.deltasAt = array->at;
  for (uint64_t i = 0; i < array->count; ++i) {
    const uint64_t at = array->at + i * kDeltaEntryBytes;
    segment.deltas.push_back({reader.U8(at + 1), reader.U32(at + kElementDeltaAt)});
  }
  return true;
}

}  // namespace

std::optional<IndexSegment> ReadIndexSegment(Reader& reader, const Klv& klv) {
  IndexSegment segment;
  segment.klv = klv;
  uint8_t positions = 0;
  for (uint64_t at = klv.valueAt(); at < klv.end();) {
    if (klv.end() - at < 4) return {};
    const uint16_t tag = reader.U16(at);
    const uint64_t size = reader.U16(at + 2);
    const uint64_t value = at + 4;
    if (size > klv.end() - value) return {};
    at = value + size;
    const auto number = [&](size_t bytes) { return size == bytes ? reader.Number(value, bytes) : 0; };
    if (tag == kUnitBytes) segment.unitBytes = static_cast<uint32_t>(number(4));
    if (tag == kIndexSid) segment.indexSid = static_cast<uint32_t>(number(4));
    if (tag == kBodySid) segment.bodySid = static_cast<uint32_t>(number(4));
    if (tag == kSlices) segment.slices = static_cast<uint8_t>(number(1));
    if (tag == kPositionTables) positions = static_cast<uint8_t>(number(1));
    if (tag == kStart) segment.start = static_cast<int64_t>(number(8));
    if (tag == kDuration) segment.duration = static_cast<int64_t>(number(8));
    if (tag == kLastUnitBytes && size == 8) {
      segment.lastUnitBytesAt = value;
      segment.lastUnitBytes = number(8);
    }
    if (tag == kDeltas && !TakeDeltas(reader, ReadArray(reader, value, size), segment)) return {};
    if (tag == kEntries) {
      const auto array = ReadArray(reader, value, size);
      if (!array) return {};
      segment.entriesAt = array->at;
      segment.entries = array->count;
      segment.entryBytes = array->entryBytes;
    }
  }
  const uint64_t needed = kSliceOffsetsAt + segment.slices * kSliceOffsetBytes + positions * kRationalBytes;
  if (segment.entries != 0 && segment.entryBytes < needed) return {};
  return segment;
}

}  // namespace qlnmedia::mxf
