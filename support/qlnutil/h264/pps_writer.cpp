// Writes a picture parameter set; its stop bit is the record's.

#include "qlnutil/h264/parameter_set_output.h"
#include "qlnutil/h264/parameter_sets.h"
#include "qlnutil/h264/pps_syntax.h"

namespace qln {

namespace {

// Entry i of a slice group array; groups that the record does not hold are written as 0.
template <size_t kCount>
uint32_t GroupEntry(const uint32_t (&entries)[kCount], uint64_t i) {
  return i < kCount ? entries[i] : 0;
}

}  // namespace

void SliceGroupsSyntax(H264SetWriter& coder, const H264PpsRecord& pps) {
  const uint64_t groups = InclusiveRounds(pps.num_slice_groups_minus1);
  switch (pps.slice_group_map_type) {
    case 0:
      for (uint64_t i = 0; i < groups && !coder.bits.Overflowed(); ++i) {
        coder.Ue(GroupEntry(pps.run_length_minus1, i));
      }
      break;
    case 2:
      // The standard's count, one less than the reader takes.
      for (uint64_t i = 0; i + 1 < groups && !coder.bits.Overflowed(); ++i) {
        coder.Ue(GroupEntry(pps.top_left, i));
        coder.Ue(GroupEntry(pps.bottom_right, i));
      }
      break;
    case 3:
    case 4:
    case 5:
      coder.Flag(pps.slice_group_change_direction_flag);
      coder.Ue(pps.slice_group_change_rate_minus1);
      break;
    case 6:
      // Without the group ids: such a unit does not survive a read and a write.
      coder.Ue(pps.pic_size_in_map_units_minus1);
      break;
    default:
      break;
  }
}

bool WritePps(const H264PpsRecord& pps, uint64_t scratchSize, BitWriter& output) {
  // Every word once, and two codes of one bit for each group that the record does not hold.
  const uint64_t needed =
      sizeof pps / 4 * kLongestCode / 8 + InclusiveRounds(pps.num_slice_groups_minus1) / 4 + 1;
  return AppendUnit(scratchSize, needed, output, [&](H264SetWriter& coder) { PpsSyntax(coder, pps); });
}

}  // namespace qln

uint32_t qlnutilWrite_PPS(QLNBitState* state, const H264PpsRecord* record) {
  if (record == nullptr || !qln::WriteToState(state, *record, qln::WritePps)) return 0;
  return state->bitPos / 8;
}
