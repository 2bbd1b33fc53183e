// Loops of the HEVC readers whose count comes from the stream, in time that the data bounds.
//
// RunCountedRounds of bits/ follows a position that wraps round and round, which costs a pass over the data
// each time; in loops that stand inside loops, as those of the HRD, that would add up. Here the first wrap
// ends it: what follows counts as read past the end, and a loop never passes the data twice.
#ifndef QLNUTIL_HEVC_LOOP_READER_H
#define QLNUTIL_HEVC_LOOP_READER_H

#include <cstdint>

#include "qlnutil/bits/bit_reader.h"

namespace qln {

// A bit reader for the length of one loop: once past the limit it stays past it, also where the 32-bit
// position wraps around.
class LoopReader {
 public:
  explicit LoopReader(BitReader& bits) : bits_(bits), past_(bits.PastLimit()) {}

  bool past() const { return past_; }
  uint32_t position() const { return bits_.bitPos; }

  uint32_t ReadBit() { return ReadBits(1); }

  uint32_t ReadBits(int32_t count) {
    if (count < 1) return 0;
    if (past_) {
      bits_.bitPos += static_cast<uint32_t>(count);
      return 0xFFFFFFFFu;
    }
    const uint32_t before = bits_.bitPos;
    const uint32_t value = bits_.ReadBits(count);
    Watch(before);
    return value;
  }

  uint32_t ReadUe() {
    if (past_) {
      ++bits_.bitPos;
      return 0;
    }
    const uint32_t before = bits_.bitPos;
    const uint32_t value = bits_.ReadUe();
    Watch(before);
    return value;
  }

  void SkipBits(uint32_t count) {
    const uint32_t before = bits_.bitPos;
    bits_.SkipBits(count);
    Watch(before);
  }

 private:
  BitReader& bits_;
  bool past_;

  void Watch(uint32_t before) { past_ = past_ || bits_.bitPos < before || bits_.PastLimit(); }
};

// Runs round(i) for i from 0 to count - 1. A round that begins past the limit, with i at `alikeFrom` or
// behind, is like all rounds behind it: these are done in one step.
template <class Round>
void RunRounds(LoopReader& in, uint32_t count, uint32_t alikeFrom, Round round) {
  for (uint32_t i = 0; i < count; ++i) {
    const bool alike = in.past() && i >= alikeFrom;
    const uint32_t before = in.position();
    round(i);
    if (alike) {
      in.SkipBits((count - 1 - i) * (in.position() - before));
      return;
    }
  }
}

}  // namespace qln

#endif
