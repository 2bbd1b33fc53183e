// A bit reader for long chains of short elements: the bits ahead stay in a register from one to the next.
//
// Each result, and the position, is that of BitReader. An element that the window cannot tell for sure (the
// window is used up, the limit or the end of the data is near, the code is long) goes through BitReader, and
// the window opens anew behind it.
#ifndef QLNUTIL_BITS_BIT_WINDOW_H
#define QLNUTIL_BITS_BIT_WINDOW_H

#include <bit>
#include <cstdint>
#include <utility>

#include "qlnutil/bits/bit_reader.h"

namespace qln {

// The usual way of each read is inline, and what is rare takes the window by value: as nobody outside sees
// its address, a window that a function holds as its own lives in registers.
class BitWindow {
 public:
  explicit BitWindow(const BitReader& reader) : reader_(reader) {
    const BitReader::BitsAhead ahead = reader.Ahead();
    bits_ = ahead.bits;
    left_ = ahead.count;
    end_ = reader.bitPos + ahead.count;
  }

  // The plain reader at the position of this one.
  [[gnu::always_inline]] BitReader reader() const {
    BitReader plain = reader_;
    plain.bitPos = end_ - left_;
    return plain;
  }

  [[gnu::always_inline]] uint32_t ReadBit() { return ReadBits<1>(); }

  template <uint32_t kCount>
  [[gnu::always_inline]] uint32_t ReadBits() {
    static_assert(kCount >= 1 && kCount <= 32);
    if (left_ < kCount) return GoBehind(PlainBits(*this, static_cast<int32_t>(kCount)));
    const uint32_t value = static_cast<uint32_t>(bits_ >> (64 - kCount));
    bits_ <<= kCount;
    left_ -= kCount;
    return value;
  }

  // The same for a count from a stream: below 1 it reads nothing.
  [[gnu::always_inline]] uint32_t ReadBits(int32_t count) {
    const uint32_t bits = static_cast<uint32_t>(count);
    if (bits - 1 >= 32 || left_ < bits) return GoBehind(PlainBits(*this, count));
    const uint32_t value = static_cast<uint32_t>(bits_ >> (64 - bits));
    bits_ <<= bits;
    left_ -= bits;
    return value;
  }

  [[gnu::always_inline]] uint32_t ReadUe() {
    const uint32_t zeros = static_cast<uint32_t>(std::countl_zero(bits_));
    const uint32_t length = 2 * zeros + 1;
    // At most 31 zeros: the window holds no longer code.
    if (length > left_) return GoBehind(PlainUe(*this));
    const uint32_t value = static_cast<uint32_t>((bits_ >> (64 - length)) - 1);
    bits_ <<= length;
    left_ -= length;
    return value;
  }

  [[gnu::always_inline]] int32_t ReadSe() { return BitReader::SignedOf(ReadUe()); }

 private:
  BitReader reader_;  // its own position is of no use
  uint64_t bits_;     // the bits ahead, first bit highest
  uint32_t left_;     // how many of them are real
  uint32_t end_;      // the position behind them

  // A value, and the window behind its element.
  using ValueAndWindow = std::pair<uint32_t, BitWindow>;
  [[gnu::always_inline]] uint32_t GoBehind(const ValueAndWindow& read) {
    *this = read.second;
    return read.first;
  }
  [[gnu::noinline]] static ValueAndWindow PlainBits(BitWindow in, int32_t count);
  [[gnu::noinline]] static ValueAndWindow PlainUe(BitWindow in);
};

}  // namespace qln

#endif
