// The start code search: every frame scan runs through it, so it goes by whole vectors.

#include "nalstream/nalstream.h"
#include "nalstream/triple_scan.h"

int find_nal_unit(const uint8_t* buffer, int size, int* start, int* end) {
  *start = 0;
  *end = 0;
  if (size < 4) return size < 0 ? 0 : size;

  const uint8_t* const last = buffer + size;
  const uint8_t* const code = qln::FindTriple<qln::ThirdIs<1>>(buffer, last);
  if (code == last) return 0;
  const uint8_t* const unit = code + 3;
  const uint8_t* const behind = qln::FindTriple<qln::ThirdIsAtMost<1>>(unit, last);
  *start = static_cast<int>(unit - buffer);
  *end = static_cast<int>(behind - buffer);
  return *end - *start;
}
