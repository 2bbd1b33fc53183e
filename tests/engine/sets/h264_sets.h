// Parameter sets of H.264 that go through every branch of their syntax, written by hand.
#ifndef TESTS_ENGINE_SETS_H264_SETS_H
#define TESTS_ENGINE_SETS_H264_SETS_H

#include "described_set.h"

namespace qlnmedia {

inline DescribedSet H264Header(uint64_t type) {
  DescribedSet set;
  set.u("forbidden_zero_bit", 1, 0).u("nal_ref_idc", 2, 3).u("nal_unit_type", 5, type);
  return set;
}

inline void PutH264Profile(DescribedSet& set, uint64_t profile, uint32_t id) {
  set.u("profile_idc", 8, profile).flags({{"constraint_set0_flag", 0}, {"constraint_set1_flag", 1}});
  set.flags({{"constraint_set2_flag", 0}, {"constraint_set3_flag", 1}, {"constraint_set4_flag", 0}});
  set.flags({{"constraint_set5_flag", 1}}).u("reserved_zero_2bits", 2, 0).u("level_idc", 8, 31);
  set.ue("seq_parameter_set_id", id);
}

// A list of `size` scales in full, or one that ends early.
inline void PutScalingList(DescribedSet& set, size_t size, bool whole) {
  if (!whole) {
    set.se("delta_scale[0]", 3).se("delta_scale[1]", -11);
    return;
  }
  for (size_t j = 0; j < size; ++j) set.se(At("delta_scale", j), j % 2 == 0 ? 4 : -3);
}

inline void PutH264Hrd(DescribedSet& set, uint32_t cpbs) {
  set.ue("cpb_cnt_minus1", cpbs - 1).u("bit_rate_scale", 4, 3).u("cpb_size_scale", 4, 5);
  for (uint32_t i = 0; i < cpbs; ++i) {
    set.ue(At("bit_rate_value_minus1", i), 15624 + i).ue(At("cpb_size_value_minus1", i), 0xFFFFFFFE - i);
    set.u(At("cbr_flag", i), 1, i % 2);
  }
  set.u("initial_cpb_removal_delay_length_minus1", 5, 23).u("cpb_removal_delay_length_minus1", 5, 17);
  set.u("dpb_output_delay_length_minus1", 5, 9).u("time_offset_length", 5, 24);
}

inline void PutH264Vui(DescribedSet& set) {
  set.u("aspect_ratio_info_present_flag", 1, 1).u("aspect_ratio_idc", 8, 255).u("sar_width", 16, 40);
  set.u("sar_height", 16, 33).flags({{"overscan_info_present_flag", 1}, {"overscan_appropriate_flag", 1}});
  set.u("video_signal_type_present_flag", 1, 1).u("video_format", 3, 2).u("video_full_range_flag", 1, 1);
  set.u("colour_description_present_flag", 1, 1).u("colour_primaries", 8, 9);
  set.u("transfer_characteristics", 8, 16).u("matrix_coefficients", 8, 9);
  set.u("chroma_loc_info_present_flag", 1, 1).ue("chroma_sample_loc_type_top_field", 2);
  set.ue("chroma_sample_loc_type_bottom_field", 3).u("timing_info_present_flag", 1, 1);
  set.u("num_units_in_tick", 32, 1001).u("time_scale", 32, 0xFFFFFFFF).u("fixed_frame_rate_flag", 1, 1);
  set.u("nal_hrd_parameters_present_flag", 1, 1);
  PutH264Hrd(set, 2);
  set.u("vcl_hrd_parameters_present_flag", 1, 1);
  PutH264Hrd(set, 1);
  set.u("low_delay_hrd_flag", 1, 1).u("pic_struct_present_flag", 1, 1).u("bitstream_restriction_flag", 1, 1);
  set.u("motion_vectors_over_pic_boundaries_flag", 1, 1).ue("max_bytes_per_pic_denom", 1);
  set.ue("max_bits_per_mb_denom", 2).ue("log2_max_mv_length_horizontal", 11);
  set.ue("log2_max_mv_length_vertical", 12).ue("max_num_reorder_frames", 2).ue("max_dec_frame_buffering", 4);
}

// 4:4:4 in separate planes, all twelve lists, order counts of type 1, fields, cropping, a whole VUI.
inline DescribedSet H264FullSps() {
  DescribedSet set = H264Header(7);
  PutH264Profile(set, 244, 3);
  set.ue("chroma_format_idc", 3).u("separate_colour_plane_flag", 1, 0).ue("bit_depth_luma_minus8", 2);
  set.ue("bit_depth_chroma_minus8", 4).u("qpprime_y_zero_transform_bypass_flag", 1, 1);
  set.u("seq_scaling_matrix_present_flag", 1, 1);
  for (size_t i = 0; i < 12; ++i) {
    set.u(At("seq_scaling_list_present_flag", i), 1, i != 4);
    if (i != 4) PutScalingList(set, i < 6 ? 16 : 64, i % 3 != 2);
  }
  set.ue("log2_max_frame_num_minus4", 5).ue("pic_order_cnt_type", 1);
  set.u("delta_pic_order_always_zero_flag", 1, 0).se("offset_for_non_ref_pic", -5);
  set.se("offset_for_top_to_bottom_field", 2147483647).ue("num_ref_frames_in_pic_order_cnt_cycle", 3);
  set.se("offset_for_ref_frame[0]", 1).se("offset_for_ref_frame[1]", -1).se("offset_for_ref_frame[2]", 700);
  set.ue("max_num_ref_frames", 4).u("gaps_in_frame_num_value_allowed_flag", 1, 1);
  set.ue("pic_width_in_mbs_minus1", 7).ue("pic_height_in_map_units_minus1", 2);
  set.flags({{"frame_mbs_only_flag", 0}, {"mb_adaptive_frame_field_flag", 1}});
  set.flags({{"direct_8x8_inference_flag", 1}, {"frame_cropping_flag", 1}});
  set.ue("frame_crop_left_offset", 1).ue("frame_crop_right_offset", 2).ue("frame_crop_top_offset", 3);
  set.ue("frame_crop_bottom_offset", 4).u("vui_parameters_present_flag", 1, 1);
  PutH264Vui(set);
  return set;
}

// What stands in front of the extensions of a subset SPS: High profile's elements, no VUI.
inline DescribedSet H264SubsetFront(uint64_t profile, uint32_t chroma = 1, uint64_t frameMbsOnly = 1) {
  DescribedSet set = H264Header(15);
  PutH264Profile(set, profile, 0);
  set.ue("chroma_format_idc", chroma).ue("bit_depth_luma_minus8", 0).ue("bit_depth_chroma_minus8", 0);
  set.flags({{"qpprime_y_zero_transform_bypass_flag", 0}, {"seq_scaling_matrix_present_flag", 0}});
  set.ue("log2_max_frame_num_minus4", 0).ue("pic_order_cnt_type", 2).ue("max_num_ref_frames", 1);
  set.u("gaps_in_frame_num_value_allowed_flag", 1, 0).ue("pic_width_in_mbs_minus1", 3);
  set.ue("pic_height_in_map_units_minus1", 3).u("frame_mbs_only_flag", 1, frameMbsOnly);
  if (frameMbsOnly == 0) set.u("mb_adaptive_frame_field_flag", 1, 0);
  set.flags({{"direct_8x8_inference_flag", 1}, {"frame_cropping_flag", 0}});
  return set.u("vui_parameters_present_flag", 1, 0);
}

// Timing and HRD of one operation point under a prefix.
inline void PutPoint(DescribedSet& set, const std::string& prefix, size_t i, bool nal, bool vcl) {
  const auto name = [&](const char* rest) { return At(prefix + rest, i); };
  set.u(name("timing_info_present_flag"), 1, 1).u(name("num_units_in_tick"), 32, 1);
  set.u(name("time_scale"), 32, 50).u(name("fixed_frame_rate_flag"), 1, 1);
  set.u(name("nal_hrd_parameters_present_flag"), 1, nal);
  if (nal) PutH264Hrd(set, 1);
  set.u(name("vcl_hrd_parameters_present_flag"), 1, vcl);
  if (vcl) PutH264Hrd(set, 1);
  if (nal || vcl) set.u(name("low_delay_hrd_flag"), 1, 1);
  set.u(name("pic_struct_present_flag"), 1, 1);
}

inline DescribedSet H264SvcSps() {
  DescribedSet set = H264SubsetFront(83);
  set.u("inter_layer_deblocking_filter_control_present_flag", 1, 1)
      .u("extended_spatial_scalability_idc", 2, 1);
  set.u("chroma_phase_x_plus1_flag", 1, 1).u("chroma_phase_y_plus1", 2, 2);
  set.u("seq_ref_layer_chroma_phase_x_plus1_flag", 1, 1).u("seq_ref_layer_chroma_phase_y_plus1", 2, 1);
  set.se("seq_scaled_ref_layer_left_offset", -1).se("seq_scaled_ref_layer_top_offset", 2);
  set.se("seq_scaled_ref_layer_right_offset", -3).se("seq_scaled_ref_layer_bottom_offset", 4);
  set.flags({{"seq_tcoeff_level_prediction_flag", 1}, {"adaptive_tcoeff_level_prediction_flag", 1}});
  set.flags({{"slice_header_restriction_flag", 1}, {"svc_vui_parameters_present_flag", 1}});
  set.ue("vui_ext_num_entries_minus1", 1);
  for (size_t i = 0; i < 2; ++i) {
    set.u(At("vui_ext_dependency_id", i), 3, 1).u(At("vui_ext_quality_id", i), 4, 2);
    set.u(At("vui_ext_temporal_id", i), 3, 3);
    PutPoint(set, "vui_ext_", i, i == 0, i == 1);
  }
  return set.u("additional_extension2_flag", 1, 1).run("additional_extension2_data_flag", "1010011");
}

inline void PutViewReferences(DescribedSet& set, const std::string& kind, size_t i) {
  set.ue(At("num_" + kind + "_refs_l0", i), 2).ue(At(kind + "_ref_l0", i, 0), 0);
  set.ue(At(kind + "_ref_l0", i, 1), 5).ue(At("num_" + kind + "_refs_l1", i), 1);
  set.ue(At(kind + "_ref_l1", i, 0), 7);
}

inline DescribedSet H264MvcSps() {
  DescribedSet set = H264SubsetFront(134, 1, 0);
  set.u("bit_equal_to_one", 1, 1).ue("num_views_minus1", 2).ue("view_id[0]", 0).ue("view_id[1]", 5);
  set.ue("view_id[2]", 7);
  for (size_t i = 1; i < 3; ++i) PutViewReferences(set, "anchor", i);
  for (size_t i = 1; i < 3; ++i) PutViewReferences(set, "non_anchor", i);
  set.ue("num_level_values_signalled_minus1", 0)
      .u("level_idc[0]", 8, 40)
      .ue("num_applicable_ops_minus1[0]", 1);
  for (size_t j = 0; j < 2; ++j) {
    set.u(At("applicable_op_temporal_id", 0, j), 3, j)
        .ue(At("applicable_op_num_target_views_minus1", 0, j), 1);
    set.ue(At("applicable_op_target_view_id", 0, j) + "[0]", 0);
    set.ue(At("applicable_op_target_view_id", 0, j) + "[1]", 5);
    set.ue(At("applicable_op_num_views_minus1", 0, j), 1);
  }
  set.u("mfc_format_idc", 6, 1).u("default_grid_position_flag", 1, 0).u("view0_grid_position_x", 4, 1);
  set.u("view0_grid_position_y", 4, 2).u("view1_grid_position_x", 4, 3).u("view1_grid_position_y", 4, 4);
  set.flags({{"rpu_filter_enabled_flag", 1}, {"rpu_field_processing_flag", 1}});
  set.u("mvc_vui_parameters_present_flag", 1, 1).ue("vui_mvc_num_ops_minus1", 0);
  set.u("vui_mvc_temporal_id[0]", 3, 1).ue("vui_mvc_num_target_output_views_minus1[0]", 1);
  set.ue("vui_mvc_view_id[0][0]", 0).ue("vui_mvc_view_id[0][1]", 5);
  PutPoint(set, "vui_mvc_", 0, true, true);
  return set.u("additional_extension2_flag", 1, 0);
}

// Two views, of which the second has no depth: it has no references either.
inline DescribedSet H264MvcdSps(uint64_t profile) {
  DescribedSet set = H264SubsetFront(profile);
  set.u("bit_equal_to_one", 1, 1).ue("num_views_minus1", 2);
  for (size_t i = 0; i < 3; ++i) {
    set.ue(At("view_id", i), static_cast<uint32_t>(i)).u(At("depth_view_present_flag", i), 1, i != 1);
    set.u(At("texture_view_present_flag", i), 1, 1);
  }
  PutViewReferences(set, "anchor", 2);
  PutViewReferences(set, "non_anchor", 2);
  set.ue("num_level_values_signalled_minus1", 0)
      .u("level_idc[0]", 8, 40)
      .ue("num_applicable_ops_minus1[0]", 0);
  set.u("applicable_op_temporal_id[0][0]", 3, 1).ue("applicable_op_num_target_views_minus1[0][0]", 0);
  set.ue("applicable_op_target_view_id[0][0][0]", 2).u("applicable_op_depth_flag[0][0][0]", 1, 1);
  set.u("applicable_op_texture_flag[0][0][0]", 1, 0).ue("applicable_op_num_texture_views_minus1[0][0]", 0);
  set.ue("applicable_op_num_depth_views[0][0]", 1).u("mvcd_vui_parameters_present_flag", 1, 1);
  set.ue("vui_mvcd_num_ops_minus1", 0).u("vui_mvcd_temporal_id[0]", 3, 1);
  set.ue("vui_mvcd_num_target_output_views_minus1[0]", 0).ue("vui_mvcd_view_id[0][0]", 2);
  set.u("vui_mvcd_depth_flag[0][0]", 1, 1).u("vui_mvcd_texture_flag[0][0]", 1, 1);
  PutPoint(set, "vui_mvcd_", 0, false, false);
  set.u("texture_vui_parameters_present_flag", 1, 1).ue("vui_mvc_num_ops_minus1", 0);
  set.u("vui_mvc_temporal_id[0]", 3, 1).ue("vui_mvc_num_target_output_views_minus1[0]", 0);
  set.ue("vui_mvc_view_id[0][0]", 0);
  PutPoint(set, "vui_mvc_", 0, false, true);
  if (profile == 139) return set.run("seq_parameter_set_3davc_extension", "11001010101");
  return set.u("additional_extension2_flag", 1, 0);
}

inline DescribedSet H264SpsExtension() {
  DescribedSet set = H264Header(13);
  set.ue("seq_parameter_set_id", 2).ue("aux_format_idc", 1).ue("bit_depth_aux_minus8", 2);
  set.u("alpha_incr_flag", 1, 1).u("alpha_opaque_value", 11, 0x5A5).u("alpha_transparent_value", 11, 3);
  return set.u("additional_extension_flag", 1, 0);
}

// The elements in front of the slice groups, and those behind them up to the transform's.
inline DescribedSet H264PpsFront(uint32_t groups, uint32_t spsId = 0) {
  DescribedSet set = H264Header(8);
  set.ue("pic_parameter_set_id", 7).ue("seq_parameter_set_id", spsId).u("entropy_coding_mode_flag", 1, 1);
  set.u("bottom_field_pic_order_in_frame_present_flag", 1, 1);
  return set.ue("num_slice_groups_minus1", groups - 1);
}
inline void PutPpsMiddle(DescribedSet& set) {
  set.ue("num_ref_idx_l0_default_active_minus1", 2).ue("num_ref_idx_l1_default_active_minus1", 1);
  set.u("weighted_pred_flag", 1, 1).u("weighted_bipred_idc", 2, 2).se("pic_init_qp_minus26", -26);
  set.se("pic_init_qs_minus26", 25).se("chroma_qp_index_offset", -12);
  set.flags({{"deblocking_filter_control_present_flag", 1}, {"constrained_intra_pred_flag", 0}});
  set.u("redundant_pic_cnt_present_flag", 1, 1);
}

// Slice groups of a map type; a set of 4:4:4 has 12 scaling lists, others 8.
inline DescribedSet H264Pps(uint32_t mapType, bool fullChroma) {
  DescribedSet set = H264PpsFront(3, fullChroma ? 3 : 0);
  set.ue("slice_group_map_type", mapType);
  for (size_t i = 0; mapType == 0 && i < 3; ++i) set.ue(At("run_length_minus1", i), 9);
  for (size_t i = 0; mapType == 2 && i < 2; ++i) set.ue(At("top_left", i), 1).ue(At("bottom_right", i), 4);
  if (mapType >= 3 && mapType <= 5)
    set.u("slice_group_change_direction_flag", 1, 1).ue("slice_group_change_rate_minus1", 11);
  if (mapType == 6) {
    set.ue("pic_size_in_map_units_minus1", 4);
    for (size_t i = 0; i < 5; ++i) set.u(At("slice_group_id", i), 2, i % 3);
  }
  PutPpsMiddle(set);
  set.flags({{"transform_8x8_mode_flag", 1}, {"pic_scaling_matrix_present_flag", 1}});
  for (size_t i = 0; i < (fullChroma ? 12u : 8u); ++i) {
    set.u(At("pic_scaling_list_present_flag", i), 1, i % 5 == 0);
    if (i % 5 == 0) PutScalingList(set, i < 6 ? 16 : 64, i == 0);
  }
  return set.se("second_chroma_qp_index_offset", 12);
}

}  // namespace qlnmedia

#endif
