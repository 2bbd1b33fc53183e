// vui_parameters() of ITU-T H.265 clause E.2.1 with the short form of its HRD, once for reader and writer.
#ifndef QLNUTIL_HEVC_VUI_SYNTAX_H
#define QLNUTIL_HEVC_VUI_SYNTAX_H

#include <cstdint>

#include "qlnutil/hevc/syntax_coders.h"

namespace qln {

// aspect_ratio_idc EXTENDED_SAR of table E.1.
inline constexpr uint32_t kHevcExtendedSar = 255;

// The short form of hrd_parameters(): one CPB a sub-layer and no fixed rates, whatever the flags say. What
// stands in front of the loop comes out right for every stream; timing SEI needs just that.
template <class Coder>
void ShortHrdSyntax(Coder& coder, HevcSpsRecord& sps) {
  coder.Flag(sps.nal_hrd_parameters_present_flag);
  coder.Flag(sps.vcl_hrd_parameters_present_flag);
  if (sps.nal_hrd_parameters_present_flag != 0 || sps.vcl_hrd_parameters_present_flag != 0) {
    coder.Flag(sps.sub_pic_hrd_params_present_flag);
    if (sps.sub_pic_hrd_params_present_flag != 0) {
      coder.U(8, sps.tick_divisor_minus2);
      coder.U(5, sps.du_cpb_removal_delay_increment_length_minus1);
      coder.Flag(sps.sub_pic_cpb_params_in_pic_timing_sei_flag);
      coder.U(5, sps.dpb_output_delay_du_length_minus1);
    }
    coder.U(4, sps.bit_rate_scale);
    coder.U(4, sps.cpb_size_scale);
    if (sps.sub_pic_hrd_params_present_flag != 0) coder.U(4, sps.cpb_size_du_scale);
    coder.U(5, sps.initial_cpb_removal_delay_length_minus1);
    coder.U(5, sps.au_cpb_removal_delay_length_minus1);
    coder.U(5, sps.dpb_output_delay_length_minus1);
  }
  const uint64_t last = coder.LastSubLayer(sps.sps_max_sub_layers_minus1);
  coder.InLoop([&](auto& loop) {
    for (uint64_t i = 0; i <= last && !loop.Full(); ++i) {
      loop.Flag(loop.Entry(sps.fixed_pic_rate_general_flag, i));
      loop.Flag(loop.Entry(sps.fixed_pic_rate_within_cvs_flag, i));
      loop.Flag(loop.Entry(sps.low_delay_hrd_flag, i));
      loop.Ue(loop.Entry(sps.cpb_cnt_minus1, i));
      loop.Ue(sps.bit_rate_value_minus1);
      loop.Ue(sps.cpb_size_value_minus1);
      loop.Flag(sps.cbr_flag);
    }
  });
}

template <class Coder>
void VuiSyntax(Coder& coder, HevcSpsRecord& sps) {
  coder.Flag(sps.aspect_ratio_info_present_flag);
  if (sps.aspect_ratio_info_present_flag != 0) {
    coder.U(8, sps.aspect_ratio_idc);
    if (sps.aspect_ratio_idc == kHevcExtendedSar) {
      coder.U(16, sps.sar_width);
      coder.U(16, sps.sar_height);
    }
  }
  coder.Flag(sps.overscan_info_present_flag);
  if (sps.overscan_info_present_flag != 0) coder.Flag(sps.overscan_appropriate_flag);
  coder.Flag(sps.video_signal_type_present_flag);
  if (sps.video_signal_type_present_flag != 0) {
    coder.U(3, sps.video_format);
    coder.Flag(sps.video_full_range_flag);
    coder.Flag(sps.colour_description_present_flag);
    if (sps.colour_description_present_flag != 0) {
      coder.U(8, sps.colour_primaries);
      coder.U(8, sps.transfer_characteristics);
      coder.U(8, sps.matrix_coeffs);
    }
  }
  coder.Flag(sps.chroma_loc_info_present_flag);
  if (sps.chroma_loc_info_present_flag != 0) {
    coder.Ue(sps.chroma_sample_loc_type_top_field);
    coder.Ue(sps.chroma_sample_loc_type_bottom_field);
  }
  coder.Flag(sps.neutral_chroma_indication_flag);
  coder.Flag(sps.field_seq_flag);
  coder.Flag(sps.frame_field_info_present_flag);
  coder.Flag(sps.default_display_window_flag);
  if (sps.default_display_window_flag != 0) {
    coder.Ue(sps.def_disp_win_left_offset);
    coder.Ue(sps.def_disp_win_right_offset);
    coder.Ue(sps.def_disp_win_top_offset);
    coder.Ue(sps.def_disp_win_bottom_offset);
  }
  coder.Flag(sps.vui_timing_info_present_flag);
  if (sps.vui_timing_info_present_flag != 0) {
    coder.U(32, sps.vui_num_units_in_tick);
    coder.U(32, sps.vui_time_scale);
    coder.Flag(sps.vui_poc_proportional_to_timing_flag);
    if (sps.vui_poc_proportional_to_timing_flag != 0) coder.Ue(sps.vui_num_ticks_poc_diff_one_minus1);
    coder.Flag(sps.vui_hrd_parameters_present_flag);
    if (sps.vui_hrd_parameters_present_flag != 0) ShortHrdSyntax(coder, sps);
  }
  coder.Flag(sps.bitstream_restriction_flag);
  if (sps.bitstream_restriction_flag != 0) {
    coder.Flag(sps.tiles_fixed_structure_flag);
    coder.Flag(sps.motion_vectors_over_pic_boundaries_flag);
    coder.Flag(sps.restricted_ref_pic_lists_flag);
    coder.Ue(sps.min_spatial_segmentation_idc);
    coder.Ue(sps.max_bytes_per_pic_denom);
    coder.Ue(sps.max_bits_per_min_cu_denom);
    coder.Ue(sps.log2_max_mv_length_horizontal);
    coder.Ue(sps.log2_max_mv_length_vertical);
  }
}

}  // namespace qln

#endif
