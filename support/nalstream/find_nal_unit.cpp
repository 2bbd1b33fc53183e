// The start code search: every frame scan runs through it, so it goes by whole vectors.

#include "nalstream/nalstream.h"
#include "nalstream/zero_scan.h"

int find_nal_unit(const uint8_t* buffer, int size, int* start, int* end) {
  *start = 0;
  *end = 0;
  if (size < 4) return size < 0 ? 0 : size;

  const uint8_t* const last = buffer + size;
  const uint8_t* unit = nullptr;
  for (const uint8_t* p = buffer; (p = qln::FindZeroPair(p, last)) != last;) {
    if (last - p < 3) break;
    if (p[2] == 1) {
      unit = p + 3;
      break;
    }
    p += p[2] == 0 ? 1 : 3;
  }
  if (unit == nullptr) return 0;

  const uint8_t* behind = last;
  for (const uint8_t* p = unit; (p = qln::FindZeroPair(p, last)) != last;) {
    if (last - p < 3) break;
    if (p[2] <= 1) {
      behind = p;
      break;
    }
    p += 3;
  }
  *start = static_cast<int>(unit - buffer);
  *end = static_cast<int>(behind - buffer);
  return *end - *start;
}
