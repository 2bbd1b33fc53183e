// The SPS writer: the mirror of the reader, in the order of clause 7.3.2.2.

#include "qlnutil/hevc/parameter_set_writer.h"
#include "qlnutil/hevc/profile_tier_level.h"
#include "qlnutil/hevc/sps_syntax.h"

namespace qln {
namespace {

// scaling_list_data() with the same four values in every matrix.
void WriteScalingLists(BitWriter& out, const HevcSpsRecord& sps) {
  const uint32_t dc = static_cast<uint32_t>(sps.scaling_list_dc_coef_minus8);
  const uint32_t coefficient = static_cast<uint32_t>(sps.scaling_list_delta_coef);
  for (int sizeId = 0; sizeId < 4; ++sizeId) {
    for (int matrix = 0; matrix < ScalingMatrices(sizeId); ++matrix) {
      out.WriteBit(sps.scaling_list_pred_mode_flag);
      if (sps.scaling_list_pred_mode_flag == 0) {
        out.WriteUe(sps.scaling_list_pred_matrix_id_delta);
        continue;
      }
      if (sizeId > 1) out.WriteExponentialGolombCodeSigned(dc);
      for (int i = 0; i < ScalingCoefficients(sizeId); ++i) out.WriteExponentialGolombCodeSigned(coefficient);
    }
  }
}

// The value goes out as ue(v), where the reader and the standard have fixed bits: a set with long-term
// pictures does not survive a round trip.
void WriteLongTermPictures(BitWriter& out, const HevcSpsRecord& sps) {
  out.WriteUe(sps.num_long_term_ref_pics_sps);
  for (uint32_t i = 0; i < sps.num_long_term_ref_pics_sps && !out.Overflowed(); ++i) {
    const bool stored = i < QLN_HEVC_LONG_TERM_PICTURES;  // words beyond the array count as 0
    out.WriteUe(stored ? sps.long_term_ref_pics[i].lt_ref_pic_poc_lsb_sps : 0);
    out.WriteBit(stored ? sps.long_term_ref_pics[i].used_by_curr_pic_lt_sps_flag : 0);
  }
}

void WriteExtensions(BitWriter& out, HevcSpsRecord& sps) {
  out.WriteBit(sps.sps_range_extension_flag);
  out.WriteBit(sps.sps_multilayer_extension_flag);
  out.WriteBit(sps.sps_3d_extension_flag);
  out.WriteBit(sps.sps_scc_extension_flag);
  out.WriteBits(4, 0);  // sps_extension_4bits
  if (sps.sps_range_extension_flag != 0) {
    out.WriteBit(sps.transform_skip_rotation_enabled_flag);
    out.WriteBit(sps.transform_skip_context_enabled_flag);
    out.WriteBit(sps.implicit_rdpcm_enabled_flag);
    out.WriteBit(sps.explicit_rdpcm_enabled_flag);
    out.WriteBit(sps.extended_precision_processing_flag);
    out.WriteBit(sps.intra_smoothing_disabled_flag);
    out.WriteBit(sps.high_precision_offsets_enabled_flag);
    out.WriteBit(sps.persistent_rice_adaptation_enabled_flag);
    out.WriteBit(sps.cabac_bypass_alignment_enabled_flag);
  }
  if (sps.sps_multilayer_extension_flag != 0) out.WriteBit(sps.inter_view_mv_vert_constraint_flag);
  if (sps.sps_3d_extension_flag != 0) {
    out.WriteBits(2, 0);
    out.WriteUe(0);
    out.WriteBits(4, 0);
    out.WriteBits(3, 0);
    out.WriteUe(0);
    out.WriteBits(5, 0);
  }
  sps.sps_scc_extension_flag = 0;  // its syntax is not written, so a second write does not announce it
}

void WriteSps(BitWriter& out, HevcSpsRecord& sps) {
  out.WriteBits(4, sps.sps_video_parameter_set_id);
  out.WriteBits(3, sps.sps_max_sub_layers_minus1);
  out.WriteBit(sps.sps_temporal_id_nesting_flag);
  HevcWriteProfileTierLevel(out, sps.sps_max_sub_layers_minus1, sps.profile_tier_level);
  out.WriteUe(sps.sps_seq_parameter_set_id);
  out.WriteUe(sps.chroma_format_idc);
  if (sps.chroma_format_idc == 3) out.WriteUe(sps.separate_colour_plane_flag);
  out.WriteUe(sps.pic_width_in_luma_samples);
  out.WriteUe(sps.pic_height_in_luma_samples);
  out.WriteBit(sps.conformance_window_flag);
  if (sps.conformance_window_flag != 0) {
    out.WriteUe(sps.conf_win_left_offset);
    out.WriteUe(sps.conf_win_right_offset);
    out.WriteUe(sps.conf_win_top_offset);
    out.WriteUe(sps.conf_win_bottom_offset);
  }
  out.WriteUe(sps.bit_depth_luma_minus8);
  out.WriteUe(sps.bit_depth_chroma_minus8);
  out.WriteUe(sps.log2_max_pic_order_cnt_lsb_minus4);
  out.WriteBit(sps.sps_sub_layer_ordering_info_present_flag);
  for (uint64_t i = sps.sps_sub_layer_ordering_info_present_flag != 0 ? 0 : sps.sps_max_sub_layers_minus1;
       i <= sps.sps_max_sub_layers_minus1 && !out.Overflowed(); ++i) {
    out.WriteUe(sps.sps_max_dec_pic_buffering_minus1[0]);
    out.WriteUe(sps.sps_max_num_reorder_pics[0]);
    out.WriteUe(sps.sps_max_latency_increase_plus1);
  }
  out.WriteUe(sps.log2_min_luma_coding_block_size_minus3);
  out.WriteUe(sps.log2_diff_max_min_luma_coding_block_size);
  out.WriteUe(sps.log2_min_luma_transform_block_size_minus2);
  out.WriteUe(sps.log2_diff_max_min_luma_transform_block_size);
  out.WriteUe(sps.max_transform_hierarchy_depth_inter);
  out.WriteUe(sps.max_transform_hierarchy_depth_intra);
  out.WriteBit(sps.scaling_list_enabled_flag);
  if (sps.scaling_list_enabled_flag != 0) {
    out.WriteBit(sps.sps_scaling_list_data_present_flag);
    if (sps.sps_scaling_list_data_present_flag != 0) WriteScalingLists(out, sps);
  }
  out.WriteBit(sps.amp_enabled_flag);
  out.WriteBit(sps.sample_adaptive_offset_enabled_flag);
  out.WriteBit(sps.pcm_enabled_flag);
  if (sps.pcm_enabled_flag != 0) {
    out.WriteBits(4, sps.pcm_sample_bit_depth_luma_minus1);
    out.WriteBits(4, sps.pcm_sample_bit_depth_chroma_minus1);
    out.WriteUe(sps.log2_min_pcm_luma_coding_block_size_minus3);
    out.WriteUe(sps.log2_diff_max_min_pcm_luma_coding_block_size);
    out.WriteBit(sps.pcm_loop_filter_disabled_flag);
  }
  out.WriteUe(sps.num_short_term_ref_pic_sets);
  WriteShortTermSets(out, sps);
  out.WriteBit(sps.long_term_ref_pics_present_flag);
  if (sps.long_term_ref_pics_present_flag != 0) WriteLongTermPictures(out, sps);
  out.WriteBit(sps.sps_temporal_mvp_enabled_flag);
  out.WriteBit(sps.strong_intra_smoothing_enabled_flag);
  out.WriteBit(sps.vui_parameters_present_flag);
  if (sps.vui_parameters_present_flag == 1) WriteVui(out, sps);  // exactly: -1 brings no VUI
  out.WriteBit(sps.sps_extension_present_flag);
  if (sps.sps_extension_present_flag == 1) WriteExtensions(out, sps);  // exactly
}

}  // namespace
}  // namespace qln

uint32_t qlnutilWrite_HEVC_SPS(HevcSpsRecord* sps, uint8_t* output, uint32_t /*capacity*/) {
  using namespace qln;
  if (sps == nullptr || output == nullptr) return 0;
  HevcUnitWriter unit(kHevcNalSps);
  WriteSps(unit.bits(), *sps);
  return unit.Finish(output);
}
