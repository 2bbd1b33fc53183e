// The tests' own reader of MP4 and MOV: the whole file in memory, every box and every sample of it in lists
// that can be compared. It shares nothing with what it is held against.
#ifndef TESTS_MP4_LIST_FILE_H
#define TESTS_MP4_LIST_FILE_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "mp4/build_boxes.h"

namespace qln::test::mp4 {

struct Node {
  std::string path;  // "moov/trak/mdia", with a sample entry's number as "stsd/1:avc1"
  std::string type;
  size_t at = 0;
  size_t head = 8;
  size_t size = 0;
  size_t fields = 0;  // bytes of a container's body in front of its boxes
  bool container = false;
  bool toEnd = false;
};

struct ListedSample {
  size_t at = 0;
  Bytes data;
  int64_t decodeTime = 0;
  int64_t compositionTime = 0;
  uint32_t duration = 0;
  uint32_t flags = 0;  // 1 where it is a sync sample by a table, or the flags of a fragment
  uint32_t description = 1;
};

// What places and counts in the boxes of a `traf` begin at.
struct FragmentBase {
  int64_t base = 0;
  uint32_t track = 0;
  size_t firstSample = 0;  // of the track
};

struct Listing {
  std::vector<Node> boxes;  // in the order of the file, a container in front of what it holds
  std::map<size_t, FragmentBase> fragments;               // by where the `traf` stands
  std::map<uint32_t, std::vector<ListedSample>> samples;  // by track, in decoding order
  // Places that indexes name, as the number of the top-level box that begins there: sidx, ssix (as bytes of
  // the subsegment that are in front), tfra.
  std::vector<int64_t> marks;
  std::map<std::string, int> count() const;
};

// Throws std::runtime_error, with what is wrong, for a file that is not whole.
Listing ListFile(const Bytes& file, const Bytes& init = {});

// Says what of `output` is not as in `input` but for what a change of samples brings with it: the samples of
// `trackId` have to be `fresh`, what a box names by its place has to be the same bytes, wherever they stand
// now, and a box that names places is otherwise as it was. Empty where all is well.
std::string Compare(const Bytes& input, const Bytes& output, uint32_t trackId,
                    const std::vector<Bytes>& fresh, const Bytes& init = {});

// The same of several tracks. With `facts` sample descriptions may hold other boxes.
using FreshSamples = std::map<uint32_t, std::vector<Bytes>>;
std::string Compare(const Bytes& input, const Bytes& output, const FreshSamples& fresh, const Bytes& init,
                    bool facts);

}  // namespace qln::test::mp4

#endif
