// Reads a sequence parameter set from a private copy without emulation prevention.

#include "qlnutil/bits/emulation_prevention.h"
#include "qlnutil/h264/parameter_sets.h"
#include "qlnutil/h264/sps_syntax.h"

namespace qln {

bool ReadSps(const UnitBytes& unit, uint32_t bitLength, uint32_t* bitPos, H264SpsRecord* sps) {
  PrivateCopy copy(unit.size);
  if (!copy.ok()) return false;
  unit.CopyTo(copy.data(), unit.size);
  RemoveEmulationPrevention(copy.data(), copy.data(), unit.size, kRemovalH264Sps);

  H264SetReader coder{{BitReader(copy.data(), unit.size, bitLength, *bitPos, kCopySlack)}};
  SpsSyntax(coder, *sps);
  coder.Flag(sps->rbsp_stop_one_bit);
  // A failed read moves the position too, and then the way to the boundary ends there.
  while (coder.bits.bitPos % 8 != 0 && coder.bits.ReadBit() != 0xFFFFFFFFu) {
  }
  *bitPos = coder.bits.bitPos;
  return true;
}

}  // namespace qln

uint64_t qlnutilRead_SPS(QLNBitState* state, H264SpsRecord* record) {
  if (record == nullptr || state->size == 0) return 0;
  if (!qln::ReadSps(qln::UnitBytes::Of(*state), state->bitLength, &state->bitPos, record)) return 0;
  return state->bitPos / 8;
}
