// Looks for index table segments at the begin of each partition.

#include "container/mxf/order_told.h"

#include <set>

#include "container/mxf/index_segment.h"
#include "container/mxf/layout.h"

namespace qlnmedia::mxf {

namespace {

constexpr uint64_t kOffsetInEntry = 4;
constexpr uint64_t kMostIndexRead = uint64_t{1} << 24;

// Offsets of partitions from the header partition on, as the random index pack at the file's end has them.
std::set<uint64_t> IndexedPartitions(Reader& reader) {
  std::set<uint64_t> partitions;
  const uint64_t size = reader.size();
  if (size < kKeyBytes + 4) return partitions;
  const uint64_t whole = reader.U32(size - 4);
  if (whole < kKeyBytes + 4 || whole > size || whole > kMostIndexRead) return partitions;
  KlvReader triplets(reader.source(), size - whole);
  Klv pack;
  if (!triplets.Next(pack) || pack.kind() != Kind::kRandomIndex) return partitions;
  for (uint64_t at = 0; at + kRandomIndexEntry + 4 <= pack.size; at += kRandomIndexEntry)
    partitions.insert(reader.U64(pack.valueAt() + at + kOffsetInEntry));
  return partitions;
}

bool HasOffsets(Reader& reader, const IndexSegment& segment) {
  for (uint64_t i = 0; i < segment.entries; ++i) {
    if (reader.U8(segment.entriesAt + i * segment.entryBytes + kTemporalOffsetAt) != 0) return true;
  }
  return false;
}

// The partition that begins at a place, up to its essence.
bool HasOffsets(Reader& reader, uint64_t at) {
  if (at >= reader.size()) return false;
  KlvReader triplets(reader.source(), at);
  bool inside = false;
  for (Klv klv; triplets.Next(klv);) {
    const Kind kind = klv.kind();
    if (kind == Kind::kPartition && inside) return false;
    inside = inside || kind == Kind::kPartition;
    if (!inside || kind == Kind::kEssence || kind == Kind::kSystem || kind == Kind::kRandomIndex)
      return false;
    if (kind != Kind::kIndex) continue;
    const std::optional<IndexSegment> segment = ReadIndexSegment(reader, klv);
    if (segment && HasOffsets(reader, *segment)) return true;
  }
  return false;
}

}  // namespace

bool TellsOrder(const Source& source) {
  try {
    Reader reader(source, size_t{1} << 16);
    const std::optional<uint64_t> begin = FindHeaderPartition(source);
    if (!begin) return false;
    std::set<uint64_t> partitions = IndexedPartitions(reader);
    if (partitions.empty()) {
      KlvReader triplets(source, *begin);
      Klv pack;
      if (!triplets.Next(pack) || pack.size < kBodySidAt) return false;
      partitions = {0, reader.U64(pack.valueAt() + kFooterPartitionAt)};
    }
    for (const uint64_t offset : partitions) {
      if (offset < reader.size() && HasOffsets(reader, *begin + offset)) return true;
    }
  } catch (const Error&) {  // says nothing that could be believed
  }
  return false;
}

}  // namespace qlnmedia::mxf
