// KXAlloc and its companions over the C library's heap, with a table of live blocks and their sizes.

#include <cstdlib>
#include <mutex>
#include <new>
#include <unordered_map>

#include "kxutil/kxutil.h"

namespace {

struct BlockTable {
  std::mutex mutex;
  std::unordered_map<const void*, size_t> sizes;
};

// Made on first use, in place so that this cannot fail, and never destroyed: blocks may be freed while the
// process ends.
BlockTable& Blocks() {
  alignas(BlockTable) static unsigned char place[sizeof(BlockTable)];
  static BlockTable* const table = new (place) BlockTable;
  return *table;
}

}  // namespace

void* KXAlloc(size_t size) {
  if (size == 0) size = 1;
  void* const block = std::malloc(size);
  if (block == nullptr) return nullptr;
  try {
    BlockTable& table = Blocks();
    const std::lock_guard<std::mutex> lock(table.mutex);
    table.sizes.emplace(block, size);
  } catch (const std::bad_alloc&) {
    std::free(block);
    return nullptr;
  }
  return block;
}

void KXFree(void* block) {
  if (block == nullptr) return;
  {
    BlockTable& table = Blocks();
    const std::lock_guard<std::mutex> lock(table.mutex);
    table.sizes.erase(block);
  }
  std::free(block);
}

size_t KXAllocSize(const void* block) {
  BlockTable& table = Blocks();
  const std::lock_guard<std::mutex> lock(table.mutex);
  const auto found = table.sizes.find(block);
  return found != table.sizes.end() ? found->second : 0;
}
