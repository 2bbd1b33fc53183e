// pic_parameter_set_rbsp() of ITU-T H.265 clause 7.3.2.3 up to pps_extension_present_flag, once for reader
// and writer.
#ifndef QLNUTIL_HEVC_PPS_SYNTAX_H
#define QLNUTIL_HEVC_PPS_SYNTAX_H

#include "qlnutil/hevc/syntax_coders.h"

namespace qln {

// From behind the NAL header on. Neither list data nor extension data is looked for behind its flag.
template <class Coder, class Pps>
[[gnu::always_inline]] inline void PpsSyntax(Coder& coder, Pps& pps) {
  coder.Ue(pps.pps_pic_parameter_set_id);
  coder.Ue(pps.pps_seq_parameter_set_id);
  coder.Flag(pps.dependent_slice_segments_enabled_flag);
  coder.Flag(pps.output_flag_present_flag);
  coder.U(3, pps.num_extra_slice_header_bits);
  coder.Flag(pps.sign_data_hiding_enabled_flag);
  coder.Flag(pps.cabac_init_present_flag);
  coder.Ue(pps.num_ref_idx_l0_default_active_minus1);
  coder.Ue(pps.num_ref_idx_l1_default_active_minus1);
  coder.Se(pps.init_qp_minus26);
  coder.Flag(pps.constrained_intra_pred_flag);
  coder.Flag(pps.transform_skip_enabled_flag);
  coder.Flag(pps.cu_qp_delta_enabled_flag);
  if (pps.cu_qp_delta_enabled_flag != 0) coder.Ue(pps.diff_cu_qp_delta_depth);
  coder.Se(pps.pps_cb_qp_offset);
  coder.Se(pps.pps_cr_qp_offset);
  coder.Flag(pps.pps_slice_chroma_qp_offsets_present_flag);
  coder.Flag(pps.weighted_pred_flag);
  coder.Flag(pps.weighted_bipred_flag);
  coder.Flag(pps.transquant_bypass_enabled_flag);
  coder.Flag(pps.tiles_enabled_flag);
  coder.Flag(pps.entropy_coding_sync_enabled_flag);
  if (pps.tiles_enabled_flag != 0) {
    coder.Ue(pps.num_tile_columns_minus1);
    coder.Ue(pps.num_tile_rows_minus1);
    coder.Flag(pps.uniform_spacing_flag);
    if (pps.uniform_spacing_flag == 0) {
      coder.UeRun(pps.num_tile_columns_minus1, pps.column_width_minus1);
      coder.UeRun(pps.num_tile_rows_minus1, pps.row_height_minus1);
    }
    coder.Flag(pps.loop_filter_across_tiles_enabled_flag);
  }
  coder.Flag(pps.pps_loop_filter_across_slices_enabled_flag);
  coder.Flag(pps.deblocking_filter_control_present_flag);
  if (pps.deblocking_filter_control_present_flag != 0) {
    coder.Flag(pps.deblocking_filter_override_enabled_flag);
    coder.Flag(pps.pps_deblocking_filter_disabled_flag);
    if (pps.pps_deblocking_filter_disabled_flag == 0) {
      coder.Se(pps.pps_beta_offset_div2);
      coder.Se(pps.pps_tc_offset_div2);
    }
  }
  coder.Flag(pps.pps_scaling_list_data_present_flag);
  coder.Flag(pps.lists_modification_present_flag);
  coder.Ue(pps.log2_parallel_merge_level_minus2);
  coder.Flag(pps.slice_segment_header_extension_present_flag);
  coder.Flag(pps.pps_extension_present_flag);
}

}  // namespace qln

#endif
