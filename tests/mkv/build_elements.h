// Matroska files put together element by element, with things in them that no muxer writes.
#ifndef TESTS_MKV_BUILD_ELEMENTS_H
#define TESTS_MKV_BUILD_ELEMENTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace qln::test::mkv {

// An element to be. Identifiers are written as they are, the marker included.
struct Part {
  uint64_t id = 0;
  Bytes data;               // of one without children
  std::vector<Part> parts;  // children
  size_t sizeBytes = 0;     // of its size; 0 for as few as do
  bool open = false;        // all ones in the place of its size
  bool checksum = false;    // begins with a CRC-32
  int label = 0;            // what others name it by
  // The data is a number: where the element of that label begins, counted from ...
  int target = 0;
  enum class From { kSegment, kCluster } from = From::kSegment;
  int cluster = 0;       // ... the body of the one of that label,
  int sizeOf = 0;        // or it is the size of the whole element of that label,
  size_t dataBytes = 0;  // in at least so many bytes.
};

Part Leaf(uint64_t id, Bytes data);
Part Number(uint64_t id, uint64_t value, size_t bytes = 0);
Part Text(uint64_t id, const std::string& text);
Part Master(uint64_t id, std::vector<Part> parts);
// A place that another element names, as SeekPosition.
Part Place(uint64_t id, int target, size_t bytes = 1);

enum class Lacing : uint8_t { kNone = 0, kXiph = 2, kFixed = 4, kEbml = 6 };
// The body of a block. `flags`: all bits but those of the lacing.
Bytes BlockBytes(uint64_t track, int16_t time, uint8_t flags, const std::vector<Bytes>& frames,
                 Lacing lacing = Lacing::kNone);

// The file of these elements, which stand behind each other.
Bytes Build(const std::vector<Part>& parts);

// A head of EBML, a track of video with `extra` elements, and the number of a track.
Part Head(uint64_t maxSizeLength = 8);
Part Track(uint64_t number, const std::vector<Part>& extra = {});
Part Info();

}  // namespace qln::test::mkv

#endif
