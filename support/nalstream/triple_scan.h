// The vector scan that start code search and emulation prevention share: two zero bytes and a third of some
// kind.
//
// One rule in a few forms, which the tests hold against each other: plain, SSE2 (any x86-64), AVX2 where the
// machine has it, asked at the call, and NEON (arm64). There is no start-up work and no state.
#ifndef NALSTREAM_TRIPLE_SCAN_H
#define NALSTREAM_TRIPLE_SCAN_H

#include <cstddef>
#include <cstdint>

#include "nalstream/triple_scan_neon.h"

#if defined(__x86_64__)
#include <immintrin.h>
#if defined(__clang__) && defined(__STRICT_ANSI__)
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
#define _Bool bool  // the C library's header uses it, and only g++ knows it in C++
#include <sys/platform/x86.h>
#undef _Bool
#else
#include <sys/platform/x86.h>
#endif
#define QLN_AVX2 __attribute__((target("avx2"), always_inline))
#endif

namespace qln {

// The kinds of third byte. Each vector form gives zero in the places that match. kBits holds every bit that a
// third byte of the kind can have set.

// Equal to `kValue`.
template <uint8_t kValue>
struct ThirdIs {
  static constexpr uint8_t kBits = kValue;
  static bool Matches(uint8_t third) { return third == kValue; }
#if defined(__x86_64__)
  static __m128i Differs(__m128i third) { return _mm_xor_si128(third, _mm_set1_epi8(kValue)); }
  QLN_AVX2 static __m256i Differs(__m256i third) { return _mm256_xor_si256(third, _mm256_set1_epi8(kValue)); }
#elif defined(QLN_NEON)
  static uint8x16_t Differs(uint8x16_t third) { return veorq_u8(third, vdupq_n_u8(kValue)); }
#endif
};

// At most `kValue`, which is a power of two minus 1.
template <uint8_t kValue>
struct ThirdIsAtMost {
  static_assert((kValue & (kValue + 1)) == 0);
  static constexpr uint8_t kBits = kValue;
  static constexpr char kAbove = static_cast<char>(~kValue);
  static bool Matches(uint8_t third) { return third <= kValue; }
#if defined(__x86_64__)
  static __m128i Differs(__m128i third) { return _mm_and_si128(third, _mm_set1_epi8(kAbove)); }
  QLN_AVX2 static __m256i Differs(__m256i third) { return _mm256_and_si256(third, _mm256_set1_epi8(kAbove)); }
#elif defined(QLN_NEON)
  static uint8x16_t Differs(uint8x16_t third) { return vandq_u8(third, vdupq_n_u8(0xFF & ~kValue)); }
#endif
};

// 3 or 12.
struct ThirdIsThreeOrTwelve {
  static constexpr uint8_t kBits = 15;
  static bool Matches(uint8_t third) { return third == 3 || third == 12; }
#if defined(__x86_64__)
  static __m128i Differs(__m128i third) {
    return _mm_min_epu8(ThirdIs<3>::Differs(third), ThirdIs<12>::Differs(third));
  }
  QLN_AVX2 static __m256i Differs(__m256i third) {
    return _mm256_min_epu8(ThirdIs<3>::Differs(third), ThirdIs<12>::Differs(third));
  }
#elif defined(QLN_NEON)
  static uint8x16_t Differs(uint8x16_t third) {
    return vminq_u8(ThirdIs<3>::Differs(third), ThirdIs<12>::Differs(third));
  }
#endif
};

// First p in [from, to) with p[0] == 0, p[1] == 0 and a matching p[2], all three in front of `to`; `to` if
// there is none. Byte by byte: what the vector forms are held against.
template <class Third>
const uint8_t* FindTriplePlain(const uint8_t* from, const uint8_t* to) {
  while (to - from >= 3) {
    if (from[1] != 0) {
      from += 2;
    } else if (from[0] != 0 || !Third::Matches(from[2])) {
      ++from;
    } else {
      return from;
    }
  }
  return to;
}

#if defined(__x86_64__)

// Of any three bytes in a row, two fill one pair of a row of pairs: the first two, or the last two. So where
// a triple stands, a pair has a zero as its first byte, and as its second a zero or a third byte. Coded data
// has next to no such pairs, and to look for them takes one load a vector; where one turns up, a look at
// whole triples decides. These are the bits of a pair, in memory order, that are then zero.
template <class Third>
inline constexpr uint16_t kZeroPairBits = static_cast<uint16_t>(0xFF | (0xFF & ~Third::kBits) << 8);

// A search for pairs that comes to one within kRareBlocks blocks stands among many, and is followed by this
// many blocks of whole triples; a longer one by a single block.
inline constexpr int kRareBlocks = 16;
inline constexpr int kWholeBlocksAmongMany = 32;

template <class Third>
inline __m128i PairsSse2(const uint8_t* from) {
  const __m128i bits = _mm_set1_epi16(static_cast<int16_t>(kZeroPairBits<Third>));
  const __m128i pairs = _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)), bits);
  return _mm_cmpeq_epi16(pairs, _mm_setzero_si128());
}

// The places where triples begin in the 16 at `from`, a bit each; 18 bytes are read.
template <class Third>
inline uint32_t TriplePlacesSse2(const uint8_t* from) {
  const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + 1));
  const __m128i third = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + 2));
  const __m128i differs = _mm_or_si128(_mm_or_si128(first, second), Third::Differs(third));
  return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(differs, _mm_setzero_si128())));
}

template <class Third>
const uint8_t* FindTripleSse2(const uint8_t* from, const uint8_t* to) {
  int wholeBlocks = 1;
  while (to - from >= 96) {
    if (wholeBlocks == 0) {
      const uint8_t* p = from;
      for (; to - p >= 66; p += 64) {
        const __m128i low = _mm_or_si128(PairsSse2<Third>(p), PairsSse2<Third>(p + 16));
        const __m128i high = _mm_or_si128(PairsSse2<Third>(p + 32), PairsSse2<Third>(p + 48));
        if (_mm_movemask_epi8(_mm_or_si128(low, high)) != 0) break;
      }
      wholeBlocks = p - from < 64 * kRareBlocks ? kWholeBlocksAmongMany : 1;
      if (p > from) from = p - 1;  // a triple may have its pair behind p and its first byte in front of it
      continue;
    }
    --wholeBlocks;
    for (int i = 0; i < 4; ++i, from += 16) {
      const uint32_t hits = TriplePlacesSse2<Third>(from);
      if (hits != 0) return from + __builtin_ctz(hits);
    }
  }
  for (; to - from >= 18; from += 16) {
    const uint32_t hits = TriplePlacesSse2<Third>(from);
    if (hits != 0) return from + __builtin_ctz(hits);
  }
  return FindTriplePlain<Third>(from, to);
}

// A byte is zero where a triple begins; 34 bytes are read.
template <class Third>
QLN_AVX2 inline __m256i DiffersAvx2(const uint8_t* from) {
  const __m256i first = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
  const __m256i second = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + 1));
  const __m256i third = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + 2));
  return _mm256_or_si256(_mm256_or_si256(first, second), Third::Differs(third));
}

// The places of the zero bytes of a vector, a bit each.
QLN_AVX2 inline uint32_t ZerosAvx2(__m256i vector) {
  return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(vector, _mm256_setzero_si256())));
}

// A pair is zero where a triple may have it; the address is aligned.
template <class Third>
QLN_AVX2 inline __m256i PairsAvx2(const uint8_t* from) {
  const __m256i bits = _mm256_set1_epi16(static_cast<int16_t>(kZeroPairBits<Third>));
  return _mm256_and_si256(_mm256_load_si256(reinterpret_cast<const __m256i*>(from)), bits);
}

template <class Third>
__attribute__((target("avx2"))) const uint8_t* FindTripleAvx2(const uint8_t* from, const uint8_t* to) {
  int wholeBlocks = 1;
  while (to - from >= 192) {
    if (wholeBlocks == 0) {
      // The 128 bytes in front of `from` have been looked at, so the block may begin among them.
      const uint8_t* p = from - (reinterpret_cast<uintptr_t>(from) & 31);
      for (; to - p >= 130; p += 128) {
        const __m256i low = _mm256_min_epu16(PairsAvx2<Third>(p), PairsAvx2<Third>(p + 32));
        const __m256i high = _mm256_min_epu16(PairsAvx2<Third>(p + 64), PairsAvx2<Third>(p + 96));
        const __m256i least = _mm256_min_epu16(low, high);
        if (_mm256_movemask_epi8(_mm256_cmpeq_epi16(least, _mm256_setzero_si256())) != 0) break;
      }
      wholeBlocks = p - from < 128 * kRareBlocks ? kWholeBlocksAmongMany : 1;
      if (p > from) from = p - 1;  // a triple may have its pair behind p and its first byte in front of it
      continue;
    }
    --wholeBlocks;
    const __m256i a = DiffersAvx2<Third>(from);
    const __m256i b = DiffersAvx2<Third>(from + 32);
    const __m256i c = DiffersAvx2<Third>(from + 64);
    const __m256i d = DiffersAvx2<Third>(from + 96);
    if (ZerosAvx2(_mm256_min_epu8(_mm256_min_epu8(a, b), _mm256_min_epu8(c, d))) != 0) {
      const uint64_t low = ZerosAvx2(a) | uint64_t{ZerosAvx2(b)} << 32;
      if (low != 0) return from + __builtin_ctzll(low);
      return from + 64 + __builtin_ctzll(ZerosAvx2(c) | uint64_t{ZerosAvx2(d)} << 32);
    }
    from += 128;
  }
  for (; to - from >= 34; from += 32) {
    const uint32_t hits = ZerosAvx2(DiffersAvx2<Third>(from));
    if (hits != 0) return from + __builtin_ctz(hits);
  }
  return FindTripleSse2<Third>(from, to);
}

#endif

// The scan, in the best form that the machine has.
template <class Third>
const uint8_t* FindTriple(const uint8_t* from, const uint8_t* to) {
#if defined(__x86_64__)
  // Where triples stand close together the first few bytes decide.
  if (to - from >= 3 && from[0] == 0 && from[1] == 0 && Third::Matches(from[2])) return from;
  if (to - from >= 256 && CPU_FEATURE_ACTIVE(AVX2)) return FindTripleAvx2<Third>(from, to);
  return FindTripleSse2<Third>(from, to);
#elif defined(QLN_NEON)
  return FindTripleNeon<Third>(from, to);
#else
  return FindTriplePlain<Third>(from, to);
#endif
}

// Last p in [from, to) with p[0] == 0, p[1] == 0 and a matching p[2], all three in front of `to`; `to` if
// there is none. Byte by byte.
template <class Third>
const uint8_t* FindLastTriplePlain(const uint8_t* from, const uint8_t* to) {
  for (const uint8_t* end = to; end - from >= 3; --end) {
    if (end[-3] == 0 && end[-2] == 0 && Third::Matches(end[-1])) return end - 3;
  }
  return to;
}

// The same, sixteen places a step where the machine has vectors.
template <class Third>
const uint8_t* FindLastTriple(const uint8_t* from, const uint8_t* to) {
  const uint8_t* end = to;  // no triple ends behind it
#if defined(__x86_64__)
  const __m128i zero = _mm_setzero_si128();
  for (; end - from >= 18; end -= 16) {
    const uint8_t* const block = end - 18;
    const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block));
    const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + 1));
    const __m128i third = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + 2));
    const __m128i differs = _mm_or_si128(_mm_or_si128(first, second), Third::Differs(third));
    const int hits = _mm_movemask_epi8(_mm_cmpeq_epi8(differs, zero));
    if (hits != 0) return block + (31 - __builtin_clz(static_cast<unsigned>(hits)));
  }
#elif defined(QLN_NEON)
  for (; end - from >= 18; end -= 16) {
    if (const uint8_t* const last = LastTripleOfBlockNeon<Third>(end)) return last;
  }
#endif
  const uint8_t* const rest = FindLastTriplePlain<Third>(from, end);
  return rest == end ? to : rest;
}

}  // namespace qln

#undef QLN_AVX2

#endif
