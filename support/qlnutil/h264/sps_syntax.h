// seq_parameter_set_data() of ITU-T H.264 clause 7.3.2.1.1 with vui_parameters() and hrd_parameters() of
// Annex E, once for reader and writer.
#ifndef QLNUTIL_H264_SPS_SYNTAX_H
#define QLNUTIL_H264_SPS_SYNTAX_H

#include <algorithm>
#include <cstdint>

#include "qlnutil/h264/syntax_coders.h"

namespace qln {

// Profiles whose SPS has the elements from chroma_format_idc on. Closed on purpose: 134, 135, 138 and 139
// are left out, and records written by hosts depend on it.
constexpr bool HasHighProfileElements(uint32_t profile_idc) {
  for (const uint32_t profile : {44u, 83u, 86u, 100u, 110u, 118u, 122u, 128u, 244u}) {
    if (profile_idc == profile) return true;
  }
  return false;
}

// aspect_ratio_idc Extended_SAR of Table E-1.
inline constexpr uint32_t kExtendedSar = 255;

// What a profile without the high-profile elements has in their place. The depths are told as 8, where the
// elements would count from 8 bits on; hosts know which branch ran.
inline void HighProfileDefaults(H264SetReader& /*coder*/, H264SpsRecord& sps) {
  sps.chroma_format_idc = 1;
  sps.bit_depth_luma_minus8 = 8;
  sps.bit_depth_chroma_minus8 = 8;
}
inline void HighProfileDefaults(H264SetWriter& /*coder*/, const H264SpsRecord& /*sps*/) {}

template <class Coder, class Hrd>
void HrdSyntax(Coder& coder, Hrd& hrd) {
  coder.Ue(hrd.cpb_cnt_minus1);
  coder.U(4, hrd.bit_rate_scale);
  coder.U(4, hrd.cpb_size_scale);
  constexpr int32_t kLast = QLN_H264_HRD_SCHEDULES - 1;
  if constexpr (Coder::kReads) {
    // Further schedules of the stream are not skipped: what follows them is out of step.
    if (static_cast<int32_t>(hrd.cpb_cnt_minus1) > kLast) hrd.cpb_cnt_minus1 = kLast;
  }
  const int32_t last = std::min(static_cast<int32_t>(hrd.cpb_cnt_minus1), kLast);
  coder.InLoop([&](auto& loop) {
    for (int32_t i = 0; i <= last; ++i) {
      loop.Ue(hrd.schedule[i].bit_rate_value_minus1);
      loop.Ue(hrd.schedule[i].cpb_size_value_minus1);
      loop.Flag(hrd.schedule[i].cbr_flag);
    }
  });
  coder.U(5, hrd.initial_cpb_removal_delay_length_minus1);
  coder.U(5, hrd.cpb_removal_delay_length_minus1);
  coder.U(5, hrd.dpb_output_delay_length_minus1);
  coder.U(5, hrd.time_offset_length);
}

template <class Coder, class Sps>
void VuiSyntax(Coder& coder, Sps& sps) {
  coder.Flag(sps.aspect_ratio_info_present_flag);
  if (sps.aspect_ratio_info_present_flag != 0) {
    coder.U(8, sps.aspect_ratio_idc);
    if (sps.aspect_ratio_idc == kExtendedSar) {
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
      coder.U(8, sps.matrix_coefficients);
    }
  }
  coder.Flag(sps.chroma_loc_info_present_flag);
  if (sps.chroma_loc_info_present_flag != 0) {
    coder.Ue(sps.chroma_sample_loc_type_top_field);
    coder.Ue(sps.chroma_sample_loc_type_bottom_field);
  }
  coder.Flag(sps.timing_info_present_flag);
  if (sps.timing_info_present_flag != 0) {
    coder.U(32, sps.num_units_in_tick);
    coder.U(32, sps.time_scale);
    coder.Flag(sps.fixed_frame_rate_flag);
  }
  coder.Flag(sps.nal_hrd_parameters_present_flag);
  if (sps.nal_hrd_parameters_present_flag != 0) HrdSyntax(coder, sps.nal_hrd);
  coder.Flag(sps.vcl_hrd_parameters_present_flag);
  if (sps.vcl_hrd_parameters_present_flag != 0) HrdSyntax(coder, sps.vcl_hrd);
  if (sps.nal_hrd_parameters_present_flag != 0 || sps.vcl_hrd_parameters_present_flag != 0) {
    coder.Flag(sps.low_delay_hrd_flag);
  }
  coder.Flag(sps.pic_struct_present_flag);
  coder.Flag(sps.bitstream_restriction_flag);
  if (sps.bitstream_restriction_flag != 0) {
    coder.Flag(sps.motion_vectors_over_pic_boundaries_flag);
    coder.Ue(sps.max_bytes_per_pic_denom);
    coder.Ue(sps.max_bits_per_mb_denom);
    coder.Ue(sps.log2_max_mv_length_horizontal);
    coder.Ue(sps.log2_max_mv_length_vertical);
    coder.Ue(sps.max_num_reorder_frames);
    coder.Ue(sps.max_dec_frame_buffering);
  }
}

// NAL header to VUI; the stop bit, in which reader and writer differ, is theirs.
template <class Coder, class Sps>
void SpsSyntax(Coder& coder, Sps& sps) {
  NalHeaderSyntax(coder, sps);
  coder.U(8, sps.profile_idc);
  coder.Flag(sps.constraint_set0_flag);
  coder.Flag(sps.constraint_set1_flag);
  coder.Flag(sps.constraint_set2_flag);
  coder.Flag(sps.constraint_set3_flag);
  coder.Flag(sps.constraint_set4_flag);
  coder.Flag(sps.constraint_set5_flag);
  coder.U(2, sps.reserved_zero_2bits);
  coder.U(8, sps.level_idc);
  coder.Ue(sps.seq_parameter_set_id);
  if (HasHighProfileElements(sps.profile_idc)) {
    coder.Ue(sps.chroma_format_idc);
    if (sps.chroma_format_idc == 3) coder.Flag(sps.separate_colour_plane_flag);
    coder.Ue(sps.bit_depth_luma_minus8);
    coder.Ue(sps.bit_depth_chroma_minus8);
    coder.Flag(sps.qpprime_y_zero_transform_bypass_flag);
    coder.Flag(sps.seq_scaling_matrix_present_flag);
    if (sps.seq_scaling_matrix_present_flag != 0) {
      ScalingListsSyntax(coder, sps, sps.seq_scaling_list_present_flag, sps.chroma_format_idc == 3 ? 12 : 8);
    }
  } else {
    HighProfileDefaults(coder, sps);
  }
  coder.Ue(sps.log2_max_frame_num_minus4);
  coder.Ue(sps.pic_order_cnt_type);
  if (sps.pic_order_cnt_type == 0) {
    coder.Ue(sps.log2_max_pic_order_cnt_lsb_minus4);
  } else if (sps.pic_order_cnt_type == 1) {
    coder.Flag(sps.delta_pic_order_always_zero_flag);
    coder.PicOrderOffset(sps.offset_for_non_ref_pic);
    coder.PicOrderOffset(sps.offset_for_top_to_bottom_field);
    coder.Ue(sps.num_ref_frames_in_pic_order_cnt_cycle);
    coder.PicOrderOffsetCycle(sps.num_ref_frames_in_pic_order_cnt_cycle, sps.offset_for_ref_frame);
  }
  coder.Ue(sps.max_num_ref_frames);
  coder.Flag(sps.gaps_in_frame_num_value_allowed_flag);
  coder.Ue(sps.pic_width_in_mbs_minus1);
  coder.Ue(sps.pic_height_in_map_units_minus1);
  coder.Flag(sps.frame_mbs_only_flag);
  if (sps.frame_mbs_only_flag == 0) coder.Flag(sps.mb_adaptive_frame_field_flag);
  coder.Flag(sps.direct_8x8_inference_flag);
  coder.Flag(sps.frame_cropping_flag);
  if (sps.frame_cropping_flag != 0) {
    coder.Ue(sps.frame_crop_left_offset);
    coder.Ue(sps.frame_crop_right_offset);
    coder.Ue(sps.frame_crop_top_offset);
    coder.Ue(sps.frame_crop_bottom_offset);
  }
  coder.Flag(sps.vui_parameters_present_flag);
  if (sps.vui_parameters_present_flag != 0) VuiSyntax(coder, sps);
}

}  // namespace qln

#endif
