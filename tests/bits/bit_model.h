// The rules of bit reading and writing, one bit at a time: the reference that the fast forms are held
// against.
#ifndef TESTS_BITS_BIT_MODEL_H
#define TESTS_BITS_BIT_MODEL_H

#include <cstdint>

#include "support/test_support.h"

namespace qln::test {

// Reads like the library, from bytes behind whose end zeros stand.
struct BitModel {
  Bytes bytes;
  uint32_t bitLength = 0;
  uint32_t bitPos = 0;

  uint32_t BitAt(uint64_t p) const {
    return p / 8 < bytes.size() ? (bytes[static_cast<size_t>(p / 8)] >> (7 - p % 8)) & 1u : 0u;
  }
  uint32_t ReadBit() {
    const uint32_t p = bitPos;
    bitPos = p + 1;
    return p > bitLength ? 0xFFFFFFFFu : BitAt(p);
  }
  uint32_t ReadBits(int32_t count) {
    uint32_t value = 0;
    for (int32_t k = count - 1; k >= 0; --k) value |= ReadBit() << (k % 32);
    return value;
  }
  uint64_t ReadBits64(int32_t count) {
    uint64_t value = 0;
    for (int32_t k = count - 1; k >= 0; --k) value |= uint64_t{ReadBit()} << (k % 64);
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
    int32_t zeros = 0;
    for (;;) {
      const uint32_t p = bitPos++;
      if (p > bitLength || BitAt(p) == 1 || uint64_t{p} + 1 >= bitLength) break;
      ++zeros;
    }
    return ReadBits(zeros) - 1u + (1u << (zeros % 32));
  }
  int32_t ReadSe() {
    const uint32_t k = ReadUe();
    if (k % 2 == 1) return static_cast<int32_t>(k + 1u) / 2;
    return static_cast<int32_t>(0u - static_cast<uint32_t>(static_cast<int32_t>(k) / 2));
  }
};

// Writes like the library, one bit at a time.
struct BitWriteModel {
  Bytes& bytes;
  uint64_t bitPos = 0;

  void WriteBit(uint32_t bit) {
    uint8_t& byte = bytes.at(static_cast<size_t>(bitPos / 8));
    const uint32_t mask = 0x80u >> bitPos % 8;
    byte = static_cast<uint8_t>((byte & ~mask) | ((bit & 1u) != 0 ? mask : 0u));
    ++bitPos;
  }
  void WriteBits(int32_t count, uint32_t value) {
    for (int32_t k = count - 1; k >= 0; --k) WriteBit(value >> (k % 32));
  }
  void WriteBits64(int32_t count, uint64_t value) {
    for (int32_t k = count - 1; k >= 0; --k) WriteBit(static_cast<uint32_t>(value >> (k % 64)));
  }
  static int TableLength(uint32_t i) {
    if (i == 0) return 1;
    int length = 0;
    for (; i != 0; i >>= 1) ++length;
    return length;
  }
  void WriteUe(int32_t v) {
    if (v < -1 || v == 0x7FFFFFFF) v = 0;
    const int32_t c = v + 1;
    int b;
    if (c >= 0x1000000) {
      b = TableLength(static_cast<uint32_t>(c >> 24)) + 48;
    } else if (c >= 0x10000) {
      b = TableLength(static_cast<uint32_t>(c >> 16)) + 16;
    } else if (c >= 0x100) {
      b = TableLength(static_cast<uint32_t>(c >> 8)) + 8;
    } else {
      b = TableLength(static_cast<uint32_t>(c));
    }
    int n = 2 * b - 1;
    for (; n > 32; --n) WriteBit(0);
    WriteBits(n, static_cast<uint32_t>(c));
  }
};

}  // namespace qln::test

#endif
