// Emulation prevention (ITU-T H.264 and H.265 clause 7.4.1): one linear pass removes it, one inserts it.
//
// Readers and writers differ on purpose in where they look and in what they leave behind; each difference is
// a field of a small policy, and the policies stand here by name. The result is, byte for byte, what moving
// the bytes down or up one at a time would leave.
#ifndef QLNUTIL_BITS_EMULATION_PREVENTION_H
#define QLNUTIL_BITS_EMULATION_PREVENTION_H

#include <cstddef>
#include <cstdint>

namespace qln {

struct EmulationRemoval {
  uint32_t firstIndex;  // a triple 00 00 03 that begins in front of this index stays
  bool removesTwelve;   // 00 00 0C loses its last byte as well
  bool keepsSize;  // the run keeps its size: stale copies of the last byte stand at its end; otherwise the
                   // run shrinks and zero bytes stand there
};

// H.264 SPS: the tail of the unit is read as it was left. A triple 00 00 03 at the very end comes out as it
// was, since its last byte takes its own place.
inline constexpr EmulationRemoval kRemovalH264Sps{3, false, true};
// H.264 PPS: also removes 00 00 0C.
inline constexpr EmulationRemoval kRemovalH264Pps{3, true, true};
// H.264 slice header.
inline constexpr EmulationRemoval kRemovalH264Slice{3, false, true};
// HEVC VPS: looks from the first byte on.
inline constexpr EmulationRemoval kRemovalHevcVps{0, false, false};
// HEVC SPS and PPS.
inline constexpr EmulationRemoval kRemovalHevcSpsPps{3, false, false};
// A whole HEVC configuration box whose bytes went through an escaping step: its size stays.
inline constexpr EmulationRemoval kRemovalHevcBox{3, false, true};
// The standard's rule, for an SEI payload behind its NAL header.
inline constexpr EmulationRemoval kRemovalSeiPayload{0, false, false};

// Removes emulation prevention from `size` bytes at `source` into `destination`, which has room for `size`
// bytes and is either `source` itself or does not overlap it. All `size` bytes of the destination are
// written. Returns the number of bytes removed.
size_t RemoveEmulationPrevention(uint8_t* destination, const uint8_t* source, size_t size,
                                 const EmulationRemoval& policy);

struct EmulationInsertion {
  uint32_t firstIndex;        // output bytes in front of this index are never the first of a triple
  uint32_t smallestSize;      // runs shorter than this are copied as they are
  bool stepsBehindTriple;     // after an insertion the third byte is passed too, so zeros do not carry over
  bool limitIsUnescapedSize;  // the third byte is looked at only while its output index is at most the size
                              // before any insertion: after k insertions the last k - 1 bytes never are
};

// H.264 SPS and PPS writers.
inline constexpr EmulationInsertion kInsertionH264Writer{0, 0, true, false};
// HEVC VPS, SPS and PPS writers.
inline constexpr EmulationInsertion kInsertionHevcWriter{3, 5, false, true};
// SEI packets: the first four bytes, start code or length, are not looked at.
inline constexpr EmulationInsertion kInsertionSeiPacket{4, 0, false, false};

inline constexpr size_t kDoesNotFit = ~size_t{0};

// Room that is always enough for `size` bytes with their emulation prevention.
constexpr size_t WorstEscapedSize(size_t size) { return size + size / 2 + 1; }

// Copies `size` bytes from `source` to `destination` (no overlap), putting a 3 between 00 00 and a byte of 3
// or less where the policy looks. Returns the number of bytes written, or kDoesNotFit if that is above
// `capacity`; what stands in the destination is then of no use.
size_t InsertEmulationPrevention(uint8_t* destination, size_t capacity, const uint8_t* source, size_t size,
                                 const EmulationInsertion& policy);

}  // namespace qln

#endif
