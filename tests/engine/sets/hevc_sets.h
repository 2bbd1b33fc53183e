// Parameter sets of HEVC that go through every branch of their syntax, written by hand.
#ifndef TESTS_ENGINE_SETS_HEVC_SETS_H
#define TESTS_ENGINE_SETS_HEVC_SETS_H

#include "described_set.h"

namespace qlnmedia {

inline DescribedSet HevcHeader(uint64_t type, uint64_t layer = 0) {
  DescribedSet set;
  set.u("forbidden_zero_bit", 1, 0).u("nal_unit_type", 6, type).u("nuh_layer_id", 6, layer);
  return set.u("nuh_temporal_id_plus1", 3, 1);
}

// One profile's 88 bits under a prefix; `index` is "" or "[i]".
inline void PutHevcProfile(DescribedSet& set, const std::string& prefix, const std::string& index,
                           uint64_t idc) {
  const auto name = [&](const std::string& rest) { return prefix + rest + index; };
  set.u(name("profile_space"), 2, 0).u(name("tier_flag"), 1, 1).u(name("profile_idc"), 5, idc);
  for (size_t j = 0; j < 32; ++j) set.u(At(name("profile_compatibility_flag"), j), 1, j == idc);
  set.flags({{name("progressive_source_flag"), 1}, {name("interlaced_source_flag"), 0}});
  set.flags({{name("non_packed_constraint_flag"), 0}, {name("frame_only_constraint_flag"), 1}});
  if (idc >= 4 && idc <= 11) {
    for (const char* limit : {"max_12bit", "max_10bit", "max_8bit", "max_422chroma", "max_420chroma",
                              "max_monochrome", "intra", "one_picture_only", "lower_bit_rate"})
      set.u(name(std::string(limit) + "_constraint_flag"), 1, static_cast<unsigned>(limit[4]) % 2);
    if (idc == 5 || idc >= 9) {
      set.u(name("max_14bit_constraint_flag"), 1, 1).u(name("reserved_zero_33bits"), 33, 0x123456789);
    } else {
      set.u(name("reserved_zero_34bits"), 34, 0x323456789);
    }
  } else if (idc == 2) {
    set.u(name("reserved_zero_7bits"), 7, 5).u(name("one_picture_only_constraint_flag"), 1, 1);
    set.u(name("reserved_zero_35bits"), 35, 0x723456789);
  } else {
    set.u(name("reserved_zero_43bits"), 43, 0x7123456789A);
  }
  const bool inbld = (idc >= 1 && idc <= 5) || idc == 9 || idc == 11;
  set.u(name(inbld ? "inbld_flag" : "reserved_zero_bit"), 1, 1);
}

// A general profile (none for 0) and two sub-layers: one with profile and level, one with a level alone.
inline void PutHevcProfiles(DescribedSet& set, uint64_t idc, uint64_t subLayerIdc) {
  if (idc != 0) PutHevcProfile(set, "general_", "", idc);
  set.u("general_level_idc", 8, 123);
  set.flags({{"sub_layer_profile_present_flag[0]", 1}, {"sub_layer_level_present_flag[0]", 1}});
  set.flags({{"sub_layer_profile_present_flag[1]", 0}, {"sub_layer_level_present_flag[1]", 1}});
  for (size_t i = 2; i < 8; ++i) set.u(At("reserved_zero_2bits", i), 2, 0);
  PutHevcProfile(set, "sub_layer_", "[0]", subLayerIdc);
  set.u("sub_layer_level_idc[0]", 8, 60).u("sub_layer_level_idc[1]", 8, 90);
}

inline void PutHevcScalingLists(DescribedSet& set) {
  for (size_t size = 0; size < 4; ++size) {
    for (size_t matrix = 0; matrix < 6; matrix += size == 3 ? 3 : 1) {
      const bool told = matrix % 2 == 1;
      set.u(At("scaling_list_pred_mode_flag", size, matrix), 1, told);
      if (!told) {
        set.ue(At("scaling_list_pred_matrix_id_delta", size, matrix), 0);
        continue;
      }
      if (size > 1) set.se(At("scaling_list_dc_coef_minus8", size - 2, matrix), -3);
      for (size_t i = 0; i < (size == 0 ? 16u : 64u); ++i)
        set.se(At(At("scaling_list_delta_coef", size, matrix), i), static_cast<int>(i % 3) - 1);
    }
  }
}

inline void PutSubLayerHrd(DescribedSet& set, uint32_t cpbs, bool subPictures) {
  for (size_t i = 0; i < cpbs; ++i) {
    set.ue(At("bit_rate_value_minus1", i), 999).ue(At("cpb_size_value_minus1", i), 4294967294u);
    if (subPictures) set.ue(At("cpb_size_du_value_minus1", i), 3).ue(At("bit_rate_du_value_minus1", i), 4);
    set.u(At("cbr_flag", i), 1, 1);
  }
}

inline void PutHevcHrdHead(DescribedSet& set, bool subPictures) {
  set.flags({{"nal_hrd_parameters_present_flag", 1}, {"vcl_hrd_parameters_present_flag", 1}});
  set.u("sub_pic_hrd_params_present_flag", 1, subPictures);
  if (subPictures) {
    set.u("tick_divisor_minus2", 8, 98).u("du_cpb_removal_delay_increment_length_minus1", 5, 11);
    set.u("sub_pic_cpb_params_in_pic_timing_sei_flag", 1, 1).u("dpb_output_delay_du_length_minus1", 5, 6);
  }
  set.u("bit_rate_scale", 4, 1).u("cpb_size_scale", 4, 2);
  if (subPictures) set.u("cpb_size_du_scale", 4, 3);
  set.u("initial_cpb_removal_delay_length_minus1", 5, 22).u("au_cpb_removal_delay_length_minus1", 5, 23);
  set.u("dpb_output_delay_length_minus1", 5, 8);
}

// Three sub-layers: fixed for all, fixed within a sequence, and low delay.
inline void PutHevcHrdLayers(DescribedSet& set, bool subPictures) {
  set.u("fixed_pic_rate_general_flag[0]", 1, 1).ue("elemental_duration_in_tc_minus1[0]", 5);
  set.ue("cpb_cnt_minus1[0]", 1);
  PutSubLayerHrd(set, 2, subPictures);
  PutSubLayerHrd(set, 2, subPictures);
  set.flags({{"fixed_pic_rate_general_flag[1]", 0}, {"fixed_pic_rate_within_cvs_flag[1]", 1}});
  set.ue("elemental_duration_in_tc_minus1[1]", 0).ue("cpb_cnt_minus1[1]", 0);
  PutSubLayerHrd(set, 1, subPictures);
  PutSubLayerHrd(set, 1, subPictures);
  set.flags({{"fixed_pic_rate_general_flag[2]", 0}, {"fixed_pic_rate_within_cvs_flag[2]", 0}});
  set.u("low_delay_hrd_flag[2]", 1, 1);
  PutSubLayerHrd(set, 1, subPictures);
  PutSubLayerHrd(set, 1, subPictures);
}

inline void PutHevcVui(DescribedSet& set) {
  set.u("aspect_ratio_info_present_flag", 1, 1).u("aspect_ratio_idc", 8, 255).u("sar_width", 16, 32);
  set.u("sar_height", 16, 64).flags({{"overscan_info_present_flag", 1}, {"overscan_appropriate_flag", 0}});
  set.u("video_signal_type_present_flag", 1, 1).u("video_format", 3, 1).u("video_full_range_flag", 1, 1);
  set.u("colour_description_present_flag", 1, 1).u("colour_primaries", 8, 9);
  set.u("transfer_characteristics", 8, 18).u("matrix_coeffs", 8, 9).u("chroma_loc_info_present_flag", 1, 1);
  set.ue("chroma_sample_loc_type_top_field", 2).ue("chroma_sample_loc_type_bottom_field", 2);
  set.flags(
      {{"neutral_chroma_indication_flag", 0}, {"field_seq_flag", 1}, {"frame_field_info_present_flag", 1}});
  set.u("default_display_window_flag", 1, 1)
      .ue("def_disp_win_left_offset", 1)
      .ue("def_disp_win_right_offset", 2);
  set.ue("def_disp_win_top_offset", 3).ue("def_disp_win_bottom_offset", 4);
  set.u("vui_timing_info_present_flag", 1, 1)
      .u("vui_num_units_in_tick", 32, 1001)
      .u("vui_time_scale", 32, 60000);
  set.u("vui_poc_proportional_to_timing_flag", 1, 1).ue("vui_num_ticks_poc_diff_one_minus1", 0);
  set.u("vui_hrd_parameters_present_flag", 1, 1);
  PutHevcHrdHead(set, true);
  PutHevcHrdLayers(set, true);
  set.flags({{"bitstream_restriction_flag", 1}, {"tiles_fixed_structure_flag", 0}});
  set.flags({{"motion_vectors_over_pic_boundaries_flag", 1}, {"restricted_ref_pic_lists_flag", 1}});
  set.ue("min_spatial_segmentation_idc", 12)
      .ue("max_bytes_per_pic_denom", 1)
      .ue("max_bits_per_min_cu_denom", 2);
  set.ue("log2_max_mv_length_horizontal", 15).ue("log2_max_mv_length_vertical", 14);
}

// Differences -1, -3, +1; then two sets predicted from those before them.
inline void PutReferenceSets(DescribedSet& set) {
  set.ue("num_short_term_ref_pic_sets", 3).ue("num_negative_pics", 2).ue("num_positive_pics", 1);
  set.ue("delta_poc_s0_minus1[0]", 0).u("used_by_curr_pic_s0_flag[0]", 1, 1);
  set.ue("delta_poc_s0_minus1[1]", 1).u("used_by_curr_pic_s0_flag[1]", 1, 0);
  set.ue("delta_poc_s1_minus1[0]", 0).u("used_by_curr_pic_s1_flag[0]", 1, 1);
  // With -1: -2 and -4 from the first two, 0 from +1, which is no reference, and -1 itself left out.
  set.flags({{"inter_ref_pic_set_prediction_flag", 1}, {"delta_rps_sign", 1}}).ue("abs_delta_rps_minus1", 0);
  set.flags({{"used_by_curr_pic_flag[0]", 1}, {"used_by_curr_pic_flag[1]", 1}});
  set.flags({{"used_by_curr_pic_flag[2]", 0}, {"use_delta_flag[2]", 1}});
  set.flags({{"used_by_curr_pic_flag[3]", 0}, {"use_delta_flag[3]", 0}});
  // So the third is predicted from two differences: three flags.
  set.flags({{"inter_ref_pic_set_prediction_flag", 1}, {"delta_rps_sign", 0}}).ue("abs_delta_rps_minus1", 0);
  set.flags(
      {{"used_by_curr_pic_flag[0]", 1}, {"used_by_curr_pic_flag[1]", 1}, {"used_by_curr_pic_flag[2]", 1}});
}

inline void PutSpsExtensions(DescribedSet& set) {
  set.flags({{"sps_extension_present_flag", 1}, {"sps_range_extension_flag", 1}});
  set.flags(
      {{"sps_multilayer_extension_flag", 1}, {"sps_3d_extension_flag", 1}, {"sps_scc_extension_flag", 1}});
  set.u("sps_extension_4bits", 4, 5);
  set.flags({{"transform_skip_rotation_enabled_flag", 1}, {"transform_skip_context_enabled_flag", 0}});
  set.flags({{"implicit_rdpcm_enabled_flag", 1}, {"explicit_rdpcm_enabled_flag", 0}});
  set.flags({{"extended_precision_processing_flag", 0}, {"intra_smoothing_disabled_flag", 1}});
  set.flags({{"high_precision_offsets_enabled_flag", 0}, {"persistent_rice_adaptation_enabled_flag", 1}});
  set.flags({{"cabac_bypass_alignment_enabled_flag", 0}, {"inter_view_mv_vert_constraint_flag", 1}});
  set.flags({{"iv_di_mc_enabled_flag[0]", 1}, {"iv_mv_scal_enabled_flag[0]", 0}});
  set.ue("log2_ivmc_sub_pb_size_minus3[0]", 2).flags({{"iv_res_pred_enabled_flag[0]", 1}});
  set.flags({{"depth_ref_enabled_flag[0]", 0}, {"vsp_mc_enabled_flag[0]", 1}, {"dbbp_enabled_flag[0]", 1}});
  set.flags(
      {{"iv_di_mc_enabled_flag[1]", 0}, {"iv_mv_scal_enabled_flag[1]", 1}, {"tex_mc_enabled_flag[1]", 1}});
  set.ue("log2_texmc_sub_pb_size_minus3[1]", 1).flags({{"intra_contour_enabled_flag[1]", 1}});
  set.flags({{"intra_dc_only_wedge_enabled_flag[1]", 0}, {"cqt_cu_part_pred_enabled_flag[1]", 1}});
  set.flags({{"inter_dc_only_enabled_flag[1]", 0}, {"skip_intra_enabled_flag[1]", 1}});
  set.flags({{"sps_curr_pic_ref_enabled_flag", 1}, {"palette_mode_enabled_flag", 1}});
  set.ue("palette_max_size", 31).ue("delta_palette_max_predictor_size", 32);
  set.u("sps_palette_predictor_initializers_present_flag", 1, 1);
  set.ue("sps_num_palette_predictor_initializers_minus1", 1);
  for (size_t comp = 0; comp < 3; ++comp) {
    for (size_t i = 0; i < 2; ++i)
      set.u(At("sps_palette_predictor_initializer", comp, i), comp == 0 ? 10 : 9, 100 * comp + i);
  }
  set.u("motion_vector_resolution_control_idc", 2, 2).u("intra_boundary_filtering_disabled_flag", 1, 1);
  set.run("sps_extension_data_flag", "110100101");
}

inline DescribedSet HevcFullSps(uint64_t idc = 4, uint64_t subLayerIdc = 2) {
  DescribedSet set = HevcHeader(33);
  set.u("sps_video_parameter_set_id", 4, 1).u("sps_max_sub_layers_minus1", 3, 2);
  set.u("sps_temporal_id_nesting_flag", 1, 0);
  PutHevcProfiles(set, idc, subLayerIdc);
  set.ue("sps_seq_parameter_set_id", 2).ue("chroma_format_idc", 3).u("separate_colour_plane_flag", 1, 0);
  set.ue("pic_width_in_luma_samples", 128)
      .ue("pic_height_in_luma_samples", 96)
      .u("conformance_window_flag", 1, 1);
  set.ue("conf_win_left_offset", 1).ue("conf_win_right_offset", 2).ue("conf_win_top_offset", 3);
  set.ue("conf_win_bottom_offset", 4).ue("bit_depth_luma_minus8", 2).ue("bit_depth_chroma_minus8", 1);
  set.ue("log2_max_pic_order_cnt_lsb_minus4", 12).u("sps_sub_layer_ordering_info_present_flag", 1, 1);
  for (size_t i = 0; i < 3; ++i) {
    set.ue(At("sps_max_dec_pic_buffering_minus1", i), 4).ue(At("sps_max_num_reorder_pics", i), 2);
    set.ue(At("sps_max_latency_increase_plus1", i), 0);
  }
  set.ue("log2_min_luma_coding_block_size_minus3", 0).ue("log2_diff_max_min_luma_coding_block_size", 3);
  set.ue("log2_min_luma_transform_block_size_minus2", 0).ue("log2_diff_max_min_luma_transform_block_size", 3);
  set.ue("max_transform_hierarchy_depth_inter", 1).ue("max_transform_hierarchy_depth_intra", 2);
  set.flags({{"scaling_list_enabled_flag", 1}, {"sps_scaling_list_data_present_flag", 1}});
  PutHevcScalingLists(set);
  set.flags({{"amp_enabled_flag", 1}, {"sample_adaptive_offset_enabled_flag", 1}, {"pcm_enabled_flag", 1}});
  set.u("pcm_sample_bit_depth_luma_minus1", 4, 7).u("pcm_sample_bit_depth_chroma_minus1", 4, 6);
  set.ue("log2_min_pcm_luma_coding_block_size_minus3", 0)
      .ue("log2_diff_max_min_pcm_luma_coding_block_size", 1);
  set.u("pcm_loop_filter_disabled_flag", 1, 1);
  PutReferenceSets(set);
  set.u("long_term_ref_pics_present_flag", 1, 1).ue("num_long_term_ref_pics_sps", 2);
  set.u("lt_ref_pic_poc_lsb_sps[0]", 16, 0xA5A5).u("used_by_curr_pic_lt_sps_flag[0]", 1, 1);
  set.u("lt_ref_pic_poc_lsb_sps[1]", 16, 3).u("used_by_curr_pic_lt_sps_flag[1]", 1, 0);
  set.flags({{"sps_temporal_mvp_enabled_flag", 1}, {"strong_intra_smoothing_enabled_flag", 0}});
  set.u("vui_parameters_present_flag", 1, 1);
  PutHevcVui(set);
  PutSpsExtensions(set);
  return set;
}

// A set of a higher layer that leaves format and profile to the VPS.
inline DescribedSet HevcLayerSps() {
  DescribedSet set = HevcHeader(33, 1);
  set.u("sps_video_parameter_set_id", 4, 0).u("sps_ext_or_max_sub_layers_minus1", 3, 7);
  set.ue("sps_seq_parameter_set_id", 1).u("update_rep_format_flag", 1, 1).u("sps_rep_format_idx", 8, 1);
  set.ue("log2_max_pic_order_cnt_lsb_minus4", 4).ue("log2_min_luma_coding_block_size_minus3", 0);
  set.ue("log2_diff_max_min_luma_coding_block_size", 3).ue("log2_min_luma_transform_block_size_minus2", 0);
  set.ue("log2_diff_max_min_luma_transform_block_size", 3).ue("max_transform_hierarchy_depth_inter", 0);
  set.ue("max_transform_hierarchy_depth_intra", 0).u("scaling_list_enabled_flag", 1, 1);
  set.u("sps_infer_scaling_list_flag", 1, 1).u("sps_scaling_list_ref_layer_id", 6, 0);
  set.flags({{"amp_enabled_flag", 0}, {"sample_adaptive_offset_enabled_flag", 1}, {"pcm_enabled_flag", 0}});
  set.ue("num_short_term_ref_pic_sets", 0).flags({{"long_term_ref_pics_present_flag", 0}});
  set.flags({{"sps_temporal_mvp_enabled_flag", 1}, {"strong_intra_smoothing_enabled_flag", 0}});
  return set.flags({{"vui_parameters_present_flag", 0}, {"sps_extension_present_flag", 0}});
}

}  // namespace qlnmedia

#endif
