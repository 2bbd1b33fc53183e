// Index table segments (SMPTE ST 377-1): where the edit units of an essence container stand in it.
#ifndef MEDIA_CONTAINER_MXF_INDEX_SEGMENT_H
#define MEDIA_CONTAINER_MXF_INDEX_SEGMENT_H

#include <cstdint>
#include <optional>
#include <vector>

#include "container/mxf/klv.h"

namespace qlnmedia::mxf {

// An entry of the delta array: an element of an edit unit, from its slice's begin on.
struct DeltaEntry {
  uint8_t slice = 0;
  uint32_t delta = 0;
};

struct IndexSegment {
  Klv klv;
  int64_t start = 0;
  int64_t duration = 0;
  uint32_t unitBytes = 0;  // of every edit unit; 0 where entries tell
  uint32_t indexSid = 0, bodySid = 0;
  uint8_t slices = 0;
  uint64_t deltasAt = 0;  // the first entry of the delta array
  std::vector<DeltaEntry> deltas;
  uint64_t entriesAt = 0;
  uint64_t entries = 0;
  uint32_t entryBytes = 0;
  uint64_t lastUnitBytesAt = 0, lastUnitBytes = 0;  // VBEByteCount
};

// Fields of an index entry.
inline constexpr uint64_t kTemporalOffsetAt = 0, kEntryFlagsAt = 2, kStreamOffsetAt = 3, kSliceOffsetsAt = 11;
inline constexpr uint8_t kRandomAccess = 0x80;
inline constexpr uint64_t kDeltaEntryBytes = 6, kElementDeltaAt = 2;

// Nothing where the segment's lengths or counts are not true: it then stays as it is.
std::optional<IndexSegment> ReadIndexSegment(Reader& reader, const Klv& klv);

}  // namespace qlnmedia::mxf

#endif
