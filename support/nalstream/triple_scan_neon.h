// The vector scan for two zero bytes and a third of some kind, in NEON, which every arm64 machine has.
//
// The same search as that of the x86 forms: first for pairs that hold two of the three bytes, then, where one
// turns up, for whole triples. Only triple_scan.h includes it; the kinds of third byte stand there.
#ifndef NALSTREAM_TRIPLE_SCAN_NEON_H
#define NALSTREAM_TRIPLE_SCAN_NEON_H

#if defined(__AARCH64EL__) && defined(__ARM_NEON)
#define QLN_NEON 1

#include <arm_neon.h>

#include <bit>
#include <cstdint>

namespace qln {

template <class Third>
const uint8_t* FindTriplePlain(const uint8_t* from, const uint8_t* to);

// Four bits for each of the 16 bytes of a vector, in memory order from the lowest on: all ones where it is
// zero.
inline uint64_t ZerosNeon(uint8x16_t vector) {
  const uint8x16_t zeros = vceqzq_u8(vector);
  return vget_lane_u64(vreinterpret_u64_u8(vshrn_n_u16(vreinterpretq_u16_u8(zeros), 4)), 0);
}

// A byte is zero where a triple begins; 18 bytes are read.
template <class Third>
inline uint8x16_t DiffersNeon(const uint8_t* from) {
  return vorrq_u8(vorrq_u8(vld1q_u8(from), vld1q_u8(from + 1)), Third::Differs(vld1q_u8(from + 2)));
}

// Of each pair of bytes in a row a zero where a triple may have two of its bytes: 0, and then 0 or a third
// byte.
template <class Third>
inline uint16x8_t PairsNeon(const uint8_t* from) {
  constexpr uint16_t bits = 0xFF | (0xFF & ~Third::kBits) << 8;  // in memory order
  return vandq_u16(vreinterpretq_u16_u8(vld1q_u8(from)), vdupq_n_u16(bits));
}

// A search for pairs that comes to one within kRareBlocksNeon blocks stands among many, and is followed by
// this many blocks of whole triples; a longer one by a single block.
inline constexpr int kRareBlocksNeon = 16;
inline constexpr int kWholeBlocksAmongManyNeon = 32;

// First p in [from, to) with p[0] == 0, p[1] == 0 and a matching p[2], all three in front of `to`; `to` if
// there is none.
template <class Third>
const uint8_t* FindTripleNeon(const uint8_t* from, const uint8_t* to) {
  int wholeBlocks = 1;
  while (to - from >= 96) {
    if (wholeBlocks == 0) {
      const uint8_t* p = from;
      for (; to - p >= 66; p += 64) {
        const uint16x8_t low = vminq_u16(PairsNeon<Third>(p), PairsNeon<Third>(p + 16));
        const uint16x8_t high = vminq_u16(PairsNeon<Third>(p + 32), PairsNeon<Third>(p + 48));
        if (vminvq_u16(vminq_u16(low, high)) == 0) break;
      }
      wholeBlocks = p - from < 64 * kRareBlocksNeon ? kWholeBlocksAmongManyNeon : 1;
      if (p > from) from = p - 1;  // a triple may have its pair behind p and its first byte in front of it
      continue;
    }
    --wholeBlocks;
    const uint8x16_t a = DiffersNeon<Third>(from);
    const uint8x16_t b = DiffersNeon<Third>(from + 16);
    const uint8x16_t c = DiffersNeon<Third>(from + 32);
    const uint8x16_t d = DiffersNeon<Third>(from + 48);
    if (vminvq_u8(vminq_u8(vminq_u8(a, b), vminq_u8(c, d))) == 0) {
      for (;; from += 16) {
        const uint64_t hits = ZerosNeon(DiffersNeon<Third>(from));
        if (hits != 0) return from + std::countr_zero(hits) / 4;
      }
    }
    from += 64;
  }
  for (; to - from >= 18; from += 16) {
    const uint64_t hits = ZerosNeon(DiffersNeon<Third>(from));
    if (hits != 0) return from + std::countr_zero(hits) / 4;
  }
  return FindTriplePlain<Third>(from, to);
}

// Where the last triple of a block begins that ends at `end` and has 16 places for one; null if none does. 18
// bytes are read.
template <class Third>
inline const uint8_t* LastTripleOfBlockNeon(const uint8_t* end) {
  const uint64_t hits = ZerosNeon(DiffersNeon<Third>(end - 18));
  return hits == 0 ? nullptr : end - 18 + (63 - std::countl_zero(hits)) / 4;
}

}  // namespace qln

#endif

#endif
