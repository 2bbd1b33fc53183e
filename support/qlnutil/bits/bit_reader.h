// The one bit reader of the library: inline, by whole words, over a bounded run of bytes.
//
// The result is that of reading bit by bit: take p = bitPos, move bitPos on, and then the bit is 0xFFFFFFFF
// if p is above bitLength, else bit 7 - p % 8 of byte p / 8. Bytes at or behind byteCount are zero, so a
// reader never leaves the bytes that it was given, whatever bitLength says.
#ifndef QLNUTIL_BITS_BIT_READER_H
#define QLNUTIL_BITS_BIT_READER_H

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "qlnutil/qlnbits.h"

namespace qln {

class BitReader {
 public:
  uint32_t bitLength = 0;  // the limit: bits above it read as 0xFFFFFFFF, the one at it is real
  uint32_t bitPos = 0;

  // zerosBehind: zero bytes that stand behind the byteCount ones and may be read; whole words are then loaded
  // up to the end of the data.
  BitReader(const uint8_t* data, uint64_t byteCount, uint32_t limit, uint32_t position = 0,
            uint64_t zerosBehind = 0)
      : bitLength(limit),
        bitPos(position),
        data_(data),
        byteCount_(byteCount),
        readable_(byteCount + zerosBehind) {}

  // Over the bytes that the exported functions may look at: up to the one that holds bit bitLength.
  explicit BitReader(const QLNBitState& state)
      : BitReader(state.data, uint64_t{state.bitLength} / 8 + 1, state.bitLength, state.bitPos) {}

  const uint8_t* data() const { return data_; }
  uint64_t byteCount() const { return byteCount_; }
  bool PastLimit() const { return bitPos > bitLength; }

  uint32_t ReadBit() {
    const uint32_t p = bitPos++;
    if (p > bitLength) return 0xFFFFFFFFu;
    return (ByteAt(p >> 3) >> (7 - (p & 7))) & 1u;
  }

  uint32_t ReadBits(int32_t count) {
    if (count < 1) return 0;
    const uint32_t p = bitPos;
    bitPos += static_cast<uint32_t>(count);
    if (RealBits(p) < static_cast<uint64_t>(count)) return 0xFFFFFFFFu;
    if (count <= 32) return Extract(p, static_cast<uint32_t>(count));
    return static_cast<uint32_t>(Fold(p, static_cast<uint64_t>(count), 32));
  }

  uint64_t ReadBits64(int32_t count) {
    if (count < 1) return 0;
    const uint32_t p = bitPos;
    bitPos += static_cast<uint32_t>(count);
    const uint64_t wanted = static_cast<uint64_t>(count);
    const uint64_t real = RealBits(p);
    if (real >= wanted) return Fold(p, wanted, 64);
    const uint64_t toCome = wanted - real - 1;  // bits still to come at the first one past the limit
    uint64_t value = toCome >= 32 ? ~uint64_t{0} : (uint64_t{1} << (32 + toCome)) - 1;
    if (real != 0) value |= std::rotl(Fold(p, real, 64), static_cast<int>((toCome + 1) & 63));
    return value;
  }

  uint32_t ReadCodedNumber() {
    uint32_t sum = 0;
    uint32_t group;
    do {
      group = ReadBits(8);
      sum += group;
    } while (group == 255);
    return sum;
  }

  uint32_t ReadUe() {
    const uint32_t p = bitPos;
    // The usual code: at most 28 leading zeros, inside one load, no bit of it past the limit.
    if ((uint64_t{p} >> 3) + 8 <= readable_) {
      const uint64_t bits = Load64(p >> 3) << (p & 7);
      const int zeros = std::countl_zero(bits);
      if (zeros <= 28 && uint64_t{p} + 2 * static_cast<uint64_t>(zeros) <= bitLength) {
        bitPos = p + 2 * static_cast<uint32_t>(zeros) + 1;
        return static_cast<uint32_t>((bits >> (63 - 2 * zeros)) - 1);
      }
    }
    return ReadUeSlow();
  }

  int32_t ReadSe() { return SignedOf(ReadUe()); }

  // The se(v) value of a code number. Both divisions truncate, as signed arithmetic has it; the sum wraps.
  static int32_t SignedOf(uint32_t code) {
    if (code & 1u) return static_cast<int32_t>(code + 1u) / 2;
    return static_cast<int32_t>(0u - static_cast<uint32_t>(static_cast<int32_t>(code) / 2));
  }

  void SkipBits(uint32_t count) { bitPos += count; }

  uint32_t PeekBit(uint32_t offset) const {
    const uint32_t p = bitPos + offset;
    if (p >= bitLength) return 1;
    return (ByteAt(p >> 3) >> (7 - (p & 7))) & 1u;
  }

  uint32_t PeekBits(int32_t count) const {
    uint32_t value = 0;
    for (int32_t i = 0; i < std::min(count, 32); ++i) {
      value = value << 1 | PeekBit(static_cast<uint32_t>(std::max(count - 32, 0) + i));
    }
    return value;
  }

  // Bits that lie ahead, first bit highest, and how many of them can be read without passing the limit: none
  // where the data does not fill a whole word. What stands behind these bits in the word is of no use.
  struct BitsAhead {
    uint64_t bits;
    uint32_t count;
  };
  BitsAhead Ahead() const {
    const uint64_t index = bitPos >> 3;
    if (index + 8 > readable_) return {0, 0};
    const uint32_t odd = bitPos & 7;
    return {Load64(index) << odd, static_cast<uint32_t>(std::min<uint64_t>(64 - odd, RealBits(bitPos)))};
  }

  bool BitsAtEnd() const { return bitPos >= bitLength; }

  // Moves behind the stop bit and on to the next multiple of 8. Returns the new position.
  uint32_t SkipToByteAlign() {
    bitPos = (bitPos + 1 + 7) & ~7u;
    return bitPos;
  }

 private:
  const uint8_t* data_;
  uint64_t byteCount_;
  uint64_t readable_;

  uint32_t ByteAt(uint64_t index) const { return index < byteCount_ ? data_[index] : 0u; }

  uint64_t Load64(uint64_t index) const {
    uint64_t word;
    std::memcpy(&word, data_ + index, sizeof word);
    if constexpr (std::endian::native == std::endian::little) word = __builtin_bswap64(word);
    return word;
  }

  // Bits that can be read from p on before the limit is passed.
  uint64_t RealBits(uint32_t p) const { return p <= bitLength ? uint64_t{bitLength} - p + 1 : 0; }

  // Bits p to p + count - 1 as a number; count from 1 to 32.
  uint32_t Extract(uint64_t p, uint32_t count) const {
    const uint64_t index = p >> 3;
    uint64_t word;
    if (index + 8 <= readable_) {
      word = Load64(index);
    } else {
      word = 0;
      for (uint64_t i = 0; i < 5; ++i) word = word << 8 | ByteAt(index + i);
      word <<= 24;
    }
    return static_cast<uint32_t>(word << (p & 7) >> (64 - count));
  }

  // The OR of the bits p to p + count - 1 taken in groups of `width` (32 or 64) from the last bit backwards.
  uint64_t Fold(uint64_t p, uint64_t count, uint64_t width) const {
    const uint64_t end = std::min(p + count, std::max(p, byteCount_ * 8));  // bits behind the bytes are zero
    uint64_t value = 0;
    while (p < end) {
      const uint64_t left = count;
      const uint64_t place = left % width == 0 ? width : left % width;  // bits up to the end of this group
      uint64_t group = 0;
      for (uint64_t todo = place; todo > 0;) {
        const uint32_t step = static_cast<uint32_t>(std::min<uint64_t>(todo, 32));
        group = group << step | Extract(p, step);
        p += step;
        todo -= step;
      }
      value |= group;
      count -= place;
    }
    return value;
  }

  // First set bit at or behind p, or `last` if there is none in front of it. Runs behind the bytes cost
  // nothing.
  uint64_t FindSetBit(uint64_t p, uint64_t last) const {
    while (p <= last && p < byteCount_ * 8) {
      const uint64_t index = p >> 3;
      if ((p & 7) == 0 && index + 8 <= byteCount_) {
        const uint64_t word = Load64(index);
        if (word == 0) {
          p += 64;
          continue;
        }
        return std::min(p + static_cast<uint64_t>(std::countl_zero(word)), last);
      }
      const uint32_t rest = (ByteAt(index) << (p & 7)) & 0xFFu;
      if (rest != 0) return std::min(p + static_cast<uint64_t>(std::countl_zero(rest << 24)), last);
      p = (index + 1) * 8;
    }
    return last;
  }

  uint32_t ReadUeSlow() {
    const uint32_t start = bitPos;
    if (start > bitLength) {
      bitPos = start + 1;
      return 0;
    }
    // Counting stops at a set bit, and at the last position in front of the limit at the latest.
    const uint64_t lastStop = std::max<uint64_t>(start, bitLength != 0 ? uint64_t{bitLength} - 1 : 0);
    const uint64_t stop = FindSetBit(start, lastStop);
    const uint32_t zeros = static_cast<uint32_t>(stop - start);
    bitPos = static_cast<uint32_t>(stop + 1);
    const uint32_t suffix = ReadBits(static_cast<int32_t>(zeros));
    return suffix - 1u + (1u << (zeros & 31u));
  }
};

}  // namespace qln

#endif
