// Loops whose count comes from a stream, in time that the data bounds. A position that wraps 32 bits counts
// as past the limit until the loop is over: by a limit near 2^32 that has zero bits up to it, or by as many
// rounds behind any limit.
#ifndef QLNUTIL_BITS_LOOP_READER_H
#define QLNUTIL_BITS_LOOP_READER_H

#include <algorithm>
#include <bit>
#include <cstdint>

#include "qlnutil/bits/bit_reader.h"

namespace qln {

// Rounds of a loop from 0 to `last` inclusive; none for a count with its top bit set.
constexpr uint64_t InclusiveRounds(uint32_t last) { return last > 0x7FFFFFFFu ? 0 : uint64_t{last} + 1; }

// A bit reader for the length of one loop: once past the limit it stays past it, also where the 32-bit
// position wraps around. The bits ahead stay in a word from one element to the next; an element that the word
// does not hold goes through BitReader.
class LoopReader {
 public:
  explicit LoopReader(const BitReader& bits) : reader_(bits), past_(bits.PastLimit()) { LookAhead(bits); }

  bool past() const { return past_; }
  uint32_t position() const { return end_ - left_; }

  // How many bits lie between the position and the limit where no byte of the data is left, all of them zero;
  // 0 elsewhere.
  uint32_t ZerosAhead() const {
    const uint32_t p = position();
    return !past_ && p >= reader_.byteCount() * 8 ? reader_.bitLength - p : 0;
  }

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

  int32_t ReadSe() { return BitReader::SignedOf(ReadUe()); }

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

// Runs round(i) for i from 0 to count - 1, with the very result of doing so but without running rounds that
// cannot differ. From `alikeFrom` on rounds store nothing of their own (values of which the last one stands
// are fine) and keep no state but what they read: then one that begins past the limit, or lies in the zero
// bits between the data and the limit, is like all that follow it there, and these are one step.
template <class Round>
void RunRounds(LoopReader& in, uint64_t count, uint64_t alikeFrom, Round round) {
  for (uint64_t i = 0; i < count; ++i) {
    const bool past = in.past();
    const uint32_t zeros = in.ZerosAhead();
    const uint32_t before = in.position();
    round(i);
    if (i < alikeFrom) continue;
    const uint32_t moved = in.position() - before;
    if (moved == 0) return;  // nor will any other
    const uint64_t left = count - 1 - i;
    if (past) {
      in.SkipBits(static_cast<uint32_t>(left) * moved);
      return;
    }
    if (moved >= zeros) continue;
    const auto alike = static_cast<uint32_t>(std::min<uint64_t>(left, zeros / moved - 1));
    in.SkipBits(alike * moved);
    i += alike;
  }
}

}  // namespace qln

#endif
