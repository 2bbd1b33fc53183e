// What a file of SMPTE ST 377-1 is made of: its partitions, header metadata, index table segments, and
// which elements of essence are pictures.
#ifndef MEDIA_CONTAINER_MXF_LAYOUT_H
#define MEDIA_CONTAINER_MXF_LAYOUT_H

#include <map>
#include <optional>
#include <vector>

#include "container/mxf/index_segment.h"
#include "container/mxf/klv.h"
#include "container/mxf/metadata.h"

namespace qlnmedia::mxf {

struct Partition {
  Klv pack;
  uint64_t end = 0;  // the next partition, the random index pack, or the end of the file
  // What the pack says.
  uint32_t alignment = 1;  // KAGSize, 1 where it says 0
  uint64_t thisPartition = 0, previous = 0, footer = 0;
  uint64_t headerBytes = 0, indexBytes = 0;
  uint32_t indexSid = 0;
  uint64_t bodyOffset = 0;
  uint32_t bodySid = 0;
  // What is in it.
  std::optional<uint64_t> headerAt, indexAt, essenceAt;
  uint64_t streamAt = 0;  // bytes of its essence container in front of it

  bool closed() const { return pack.key[14] == 0x02 || pack.key[14] == 0x04; }
};

// Places of the fields of a pack, from the begin of its value.
enum PackField : uint64_t {
  kThisPartitionAt = 8,
  kPreviousPartitionAt = 16,
  kFooterPartitionAt = 24,
  kHeaderBytesAt = 32,
  kIndexBytesAt = 40,
  kBodyOffsetAt = 52,
  kBodySidAt = 60,
};

// Elements of one track.
struct ElementCount {
  uint64_t elements = 0;
  uint64_t size = 0;     // of the first one's value
  bool constant = true;  // all have that size
  uint64_t largest = 0;
};

// Triplets of one key: how many, and how many begin where the alignment of their partition wants it.
struct AlignedCount {
  uint64_t all = 0;
  uint64_t aligned = 0;
};

struct Layout {
  uint64_t runIn = 0;
  std::vector<Partition> partitions;
  std::vector<MetadataCopy> metadata;
  std::vector<IndexSegment> index;
  std::optional<Klv> randomIndex;
  std::map<Key, AlignedCount> keys;
  std::map<std::pair<uint32_t, uint32_t>, ElementCount> elements;  // by bodySid and number
  std::optional<uint64_t> encryptedAt;
  std::optional<uint64_t> damagedIndexAt;
  std::map<uint32_t, std::vector<size_t>> bodies;  // partitions with essence, by bodySid
  std::optional<uint64_t> cutAt;                   // where the file ends within a triplet

  // The tracks of the copy of the metadata that is most to be trusted.
  const std::vector<PictureTrack>& tracks() const;
  // The partition that a place is in; nothing in front of the first one.
  const Partition* PartitionAt(uint64_t at) const;
  // Where a byte of an essence container stands in the file; nothing where it is in none of its partitions.
  std::optional<uint64_t> PlaceOf(uint32_t bodySid, uint64_t streamOffset) const;
  // Which one a segment belongs to.
  uint32_t BodySidOf(const IndexSegment& segment) const;
};

// Throws Error, with the place, where bytes are no triplets and where packs have not what they must.
Layout ReadLayout(const Source& source);

}  // namespace qlnmedia::mxf

#endif
