// Copies and fills of frame-sized blocks under the names that hosts know.

#include <cstring>

#include "kxutil/kxutil.h"

namespace {

// Copies a short block as its first and its last `Word`, which may overlap; both are read before one is
// written.
struct Block16 {
  uint64_t words[2];
};
template <class Word>
void CopyEnds(void* destination, const void* source, uint32_t count) {
  Word head;
  Word tail;
  std::memcpy(&head, source, sizeof head);
  std::memcpy(&tail, static_cast<const char*>(source) + (count - sizeof tail), sizeof tail);
  std::memcpy(destination, &head, sizeof head);
  std::memcpy(static_cast<char*>(destination) + (count - sizeof tail), &tail, sizeof tail);
}

}  // namespace

// A read cache asks for a few bytes as often as for a frame, so that a short block does not go through the C
// library, which would take as long again to find out how short it is.
void CopyMemoryFast(void* destination, const void* source, uint32_t count) {
  if (count - 16 <= 16) {
    CopyEnds<Block16>(destination, source, count);
  } else if (count - 8 < 8) {
    CopyEnds<uint64_t>(destination, source, count);
  } else if (count != 0) {
    std::memcpy(destination, source, count);
  }
}

void ZeroMemoryFast(void* destination, uint32_t count) {
  if (count != 0) std::memset(destination, 0, count);
}

void kxOSCopyMemory(void* destination, const void* source, uint32_t count) {
  CopyMemoryFast(destination, source, count);
}

void kxOSZeroMemory(void* destination, uint32_t count) { ZeroMemoryFast(destination, count); }
