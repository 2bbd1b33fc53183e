// What the boxes of a file name by its place: each entry of sidx, ssix, tfra, saio, iloc and subs as a
// stretch of the file, and where the fields stand that say so.
#ifndef TESTS_MP4_LIST_PLACES_H
#define TESTS_MP4_LIST_PLACES_H

#include <cstdint>
#include <string>
#include <vector>

#include "mp4/list_file.h"

namespace qln::test::mp4 {

struct Place {
  std::string name;  // "sidx entry 3"
  uint64_t begin = 0;
  uint64_t end = 0;
  std::vector<uint64_t> rest = {};  // what the entry says besides, which is no place
};

// A field that holds a place, or a size of what may grow.
struct PlaceField {
  size_t at = 0;
  size_t bytes = 0;
};

struct Places {
  std::vector<Place> places;
  std::vector<PlaceField> fields;
};

// Throws std::runtime_error where an entry is cut off.
Places ListPlaces(const Bytes& file, const Listing& listing);

// Where a place of the input is in the output, by boxes and samples that are the same on both sides.
class PlaceMap {
 public:
  PlaceMap(const Bytes& input, const Listing& in, const Bytes& output, const Listing& out);
  // Within a changed sample the bytes in front of the change and those behind it tell.
  bool Is(uint64_t before, uint64_t after) const;

 private:
  struct Piece {
    uint64_t begin, end;        // of the input
    uint64_t outBegin, outEnd;  // of the output
    uint64_t front, back;       // bytes that are alike at either side
  };
  uint64_t inSize_, outSize_;
  std::vector<std::pair<uint64_t, uint64_t>> anchors_;
  std::vector<Piece> samples_;  // by begin
};

}  // namespace qln::test::mp4

#endif
