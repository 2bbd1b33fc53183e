// Loops of the HEVC readers whose count comes from the stream, in time that the data bounds.
//
// RunCountedRounds of bits/ follows a position that wraps round and round, which costs a pass over the data
// each time; in loops that stand inside loops, as those of the HRD, that would add up. Here the first wrap
// ends it: what follows counts as read past the end, and a loop never passes the data twice.
#ifndef QLNUTIL_HEVC_LOOP_READER_H
#define QLNUTIL_HEVC_LOOP_READER_H

#include <algorithm>
#include <bit>
#include <cstdint>

#include "qlnutil/bits/bit_reader.h"

namespace qln {

// A bit reader for the length of one loop: once past the limit it stays past it, also where the 32-bit
// position wraps around. The bits ahead stay in a word from one element to the next; an element that the word
// does not hold goes through BitReader.
class LoopReader {
 public:
  explicit LoopReader(const BitReader& bits) : reader_(bits), past_(bits.PastLimit()) { LookAhead(bits); }

  bool past() const { return past_; }
  uint32_t position() const { return end_ - left_; }

  // The plain reader at the position of this one.
  BitReader reader() const {
    BitReader plain = reader_;
    plain.bitPos = position();
    return plain;
  }

  uint32_t ReadBit() { return ReadBits(1); }

  uint32_t ReadBits(int32_t count) {
    const auto bits = static_cast<uint32_t>(count);
    if (bits - 1 < 32 && bits <= left_) return Take(bits);
    return count < 1 ? 0 : PlainBits(count);
  }

  uint32_t ReadUe() {
    const uint32_t length = 2 * static_cast<uint32_t>(std::countl_zero(ahead_)) + 1;
    if (length <= left_) return Take(length) - 1;
    return PlainUe();
  }

  void SkipBits(uint32_t count) {
    if (count < left_) {
      ahead_ <<= count;
      left_ -= count;
    } else {
      BitReader plain = reader();
      plain.SkipBits(count);
      GoOnBehind(plain);
    }
  }

 private:
  BitReader reader_;    // its own position is of no use
  uint64_t ahead_ = 0;  // the bits ahead, first bit highest
  uint32_t left_ = 0;   // how many of them are real, and in front of the limit
  uint32_t end_ = 0;    // the position behind them
  bool past_;

  // At most as many bits as there are ahead, and fewer than 64.
  uint32_t Take(uint32_t count) {
    const auto value = static_cast<uint32_t>(ahead_ >> (64 - count));
    ahead_ <<= count;
    left_ -= count;
    return value;
  }

  [[gnu::noinline]] uint32_t PlainBits(int32_t count) {
    BitReader plain = reader();
    uint32_t value = 0xFFFFFFFFu;
    if (past_) {
      plain.SkipBits(static_cast<uint32_t>(count));
    } else {
      value = plain.ReadBits(count);
    }
    GoOnBehind(plain);
    return value;
  }

  [[gnu::noinline]] uint32_t PlainUe() {
    BitReader plain = reader();
    uint32_t value = 0;
    if (past_) {
      plain.SkipBits(1);
    } else {
      value = plain.ReadUe();
    }
    GoOnBehind(plain);
    return value;
  }

  void GoOnBehind(const BitReader& plain) {
    past_ = past_ || plain.bitPos < position() || plain.PastLimit();
    LookAhead(plain);
  }

  void LookAhead(const BitReader& plain) {
    const BitReader::BitsAhead ahead = past_ ? BitReader::BitsAhead{} : plain.Ahead();
    ahead_ = ahead.bits;
    // Without the bit at the limit: who has read it is past the limit.
    left_ = past_ ? 0 : std::min(ahead.count, plain.bitLength - plain.bitPos);
    end_ = plain.bitPos + left_;
  }
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
