// The one bit writer of the library: inline, by whole bytes, with an optional capacity.
//
// Each written bit first clears its place, so a writer may run over old contents; the bits in front of the
// first and behind the last written one stay. With a capacity, a write that would not fit puts nothing, sets
// Overflowed and moves bitPos all the same.
#ifndef QLNUTIL_BITS_BIT_WRITER_H
#define QLNUTIL_BITS_BIT_WRITER_H

#include <bit>
#include <cstdint>
#include <cstring>

#include "qlnutil/qlnbits.h"

namespace qln {

// Length in bits of the code that WriteUe gives to a value from -1 to 0x7FFFFFFE; the 48 extra bits from
// 0xFFFFFF up are required.
constexpr uint32_t UeCodeLength(int32_t value) {
  const uint32_t code = static_cast<uint32_t>(value) + 1u;  // 0 for -1
  if (code == 0) return 1;
  const uint32_t bits = static_cast<uint32_t>(std::bit_width(code));
  return 2 * (code >= 0x1000000 ? bits + 24 : bits) - 1;
}

class BitWriter {
 public:
  uint64_t bitPos = 0;

  // Writes without a limit, as the exported functions do.
  explicit BitWriter(const QLNBitState& state) : bitPos(state.bitPos), data_(state.data) {}

  BitWriter(uint8_t* data, uint64_t capacityBytes, uint64_t position = 0)
      : bitPos(position), data_(data), capacityBits_(capacityBytes * 8) {}

  bool Overflowed() const { return overflowed_; }
  uint64_t BytePos() const { return bitPos / 8; }

  // The low bit of a word: a syntax flag, -1 included.
  void WriteBit(uint32_t bit) { Put(1, bit & 1u); }

  void WriteBits(int32_t count, uint32_t value) {
    if (count < 1) return;
    if (count <= 32) {
      Put(static_cast<uint32_t>(count), value);
    } else {
      WriteRepeated(static_cast<uint32_t>(count), value, 32);
    }
  }

  void WriteBits64(int32_t count, uint64_t value) {
    if (count < 1) return;
    if (count <= 64) {
      Put64(static_cast<uint32_t>(count), value);
    } else {
      WriteRepeated(static_cast<uint32_t>(count), value, 64);
    }
  }

  // ue(v), with the long form from 0xFFFFFF up. -1 is a single 0 bit; values below it, and 0x7FFFFFFF, are
  // written as 0 is.
  void WriteUe(uint32_t word) {
    const int32_t value = static_cast<int32_t>(word);
    if (value < -1 || value == 0x7FFFFFFF) {
      Put(1, 1);
      return;
    }
    const uint32_t code = word + 1u;
    if (code - 1u < 0xFFFFu) {  // the usual codes: at most 31 bits
      PutCode(2 * static_cast<uint32_t>(std::bit_width(code)) - 1, code);
      return;
    }
    const uint32_t length = UeCodeLength(value);
    if (length > 64) Put64(length - 64, 0);
    Put64(length > 64 ? 64 : length, code);
  }

  // se(v) of ITU-T H.264 clause 9.1.1: 2v - 1 for positive v, -2v otherwise. For the H.264 writers.
  void WriteSe(uint32_t word) {
    const int32_t value = static_cast<int32_t>(word);
    WriteUe(value > 0 ? 2u * word - 1u : 0u - 2u * word);
  }

  // The library's own signed mapping, for the HEVC writers: 2v + 2 for positive v, -2v otherwise. Positive
  // values do not read back; hosts rely on the bits as they stand.
  void WriteExponentialGolombCodeSigned(uint32_t word) {
    const int32_t value = static_cast<int32_t>(word);
    WriteUe(value > 0 ? 2u * word + 2u : 0u - 2u * word);
  }

  // Whole bytes at any bit position.
  void WriteBytes(const uint8_t* bytes, uint64_t count) {
    if (!Fits(count * 8)) {
      Refuse(count * 8);
      return;
    }
    if (bitPos % 8 == 0) {
      if (count != 0) std::memcpy(data_ + bitPos / 8, bytes, count);
      bitPos += count * 8;
      return;
    }
    for (uint64_t i = 0; i < count; ++i) Put(8, bytes[i]);
  }

  // Zero bits up to the next multiple of 8.
  void AlignZero() {
    const uint32_t odd = static_cast<uint32_t>(bitPos % 8);
    if (odd != 0) Put(8 - odd, 0);
  }

  // A stop bit and zero bits up to the next multiple of 8 (rbsp_trailing_bits).
  void WriteTrailingBits() {
    Put(1, 1);
    AlignZero();
  }

 private:
  uint8_t* data_;
  uint64_t capacityBits_ = ~uint64_t{0};
  bool overflowed_ = false;

  bool Fits(uint64_t count) const { return bitPos <= capacityBits_ && count <= capacityBits_ - bitPos; }

  void Refuse(uint64_t count) {
    overflowed_ = true;
    bitPos += count;
  }

  void Put64(uint32_t count, uint64_t value) {
    if (count > 32) {
      Put(count - 32, static_cast<uint32_t>(value >> 32));
      count = 32;
    }
    Put(count, static_cast<uint32_t>(value));
  }

  // The low `count` bits of value, 1 to 32, as up to five bytes of which only the written bits change.
  void Put(uint32_t count, uint32_t value) {
    if (!Fits(count)) {
      Refuse(count);
      return;
    }
    const uint32_t before = static_cast<uint32_t>(bitPos % 8);
    uint8_t* const first = data_ + bitPos / 8;
    bitPos += count;
    if (before + count <= 8) {
      const uint32_t behind = 8 - before - count;
      const uint32_t mask = (1u << count) - 1;
      *first = static_cast<uint8_t>((*first & ~(mask << behind)) | (value & mask) << behind);
    } else {
      PutLong(first, before, count, value);
    }
  }

  // The same for codes, whose lengths change from one to the next: whether a short one reaches into a second
  // byte would be a branch that is hard to predict, and is none here.
  void PutCode(uint32_t count, uint32_t value) {
    constexpr uint32_t kMostInTwoBytes = 9;  // at any position
    if (count > kMostInTwoBytes || !Fits(count)) {
      Put(count, value);
      return;
    }
    const uint32_t before = static_cast<uint32_t>(bitPos % 8);
    uint8_t* const first = data_ + bitPos / 8;
    bitPos += count;
    const uint32_t behind = 16 - before - count;
    const uint32_t mask = ((1u << count) - 1) << behind;
    const uint32_t bits = value << behind & mask;
    uint8_t* const last = first + (before + count - 1) / 8;
    const uint32_t head = (*first & ~(mask >> 8)) | bits >> 8;
    *last = static_cast<uint8_t>((*last & ~mask) | bits);
    *first = static_cast<uint8_t>(head);  // over the store in front of it where both are one byte
  }

  // Two to five bytes by three stores that overlap, without a branch on their number.
  static void PutLong(uint8_t* first, uint32_t before, uint32_t count, uint32_t value) {
    const uint32_t used = before + count;
    const uint32_t last = (used - 1) / 8;  // index of the last byte that is written, 1 to 4
    const uint32_t behind = last * 8 + 8 - used;
    uint64_t bits = (uint64_t{value} & ((uint64_t{1} << count) - 1)) << behind;
    bits |= uint64_t{first[0] & (0xFF00u >> before) & 0xFFu} << (last * 8);
    bits |= first[last] & ((1u << behind) - 1);
    const uint32_t tail = last - 1;
    const uint32_t middle = tail < 2 ? tail : 2;
    StorePair(first, bits >> (tail * 8));
    StorePair(first + middle, bits >> ((tail - middle) * 8));
    StorePair(first + tail, bits);
  }

  // The low 16 bits, high byte first.
  static void StorePair(uint8_t* to, uint64_t value) {
    uint16_t pair = static_cast<uint16_t>(value);
    if constexpr (std::endian::native == std::endian::little) pair = __builtin_bswap16(pair);
    std::memcpy(to, &pair, sizeof pair);
  }

  // Counts above the word's width: bit k is bit k % width of the value.
  void WriteRepeated(uint32_t count, uint64_t value, uint32_t width) {
    if (!Fits(count)) {
      Refuse(count);
      return;
    }
    const uint32_t head = count % width;
    if (head != 0) Put64(head, value);
    for (uint32_t left = count - head; left != 0; left -= width) {
      if (width == 32) {
        Put(32, static_cast<uint32_t>(value));
      } else {
        Put64(64, value);
      }
    }
  }
};

}  // namespace qln

#endif
