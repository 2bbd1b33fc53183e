// The PPS writer, in the order of clause 7.3.2.3, without list and extension data.

#include "qlnutil/hevc/parameter_set_writer.h"

namespace qln {
namespace {

void WriteSigned(BitWriter& out, int32_t value) {
  out.WriteExponentialGolombCodeSigned(static_cast<uint32_t>(value));
}

// All columns get the one width of the record, all rows the one height.
void WriteTiles(BitWriter& out, const HevcPpsRecord& pps) {
  out.WriteUe(pps.num_tile_columns_minus1);
  out.WriteUe(pps.num_tile_rows_minus1);
  out.WriteBit(pps.uniform_spacing_flag);
  if (pps.uniform_spacing_flag == 0) {
    for (uint32_t i = 0; i < pps.num_tile_columns_minus1 && !out.Overflowed(); ++i)
      out.WriteUe(pps.column_width_minus1);
    for (uint32_t i = 0; i < pps.num_tile_rows_minus1 && !out.Overflowed(); ++i)
      out.WriteUe(pps.row_height_minus1);
  }
  out.WriteBit(pps.loop_filter_across_tiles_enabled_flag);
}

void WritePps(BitWriter& out, const HevcPpsRecord& pps) {
  out.WriteUe(pps.pps_pic_parameter_set_id);
  out.WriteUe(pps.pps_seq_parameter_set_id);
  out.WriteBit(pps.dependent_slice_segments_enabled_flag);
  out.WriteBit(pps.output_flag_present_flag);
  out.WriteBits(3, pps.num_extra_slice_header_bits);
  out.WriteBit(pps.sign_data_hiding_enabled_flag);
  out.WriteBit(pps.cabac_init_present_flag);
  out.WriteUe(pps.num_ref_idx_l0_default_active_minus1);
  out.WriteUe(pps.num_ref_idx_l1_default_active_minus1);
  WriteSigned(out, pps.init_qp_minus26);
  out.WriteBit(pps.constrained_intra_pred_flag);
  out.WriteBit(pps.transform_skip_enabled_flag);
  out.WriteBit(pps.cu_qp_delta_enabled_flag);
  if (pps.cu_qp_delta_enabled_flag != 0) out.WriteUe(pps.diff_cu_qp_delta_depth);
  WriteSigned(out, pps.pps_cb_qp_offset);
  WriteSigned(out, pps.pps_cr_qp_offset);
  out.WriteBit(pps.pps_slice_chroma_qp_offsets_present_flag);
  out.WriteBit(pps.weighted_pred_flag);
  out.WriteBit(pps.weighted_bipred_flag);
  out.WriteBit(pps.transquant_bypass_enabled_flag);
  out.WriteBit(pps.tiles_enabled_flag);
  out.WriteBit(pps.entropy_coding_sync_enabled_flag);
  if (pps.tiles_enabled_flag != 0) WriteTiles(out, pps);
  out.WriteBit(pps.pps_loop_filter_across_slices_enabled_flag);
  out.WriteBit(pps.deblocking_filter_control_present_flag);
  if (pps.deblocking_filter_control_present_flag != 0) {
    out.WriteBit(pps.deblocking_filter_override_enabled_flag);
    out.WriteBit(pps.pps_deblocking_filter_disabled_flag);
    if (pps.pps_deblocking_filter_disabled_flag == 0) {
      WriteSigned(out, pps.pps_beta_offset_div2);
      WriteSigned(out, pps.pps_tc_offset_div2);
    }
  }
  out.WriteBit(pps.pps_scaling_list_data_present_flag);
  out.WriteBit(pps.lists_modification_present_flag);
  out.WriteUe(pps.log2_parallel_merge_level_minus2);
  out.WriteBit(pps.slice_segment_header_extension_present_flag);
  out.WriteBit(pps.pps_extension_present_flag);
}

}  // namespace
}  // namespace qln

uint32_t qlnutilWrite_HEVC_PPS(const HevcPpsRecord* pps, uint8_t* output) {
  using namespace qln;
  if (pps == nullptr || output == nullptr) return 0;
  HevcUnitWriter unit(kHevcNalPps);
  WritePps(unit.bits(), *pps);
  return unit.Finish(output);
}
