// The vector scan that start code search and emulation prevention share: the next two zero bytes in a row.
#ifndef NALSTREAM_ZERO_SCAN_H
#define NALSTREAM_ZERO_SCAN_H

#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace qln {

// First p in [from, to) with p[0] == 0 and p[1] == 0, where p[1] lies in front of `to` as well; `to` if there
// is none. Byte by byte: what the vector form is held against.
inline const uint8_t* FindZeroPairPlain(const uint8_t* from, const uint8_t* to) {
  while (to - from >= 2) {
    if (from[1] != 0) {
      from += 2;
    } else if (from[0] != 0) {
      ++from;
    } else {
      return from;
    }
  }
  return to;
}

// The same, sixteen bytes a step where the machine has vectors.
inline const uint8_t* FindZeroPair(const uint8_t* from, const uint8_t* to) {
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  while (to - from >= 17) {
    const __m128i here = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    const __m128i next = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + 1));
    const int mask = _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_or_si128(here, next), zero));
    if (mask != 0) return from + __builtin_ctz(static_cast<unsigned>(mask));
    from += 16;
  }
#endif
  return FindZeroPairPlain(from, to);
}

}  // namespace qln

#endif
