// A picture parameter set of HEVC with all extensions, and video parameter sets of one layer and of two.
#ifndef TESTS_ENGINE_SETS_HEVC_LAYER_SETS_H
#define TESTS_ENGINE_SETS_HEVC_LAYER_SETS_H

#include "hevc_sets.h"

namespace qlnmedia {

inline void PutColourMapping(DescribedSet& set) {
  set.ue("num_cm_ref_layers_minus1", 1).u("cm_ref_layer_id[0]", 6, 0).u("cm_ref_layer_id[1]", 6, 2);
  set.u("cm_octant_depth", 2, 1).u("cm_y_part_num_log2", 2, 0).ue("luma_bit_depth_cm_input_minus8", 0);
  set.ue("chroma_bit_depth_cm_input_minus8", 0).ue("luma_bit_depth_cm_output_minus8", 2);
  set.ue("chroma_bit_depth_cm_output_minus8", 2).u("cm_res_quant_bits", 2, 1);
  set.u("cm_delta_flc_bits_minus1", 2, 2);  // 10 + 8 - 10 - 1 - 3 = 4 bits of each remainder
  set.se("cm_adapt_threshold_u_delta", -3).se("cm_adapt_threshold_v_delta", 4).u("split_octant_flag", 1, 1);
  for (size_t octant = 0; octant < 8; ++octant) {
    const std::string place = At(At("", octant >> 2, octant >> 1 & 1), octant & 1);
    for (size_t j = 0; j < 4; ++j) {
      const std::string at = At(place, j);
      set.u("coded_res_flag" + at, 1, octant == 5);
      if (octant != 5) continue;
      for (size_t c = 0; c < 3; ++c) {
        set.ue("res_coeff_q" + At(at, c), c == 0 ? 3 : 0).u("res_coeff_r" + At(at, c), 4, c == 1 ? 9 : 0);
        if (c < 2) set.u("res_coeff_s" + At(at, c), 1, 1);
      }
    }
  }
}

inline void PutPpsMultilayer(DescribedSet& set) {
  set.flags({{"poc_reset_info_present_flag", 1}, {"pps_infer_scaling_list_flag", 1}});
  set.u("pps_scaling_list_ref_layer_id", 6, 3)
      .ue("num_ref_loc_offsets", 1)
      .u("ref_loc_offset_layer_id[0]", 6, 9);
  set.u("scaled_ref_layer_offset_present_flag[0]", 1, 1).se("scaled_ref_layer_left_offset[9]", -1);
  set.se("scaled_ref_layer_top_offset[9]", 2).se("scaled_ref_layer_right_offset[9]", -3);
  set.se("scaled_ref_layer_bottom_offset[9]", 4).u("ref_region_offset_present_flag[0]", 1, 1);
  set.se("ref_region_left_offset[9]", 5)
      .se("ref_region_top_offset[9]", -6)
      .se("ref_region_right_offset[9]", 7);
  set.se("ref_region_bottom_offset[9]", -8).u("resample_phase_set_present_flag[0]", 1, 1);
  set.ue("phase_hor_luma[9]", 1).ue("phase_ver_luma[9]", 2).ue("phase_hor_chroma_plus8[9]", 10);
  set.ue("phase_ver_chroma_plus8[9]", 11).u("colour_mapping_enabled_flag", 1, 1);
  PutColourMapping(set);
}

// Three depth layers: by flags, by differences, and by a prediction without any.
inline void PutPps3d(DescribedSet& set) {
  set.u("dlts_present_flag", 1, 1).u("pps_depth_layers_minus1", 6, 3);
  set.u("pps_bit_depth_for_depth_layers_minus8", 4, 0).u("dlt_flag[0]", 1, 1).u("dlt_pred_flag[0]", 1, 0);
  set.u("dlt_val_flags_present_flag[0]", 1, 1);
  for (size_t j = 0; j < 256; ++j) set.u(At("dlt_value_flag", 0, j), 1, j % 7 == 0);
  set.u("dlt_flag[1]", 1, 1).u("dlt_pred_flag[1]", 1, 0).u("dlt_val_flags_present_flag[1]", 1, 0);
  set.u("num_val_delta_dlt", 8, 3).u("max_diff", 8, 9).u("min_diff_minus1", 4, 3).u("delta_dlt_val0", 8, 17);
  set.u("delta_val_diff_minus_min[1]", 3, 5).u("delta_val_diff_minus_min[2]", 3, 0);
  set.u("dlt_flag[2]", 1, 1).u("dlt_pred_flag[2]", 1, 1).u("num_val_delta_dlt", 8, 0);
  set.u("dlt_flag[3]", 1, 0);
}

inline DescribedSet HevcFullPps() {
  DescribedSet set = HevcHeader(34);
  set.ue("pps_pic_parameter_set_id", 5).ue("pps_seq_parameter_set_id", 2);
  set.flags({{"dependent_slice_segments_enabled_flag", 1}, {"output_flag_present_flag", 1}});
  set.u("num_extra_slice_header_bits", 3, 6);
  set.flags({{"sign_data_hiding_enabled_flag", 1}, {"cabac_init_present_flag", 0}});
  set.ue("num_ref_idx_l0_default_active_minus1", 3).ue("num_ref_idx_l1_default_active_minus1", 1);
  set.se("init_qp_minus26", -20)
      .u("constrained_intra_pred_flag", 1, 0)
      .u("transform_skip_enabled_flag", 1, 1);
  set.u("cu_qp_delta_enabled_flag", 1, 1).ue("diff_cu_qp_delta_depth", 2).se("pps_cb_qp_offset", -12);
  set.se("pps_cr_qp_offset", 12).flags({{"pps_slice_chroma_qp_offsets_present_flag", 1}});
  set.flags({{"weighted_pred_flag", 0}, {"weighted_bipred_flag", 1}, {"transquant_bypass_enabled_flag", 0}});
  set.flags({{"tiles_enabled_flag", 1}, {"entropy_coding_sync_enabled_flag", 1}});
  set.ue("num_tile_columns_minus1", 2).ue("num_tile_rows_minus1", 1).u("uniform_spacing_flag", 1, 0);
  set.ue("column_width_minus1[0]", 4).ue("column_width_minus1[1]", 5).ue("row_height_minus1[0]", 6);
  set.flags(
      {{"loop_filter_across_tiles_enabled_flag", 1}, {"pps_loop_filter_across_slices_enabled_flag", 0}});
  set.flags({{"deblocking_filter_control_present_flag", 1}, {"deblocking_filter_override_enabled_flag", 1}});
  set.u("pps_deblocking_filter_disabled_flag", 1, 0)
      .se("pps_beta_offset_div2", -6)
      .se("pps_tc_offset_div2", 6);
  set.u("pps_scaling_list_data_present_flag", 1, 1);
  PutHevcScalingLists(set);
  set.u("lists_modification_present_flag", 1, 1).ue("log2_parallel_merge_level_minus2", 2);
  set.flags({{"slice_segment_header_extension_present_flag", 1}, {"pps_extension_present_flag", 1}});
  set.flags({{"pps_range_extension_flag", 1}, {"pps_multilayer_extension_flag", 1}});
  set.flags({{"pps_3d_extension_flag", 1}, {"pps_scc_extension_flag", 1}}).u("pps_extension_4bits", 4, 1);
  set.ue("log2_max_transform_skip_block_size_minus2", 1).u("cross_component_prediction_enabled_flag", 1, 1);
  set.u("chroma_qp_offset_list_enabled_flag", 1, 1).ue("diff_cu_chroma_qp_offset_depth", 1);
  set.ue("chroma_qp_offset_list_len_minus1", 1).se("cb_qp_offset_list[0]", -1).se("cr_qp_offset_list[0]", 2);
  set.se("cb_qp_offset_list[1]", -3).se("cr_qp_offset_list[1]", 4).ue("log2_sao_offset_scale_luma", 1);
  set.ue("log2_sao_offset_scale_chroma", 2);
  PutPpsMultilayer(set);
  PutPps3d(set);
  set.flags({{"pps_curr_pic_ref_enabled_flag", 1}, {"residual_adaptive_colour_transform_enabled_flag", 1}});
  set.u("pps_slice_act_qp_offsets_present_flag", 1, 1).se("pps_act_y_qp_offset_plus5", -1);
  set.se("pps_act_cb_qp_offset_plus5", 2).se("pps_act_cr_qp_offset_plus3", -3);
  set.u("pps_palette_predictor_initializers_present_flag", 1, 1)
      .ue("pps_num_palette_predictor_initializers", 2);
  set.u("monochrome_palette_flag", 1, 0)
      .ue("luma_bit_depth_entry_minus8", 2)
      .ue("chroma_bit_depth_entry_minus8", 1);
  for (size_t comp = 0; comp < 3; ++comp) {
    for (size_t i = 0; i < 2; ++i)
      set.u(At("pps_palette_predictor_initializer", comp, i), comp == 0 ? 10 : 9, 100 * comp + i);
  }
  return set.run("pps_extension_data_flag", "0110");
}

inline DescribedSet HevcVpsFront(uint64_t layers) {
  DescribedSet set = HevcHeader(32);
  set.u("vps_video_parameter_set_id", 4, 3).u("vps_base_layer_internal_flag", 1, 1);
  set.u("vps_base_layer_available_flag", 1, 1).u("vps_max_layers_minus1", 6, layers - 1);
  set.u("vps_max_sub_layers_minus1", 3, 2).u("vps_temporal_id_nesting_flag", 1, 0);
  set.u("vps_reserved_0xffff_16bits", 16, 0xFFFF);
  PutHevcProfiles(set, 1, 9);
  set.u("vps_sub_layer_ordering_info_present_flag", 1, 0).ue("vps_max_dec_pic_buffering_minus1[2]", 4);
  return set.ue("vps_max_num_reorder_pics[2]", 2).ue("vps_max_latency_increase_plus1[2]", 5);
}

// Two HRDs, the second with the common part of the first; data of a later edition behind them.
inline DescribedSet HevcVps() {
  DescribedSet set = HevcVpsFront(1);
  set.u("vps_max_layer_id", 6, 1).ue("vps_num_layer_sets_minus1", 1).u("layer_id_included_flag[1][0]", 1, 1);
  set.u("layer_id_included_flag[1][1]", 1, 0).u("vps_timing_info_present_flag", 1, 1);
  set.u("vps_num_units_in_tick", 32, 1).u("vps_time_scale", 32, 50);
  set.u("vps_poc_proportional_to_timing_flag", 1, 1).ue("vps_num_ticks_poc_diff_one_minus1", 0);
  set.ue("vps_num_hrd_parameters", 2).ue("hrd_layer_set_idx[0]", 0);
  PutHevcHrdHead(set, true);
  PutHevcHrdLayers(set, true);
  set.ue("hrd_layer_set_idx[1]", 1).u("cprms_present_flag[1]", 1, 0);
  PutHevcHrdLayers(set, true);
  return set.u("vps_extension_flag", 1, 0);
}

// Two views of which the second refers to the first: one dimension, three output layer sets (one of them
// added), two formats, a VUI with everything.
inline void PutLayerDimensions(DescribedSet& set) {
  set.u("general_level_idc", 8, 120).flags({{"sub_layer_profile_present_flag[0]", 0}});
  set.flags({{"sub_layer_level_present_flag[0]", 0}, {"sub_layer_profile_present_flag[1]", 0}});
  set.flags({{"sub_layer_level_present_flag[1]", 0}});
  for (size_t i = 2; i < 8; ++i) set.u(At("reserved_zero_2bits", i), 2, 0);
  set.u("splitting_flag", 1, 0);
  for (size_t i = 0; i < 16; ++i) set.u(At("scalability_mask_flag", i), 1, i == 1);
  set.u("dimension_id_len_minus1[0]", 3, 1).u("vps_nuh_layer_id_present_flag", 1, 1);
  set.u("layer_id_in_nuh[1]", 6, 4).u("dimension_id[1][0]", 2, 1).u("view_id_len", 4, 3);
  set.u("view_id_val[0]", 3, 2).u("view_id_val[1]", 3, 5).u("direct_dependency_flag[1][0]", 1, 1);
  set.u("vps_sub_layers_max_minus1_present_flag", 1, 1).u("sub_layers_vps_max_minus1[0]", 3, 2);
  set.u("sub_layers_vps_max_minus1[1]", 3, 1).u("max_tid_ref_present_flag", 1, 1);
  set.u("max_tid_il_ref_pics_plus1[0][1]", 3, 7).u("default_ref_layers_active_flag", 1, 1);
}

inline void PutOutputLayerSets(DescribedSet& set) {
  set.ue("vps_num_profile_tier_level_minus1", 2).u("vps_profile_present_flag[2]", 1, 1);
  PutHevcProfiles(set, 6, 7);
  set.ue("num_add_olss", 1).u("default_output_layer_idc", 2, 1);
  // Set 1 puts out its highest layer, which needs both; the added one takes the same layer set.
  set.u("profile_tier_level_idx[1][0]", 2, 1).u("profile_tier_level_idx[1][1]", 2, 2);
  set.u("alt_output_layer_flag[1]", 1, 1)
      .u("output_layer_flag[2][0]", 1, 1)
      .u("output_layer_flag[2][1]", 1, 0);
  set.u("profile_tier_level_idx[2][0]", 2, 1);
  set.ue("vps_num_rep_formats_minus1", 1);
  for (int format = 0; format < 2; ++format) {
    set.u("pic_width_vps_in_luma_samples", 16, 1920).u("pic_height_vps_in_luma_samples", 16, 1088);
    set.u("chroma_and_bit_depth_vps_present_flag", 1, 1).u("chroma_format_vps_idc", 2, format == 0 ? 3 : 1);
    if (format == 0) set.u("separate_colour_plane_vps_flag", 1, 0);
    set.u("bit_depth_vps_luma_minus8", 4, 2).u("bit_depth_vps_chroma_minus8", 4, 1);
    set.u("conformance_window_vps_flag", 1, 1)
        .ue("conf_win_vps_left_offset", 0)
        .ue("conf_win_vps_right_offset", 1);
    set.ue("conf_win_vps_top_offset", 2).ue("conf_win_vps_bottom_offset", 4);
  }
  set.u("rep_format_idx_present_flag", 1, 1).u("vps_rep_format_idx[1]", 1, 1);
  set.flags({{"max_one_active_ref_layer_flag", 1}, {"vps_poc_lsb_aligned_flag", 0}});
  // Buffer sizes of sub-layers 0 to 2: the base layer has three.
  set.u("sub_layer_flag_info_present_flag[1]", 1, 1).ue("max_vps_dec_pic_buffering_minus1[1][0][0]", 3);
  set.ue("max_vps_dec_pic_buffering_minus1[1][1][0]", 4).ue("max_vps_num_reorder_pics[1][0]", 1);
  set.ue("max_vps_latency_increase_plus1[1][0]", 0).u("sub_layer_dpb_info_present_flag[1][1]", 1, 0);
  set.u("sub_layer_dpb_info_present_flag[1][2]", 1, 1).ue("max_vps_dec_pic_buffering_minus1[1][0][2]", 5);
  set.ue("max_vps_dec_pic_buffering_minus1[1][1][2]", 6).ue("max_vps_num_reorder_pics[1][2]", 2);
  set.ue("max_vps_latency_increase_plus1[1][2]", 7).u("sub_layer_flag_info_present_flag[2]", 1, 0);
  set.ue("max_vps_dec_pic_buffering_minus1[2][0][0]", 1).ue("max_vps_num_reorder_pics[2][0]", 0);
  set.ue("max_vps_latency_increase_plus1[2][0]", 0).ue("direct_dep_type_len_minus2", 1);
  set.u("direct_dependency_all_layers_flag", 1, 0).u("direct_dependency_type[1][0]", 3, 2);
  set.ue("vps_non_vui_extension_length", 2).u("vps_non_vui_extension_data_byte", 8, 0xA5);
  set.u("vps_non_vui_extension_data_byte", 8, 0x5A);
}

inline void PutBspSchedules(DescribedSet& set) {
  set.ue("vps_num_add_hrd_params", 2).ue("num_sub_layer_hrd_minus1[0]", 2);
  PutHevcHrdHead(set, false);
  PutHevcHrdLayers(set, false);
  set.u("cprms_add_present_flag[1]", 1, 0).ue("num_sub_layer_hrd_minus1[1]", 2);
  PutHevcHrdLayers(set, false);
  for (size_t h = 1; h < 3; ++h) {
    set.ue(At("num_signalled_partitioning_schemes", h), h == 1);
    if (h == 1) {
      set.ue("num_partitions_in_scheme_minus1[1][1]", 0)
          .u("layer_included_in_partition_flag[1][1][0][0]", 1, 1);
      set.u("layer_included_in_partition_flag[1][1][0][1]", 1, 1);
    }
    // Scheme 0 has a partition for each of the two layers, scheme 1 the one that was told.
    for (size_t i = 0; i < (h == 1 ? 2u : 1u); ++i) {
      for (size_t t = 0; t < 3; ++t) {
        set.ue(At(At("num_bsp_schedules_minus1", h, i), t), 0);
        for (size_t k = 0; k < (i == 0 ? 2u : 1u); ++k) {
          const std::string at = At(At(At("", h, i), t, 0), k);
          set.u("bsp_hrd_idx" + at, 1, 1).ue("bsp_sched_idx" + at, 2);
        }
      }
    }
  }
}

inline void PutVpsVui(DescribedSet& set) {
  set.flags({{"cross_layer_pic_type_aligned_flag", 0}, {"cross_layer_irap_aligned_flag", 1}});
  set.flags({{"all_layers_idr_aligned_flag", 1},
             {"bit_rate_present_vps_flag", 1},
             {"pic_rate_present_vps_flag", 1}});
  for (size_t i = 0; i < 2; ++i) {
    for (size_t j = 0; j < 3; ++j) {
      set.u(At("bit_rate_present_flag", i, j), 1, j == 0).u(At("pic_rate_present_flag", i, j), 1, j == 1);
      if (j == 0) set.u(At("avg_bit_rate", i, j), 16, 100).u(At("max_bit_rate", i, j), 16, 65535);
      if (j == 1) set.u(At("constant_pic_rate_idc", i, j), 2, 2).u(At("avg_pic_rate", i, j), 16, 12800);
    }
  }
  set.u("video_signal_info_idx_present_flag", 1, 1).u("vps_num_video_signal_info_minus1", 4, 1);
  for (int i = 0; i < 2; ++i) {
    set.u("video_vps_format", 3, 5).u("video_full_range_vps_flag", 1, 0).u("colour_primaries_vps", 8, 9);
    set.u("transfer_characteristics_vps", 8, 16).u("matrix_coeffs_vps", 8, 9);
  }
  set.u("vps_video_signal_info_idx[0]", 4, 0).u("vps_video_signal_info_idx[1]", 4, 1);
  set.u("tiles_not_in_use_flag", 1, 0).u("tiles_in_use_flag[0]", 1, 1);
  set.flags({{"loop_filter_not_across_tiles_flag[0]", 1}, {"tiles_in_use_flag[1]", 1}});
  set.flags({{"loop_filter_not_across_tiles_flag[1]", 0}, {"tile_boundaries_aligned_flag[1][0]", 1}});
  set.flags({{"wpp_not_in_use_flag", 0}, {"wpp_in_use_flag[0]", 1}, {"wpp_in_use_flag[1]", 0}});
  set.flags({{"single_layer_for_non_irap_flag", 0}, {"higher_layer_irap_skip_flag", 1}});
  set.u("ilp_restricted_ref_layers_flag", 1, 1).ue("min_spatial_segment_offset_plus1[1][0]", 3);
  set.u("ctu_based_offset_enabled_flag[1][0]", 1, 1).ue("min_horizontal_ctu_offset_plus1[1][0]", 2);
  set.u("vps_vui_bsp_hrd_present_flag", 1, 1);
  PutBspSchedules(set);
}

inline DescribedSet HevcLayersVps() {
  DescribedSet set = HevcVpsFront(2);
  set.u("vps_max_layer_id", 6, 4).ue("vps_num_layer_sets_minus1", 1);
  for (size_t j = 0; j <= 4; ++j) set.u(At("layer_id_included_flag", 1, j), 1, j == 0 || j == 4);
  set.u("vps_timing_info_present_flag", 1, 0).u("vps_extension_flag", 1, 1);
  set.alignOnes("vps_extension_alignment_bit_equal_to_one");
  PutLayerDimensions(set);
  PutOutputLayerSets(set);
  set.u("vps_vui_present_flag", 1, 1).alignOnes("vps_vui_alignment_bit_equal_to_one");
  PutVpsVui(set);
  return set.u("vps_extension2_flag", 1, 1).run("vps_extension_data_flag", "10011");
}

}  // namespace qlnmedia

#endif
