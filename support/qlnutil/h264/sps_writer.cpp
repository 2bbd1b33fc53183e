// Writes a sequence parameter set: the reader's syntax the other way round, and emulation prevention.

#include "qlnutil/h264/parameter_set_output.h"
#include "qlnutil/h264/parameter_sets.h"
#include "qlnutil/h264/sps_syntax.h"

namespace qln {

bool WriteSps(const H264SpsRecord& sps, uint64_t scratchSize, BitWriter& output) {
  // Every word once, and the one offset as often as the cycle says.
  const uint64_t cycle =
      static_cast<uint64_t>(std::max(static_cast<int32_t>(sps.num_ref_frames_in_pic_order_cnt_cycle), 0));
  const uint64_t needed = (sizeof sps / 4 + cycle) * kLongestCode / 8 + 1;
  return AppendUnit(scratchSize, needed, output, [&](H264SetWriter& coder) {
    SpsSyntax(coder, sps);
    coder.Flag(1);  // the stop bit, whatever the record holds
  });
}

}  // namespace qln

uint64_t qlnutilWrite_SPS(QLNBitState* state, const H264SpsRecord* record) {
  if (record == nullptr || !qln::WriteToState(state, *record, qln::WriteSps)) return 0;
  return state->bitPos / 8;
}
