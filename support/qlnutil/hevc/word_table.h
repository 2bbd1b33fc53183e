// Runs of words of one length, each content kept once and told by a number.
#ifndef QLNUTIL_HEVC_WORD_TABLE_H
#define QLNUTIL_HEVC_WORD_TABLE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qln {

// The contents come from strangers, who shall not choose some that are slow to find: they are found by a hash
// whose keys come from a seed that nobody outside knows. No result depends on the seed.
class WordTable {
 public:
  // length: of a run, in words, at least 1. May throw std::bad_alloc.
  WordTable(uint32_t length, uint64_t seed);

  // The number of that content, from 0 on in the order of coming. May throw std::bad_alloc, with nothing
  // changed.
  uint32_t Number(const uint32_t* words);

  // The content of a number; valid until the next new one.
  const uint32_t* Words(uint32_t number) const { return pool_.data() + size_t{number} * length_; }

  uint32_t length() const { return length_; }
  size_t bytes() const { return pool_.size() * sizeof(uint32_t); }
  void Forget();

 private:
  uint32_t length_;
  std::vector<uint32_t> keys_;    // one for each word, and two
  std::vector<uint32_t> pool_;    // the contents, one behind the other
  std::vector<uint64_t> hashes_;  // of each
  std::vector<uint32_t> slots_;   // a number and one, or 0; a power of two of them, at least half empty

  uint64_t Hash(const uint32_t* words) const;
  size_t FirstSlot(uint64_t hash) const;
  void GrowSlots();
};

}  // namespace qln

#endif
