// Boxes as they stand in a file (ISO/IEC 14496-12 clause 4.2): heads only, level by level, bounded by what
// surrounds them.
#ifndef MEDIA_CONTAINER_MP4_BOX_TREE_H
#define MEDIA_CONTAINER_MP4_BOX_TREE_H

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include "container/mp4/source.h"

namespace qlnmedia::mp4 {

struct Box {
  uint32_t type = 0;
  uint64_t at = 0;        // of its head, in bytes from the file's begin
  uint64_t body = 0;      // behind its head (size, type, 64-bit size)
  uint64_t end = 0;       // never beyond what surrounds it
  uint64_t declared = 0;  // the size that the head says; end - at where it says "up to the end"
  bool toEnd = false;     // size 0: up to the end of the file
  bool overruns = false;  // the head says more than there is

  uint64_t size() const { return end - at; }
  uint64_t bodySize() const { return end - body; }
  bool wideHead() const { return body - at >= 16; }
};

// "box 'stco'": how messages call one.
std::string BoxName(const Box& box);

// Goes over the boxes that stand next to each other between two places. A head that cannot be one (a size
// smaller than itself, fewer than 8 bytes left) ends the walk: what stands from there on is no box.
class BoxLevel {
 public:
  // At the top level size 0 means "up to the end"; inside a box it ends the list, as QuickTime ends lists.
  BoxLevel(Reader& reader, uint64_t begin, uint64_t end, bool top = false)
      : reader_(&reader), at_(begin), end_(end), top_(top) {}
  static BoxLevel Top(Reader& reader) { return {reader, 0, reader.size(), true}; }
  static BoxLevel Inside(Reader& reader, const Box& parent, uint64_t headBytes = 0) {
    return {reader, parent.body + std::min(headBytes, parent.bodySize()), parent.end};
  }

  // False behind the last box.
  bool Next(Box& box);
  // Where the next head is looked for: behind the last box, once Next gave false.
  uint64_t at() const { return at_; }
  // Bytes that are no box stand behind the last one (QuickTime's 4 zero bytes behind a list aside).
  bool hasRest() const { return rest_; }

 private:
  Reader* reader_;
  uint64_t at_;
  uint64_t end_;
  bool top_;
  bool rest_ = false;
};

// The first box of a type inside another, `headBytes` into its body.
std::optional<Box> FindBox(Reader& reader, const Box& parent, uint32_t type, uint64_t headBytes = 0);

// Throws Error, naming box and place, where a box that is to be taken apart says more than there is or
// holds fewer than `bodyBytes` bytes.
void RequireBody(Reader& reader, const Box& box, uint64_t bodyBytes);

// How many bytes into its body the boxes of a `meta` begin: ISO gives it a version, QuickTime does not.
uint64_t MetaHeadBytes(Reader& reader, const Box& meta);

}  // namespace qlnmedia::mp4

#endif
