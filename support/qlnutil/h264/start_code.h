// Start codes (ITU-T H.264 Annex B) searched at memory speed; a code counts only where it lies wholly in
// front of the end.
#ifndef QLNUTIL_H264_START_CODE_H
#define QLNUTIL_H264_START_CODE_H

#include <cstddef>
#include <cstdint>

#include "nalstream/triple_scan.h"

namespace qln {

// First 00 00 01 in [from, to); `to` if there is none.
inline const uint8_t* FindShortStartCode(const uint8_t* from, const uint8_t* to) {
  return FindTriple<ThirdIs<1>>(from, to);
}

// First 00 00 00 01 in [from, to); `to` if there is none.
inline const uint8_t* FindLongStartCode(const uint8_t* from, const uint8_t* to) {
  for (const uint8_t* p = from; (p = FindShortStartCode(p, to)) != to; p += 3) {
    if (p > from && p[-1] == 0) return p - 1;
  }
  return to;
}

// Last 00 00 01 in [from, to); `to` if there is none.
inline const uint8_t* FindLastShortStartCode(const uint8_t* from, const uint8_t* to) {
  return FindLastTriple<ThirdIs<1>>(from, to);
}

// Bytes of the start code that a buffer begins with: 4, 3 or 0.
inline size_t LeadingStartCode(const uint8_t* data, size_t size) {
  if (size < 3 || data[0] != 0 || data[1] != 0) return 0;
  if (data[2] == 1) return 3;
  return size >= 4 && data[2] == 0 && data[3] == 1 ? 4 : 0;
}

inline uint32_t LoadBigEndian32(const uint8_t* p) {
  return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
}

inline void StoreBigEndian32(uint8_t* p, uint32_t value) {
  p[0] = static_cast<uint8_t>(value >> 24);
  p[1] = static_cast<uint8_t>(value >> 16);
  p[2] = static_cast<uint8_t>(value >> 8);
  p[3] = static_cast<uint8_t>(value);
}

}  // namespace qln

#endif
