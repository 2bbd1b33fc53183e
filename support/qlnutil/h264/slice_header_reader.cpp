// Reads a slice header from a short private copy of the slice's start.

#include <algorithm>

#include "qlnutil/bits/emulation_prevention.h"
#include "qlnutil/h264/slice_header_walk.h"

namespace qln {

namespace {

// Bytes of a slice that are copied, and up to which a header may run over the zero bytes behind them.
constexpr uint64_t kCopiedBytes = 256;
constexpr uint64_t kWorkBytes = 4096;

// cabac_alignment_one_bit up to the next byte boundary; false at the first bit that is 0.
bool AlignedByOnes(BitReader& bits) {
  while (bits.bitPos % 8 != 0) {
    if (bits.ReadBit() == 0) return false;
  }
  return true;
}

}  // namespace

uint32_t ReadSliceHeader(const UnitBytes& unit, H264SliceHeaderRecord* header, const H264SpsRecord& sps,
                         H264PpsRecord* pps, uint32_t nalUnitType) {
  // One zero byte more than is copied: it stands for all those behind, and after a removal it moves in where
  // a shorter unit has a stale byte at its end.
  uint8_t copy[kCopiedBytes + 1];
  const uint64_t work = std::min(unit.size, kWorkBytes);
  const uint64_t copied = std::min(work, kCopiedBytes);
  unit.CopyTo(copy, copied);
  copy[copied] = 0;
  const uint64_t copySize = std::min<uint64_t>(work, sizeof copy);
  RemoveEmulationPrevention(copy, copy, copySize, kRemovalH264Slice);

  const SliceWalkRules rules{false, ReferenceMarking::kGuessed};
  for (const uint64_t limit : {work, copied}) {
    SyntaxReader coder{BitReader(copy, copySize, static_cast<uint32_t>(8 * limit))};
    NalHeaderSyntax(coder, *header);
    WalkSliceHeader(coder, *header, sps, *pps, nalUnitType, rules);
    // In CABAC streams a 0 in the alignment shows that the header ended elsewhere than the walk thinks; one
    // more pass is made under the shorter limit, and stands.
    if (pps->entropy_coding_mode_flag == 0 || AlignedByOnes(coder.bits)) break;
  }
  return header->first_mb_in_slice;
}

}  // namespace qln

uint32_t qlnutilRead_SliceHeader(QLNBitState* state, H264SliceHeaderRecord* header, const H264SpsRecord* sps,
                                 H264PpsRecord* pps, int32_t nalUnitType, uint32_t /*unused*/) {
  if (header == nullptr || sps == nullptr || pps == nullptr) return 0;
  return qln::ReadSliceHeader(qln::UnitBytes::Of(*state), header, *sps, pps,
                              static_cast<uint32_t>(nalUnitType));
}

uint32_t qlnutilWrite_SliceHeader(QLNBitState* /*state*/, H264SliceHeaderRecord* /*header*/,
                                  const H264SpsRecord* /*sps*/, H264PpsRecord* /*pps*/,
                                  int32_t /*nalUnitType*/, uint32_t /*unused*/) {
  return QLN_H264_NOT_SUPPORTED;
}
