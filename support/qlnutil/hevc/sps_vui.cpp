// vui_parameters() in the order of clause E.2.1, read and written.

#include "qlnutil/hevc/parameter_set_reader.h"
#include "qlnutil/hevc/sps_syntax.h"

namespace qln {
namespace {

constexpr uint32_t kExtendedSar = 255;

// The short form of hrd_parameters(): one CPB a sub-layer and no fixed rates, whatever the flags say. What
// stands in front of the loop comes out right for every stream; timing SEI needs just that.
void ReadShortHrd(BitReader& in, HevcSpsRecord& sps) {
  sps.nal_hrd_parameters_present_flag = in.ReadBit();
  sps.vcl_hrd_parameters_present_flag = in.ReadBit();
  if (sps.nal_hrd_parameters_present_flag != 0 || sps.vcl_hrd_parameters_present_flag != 0) {
    sps.sub_pic_hrd_params_present_flag = in.ReadBit();
    if (sps.sub_pic_hrd_params_present_flag != 0) {
      sps.tick_divisor_minus2 = in.ReadBits(8);
      sps.du_cpb_removal_delay_increment_length_minus1 = in.ReadBits(5);
      sps.sub_pic_cpb_params_in_pic_timing_sei_flag = in.ReadBits(1);
      sps.dpb_output_delay_du_length_minus1 = in.ReadBits(5);
    }
    sps.bit_rate_scale = in.ReadBits(4);
    sps.cpb_size_scale = in.ReadBits(4);
    if (sps.sub_pic_hrd_params_present_flag != 0) sps.cpb_size_du_scale = in.ReadBits(4);
    sps.initial_cpb_removal_delay_length_minus1 = in.ReadBits(5);
    sps.au_cpb_removal_delay_length_minus1 = in.ReadBits(5);
    sps.dpb_output_delay_length_minus1 = in.ReadBits(5);
  }
  const uint32_t lastSubLayer = SubLayersForLoops(sps.sps_max_sub_layers_minus1);
  for (uint32_t i = 0; i <= lastSubLayer; ++i) {
    sps.fixed_pic_rate_general_flag[i] = in.ReadBit();
    sps.fixed_pic_rate_within_cvs_flag[i] = in.ReadBit();
    sps.low_delay_hrd_flag[i] = in.ReadBit();
    sps.cpb_cnt_minus1[i] = in.ReadUe();
    sps.bit_rate_value_minus1 = in.ReadUe();
    sps.cpb_size_value_minus1 = in.ReadUe();
    sps.cbr_flag = in.ReadBit();
  }
}

void WriteShortHrd(BitWriter& out, const HevcSpsRecord& sps) {
  out.WriteBit(sps.nal_hrd_parameters_present_flag);
  out.WriteBit(sps.vcl_hrd_parameters_present_flag);
  if (sps.nal_hrd_parameters_present_flag != 0 || sps.vcl_hrd_parameters_present_flag != 0) {
    out.WriteBit(sps.sub_pic_hrd_params_present_flag);
    if (sps.sub_pic_hrd_params_present_flag != 0) {
      out.WriteBits(8, sps.tick_divisor_minus2);
      out.WriteBits(5, sps.du_cpb_removal_delay_increment_length_minus1);
      out.WriteBits(1, sps.sub_pic_cpb_params_in_pic_timing_sei_flag);
      out.WriteBits(5, sps.dpb_output_delay_du_length_minus1);
    }
    out.WriteBits(4, sps.bit_rate_scale);
    out.WriteBits(4, sps.cpb_size_scale);
    if (sps.sub_pic_hrd_params_present_flag != 0) out.WriteBits(4, sps.cpb_size_du_scale);
    out.WriteBits(5, sps.initial_cpb_removal_delay_length_minus1);
    out.WriteBits(5, sps.au_cpb_removal_delay_length_minus1);
    out.WriteBits(5, sps.dpb_output_delay_length_minus1);
  }
  for (uint64_t i = 0; i <= sps.sps_max_sub_layers_minus1 && !out.Overflowed(); ++i) {
    const bool stored = i < QLN_HEVC_SUB_LAYERS;  // words beyond the arrays count as 0
    out.WriteBit(stored ? sps.fixed_pic_rate_general_flag[i] : 0);
    out.WriteBit(stored ? sps.fixed_pic_rate_within_cvs_flag[i] : 0);
    out.WriteBit(stored ? sps.low_delay_hrd_flag[i] : 0);
    out.WriteUe(stored ? sps.cpb_cnt_minus1[i] : 0);
    out.WriteUe(sps.bit_rate_value_minus1);
    out.WriteUe(sps.cpb_size_value_minus1);
    out.WriteBit(sps.cbr_flag);
  }
}

}  // namespace

void ReadVui(BitReader& in, HevcSpsRecord& sps) {
  sps.aspect_ratio_info_present_flag = in.ReadBit();
  if (sps.aspect_ratio_info_present_flag != 0) {
    sps.aspect_ratio_idc = in.ReadBits(8);
    if (sps.aspect_ratio_idc == kExtendedSar) {
      sps.sar_width = in.ReadBits(16);
      sps.sar_height = in.ReadBits(16);
    }
  }
  sps.overscan_info_present_flag = in.ReadBit();
  if (sps.overscan_info_present_flag != 0) sps.overscan_appropriate_flag = in.ReadBit();
  sps.video_signal_type_present_flag = in.ReadBit();
  if (sps.video_signal_type_present_flag != 0) {
    sps.video_format = in.ReadBits(3);
    sps.video_full_range_flag = in.ReadBit();
    sps.colour_description_present_flag = in.ReadBit();
    if (sps.colour_description_present_flag != 0) {
      sps.colour_primaries = in.ReadBits(8);
      sps.transfer_characteristics = in.ReadBits(8);
      sps.matrix_coeffs = in.ReadBits(8);
    }
  }
  sps.chroma_loc_info_present_flag = in.ReadBit();
  if (sps.chroma_loc_info_present_flag != 0) {
    sps.chroma_sample_loc_type_top_field = in.ReadUe();
    sps.chroma_sample_loc_type_bottom_field = in.ReadUe();
  }
  sps.neutral_chroma_indication_flag = in.ReadBit();
  sps.field_seq_flag = in.ReadBit();
  sps.frame_field_info_present_flag = in.ReadBit();
  sps.default_display_window_flag = in.ReadBit();
  if (sps.default_display_window_flag != 0) {
    sps.def_disp_win_left_offset = in.ReadUe();
    sps.def_disp_win_right_offset = in.ReadUe();
    sps.def_disp_win_top_offset = in.ReadUe();
    sps.def_disp_win_bottom_offset = in.ReadUe();
  }
  sps.vui_timing_info_present_flag = in.ReadBit();
  if (sps.vui_timing_info_present_flag != 0) {
    sps.vui_num_units_in_tick = in.ReadBits(32);
    sps.vui_time_scale = in.ReadBits(32);
    sps.vui_poc_proportional_to_timing_flag = in.ReadBit();
    if (sps.vui_poc_proportional_to_timing_flag != 0) sps.vui_num_ticks_poc_diff_one_minus1 = in.ReadUe();
    sps.vui_hrd_parameters_present_flag = in.ReadBit();
    if (sps.vui_hrd_parameters_present_flag != 0) ReadShortHrd(in, sps);
  }
  sps.bitstream_restriction_flag = in.ReadBit();
  if (sps.bitstream_restriction_flag != 0) {
    sps.tiles_fixed_structure_flag = in.ReadBit();
    sps.motion_vectors_over_pic_boundaries_flag = in.ReadBit();
    sps.restricted_ref_pic_lists_flag = in.ReadBit();
    sps.min_spatial_segmentation_idc = in.ReadUe();
    sps.max_bytes_per_pic_denom = in.ReadUe();
    sps.max_bits_per_min_cu_denom = in.ReadUe();
    sps.log2_max_mv_length_horizontal = in.ReadUe();
    sps.log2_max_mv_length_vertical = in.ReadUe();
  }
}

void WriteVui(BitWriter& out, const HevcSpsRecord& sps) {
  out.WriteBit(sps.aspect_ratio_info_present_flag);
  if (sps.aspect_ratio_info_present_flag != 0) {
    out.WriteBits(8, sps.aspect_ratio_idc);
    if (sps.aspect_ratio_idc == kExtendedSar) {
      out.WriteBits(16, sps.sar_width);
      out.WriteBits(16, sps.sar_height);
    }
  }
  out.WriteBit(sps.overscan_info_present_flag);
  if (sps.overscan_info_present_flag != 0) out.WriteBit(sps.overscan_appropriate_flag);
  out.WriteBit(sps.video_signal_type_present_flag);
  if (sps.video_signal_type_present_flag != 0) {
    out.WriteBits(3, sps.video_format);
    out.WriteBit(sps.video_full_range_flag);
    out.WriteBit(sps.colour_description_present_flag);
    if (sps.colour_description_present_flag != 0) {
      out.WriteBits(8, sps.colour_primaries);
      out.WriteBits(8, sps.transfer_characteristics);
      out.WriteBits(8, sps.matrix_coeffs);
    }
  }
  out.WriteBit(sps.chroma_loc_info_present_flag);
  if (sps.chroma_loc_info_present_flag != 0) {
    out.WriteUe(sps.chroma_sample_loc_type_top_field);
    out.WriteUe(sps.chroma_sample_loc_type_bottom_field);
  }
  out.WriteBit(sps.neutral_chroma_indication_flag);
  out.WriteBit(sps.field_seq_flag);
  out.WriteBit(sps.frame_field_info_present_flag);
  out.WriteBit(sps.default_display_window_flag);
  if (sps.default_display_window_flag != 0) {
    out.WriteUe(sps.def_disp_win_left_offset);
    out.WriteUe(sps.def_disp_win_right_offset);
    out.WriteUe(sps.def_disp_win_top_offset);
    out.WriteUe(sps.def_disp_win_bottom_offset);
  }
  out.WriteBit(sps.vui_timing_info_present_flag);
  if (sps.vui_timing_info_present_flag != 0) {
    out.WriteBits(32, sps.vui_num_units_in_tick);
    out.WriteBits(32, sps.vui_time_scale);
    out.WriteBit(sps.vui_poc_proportional_to_timing_flag);
    if (sps.vui_poc_proportional_to_timing_flag != 0) out.WriteUe(sps.vui_num_ticks_poc_diff_one_minus1);
    out.WriteBit(sps.vui_hrd_parameters_present_flag);
    if (sps.vui_hrd_parameters_present_flag != 0) WriteShortHrd(out, sps);
  }
  out.WriteBit(sps.bitstream_restriction_flag);
  if (sps.bitstream_restriction_flag != 0) {
    out.WriteBit(sps.tiles_fixed_structure_flag);
    out.WriteBit(sps.motion_vectors_over_pic_boundaries_flag);
    out.WriteBit(sps.restricted_ref_pic_lists_flag);
    out.WriteUe(sps.min_spatial_segmentation_idc);
    out.WriteUe(sps.max_bytes_per_pic_denom);
    out.WriteUe(sps.max_bits_per_min_cu_denom);
    out.WriteUe(sps.log2_max_mv_length_horizontal);
    out.WriteUe(sps.log2_max_mv_length_vertical);
  }
}

}  // namespace qln
