// Lists the elements of a Matroska file, places in it by what stands there. Shares nothing with the carrier.
#ifndef TESTS_MKV_LIST_ELEMENTS_H
#define TESTS_MKV_LIST_ELEMENTS_H

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace qln::test::mkv {

struct Listing {
  // One line an element, masters in front of what they hold: identifier and contents, or what is named there.
  // Blocks of the tracks that are asked for come without their frames. Empty behind `error`.
  std::vector<std::string> lines;
  std::vector<size_t> sizeWidths;  // of each, and what it would need at least
  std::vector<size_t> leastWidths;
  // Frames of those tracks, encodings undone.
  std::map<uint64_t, std::vector<Bytes>> frames;
  std::string error;
};

// `facts`: what patches may change in the entries of those tracks is left out, with the masters that may come
// in.
Listing List(const Bytes& file, const std::set<uint64_t>& tracks, bool facts = false);

// The first difference between two files that is not asked for; empty where there is none: other elements,
// places that name something else, checksums that do not hold where they held, sizes that are wider than they
// have to be.
std::string Difference(const Listing& was, const Listing& is);

}  // namespace qln::test::mkv

#endif
