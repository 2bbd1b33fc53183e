// An open table over contents that lie in a row. The hash is a sum of products of pairs of words, each with a
// key added: whatever two contents are, few choices of the keys give both the same sum.

#include "qlnutil/hevc/word_table.h"

#include <cstring>

namespace qln {
namespace {

constexpr size_t kFirstSlots = 64;

// The next of a row of well mixed numbers.
uint64_t NextMixed(uint64_t& state) {
  state += 0x9E3779B97F4A7C15u;
  uint64_t mixed = state;
  mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9u;
  mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EBu;
  return mixed ^ mixed >> 31;
}

}  // namespace

WordTable::WordTable(uint32_t length, uint64_t seed) : length_(length), keys_(size_t{length} + 2) {
  for (uint32_t& key : keys_) key = static_cast<uint32_t>(NextMixed(seed) >> 32);
  slots_.assign(kFirstSlots, 0);
}

uint64_t WordTable::Hash(const uint32_t* words) const {
  const uint32_t* const keys = keys_.data();
  uint64_t sum = 0;
  uint32_t i = 0;
  for (; i + 1 < length_; i += 2) sum += uint64_t{words[i] + keys[i]} * uint64_t{words[i + 1] + keys[i + 1]};
  if (i < length_) sum += uint64_t{words[i] + keys[i]} * keys[i + 1];
  return sum;
}

size_t WordTable::FirstSlot(uint64_t hash) const {
  const uint64_t mixed = (hash ^ hash >> 32) * (uint64_t{keys_[length_]} << 32 | keys_[length_ + 1] | 1u);
  return static_cast<size_t>(mixed >> 32) & (slots_.size() - 1);
}

uint32_t WordTable::Number(const uint32_t* words) {
  const uint64_t hash = Hash(words);
  const size_t size = size_t{length_} * sizeof(uint32_t);
  const size_t mask = slots_.size() - 1;
  size_t slot = FirstSlot(hash);
  for (; slots_[slot] != 0; slot = (slot + 1) & mask) {
    const uint32_t number = slots_[slot] - 1;
    if (hashes_[number] == hash && std::memcmp(Words(number), words, size) == 0) return number;
  }
  const auto number = static_cast<uint32_t>(hashes_.size());
  pool_.insert(pool_.end(), words, words + length_);
  try {
    hashes_.push_back(hash);
    if (2 * hashes_.size() > slots_.size()) {
      GrowSlots();
    } else {
      slots_[slot] = number + 1;
    }
  } catch (...) {
    hashes_.resize(number);
    pool_.resize(size_t{number} * length_);
    throw;
  }
  return number;
}

void WordTable::GrowSlots() {
  std::vector<uint32_t> grown(2 * slots_.size());
  slots_.swap(grown);
  const size_t mask = slots_.size() - 1;
  for (uint32_t number = 0; number < hashes_.size(); ++number) {
    size_t slot = FirstSlot(hashes_[number]);
    while (slots_[slot] != 0) slot = (slot + 1) & mask;
    slots_[slot] = number + 1;
  }
}

void WordTable::Forget() {
  pool_.clear();
  hashes_.clear();
  slots_.assign(slots_.size(), 0);
}

}  // namespace qln
