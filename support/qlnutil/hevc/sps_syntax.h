// seq_parameter_set_rbsp() of ITU-T H.265 clause 7.3.2.2 with the syntax inside it, once for reader and
// writer.
#ifndef QLNUTIL_HEVC_SPS_SYNTAX_H
#define QLNUTIL_HEVC_SPS_SYNTAX_H

#include <cstdint>

#include "qlnutil/hevc/syntax_coders.h"
#include "qlnutil/hevc/vui_syntax.h"

namespace qln {

// A short-term set that is predicted from another one, in which reader and writer differ.
//
// Nothing is derived: the reader counts the set's flags by the two picture counts that stand in the record of
// the set it is predicted from, so a chain of predicted sets loses its place, which shows when the unit's end
// is checked. Hosts that edit sets rely on getting the coded flags back as they stand.
void PredictedSetSyntax(HevcLoopCoder& coder, HevcSpsRecord& sps, uint32_t index);
void PredictedSetSyntax(HevcSetWriter& coder, HevcSpsRecord& sps, uint32_t index);

// scaling_list_data() of clause 7.3.4: the record keeps the last value of each kind, and the writer gives
// every matrix the same four.
template <class Coder>
void ScalingListDataSyntax(Coder& coder, HevcSpsRecord& sps) {
  for (int sizeId = 0; sizeId < 4; ++sizeId) {
    const int matrices = sizeId == 3 ? 2 : 6;
    const int coefficients = sizeId == 0 ? 16 : 64;
    for (int matrix = 0; matrix < matrices; ++matrix) {
      coder.Flag(sps.scaling_list_pred_mode_flag);
      if (sps.scaling_list_pred_mode_flag == 0) {
        coder.Ue(sps.scaling_list_pred_matrix_id_delta);
        continue;
      }
      if (sizeId > 1) coder.Se(sps.scaling_list_dc_coef_minus8);
      for (int i = 0; i < coefficients; ++i) coder.Se(sps.scaling_list_delta_coef);
    }
  }
}

template <class Coder, class Set>
void ExplicitSetSyntax(Coder& coder, Set& set) {
  coder.Ue(set.num_negative_pics);
  coder.Ue(set.num_positive_pics);
  const uint32_t negative = coder.Coded(set.delta_poc_s0_minus1, set.num_negative_pics);
  for (uint32_t i = 0; i < negative && !coder.Full(); ++i) {
    coder.Ue(coder.Entry(set.delta_poc_s0_minus1, i));
    coder.Flag(coder.Entry(set.used_by_curr_pic_s0_flag, i));
  }
  const uint32_t positive = coder.Coded(set.delta_poc_s1_minus1, set.num_positive_pics);
  for (uint32_t i = 0; i < positive && !coder.Full(); ++i) {
    coder.Ue(coder.Entry(set.delta_poc_s1_minus1, i));
    coder.Flag(coder.Entry(set.used_by_curr_pic_s1_flag, i));
  }
}

// The short-term sets, st_ref_pic_set() of clause 7.3.7 in the library's form.
template <class Coder>
void ShortTermSetsSyntax(Coder& coder, HevcSpsRecord& sps) {
  const uint32_t count = coder.Rounds(sps.num_short_term_ref_pic_sets);
  for (uint32_t i = 0; i < count && !coder.Full(); ++i) {
    auto& set = coder.Entry(sps.st_ref_pic_set, i);
    if (i > 0) coder.Flag(set.inter_ref_pic_set_prediction_flag);
    if (i > 0 && set.inter_ref_pic_set_prediction_flag != 0) {
      PredictedSetSyntax(coder, sps, i);
    } else {
      ExplicitSetSyntax(coder, set);
    }
  }
}

template <class Coder>
void ExtensionsSyntax(Coder& coder, HevcSpsRecord& sps) {
  coder.Flag(sps.sps_range_extension_flag);
  coder.Flag(sps.sps_multilayer_extension_flag);
  coder.Flag(sps.sps_3d_extension_flag);
  coder.Flag(sps.sps_scc_extension_flag);
  coder.Pass(4);  // sps_extension_4bits
  if (sps.sps_range_extension_flag != 0) {
    coder.Flag(sps.transform_skip_rotation_enabled_flag);
    coder.Flag(sps.transform_skip_context_enabled_flag);
    coder.Flag(sps.implicit_rdpcm_enabled_flag);
    coder.Flag(sps.explicit_rdpcm_enabled_flag);
    coder.Flag(sps.extended_precision_processing_flag);
    coder.Flag(sps.intra_smoothing_disabled_flag);
    coder.Flag(sps.high_precision_offsets_enabled_flag);
    coder.Flag(sps.persistent_rice_adaptation_enabled_flag);
    coder.Flag(sps.cabac_bypass_alignment_enabled_flag);
  }
  if (sps.sps_multilayer_extension_flag != 0) coder.Flag(sps.inter_view_mv_vert_constraint_flag);
  if (sps.sps_3d_extension_flag != 0) {
    // sps_3d_extension(), clause I.7.3.2.2.5: texture layers, then depth layers.
    coder.Pass(2);
    coder.PassUe();
    coder.Pass(4);
    coder.Pass(3);
    coder.PassUe();
    coder.Pass(5);
  }
  coder.ScreenContent(sps);
}

// From behind the NAL header to the extensions. False when the coder refuses the unit.
template <class Coder>
bool SpsSyntax(Coder& coder, HevcSpsRecord& sps, HevcConfigRecord* config) {
  coder.U(4, sps.sps_video_parameter_set_id);
  coder.U(3, sps.sps_max_sub_layers_minus1);
  coder.Flag(sps.sps_temporal_id_nesting_flag);
  coder.ProfileTierLevel(sps.sps_max_sub_layers_minus1, sps.profile_tier_level, config);
  coder.Ue(sps.sps_seq_parameter_set_id);
  coder.Ue(sps.chroma_format_idc);
  // A single bit in the standard; a code here, in reader and writer.
  if (sps.chroma_format_idc == 3) coder.Ue(sps.separate_colour_plane_flag);
  coder.Ue(sps.pic_width_in_luma_samples);
  coder.Ue(sps.pic_height_in_luma_samples);
  coder.Flag(sps.conformance_window_flag);
  if (sps.conformance_window_flag != 0) {
    coder.Ue(sps.conf_win_left_offset);
    coder.Ue(sps.conf_win_right_offset);
    coder.Ue(sps.conf_win_top_offset);
    coder.Ue(sps.conf_win_bottom_offset);
  }
  coder.Ue(sps.bit_depth_luma_minus8);
  coder.Ue(sps.bit_depth_chroma_minus8);
  coder.Ue(sps.log2_max_pic_order_cnt_lsb_minus4);
  coder.Flag(sps.sps_sub_layer_ordering_info_present_flag);
  SubLayerOrderingSyntax(coder, sps.sps_sub_layer_ordering_info_present_flag, sps.sps_max_sub_layers_minus1,
                         sps.sps_max_dec_pic_buffering_minus1[0], sps.sps_max_num_reorder_pics[0],
                         sps.sps_max_latency_increase_plus1);
  coder.Ue(sps.log2_min_luma_coding_block_size_minus3);
  coder.Ue(sps.log2_diff_max_min_luma_coding_block_size);
  coder.Ue(sps.log2_min_luma_transform_block_size_minus2);
  coder.Ue(sps.log2_diff_max_min_luma_transform_block_size);
  coder.Ue(sps.max_transform_hierarchy_depth_inter);
  coder.Ue(sps.max_transform_hierarchy_depth_intra);
  coder.Flag(sps.scaling_list_enabled_flag);
  if (sps.scaling_list_enabled_flag != 0 && coder.ScalingListDataPresentFlag(sps)) {
    ScalingListDataSyntax(coder, sps);
  }
  coder.Flag(sps.amp_enabled_flag);
  coder.Flag(sps.sample_adaptive_offset_enabled_flag);
  coder.Flag(sps.pcm_enabled_flag);
  if (sps.pcm_enabled_flag != 0) {
    coder.U(4, sps.pcm_sample_bit_depth_luma_minus1);
    coder.U(4, sps.pcm_sample_bit_depth_chroma_minus1);
    coder.Ue(sps.log2_min_pcm_luma_coding_block_size_minus3);
    coder.Ue(sps.log2_diff_max_min_pcm_luma_coding_block_size);
    coder.Flag(sps.pcm_loop_filter_disabled_flag);
  }
  coder.Ue(sps.num_short_term_ref_pic_sets);
  if (!coder.AcceptsShortTermSets(sps)) return false;
  coder.InLoop([&](auto& loop) { ShortTermSetsSyntax(loop, sps); });
  coder.Flag(sps.long_term_ref_pics_present_flag);
  if (sps.long_term_ref_pics_present_flag != 0) {
    coder.Ue(sps.num_long_term_ref_pics_sps);
    coder.LongTermPictures(sps);
  }
  coder.Flag(sps.sps_temporal_mvp_enabled_flag);
  coder.Flag(sps.strong_intra_smoothing_enabled_flag);
  // Exactly 1 in both of the following: a flag that was read past the end brings nothing.
  coder.Flag(sps.vui_parameters_present_flag);
  if (sps.vui_parameters_present_flag == 1) VuiSyntax(coder, sps);
  coder.Flag(sps.sps_extension_present_flag);
  if (sps.sps_extension_present_flag == 1) ExtensionsSyntax(coder, sps);
  return true;
}

}  // namespace qln

#endif
