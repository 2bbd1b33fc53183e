// Both passes go from one pair of zero bytes to the next and move what lies between as a block.

#include "qlnutil/bits/emulation_prevention.h"

#include <algorithm>
#include <cstring>

#include "nalstream/zero_scan.h"

namespace qln {

size_t RemoveEmulationPrevention(uint8_t* destination, const uint8_t* source, size_t size,
                                 const EmulationRemoval& policy) {
  if (size == 0) return 0;
  const uint8_t lastByte = source[size - 1];
  const uint8_t* const end = source + size;
  const uint8_t* copied = source;  // everything in front of it is in the destination
  uint8_t* out = destination;
  size_t removed = 0;

  const uint8_t* p = source + std::min<size_t>(policy.firstIndex, size);
  while ((p = FindZeroPair(p, end)) != end && end - p >= 3) {
    const uint8_t third = p[2];
    if (third == 3 || (third == 12 && policy.removesTwelve)) {
      const size_t landsAt = static_cast<size_t>(p + 2 - source) - removed;
      if (policy.lastByteExempt && landsAt + 2 > size) break;
      const size_t block = static_cast<size_t>(p + 2 - copied);
      std::memmove(out, copied, block);
      out += block;
      copied = p + 3;
      ++removed;
      p = copied;
    } else {
      p += third == 0 ? 1 : 3;
    }
  }
  std::memmove(out, copied, static_cast<size_t>(end - copied));
  std::memset(destination + (size - removed), policy.keepsSize ? lastByte : 0, removed);
  return removed;
}

size_t InsertEmulationPrevention(uint8_t* destination, size_t capacity, const uint8_t* source, size_t size,
                                 const EmulationInsertion& policy) {
  if (size > capacity) return kDoesNotFit;
  const uint8_t* const end = source + size;
  const uint8_t* copied = source;
  size_t written = 0;
  size_t inserted = 0;

  const uint8_t* p = source + std::min<size_t>(policy.firstIndex, size);
  if (size < policy.smallestSize) p = end;
  while ((p = FindZeroPair(p, end)) != end && end - p >= 3) {
    if (p[2] > 3) {
      p += 3;
      continue;
    }
    if (policy.limitIsUnescapedSize && static_cast<size_t>(p + 2 - source) + inserted > size) break;
    const size_t block = static_cast<size_t>(p + 2 - copied);
    ++inserted;
    if (size + inserted > capacity) return kDoesNotFit;
    std::memcpy(destination + written, copied, block);
    written += block;
    destination[written++] = 3;
    copied = p + 2;
    p += policy.stepsBehindTriple ? 3 : 2;
  }
  std::memcpy(destination + written, copied, static_cast<size_t>(end - copied));
  return size + inserted;
}

}  // namespace qln
