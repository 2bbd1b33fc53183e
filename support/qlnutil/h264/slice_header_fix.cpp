// Walks a slice header in the caller's bytes and repairs the CABAC alignment behind it.

#include <algorithm>

#include "qlnutil/h264/slice_header_walk.h"

uint32_t qlnutilFix_SliceHeader(QLNBitState* state, H264SliceHeaderRecord* header, const H264SpsRecord* sps,
                                H264PpsRecord* pps, uint32_t nalUnitType, int32_t marking) {
  if (header == nullptr || sps == nullptr || pps == nullptr) return 0;
  const uint64_t bytes = static_cast<uint64_t>(std::max(state->size, 0));
  qln::SyntaxReader coder{qln::BitReader(state->data, bytes, state->bitLength, state->bitPos)};
  const qln::SliceWalkRules rules{
      true, marking != 0 ? qln::ReferenceMarking::kParsed : qln::ReferenceMarking::kAbsent};
  qln::WalkSliceHeader(coder, *header, *sps, *pps, nalUnitType, rules);

  uint32_t position = coder.bits.bitPos;
  const uint64_t writable = std::min<uint64_t>(state->bitLength, bytes * 8);
  // The standard has a run of ones here; players that this repair is for want a 1 and zeros.
  for (bool one = true; position % 8 != 0; ++position, one = false) {
    if (pps->entropy_coding_mode_flag == 0 || position >= writable) continue;
    const uint8_t mask = static_cast<uint8_t>(0x80 >> (position % 8));
    uint8_t& byte = state->data[position / 8];
    byte = static_cast<uint8_t>(one ? byte | mask : byte & ~mask);
  }
  state->bitPos = position;
  return 0;
}
