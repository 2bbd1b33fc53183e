// A 64-bit checksum (CRC-64/XZ: the polynomial of ECMA-182, reflected) for stored values.
#ifndef KXUTIL_CRC64_H
#define KXUTIL_CRC64_H

#include <array>
#include <cstdint>
#include <string_view>

namespace qln {

class Crc64 {
 public:
  constexpr void Add(std::string_view bytes) {
    for (const char byte : bytes)
      state_ = kTable[(state_ ^ static_cast<unsigned char>(byte)) & 0xFF] ^ (state_ >> 8);
  }
  // A number as eight bytes, the low one first.
  constexpr void Add(uint64_t number) {
    for (int i = 0; i < 8; ++i, number >>= 8) state_ = kTable[(state_ ^ number) & 0xFF] ^ (state_ >> 8);
  }
  constexpr uint64_t value() const { return ~state_; }

 private:
  static constexpr std::array<uint64_t, 256> kTable = [] {
    std::array<uint64_t, 256> table{};
    for (uint64_t i = 0; i < 256; ++i) {
      uint64_t rest = i;
      for (int bit = 0; bit < 8; ++bit) rest = (rest >> 1) ^ ((rest & 1) != 0 ? 0xC96C5795D7870F42u : 0);
      table[i] = rest;
    }
    return table;
  }();
  uint64_t state_ = ~uint64_t{0};
};

}  // namespace qln

#endif
