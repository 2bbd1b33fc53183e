// Names for the words of the HEVC parameter set records, in the order of the records, checked against their
// layout. The blocks that stand inside a record have tables of their own, counted from the block's start.
#ifndef QLNUTIL_HEVC_RECORD_FIELDS_H
#define QLNUTIL_HEVC_RECORD_FIELDS_H

#include "qlnutil/bits/record_fields.h"
#include "qlnutil/qlnhevc.h"

namespace qln {

#define QLN_FIELD(member) QLN_RECORD_FIELD(HevcProfileTierLevel, member)
// general_constraint_indicator_flags is one 64-bit value in two words.
inline constexpr RecordField kHevcProfileTierLevelFields[] = {
    QLN_FIELD(general_profile_space),
    QLN_FIELD(general_tier_flag),
    QLN_FIELD(general_profile_idc),
    QLN_FIELD(general_profile_compatibility_flags),
    QLN_FIELD(general_progressive_source_flag),
    QLN_FIELD(general_interlaced_source_flag),
    QLN_FIELD(general_non_packed_constraint_flag),
    QLN_FIELD(general_frame_only_constraint_flag),
    QLN_FIELD(alignment_word),
    {"general_constraint_indicator_flags",
     offsetof(HevcProfileTierLevel, general_constraint_indicator_flags) / 4, 2, false},
    QLN_FIELD(general_level_idc),
    QLN_FIELD(sub_layer_profile_present_flag),
    QLN_FIELD(sub_layer_level_present_flag),
    QLN_FIELD(sub_layer_profile_space),
    QLN_FIELD(sub_layer_tier_flag),
    QLN_FIELD(sub_layer_profile_idc),
    QLN_FIELD(sub_layer_profile_compatibility_flags),
    QLN_FIELD(sub_layer_progressive_source_flag),
    QLN_FIELD(sub_layer_interlaced_source_flag),
    QLN_FIELD(sub_layer_non_packed_constraint_flag),
    QLN_FIELD(sub_layer_frame_only_constraint_flag),
    QLN_FIELD(sub_layer_level_idc),
};
#undef QLN_FIELD
static_assert(CoversRecord(kHevcProfileTierLevelFields, sizeof(HevcProfileTierLevel)));

// The entry of a member that is a block, or an array of them.
#define QLN_FIELD_BLOCK(record, member) \
  RecordField { #member, offsetof(record, member) / 4, sizeof(record::member) / 4, false }

#define QLN_FIELD(member) QLN_RECORD_FIELD(HevcVpsRecord, member)
inline constexpr RecordField kHevcVpsFields[] = {
    QLN_FIELD(vps_video_parameter_set_id),
    QLN_FIELD(vps_max_layers_minus1),
    QLN_FIELD(vps_max_sub_layers_minus1),
    QLN_FIELD(vps_temporal_id_nesting_flag),
    QLN_FIELD(vps_reserved_0xffff_16bits),
    QLN_FIELD_BLOCK(HevcVpsRecord, profile_tier_level),
    QLN_FIELD(vps_sub_layer_ordering_info_present_flag),
    QLN_FIELD(vps_max_dec_pic_buffering_minus1),
    QLN_FIELD(vps_max_num_reorder_pics),
    QLN_FIELD(vps_max_latency_increase_plus1),
    QLN_FIELD(vps_max_layer_id),
    QLN_FIELD(vps_num_layer_sets_minus1),
    QLN_FIELD(vps_timing_info_present_flag),
    QLN_FIELD(vps_num_units_in_tick),
    QLN_FIELD(vps_time_scale),
    QLN_FIELD(vps_poc_proportional_to_timing_flag),
    QLN_FIELD(vps_num_ticks_poc_diff_one),
    QLN_FIELD(vps_num_hrd_parameters),
    QLN_FIELD(cprms_present_flag),
    QLN_FIELD(hrd_layer_set_idx),
    QLN_FIELD(free_word_207),
    QLN_FIELD(vps_extension_flag),
    QLN_FIELD(free_word_209),
};
#undef QLN_FIELD
static_assert(CoversRecord(kHevcVpsFields, sizeof(HevcVpsRecord)));

#define QLN_FIELD(member) QLN_RECORD_FIELD(HevcShortTermRps, member)
// Of one of the 64 sets of st_ref_pic_set.
inline constexpr RecordField kHevcShortTermRpsFields[] = {
    QLN_FIELD(num_negative_pics),
    QLN_FIELD(num_positive_pics),
    QLN_FIELD(inter_ref_pic_set_prediction_flag),
    QLN_FIELD(delta_poc_s0_minus1),
    QLN_FIELD(used_by_curr_pic_s0_flag),
    QLN_FIELD(delta_poc_s1_minus1),
    QLN_FIELD(used_by_curr_pic_s1_flag),
    QLN_FIELD(delta_rps_sign),
    QLN_FIELD(abs_delta_rps_minus1),
    QLN_FIELD(used_by_curr_pic_flag),
    QLN_FIELD(use_delta_flag),
};
#undef QLN_FIELD
static_assert(CoversRecord(kHevcShortTermRpsFields, sizeof(HevcShortTermRps)));

#define QLN_FIELD(member) QLN_RECORD_FIELD(HevcLongTermPicture, member)
// Of one of the 64 entries of long_term_ref_pics.
inline constexpr RecordField kHevcLongTermPictureFields[] = {
    QLN_FIELD(lt_ref_pic_poc_lsb_sps),
    QLN_FIELD(used_by_curr_pic_lt_sps_flag),
};
#undef QLN_FIELD
static_assert(CoversRecord(kHevcLongTermPictureFields, sizeof(HevcLongTermPicture)));

#define QLN_FIELD(member) QLN_RECORD_FIELD(HevcSpsRecord, member)
inline constexpr RecordField kHevcSpsFields[] = {
    QLN_FIELD(sps_video_parameter_set_id),
    QLN_FIELD(sps_max_sub_layers_minus1),
    QLN_FIELD(sps_temporal_id_nesting_flag),
    QLN_FIELD_BLOCK(HevcSpsRecord, profile_tier_level),
    QLN_FIELD(sps_seq_parameter_set_id),
    QLN_FIELD(chroma_format_idc),
    QLN_FIELD(separate_colour_plane_flag),
    QLN_FIELD(pic_width_in_luma_samples),
    QLN_FIELD(pic_height_in_luma_samples),
    QLN_FIELD(conformance_window_flag),
    QLN_FIELD(conf_win_left_offset),
    QLN_FIELD(conf_win_right_offset),
    QLN_FIELD(conf_win_top_offset),
    QLN_FIELD(conf_win_bottom_offset),
    QLN_FIELD(bit_depth_luma_minus8),
    QLN_FIELD(bit_depth_chroma_minus8),
    QLN_FIELD(log2_max_pic_order_cnt_lsb_minus4),
    QLN_FIELD(sps_sub_layer_ordering_info_present_flag),
    QLN_FIELD(sps_max_dec_pic_buffering_minus1),
    QLN_FIELD(sps_max_num_reorder_pics),
    QLN_FIELD(sps_max_latency_increase_plus1),
    QLN_FIELD(log2_min_luma_coding_block_size_minus3),
    QLN_FIELD(log2_diff_max_min_luma_coding_block_size),
    QLN_FIELD(log2_min_luma_transform_block_size_minus2),
    QLN_FIELD(log2_diff_max_min_luma_transform_block_size),
    QLN_FIELD(max_transform_hierarchy_depth_inter),
    QLN_FIELD(max_transform_hierarchy_depth_intra),
    QLN_FIELD(scaling_list_enabled_flag),
    QLN_FIELD(scaling_list_pred_mode_flag),
    QLN_FIELD(scaling_list_pred_matrix_id_delta),
    QLN_FIELD(scaling_list_dc_coef_minus8),
    QLN_FIELD(scaling_list_delta_coef),
    QLN_FIELD(sps_scaling_list_data_present_flag),
    QLN_FIELD(amp_enabled_flag),
    QLN_FIELD(sample_adaptive_offset_enabled_flag),
    QLN_FIELD(pcm_enabled_flag),
    QLN_FIELD(pcm_sample_bit_depth_luma_minus1),
    QLN_FIELD(pcm_sample_bit_depth_chroma_minus1),
    QLN_FIELD(log2_min_pcm_luma_coding_block_size_minus3),
    QLN_FIELD(log2_diff_max_min_pcm_luma_coding_block_size),
    QLN_FIELD(pcm_loop_filter_disabled_flag),
    QLN_FIELD(num_short_term_ref_pic_sets),
    QLN_FIELD_BLOCK(HevcSpsRecord, st_ref_pic_set),
    QLN_FIELD(long_term_ref_pics_present_flag),
    QLN_FIELD(num_long_term_ref_pics_sps),
    QLN_FIELD_BLOCK(HevcSpsRecord, long_term_ref_pics),
    QLN_FIELD(sps_temporal_mvp_enabled_flag),
    QLN_FIELD(strong_intra_smoothing_enabled_flag),
    QLN_FIELD(vui_parameters_present_flag),
    QLN_FIELD(aspect_ratio_info_present_flag),
    QLN_FIELD(aspect_ratio_idc),
    QLN_FIELD(sar_width),
    QLN_FIELD(sar_height),
    QLN_FIELD(overscan_info_present_flag),
    QLN_FIELD(overscan_appropriate_flag),
    QLN_FIELD(video_signal_type_present_flag),
    QLN_FIELD(video_format),
    QLN_FIELD(video_full_range_flag),
    QLN_FIELD(colour_description_present_flag),
    QLN_FIELD(colour_primaries),
    QLN_FIELD(transfer_characteristics),
    QLN_FIELD(matrix_coeffs),
    QLN_FIELD(chroma_loc_info_present_flag),
    QLN_FIELD(chroma_sample_loc_type_top_field),
    QLN_FIELD(chroma_sample_loc_type_bottom_field),
    QLN_FIELD(neutral_chroma_indication_flag),
    QLN_FIELD(field_seq_flag),
    QLN_FIELD(frame_field_info_present_flag),
    QLN_FIELD(default_display_window_flag),
    QLN_FIELD(def_disp_win_left_offset),
    QLN_FIELD(def_disp_win_right_offset),
    QLN_FIELD(def_disp_win_top_offset),
    QLN_FIELD(def_disp_win_bottom_offset),
    QLN_FIELD(vui_timing_info_present_flag),
    QLN_FIELD(vui_num_units_in_tick),
    QLN_FIELD(vui_time_scale),
    QLN_FIELD(vui_poc_proportional_to_timing_flag),
    QLN_FIELD(vui_num_ticks_poc_diff_one_minus1),
    QLN_FIELD(vui_hrd_parameters_present_flag),
    QLN_FIELD(nal_hrd_parameters_present_flag),
    QLN_FIELD(vcl_hrd_parameters_present_flag),
    QLN_FIELD(sub_pic_hrd_params_present_flag),
    QLN_FIELD(tick_divisor_minus2),
    QLN_FIELD(du_cpb_removal_delay_increment_length_minus1),
    QLN_FIELD(sub_pic_cpb_params_in_pic_timing_sei_flag),
    QLN_FIELD(dpb_output_delay_du_length_minus1),
    QLN_FIELD(bit_rate_scale),
    QLN_FIELD(cpb_size_scale),
    QLN_FIELD(cpb_size_du_scale),
    QLN_FIELD(initial_cpb_removal_delay_length_minus1),
    QLN_FIELD(au_cpb_removal_delay_length_minus1),
    QLN_FIELD(dpb_output_delay_length_minus1),
    QLN_FIELD(fixed_pic_rate_general_flag),
    QLN_FIELD(fixed_pic_rate_within_cvs_flag),
    QLN_FIELD(free_words_6931),
    QLN_FIELD(low_delay_hrd_flag),
    QLN_FIELD(cpb_cnt_minus1),
    QLN_FIELD(bit_rate_value_minus1),
    QLN_FIELD(cpb_size_value_minus1),
    QLN_FIELD(free_words_6981),
    QLN_FIELD(cbr_flag),
    QLN_FIELD(bitstream_restriction_flag),
    QLN_FIELD(tiles_fixed_structure_flag),
    QLN_FIELD(motion_vectors_over_pic_boundaries_flag),
    QLN_FIELD(restricted_ref_pic_lists_flag),
    QLN_FIELD(min_spatial_segmentation_idc),
    QLN_FIELD(max_bytes_per_pic_denom),
    QLN_FIELD(max_bits_per_min_cu_denom),
    QLN_FIELD(log2_max_mv_length_horizontal),
    QLN_FIELD(log2_max_mv_length_vertical),
    QLN_FIELD(sps_extension_present_flag),
    QLN_FIELD(sps_range_extension_flag),
    QLN_FIELD(sps_multilayer_extension_flag),
    QLN_FIELD(sps_3d_extension_flag),
    QLN_FIELD(sps_scc_extension_flag),
    QLN_FIELD(transform_skip_rotation_enabled_flag),
    QLN_FIELD(transform_skip_context_enabled_flag),
    QLN_FIELD(implicit_rdpcm_enabled_flag),
    QLN_FIELD(explicit_rdpcm_enabled_flag),
    QLN_FIELD(extended_precision_processing_flag),
    QLN_FIELD(intra_smoothing_disabled_flag),
    QLN_FIELD(high_precision_offsets_enabled_flag),
    QLN_FIELD(persistent_rice_adaptation_enabled_flag),
    QLN_FIELD(cabac_bypass_alignment_enabled_flag),
    QLN_FIELD(inter_view_mv_vert_constraint_flag),
};
#undef QLN_FIELD
static_assert(CoversRecord(kHevcSpsFields, sizeof(HevcSpsRecord)));

#define QLN_FIELD(member) QLN_RECORD_FIELD(HevcPpsRecord, member)
inline constexpr RecordField kHevcPpsFields[] = {
    QLN_FIELD(pps_pic_parameter_set_id),
    QLN_FIELD(pps_seq_parameter_set_id),
    QLN_FIELD(dependent_slice_segments_enabled_flag),
    QLN_FIELD(output_flag_present_flag),
    QLN_FIELD(num_extra_slice_header_bits),
    QLN_FIELD(sign_data_hiding_enabled_flag),
    QLN_FIELD(cabac_init_present_flag),
    QLN_FIELD(num_ref_idx_l0_default_active_minus1),
    QLN_FIELD(num_ref_idx_l1_default_active_minus1),
    QLN_FIELD(init_qp_minus26),
    QLN_FIELD(constrained_intra_pred_flag),
    QLN_FIELD(transform_skip_enabled_flag),
    QLN_FIELD(cu_qp_delta_enabled_flag),
    QLN_FIELD(diff_cu_qp_delta_depth),
    QLN_FIELD(pps_cb_qp_offset),
    QLN_FIELD(pps_cr_qp_offset),
    QLN_FIELD(pps_slice_chroma_qp_offsets_present_flag),
    QLN_FIELD(weighted_pred_flag),
    QLN_FIELD(weighted_bipred_flag),
    QLN_FIELD(transquant_bypass_enabled_flag),
    QLN_FIELD(tiles_enabled_flag),
    QLN_FIELD(entropy_coding_sync_enabled_flag),
    QLN_FIELD(num_tile_columns_minus1),
    QLN_FIELD(num_tile_rows_minus1),
    QLN_FIELD(uniform_spacing_flag),
    QLN_FIELD(column_width_minus1),
    QLN_FIELD(row_height_minus1),
    QLN_FIELD(loop_filter_across_tiles_enabled_flag),
    QLN_FIELD(pps_loop_filter_across_slices_enabled_flag),
    QLN_FIELD(deblocking_filter_control_present_flag),
    QLN_FIELD(deblocking_filter_override_enabled_flag),
    QLN_FIELD(pps_deblocking_filter_disabled_flag),
    QLN_FIELD(pps_beta_offset_div2),
    QLN_FIELD(pps_tc_offset_div2),
    QLN_FIELD(pps_scaling_list_data_present_flag),
    QLN_FIELD(lists_modification_present_flag),
    QLN_FIELD(log2_parallel_merge_level_minus2),
    QLN_FIELD(slice_segment_header_extension_present_flag),
    QLN_FIELD(pps_extension_present_flag),
};
#undef QLN_FIELD
static_assert(CoversRecord(kHevcPpsFields, sizeof(HevcPpsRecord)));

#undef QLN_FIELD_BLOCK

}  // namespace qln

#endif
