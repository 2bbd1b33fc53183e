// Both passes go from one triple to the next and move what lies between as a block.

#include "qlnutil/bits/emulation_prevention.h"

#include <algorithm>
#include <cstring>

#include "nalstream/triple_scan.h"

namespace qln {

size_t RemoveEmulationPrevention(uint8_t* destination, const uint8_t* source, size_t size,
                                 const EmulationRemoval& policy) {
  if (size == 0) return 0;
  const uint8_t lastByte = source[size - 1];
  const uint8_t* const end = source + size;
  const uint8_t* copied = source;  // everything in front of it is in the destination
  uint8_t* out = destination;
  size_t removed = 0;

  const auto next = [&](const uint8_t* from) {
    return policy.removesTwelve ? FindTriple<ThirdIsThreeOrTwelve>(from, end)
                                : FindTriple<ThirdIs<3>>(from, end);
  };
  for (const uint8_t* p = source + std::min<size_t>(policy.firstIndex, size); (p = next(p)) != end;
       p = copied) {
    const size_t block = static_cast<size_t>(p + 2 - copied);
    std::memmove(out, copied, block);
    out += block;
    copied = p + 3;
    ++removed;
  }
  if (out != copied) std::memmove(out, copied, static_cast<size_t>(end - copied));
  if (removed != 0) std::memset(destination + (size - removed), policy.keepsSize ? lastByte : 0, removed);
  return removed;
}

namespace {

template <class Word>
void CopyEnds(uint8_t* destination, const uint8_t* source, size_t count) {
  Word head;
  Word tail;
  std::memcpy(&head, source, sizeof head);
  std::memcpy(&tail, source + (count - sizeof tail), sizeof tail);
  std::memcpy(destination, &head, sizeof head);
  std::memcpy(destination + (count - sizeof tail), &tail, sizeof tail);
}

// Copies at least two bytes. Where triples stand close together, a call of the C library for each of the few
// bytes between them would take longer than all the rest.
void CopyBlock(uint8_t* destination, const uint8_t* source, size_t count) {
  if (count <= 4) {
    CopyEnds<uint16_t>(destination, source, count);
  } else if (count <= 8) {
    CopyEnds<uint32_t>(destination, source, count);
  } else {
    std::memcpy(destination, source, count);
  }
}

// The next triple behind an insertion. Where it is near, a look at a few bytes is shorter than the beginning
// of a search by vectors.
const uint8_t* FindNextToEscape(const uint8_t* from, const uint8_t* end) {
  constexpr ptrdiff_t kNear = 8;
  const uint8_t* const far = end - from > kNear + 2 ? from + kNear : from;
  for (; from != far; ++from) {
    if (from[0] == 0 && from[1] == 0 && from[2] <= 3) return from;
  }
  return FindTriple<ThirdIsAtMost<3>>(from, end);
}

}  // namespace

size_t InsertEmulationPrevention(uint8_t* destination, size_t capacity, const uint8_t* source, size_t size,
                                 const EmulationInsertion& policy) {
  if (size > capacity) return kDoesNotFit;
  const uint8_t* const end = source + size;
  const uint8_t* copied = source;
  size_t written = 0;
  size_t inserted = 0;

  const uint8_t* p = source + std::min<size_t>(policy.firstIndex, size);
  if (size < policy.smallestSize) p = end;
  for (p = FindTriple<ThirdIsAtMost<3>>(p, end); p != end;) {
    if (policy.limitIsUnescapedSize && static_cast<size_t>(p + 2 - source) + inserted > size) break;
    const size_t block = static_cast<size_t>(p + 2 - copied);
    ++inserted;
    if (size + inserted > capacity) return kDoesNotFit;
    CopyBlock(destination + written, copied, block);
    written += block;
    destination[written++] = 3;
    copied = p + 2;
    p = FindNextToEscape(p + (policy.stepsBehindTriple ? 3 : 2), end);
  }
  if (copied != end) std::memcpy(destination + written, copied, static_cast<size_t>(end - copied));
  return size + inserted;
}

}  // namespace qln
