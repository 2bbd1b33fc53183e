// KXAlloc and its companions over the C library's heap, with a table of live blocks and their sizes.

#include <cstdint>
#include <cstdlib>
#include <mutex>

#include "kxutil/kxutil.h"

namespace {

// One part of the table, chosen by the address, so that threads seldom wait for each other. Entries lie where
// their address puts them or behind it, without a gap; at least half of the places are empty.
class BlockShard {
 public:
  // False where the table would have to grow and there is no memory for it.
  bool Insert(uintptr_t block, size_t size) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (2 * (count_ + 1) > placeCount_ && !Grow()) return false;
    Put({block, size});
    ++count_;
    return true;
  }

  void Erase(uintptr_t block) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (count_ == 0) return;
    size_t hole = PlaceOf(block);
    if (places_[hole].block != block) return;
    --count_;
    // What stood behind only because this place was taken moves up.
    for (size_t i = Next(hole); places_[i].block != 0; i = Next(i)) {
      if (Distance(FirstPlace(places_[i].block), i) < Distance(hole, i)) continue;
      places_[hole] = places_[i];
      hole = i;
    }
    places_[hole] = {};
  }

  // 0 for a block that is not in the table.
  size_t SizeOf(uintptr_t block) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return count_ != 0 ? places_[PlaceOf(block)].size : 0;
  }

  static uint64_t Scramble(uintptr_t block) { return block * uint64_t{0x9E3779B97F4A7C15}; }

 private:
  struct Entry {
    uintptr_t block;  // 0 in an empty place
    size_t size;
  };

  static constexpr size_t kFirstPlaceCount = 64;

  size_t Next(size_t i) const { return (i + 1) & (placeCount_ - 1); }
  size_t Distance(size_t from, size_t to) const { return (to - from) & (placeCount_ - 1); }
  size_t FirstPlace(uintptr_t block) const { return (Scramble(block) >> 24) & (placeCount_ - 1); }

  // Where the block is, or the empty place where it would be. The table has places.
  size_t PlaceOf(uintptr_t block) const {
    size_t i = FirstPlace(block);
    while (places_[i].block != 0 && places_[i].block != block) i = Next(i);
    return i;
  }

  void Put(const Entry& entry) { places_[PlaceOf(entry.block)] = entry; }

  bool Grow() {
    const size_t oldCount = placeCount_;
    const size_t newCount = oldCount != 0 ? 2 * oldCount : kFirstPlaceCount;
    Entry* const old = places_;
    Entry* const grown = static_cast<Entry*>(std::calloc(newCount, sizeof(Entry)));
    if (grown == nullptr) return false;
    places_ = grown;
    placeCount_ = newCount;
    for (size_t i = 0; i < oldCount; ++i) {
      if (old[i].block != 0) Put(old[i]);
    }
    std::free(old);
    return true;
  }

  std::mutex mutex_;
  Entry* places_ = nullptr;  // never freed: blocks may be freed while the process ends
  size_t placeCount_ = 0;    // 0 or a power of two
  size_t count_ = 0;
};

constexpr int kShardBits = 4;
constinit BlockShard shards[1 << kShardBits];

BlockShard& ShardOf(uintptr_t block) { return shards[BlockShard::Scramble(block) >> (64 - kShardBits)]; }

uintptr_t AddressOf(const void* block) { return reinterpret_cast<uintptr_t>(block); }

}  // namespace

void* KXAlloc(size_t size) {
  if (size == 0) size = 1;
  void* const block = std::malloc(size);
  // Not AddressOf: unoptimised, GCC takes a pointer to constant bytes for a read of what nobody has set yet.
  const auto address = reinterpret_cast<uintptr_t>(block);
  if (block == nullptr || ShardOf(address).Insert(address, size)) return block;
  std::free(block);
  return nullptr;
}

void KXFree(void* block) {
  if (block == nullptr) return;
  ShardOf(AddressOf(block)).Erase(AddressOf(block));
  std::free(block);
}

size_t KXAllocSize(const void* block) { return ShardOf(AddressOf(block)).SizeOf(AddressOf(block)); }
