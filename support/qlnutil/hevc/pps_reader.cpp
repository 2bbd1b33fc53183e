// The PPS reader: the body of clause 7.3.2.3 up to pps_extension_present_flag.

#include "qlnutil/bits/bit_window.h"
#include "qlnutil/hevc/loop_reader.h"
#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/hevc/parameter_set_reader.h"
#include "qlnutil/qlnvidutil.h"

namespace qln {
namespace {

constexpr HevcReaderPolicy kPpsReader{
    kRemovalHevcSpsPps, false,
    "\nqlnutilRead_HEVC_PPS failed bit length is wrong = %d padding = %d current bit %d bit length %d 0x%08X "
    "0x%08X",
    "\nqlnutilRead_HEVC_PPS failed allignment bit = %d padding = %d current bit %d bit length %d"};

BitWindow ReadTiles(BitReader in, HevcPpsRecord& pps) {
  pps.num_tile_columns_minus1 = in.ReadUe();
  pps.num_tile_rows_minus1 = in.ReadUe();
  pps.uniform_spacing_flag = in.ReadBit();
  if (pps.uniform_spacing_flag == 0) {
    LoopReader columns(in);
    RunRounds(columns, pps.num_tile_columns_minus1, 0,
              [&](uint32_t) { pps.column_width_minus1 = columns.ReadUe(); });
    LoopReader rows(in);
    RunRounds(rows, pps.num_tile_rows_minus1, 0, [&](uint32_t) { pps.row_height_minus1 = rows.ReadUe(); });
  }
  pps.loop_filter_across_tiles_enabled_flag = in.ReadBit();
  return BitWindow(in);
}

// False when the unit is refused.
bool ReadPps(HevcUnit& unit, HevcPpsRecord& pps) {
  if (unit.nalType() != kHevcNalPps) {
    ErrOutLocated("Not a pps NAL (%d) %s %d", unit.nalType());
    return false;
  }
  unit.bits().bitPos = 16;
  BitWindow in(unit.bits());
  pps.pps_pic_parameter_set_id = in.ReadUe();
  pps.pps_seq_parameter_set_id = in.ReadUe();
  pps.dependent_slice_segments_enabled_flag = in.ReadBit();
  pps.output_flag_present_flag = in.ReadBit();
  pps.num_extra_slice_header_bits = in.ReadBits<3>();
  pps.sign_data_hiding_enabled_flag = in.ReadBit();
  pps.cabac_init_present_flag = in.ReadBit();
  pps.num_ref_idx_l0_default_active_minus1 = in.ReadUe();
  pps.num_ref_idx_l1_default_active_minus1 = in.ReadUe();
  pps.init_qp_minus26 = in.ReadSe();
  pps.constrained_intra_pred_flag = in.ReadBit();
  pps.transform_skip_enabled_flag = in.ReadBit();
  pps.cu_qp_delta_enabled_flag = in.ReadBit();
  if (pps.cu_qp_delta_enabled_flag != 0) pps.diff_cu_qp_delta_depth = in.ReadUe();
  pps.pps_cb_qp_offset = in.ReadSe();
  pps.pps_cr_qp_offset = in.ReadSe();
  pps.pps_slice_chroma_qp_offsets_present_flag = in.ReadBit();
  pps.weighted_pred_flag = in.ReadBit();
  pps.weighted_bipred_flag = in.ReadBit();
  pps.transquant_bypass_enabled_flag = in.ReadBit();
  pps.tiles_enabled_flag = in.ReadBit();
  pps.entropy_coding_sync_enabled_flag = in.ReadBit();
  if (pps.tiles_enabled_flag != 0) in = ReadTiles(in.reader(), pps);
  pps.pps_loop_filter_across_slices_enabled_flag = in.ReadBit();
  pps.deblocking_filter_control_present_flag = in.ReadBit();
  if (pps.deblocking_filter_control_present_flag != 0) {
    pps.deblocking_filter_override_enabled_flag = in.ReadBit();
    pps.pps_deblocking_filter_disabled_flag = in.ReadBit();
    if (pps.pps_deblocking_filter_disabled_flag == 0) {
      pps.pps_beta_offset_div2 = in.ReadSe();
      pps.pps_tc_offset_div2 = in.ReadSe();
    }
  }
  pps.pps_scaling_list_data_present_flag = in.ReadBit();  // its data is not looked for
  pps.lists_modification_present_flag = in.ReadBit();
  pps.log2_parallel_merge_level_minus2 = in.ReadUe();
  pps.slice_segment_header_extension_present_flag = in.ReadBit();
  pps.pps_extension_present_flag = in.ReadBit();  // nor are extensions
  unit.bits() = in.reader();
  return true;
}

// parallelismType of ISO/IEC 14496-15: 0 mixed or unknown, 1 slices, 2 tiles, 3 wavefronts.
uint32_t ParallelismType(const HevcPpsRecord& pps) {
  const bool wavefronts = pps.entropy_coding_sync_enabled_flag != 0;
  const bool tiles = pps.tiles_enabled_flag != 0;
  if (wavefronts) return tiles ? 0 : 3;
  return tiles ? 2 : 1;
}

}  // namespace
}  // namespace qln

uint64_t qlnutilRead_HEVC_PPS(QLNBitState* state, HevcPpsRecord* pps, HevcConfigRecord* config,
                              uint32_t lengthBits) {
  using namespace qln;
  if (NothingToRead(state, pps)) return 0;
  HevcUnit unit(*state, lengthBits, kPpsReader);
  if (!unit.ok()) return QLN_HEVC_REFUSED;
  if (!ReadPps(unit, *pps)) return unit.Refuse(state);
  unit.CheckTrailingBits();
  if (config != nullptr) config->parallelismType = ParallelismType(*pps);
  return unit.Done(state);
}
