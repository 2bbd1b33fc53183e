// Search in the sorted constant tables of this folder.
#ifndef QLNUTIL_FORMAT_SORTED_SEARCH_H
#define QLNUTIL_FORMAT_SORTED_SEARCH_H

#include <cstddef>
#include <span>

namespace qln {

// The number of leading rows for which `isBefore` holds; the table is sorted so that no later row has it. The
// steps depend on the table's size alone and hold no branch: hosts ask in no order that a processor could
// learn.
template <class Row, size_t kCount, class IsBefore>
constexpr size_t CountBefore(std::span<const Row, kCount> rows, IsBefore isBefore) {
  size_t first = 0;
  for (size_t count = kCount; count > 1;) {
    const size_t half = count / 2;
    first += half & (size_t{0} - static_cast<size_t>(isBefore(rows[first + half - 1])));
    count -= half;
  }
  return first + static_cast<size_t>(kCount != 0 && isBefore(rows[first]));
}

}  // namespace qln

#endif
