// Reads a picture parameter set from a private copy without emulation prevention.

#include <bit>

#include "qlnutil/bits/emulation_prevention.h"
#include "qlnutil/h264/parameter_sets.h"
#include "qlnutil/h264/pps_syntax.h"

namespace qln {

namespace {

// What the record's arrays hold; entries behind that are read and not stored.
constexpr uint64_t kMaxSliceGroups = sizeof(H264PpsRecord::run_length_minus1) / 4;
constexpr uint64_t kMaxGroupIds = sizeof(H264PpsRecord::slice_group_id) / 4;

// Ceil(Log2(groups)), and 0 for the count that wrapped to 0.
constexpr int32_t GroupIdWidth(uint32_t groups) {
  return static_cast<int32_t>(std::bit_width(groups)) - (std::has_single_bit(groups) ? 1 : 0);
}

}  // namespace

void SliceGroupsSyntax(H264SetReader& coder, H264PpsRecord& pps) {
  const uint64_t groups = InclusiveRounds(pps.num_slice_groups_minus1);
  switch (pps.slice_group_map_type) {
    case 0:
      coder.InLoop([&](auto& loop) {
        RunRounds(loop.bits, groups, kMaxSliceGroups, [&](uint64_t i) {
          const uint32_t run = loop.bits.ReadUe();
          if (i < kMaxSliceGroups) pps.run_length_minus1[i] = run;
        });
      });
      break;
    case 2:
      // One rectangle more than the standard has: streams of this type are out of step from here on.
      coder.InLoop([&](auto& loop) {
        RunRounds(loop.bits, groups, kMaxSliceGroups, [&](uint64_t i) {
          const uint32_t topLeft = loop.bits.ReadUe();
          const uint32_t bottomRight = loop.bits.ReadUe();
          if (i >= kMaxSliceGroups) return;
          pps.top_left[i] = topLeft;
          pps.bottom_right[i] = bottomRight;
        });
      });
      break;
    case 3:
    case 4:
    case 5:
      coder.Flag(pps.slice_group_change_direction_flag);
      coder.Ue(pps.slice_group_change_rate_minus1);
      break;
    case 6: {
      coder.Ue(pps.pic_size_in_map_units_minus1);
      const int32_t width = GroupIdWidth(pps.num_slice_groups_minus1 + 1u);
      const uint64_t units = InclusiveRounds(pps.pic_size_in_map_units_minus1);
      coder.InLoop([&](auto& loop) {
        RunRounds(loop.bits, units, kMaxGroupIds, [&](uint64_t i) {
          const uint32_t id = loop.bits.ReadBits(width);
          if (i < kMaxGroupIds) pps.slice_group_id[i] = id;
        });
      });
      break;
    }
    default:
      break;
  }
}

// The 7 bits behind the next one, in place of more_rbsp_data(): a stop bit among them counts as data. The
// word is not cleared first, so a record once seen with data stays so.
void LookAheadForData(const H264SetReader& coder, H264PpsRecord& pps) {
  for (uint32_t k = 1; k <= 7; ++k) {
    if (uint64_t{coder.bits.bitPos} + k >= coder.bits.bitLength) return;
    if (pps.more_rbsp_data_present != 0) return;
    pps.more_rbsp_data_present = coder.bits.PeekBit(k);
  }
}

bool ReadPps(const UnitBytes& unit, uint32_t bitLength, uint32_t* bitPos, H264PpsRecord* pps) {
  PrivateCopy copy(unit.size);
  if (!copy.ok()) return false;
  unit.CopyTo(copy.data(), unit.size);
  RemoveEmulationPrevention(copy.data(), copy.data(), unit.size, kRemovalH264Pps);

  H264SetReader coder{{BitReader(copy.data(), unit.size, bitLength, *bitPos, kCopySlack)}};
  PpsSyntax(coder, *pps);
  *bitPos = (coder.bits.bitPos + 7) & ~7u;
  return true;
}

}  // namespace qln

uint32_t qlnutilRead_PPS(QLNBitState* state, H264PpsRecord* record) {
  if (record == nullptr) return 0;
  if (!qln::ReadPps(qln::UnitBytes::Of(*state), state->bitLength, &state->bitPos, record)) return 0;
  return state->bitPos / 8;
}
