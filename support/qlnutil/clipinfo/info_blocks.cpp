// Blocks copied within what they hold.

#include "qlnutil/clipinfo/info_blocks.h"

#include <algorithm>
#include <cstring>

#include "kxutil/kxutil.h"

// A host's own utility layer may lack this one.
extern "C" size_t KXAllocSize(const void* block) __attribute__((weak));

namespace qln {

size_t KnownSize(const void* block) { return KXAllocSize != nullptr ? KXAllocSize(block) : 0; }

size_t TextLength(const void* text) {
  const size_t size = KnownSize(text);
  const char* const characters = static_cast<const char*>(text);
  return size != 0 ? strnlen(characters, size) : std::strlen(characters);
}

uint32_t LengthInFirstWord(const void* block) {
  const size_t size = KnownSize(block);
  uint32_t length = 0;
  if (size != 0 && size < sizeof length) return 0;
  std::memcpy(&length, block, sizeof length);
  return size != 0 && length > size ? 0 : length;
}

void* CopyBlock(const void* source, size_t count, size_t size) {
  char* const block = static_cast<char*>(KXAlloc(size));
  if (block == nullptr) return nullptr;
  const size_t known = KnownSize(source);
  const size_t copied = std::min(known != 0 ? std::min(count, known) : count, size);
  std::memcpy(block, source, copied);
  std::memset(block + copied, 0, size - copied);
  return block;
}

}  // namespace qln
