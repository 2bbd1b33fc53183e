// The start code search over a whole buffer, unit by unit, with its promises checked.

#include <cstdint>
#include <cstdlib>

#include "nalstream/nalstream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int left = static_cast<int>(size);
  const uint8_t* at = data;
  while (left >= 4) {
    int start = -1;
    int end = -1;
    const int found = find_nal_unit(at, left, &start, &end);
    if (start < 0 || end < start || end > left || found != end - start) std::abort();
    if (start == 0) break;
    if (at[start - 1] != 1 || at[start - 2] != 0 || at[start - 3] != 0) std::abort();
    at += end;
    left -= end;
  }
  return 0;
}
