// Copies and fills of frame-sized blocks under the names that hosts know.

#include <cstring>

#include "kxutil/kxutil.h"

void CopyMemoryFast(void* destination, const void* source, uint32_t count) {
  if (count != 0) std::memcpy(destination, source, count);
}

void ZeroMemoryFast(void* destination, uint32_t count) {
  if (count != 0) std::memset(destination, 0, count);
}

void kxOSCopyMemory(void* destination, const void* source, uint32_t count) {
  CopyMemoryFast(destination, source, count);
}

void kxOSZeroMemory(void* destination, uint32_t count) { ZeroMemoryFast(destination, count); }
