// Big-endian numbers and four-character types, as ISO/IEC 14496-12 and QuickTime write them.
#ifndef MEDIA_CONTAINER_MP4_BYTES_H
#define MEDIA_CONTAINER_MP4_BYTES_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace qlnmedia::mp4 {

using Bytes = std::vector<uint8_t>;
using ByteSpan = std::span<const uint8_t>;

// A box's type as a number: FourCc("moov").
constexpr uint32_t FourCc(const char (&text)[5]) {
  return uint32_t{static_cast<uint8_t>(text[0])} << 24 | uint32_t{static_cast<uint8_t>(text[1])} << 16 |
         uint32_t{static_cast<uint8_t>(text[2])} << 8 | uint32_t{static_cast<uint8_t>(text[3])};
}

// A type's four bytes.
inline std::string TypeBytes(uint32_t type) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(type >> shift & 0xFF);
  return text;
}

// A type as a message shows it; what is not printable ASCII becomes '.'.
inline std::string TypeName(uint32_t type) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    const char c = static_cast<char>(type >> shift & 0xFF);
    text += c >= ' ' && c <= '~' ? c : '.';
  }
  return text;
}

// The first `bytes` (at most 8) bytes of memory as a number.
inline uint64_t LoadNumber(const uint8_t* from, size_t bytes) {
  uint64_t value = 0;
  for (size_t i = 0; i < bytes; ++i) value = value << 8 | from[i];
  return value;
}

inline void PutNumber(Bytes& to, uint64_t value, size_t bytes) {
  for (size_t i = bytes; i-- > 0;) to.push_back(static_cast<uint8_t>(value >> 8 * i));
}

inline Bytes NumberBytes(uint64_t value, size_t bytes) {
  Bytes out;
  PutNumber(out, value, bytes);
  return out;
}

}  // namespace qlnmedia::mp4

#endif
