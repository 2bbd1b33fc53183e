/// @file qlnhevc_records.h
/// The records of HEVC parameter sets, for qlnhevc.h, which tells how they are filled.
///
/// A parameter set record is flat: one 32-bit word for each syntax element under its name in ITU-T H.265,
/// holding its code value as it was read, or a two's complement value where the member is signed.
#ifndef QLNUTIL_QLNHEVC_RECORDS_H
#define QLNUTIL_QLNHEVC_RECORDS_H

#include "qlnutil/qlnapi.h"

/// Storage of the records' arrays.
#define QLN_HEVC_SUB_LAYERS 16
/// The same: pictures on either side of a reference picture set.
#define QLN_HEVC_RPS_PICTURES 16
/// The same: short-term reference picture sets.
#define QLN_HEVC_RPS_SETS 64
/// The same: long-term reference pictures.
#define QLN_HEVC_LONG_TERM_PICTURES 64

/// Room of a parameter set copy of qlnutilFindNalUnitsHevc, and the largest unit that a writer puts out;
/// bytes.
#define QLN_HEVC_UNIT_SIZE 1024

/// The result of the HEVC readers for a refusal.
#define QLN_HEVC_REFUSED 0xFFFFFFFFu

QLN_C_BEGIN

/* The 64-bit member stands at an odd word of the block and on an 8-byte boundary of both records. */
#pragma pack(push, 4)

/// profile_tier_level() (clause 7.3.3), as a block inside HevcVpsRecord and HevcSpsRecord; 188 words. The 44
/// bits behind a sub-layer's four flags are not kept.
typedef struct HevcProfileTierLevel {
  /* profile_tier_level(), clause 7.3.3: the general part */
  uint32_t general_profile_space;               /**< 2 bits; 0 for the profiles of the standard */
  uint32_t general_tier_flag;                   /**< 0 Main tier, 1 High tier */
  uint32_t general_profile_idc;                 /**< 5 bits; profile of Annex A */
  uint32_t general_profile_compatibility_flags; /**< 32 bits; all 32 flags, flag 0 in the top bit */
  /** this and the next three win over the 48-bit member on writing */
  uint32_t general_progressive_source_flag;
  /** with the progressive flag: 0 and 0 not known, 1 and 1 told picture by picture */
  uint32_t general_interlaced_source_flag;
  uint32_t general_non_packed_constraint_flag; /**< no frame packing and no segmented rectangles */
  uint32_t general_frame_only_constraint_flag; /**< no picture is a field */
  uint32_t alignment_word;                     /**< not touched */
  /** the 48 bits behind the compatibility flags, first bit in bit 47, the four source flags among them */
  uint64_t general_constraint_indicator_flags;
  uint32_t general_level_idc; /**< 30 times the level number; not 0: the record is filled */

  /* the same of each sub-layer below the highest, entry i for sub-layer i */
  /** 1: the profile of the sub-layer is coded */
  uint32_t sub_layer_profile_present_flag[QLN_HEVC_SUB_LAYERS];
  uint32_t sub_layer_level_present_flag[QLN_HEVC_SUB_LAYERS]; /**< 1: the level of the sub-layer is coded */
  uint32_t sub_layer_profile_space[QLN_HEVC_SUB_LAYERS];      /**< 2 bits */
  uint32_t sub_layer_tier_flag[QLN_HEVC_SUB_LAYERS];          /**< 0 Main tier, 1 High tier */
  uint32_t sub_layer_profile_idc[QLN_HEVC_SUB_LAYERS];        /**< 5 bits; profile of Annex A */
  uint32_t sub_layer_profile_compatibility_flags[QLN_HEVC_SUB_LAYERS]; /**< 32 bits, flag 0 in the top bit */
  uint32_t sub_layer_progressive_source_flag[QLN_HEVC_SUB_LAYERS];     /**< as the general flag */
  uint32_t sub_layer_interlaced_source_flag[QLN_HEVC_SUB_LAYERS];      /**< as the general flag */
  uint32_t sub_layer_non_packed_constraint_flag[QLN_HEVC_SUB_LAYERS];  /**< as the general flag */
  uint32_t sub_layer_frame_only_constraint_flag[QLN_HEVC_SUB_LAYERS];  /**< as the general flag */
  uint32_t sub_layer_level_idc[QLN_HEVC_SUB_LAYERS];                   /**< 30 times the level number */
} HevcProfileTierLevel;

#pragma pack(pop)

/// A video parameter set (clause 7.3.2.1); 210 words. The HRD parameters and the extension are not kept.
typedef struct HevcVpsRecord {
  /* video_parameter_set_rbsp(), clause 7.3.2.1 */
  uint32_t vps_video_parameter_set_id;   /**< 4 bits */
  uint32_t vps_max_layers_minus1;        /**< 6 bits; layers of the stream, less 1 */
  uint32_t vps_max_sub_layers_minus1;    /**< 3 bits; temporal sub-layers, less 1 */
  uint32_t vps_temporal_id_nesting_flag; /**< a decoder may change to a higher sub-layer at any picture */
  uint32_t vps_reserved_0xffff_16bits;   /**< 16 bits, 65535; a record filled by hand must hold it as well */
  HevcProfileTierLevel profile_tier_level; /**< profile_tier_level(), clause 7.3.3 */
  /** values of every sub-layer are coded, otherwise those of the highest alone */
  uint32_t vps_sub_layer_ordering_info_present_flag;
  /** decoded picture buffer in pictures, less 1; this and the next two: of the highest sub-layer */
  uint32_t vps_max_dec_pic_buffering_minus1;
  /** pictures that may precede one in decoding order and follow it in output order */
  uint32_t vps_max_num_reorder_pics;
  uint32_t vps_max_latency_increase_plus1;      /**< 0: no limit of the latency */
  uint32_t vps_max_layer_id;                    /**< 6 bits; greatest nuh_layer_id in any layer set */
  uint32_t vps_num_layer_sets_minus1;           /**< layer sets, less 1; their layers are not kept */
  uint32_t vps_timing_info_present_flag;        /**< 1: the elements of timing are coded */
  uint32_t vps_num_units_in_tick;               /**< 32 bits; ticks of the time scale in one clock tick */
  uint32_t vps_time_scale;                      /**< 32 bits; ticks a second */
  uint32_t vps_poc_proportional_to_timing_flag; /**< the picture order count grows with the output time */
  /** clock ticks a step of the order count; vps_num_ticks_poc_diff_one_minus1 plus 1 */
  uint32_t vps_num_ticks_poc_diff_one;
  uint32_t vps_num_hrd_parameters; /**< HRD structures, which are read past; 0 after a write with timing */
  /** common parameters are coded; this and the next: of the last HRD structure */
  uint32_t cprms_present_flag;
  uint32_t hrd_layer_set_idx;  /**< layer set that the structure is for */
  uint32_t free_word_207;      /**< not touched */
  uint32_t vps_extension_flag; /**< extension data follows, which is passed; 0 after a write */
  uint32_t free_word_209;      /**< not touched */
} HevcVpsRecord;

/// One short-term reference picture set as it is coded (clause 7.3.7); 101 words. A set that is predicted
/// from another one holds its coded flags and leaves the first two words alone.
typedef struct HevcShortTermRps {
  /** pictures in front of the current one in output order; more than 16 are not read */
  uint32_t num_negative_pics;
  uint32_t num_positive_pics; /**< pictures behind it; more than 16 are not read */
  /** the set is predicted from another one; never read or written for set 0 */
  uint32_t inter_ref_pic_set_prediction_flag;

  /* a set that is not predicted: distances in picture order count, each from the one before */
  uint32_t delta_poc_s0_minus1[QLN_HEVC_RPS_PICTURES];      /**< downwards, less 1 */
  uint32_t used_by_curr_pic_s0_flag[QLN_HEVC_RPS_PICTURES]; /**< 0: kept for later pictures only */
  uint32_t delta_poc_s1_minus1[QLN_HEVC_RPS_PICTURES];      /**< upwards, less 1 */
  uint32_t used_by_curr_pic_s1_flag[QLN_HEVC_RPS_PICTURES]; /**< 0: kept for later pictures only */

  /* a predicted set */
  uint32_t delta_rps_sign;       /**< 1: the difference is negative */
  uint32_t abs_delta_rps_minus1; /**< difference of the order counts, less 1 */
  /** of each picture of the set it is predicted from */
  uint32_t used_by_curr_pic_flag[QLN_HEVC_RPS_PICTURES];
  /** 0: the picture is left out; read where the flag above is 0 */
  uint32_t use_delta_flag[QLN_HEVC_RPS_PICTURES];
} HevcShortTermRps;

/// One long-term reference picture of a sequence parameter set.
typedef struct HevcLongTermPicture {
  /** low bits of the picture order count, log2_max_pic_order_cnt_lsb_minus4 + 4 of them */
  uint32_t lt_ref_pic_poc_lsb_sps;
  uint32_t used_by_curr_pic_lt_sps_flag; /**< 0: kept for later pictures only */
} HevcLongTermPicture;

/// A sequence parameter set (clauses 7.3.2.2 and E.2.1); 7008 words.
typedef struct HevcSpsRecord {
  /* seq_parameter_set_rbsp(), clause 7.3.2.2 */
  uint32_t sps_video_parameter_set_id;     /**< 4 bits; the VPS that it refers to */
  uint32_t sps_max_sub_layers_minus1;      /**< 3 bits; temporal sub-layers, less 1 */
  uint32_t sps_temporal_id_nesting_flag;   /**< a decoder may change to a higher sub-layer at any picture */
  HevcProfileTierLevel profile_tier_level; /**< profile_tier_level(), clause 7.3.3 */
  uint32_t sps_seq_parameter_set_id;       /**< 0 to 15 in a valid stream */
  uint32_t chroma_format_idc;              /**< 0 monochrome, 1 4:2:0, 2 4:2:2, 3 4:4:4 */
  uint32_t separate_colour_plane_flag;     /**< carried as ue(v), where chroma_format_idc is 3 */
  uint32_t pic_width_in_luma_samples;      /**< coded width, which the conformance window crops */
  uint32_t pic_height_in_luma_samples;     /**< coded height; of a field where pictures are fields */
  uint32_t conformance_window_flag;        /**< 1: the next four are coded */
  /** this and the next three: cropping in chroma samples, 2 luma samples each in 4:2:0 */
  uint32_t conf_win_left_offset;
  uint32_t conf_win_right_offset;             /**< cut off at the right */
  uint32_t conf_win_top_offset;               /**< cut off at the top */
  uint32_t conf_win_bottom_offset;            /**< cut off at the bottom */
  uint32_t bit_depth_luma_minus8;             /**< bits a luma sample, less 8 */
  uint32_t bit_depth_chroma_minus8;           /**< bits a chroma sample, less 8 */
  uint32_t log2_max_pic_order_cnt_lsb_minus4; /**< bits of slice_pic_order_cnt_lsb, less 4 */
  /** values of every sub-layer are coded, otherwise those of the highest alone */
  uint32_t sps_sub_layer_ordering_info_present_flag;
  /** pictures, less 1; only entry 0: the highest sub-layer's */
  uint32_t sps_max_dec_pic_buffering_minus1[QLN_HEVC_SUB_LAYERS];
  uint32_t sps_max_num_reorder_pics[QLN_HEVC_SUB_LAYERS]; /**< only entry 0 */
  uint32_t sps_max_latency_increase_plus1;                /**< 0: no limit of the latency */
  /** this and the next three: logarithms of sizes in luma samples */
  uint32_t log2_min_luma_coding_block_size_minus3;
  /** of the coding tree block over the smallest coding block */
  uint32_t log2_diff_max_min_luma_coding_block_size;
  uint32_t log2_min_luma_transform_block_size_minus2; /**< of the smallest transform block, less 2 */
  /** of the greatest over the smallest transform block */
  uint32_t log2_diff_max_min_luma_transform_block_size;
  uint32_t max_transform_hierarchy_depth_inter; /**< splits of a transform tree in inter coding units */
  uint32_t max_transform_hierarchy_depth_intra; /**< splits of a transform tree in intra coding units */
  uint32_t scaling_list_enabled_flag;           /**< 1: scaling lists are in use */

  /* scaling_list_data(), clause 7.3.4: of the last list that was read */
  uint32_t scaling_list_pred_mode_flag;       /**< 0: copied from another list, 1: coded */
  uint32_t scaling_list_pred_matrix_id_delta; /**< distance to the list that it is copied from */
  int32_t scaling_list_dc_coef_minus8;        /**< of lists of 16x16 and 32x32, less 8 */
  int32_t scaling_list_delta_coef;            /**< difference to the coefficient before */

  /* seq_parameter_set_rbsp() goes on */
  uint32_t sps_scaling_list_data_present_flag;         /**< never set by the reader, honoured by the writer */
  uint32_t amp_enabled_flag;                           /**< asymmetric motion partitions */
  uint32_t sample_adaptive_offset_enabled_flag;        /**< the filter behind deblocking is in use */
  uint32_t pcm_enabled_flag;                           /**< 1: the next five are coded */
  uint32_t pcm_sample_bit_depth_luma_minus1;           /**< 4 bits; bits a sample, less 1 */
  uint32_t pcm_sample_bit_depth_chroma_minus1;         /**< 4 bits */
  uint32_t log2_min_pcm_luma_coding_block_size_minus3; /**< of the smallest PCM block, less 3 */
  uint32_t log2_diff_max_min_pcm_luma_coding_block_size; /**< of the greatest over the smallest PCM block */
  uint32_t pcm_loop_filter_disabled_flag;                /**< no deblocking of PCM blocks */
  uint32_t num_short_term_ref_pic_sets;                  /**< at most 64 */
  HevcShortTermRps st_ref_pic_set[QLN_HEVC_RPS_SETS];    /**< st_ref_pic_set(), clause 7.3.7 */
  uint32_t long_term_ref_pics_present_flag;              /**< 1: long-term pictures may be in use */
  uint32_t num_long_term_ref_pics_sps;                   /**< more than 64 are passed and not kept */
  /** num_long_term_ref_pics_sps of them are filled */
  HevcLongTermPicture long_term_ref_pics[QLN_HEVC_LONG_TERM_PICTURES];
  uint32_t sps_temporal_mvp_enabled_flag;       /**< temporal prediction of motion vectors */
  uint32_t strong_intra_smoothing_enabled_flag; /**< bilinear smoothing of intra reference samples */
  uint32_t vui_parameters_present_flag;         /**< 1: what follows is coded */

  /* vui_parameters(), clause E.2.1 */
  uint32_t aspect_ratio_info_present_flag;      /**< 1: aspect_ratio_idc is coded */
  uint32_t aspect_ratio_idc;                    /**< 8 bits; table E.1, 255: the two words that follow */
  uint32_t sar_width;                           /**< 16 bits; sample aspect ratio */
  uint32_t sar_height;                          /**< 16 bits */
  uint32_t overscan_info_present_flag;          /**< 1: the next flag is coded */
  uint32_t overscan_appropriate_flag;           /**< 1: may be shown cropped by a display */
  uint32_t video_signal_type_present_flag;      /**< 1: video_format to matrix_coeffs are coded */
  uint32_t video_format;                        /**< 3 bits; 1 PAL, 2 NTSC, 5 unspecified */
  uint32_t video_full_range_flag;               /**< samples use the whole range */
  uint32_t colour_description_present_flag;     /**< 1: the next three are coded */
  uint32_t colour_primaries;                    /**< 8 bits; table E.3 */
  uint32_t transfer_characteristics;            /**< 8 bits; table E.4 */
  uint32_t matrix_coeffs;                       /**< 8 bits; table E.5 */
  uint32_t chroma_loc_info_present_flag;        /**< 1: the next two are coded */
  uint32_t chroma_sample_loc_type_top_field;    /**< 0 to 5, figure E.1 */
  uint32_t chroma_sample_loc_type_bottom_field; /**< 0 to 5 */
  uint32_t neutral_chroma_indication_flag;      /**< all chroma samples have the middle value */
  uint32_t field_seq_flag;                      /**< pictures are fields */
  uint32_t frame_field_info_present_flag;       /**< picture timing SEI tells how pictures are shown */
  uint32_t default_display_window_flag;         /**< 1: the next four are coded */
  uint32_t def_disp_win_left_offset;   /**< this and the next three: in the units of the conformance window */
  uint32_t def_disp_win_right_offset;  /**< cut off at the right */
  uint32_t def_disp_win_top_offset;    /**< cut off at the top */
  uint32_t def_disp_win_bottom_offset; /**< cut off at the bottom */
  uint32_t vui_timing_info_present_flag; /**< 1: the elements of timing are coded */
  /** 32 bits; ticks of the time scale in one clock tick, a picture or a field */
  uint32_t vui_num_units_in_tick;
  uint32_t vui_time_scale;                      /**< 32 bits; ticks a second */
  uint32_t vui_poc_proportional_to_timing_flag; /**< the picture order count grows with the output time */
  uint32_t vui_num_ticks_poc_diff_one_minus1;   /**< clock ticks a step of the order count, less 1 */
  uint32_t vui_hrd_parameters_present_flag;     /**< 1: hrd_parameters() is coded */

  /* hrd_parameters(), clause E.2.2, in the short form */
  uint32_t nal_hrd_parameters_present_flag; /**< schedules of the stream with all its units */
  uint32_t vcl_hrd_parameters_present_flag; /**< schedules of the slices alone */
  uint32_t sub_pic_hrd_params_present_flag; /**< the buffer may be emptied by parts of a picture */
  uint32_t tick_divisor_minus2;             /**< 8 bits; parts of a clock tick, less 2 */
  /** 5 bits; this and the other lengths: bits of a field of SEI, less 1 */
  uint32_t du_cpb_removal_delay_increment_length_minus1;
  /** 1: in picture timing SEI, 0: in decoding unit information SEI */
  uint32_t sub_pic_cpb_params_in_pic_timing_sei_flag;
  uint32_t dpb_output_delay_du_length_minus1; /**< 5 bits */
  uint32_t bit_rate_scale;                    /**< 4 bits; unit of bit rates: 2^(6 + this) bits a second */
  uint32_t cpb_size_scale;                    /**< 4 bits; unit of buffer sizes: 2^(4 + this) bits */
  uint32_t cpb_size_du_scale;                 /**< 4 bits; the same for parts of a picture */
  uint32_t initial_cpb_removal_delay_length_minus1; /**< 5 bits */
  uint32_t au_cpb_removal_delay_length_minus1;      /**< 5 bits; in picture timing SEI */
  uint32_t dpb_output_delay_length_minus1;          /**< 5 bits; in picture timing SEI */
  /** this and the next arrays: entry i for sub-layer i */
  uint32_t fixed_pic_rate_general_flag[QLN_HEVC_SUB_LAYERS];
  /** 1: the distance of pictures in time is constant */
  uint32_t fixed_pic_rate_within_cvs_flag[QLN_HEVC_SUB_LAYERS];
  uint32_t free_words_6931[16];                     /**< not touched */
  uint32_t low_delay_hrd_flag[QLN_HEVC_SUB_LAYERS]; /**< 1: a big picture may come late */
  uint32_t cpb_cnt_minus1[QLN_HEVC_SUB_LAYERS];     /**< schedules, less 1; one is read, whatever it says */
  /** in units of bit_rate_scale, less 1; this and the next: of the highest sub-layer */
  uint32_t bit_rate_value_minus1;
  uint32_t cpb_size_value_minus1; /**< in units of cpb_size_scale, less 1 */
  uint32_t free_words_6981[2];    /**< not touched */
  uint32_t cbr_flag;              /**< constant bit rate; of the highest sub-layer */

  /* vui_parameters() goes on */
  uint32_t bitstream_restriction_flag;              /**< 1: what follows is coded */
  uint32_t tiles_fixed_structure_flag;              /**< all PPS have the same tiles */
  uint32_t motion_vectors_over_pic_boundaries_flag; /**< 0: no motion vector leads out of the picture */
  uint32_t restricted_ref_pic_lists_flag;           /**< the slices of a picture have the same lists */
  /** limits the size of slices, tiles and wavefront rows; 0: no limit */
  uint32_t min_spatial_segmentation_idc;
  uint32_t max_bytes_per_pic_denom;   /**< a picture has at most its raw size divided by this; 0: no limit */
  uint32_t max_bits_per_min_cu_denom; /**< the same of the smallest coding unit */
  uint32_t log2_max_mv_length_horizontal; /**< longest motion vector in quarter samples, its logarithm */
  uint32_t log2_max_mv_length_vertical;   /**< the same for the other direction */

  /* seq_parameter_set_rbsp(), its extensions */
  uint32_t sps_extension_present_flag;    /**< 1: the extension flags are coded */
  uint32_t sps_range_extension_flag;      /**< 1: sps_range_extension() is coded */
  uint32_t sps_multilayer_extension_flag; /**< 1: sps_multilayer_extension() is coded */
  uint32_t sps_3d_extension_flag;         /**< 1: sps_3d_extension() is coded */
  uint32_t sps_scc_extension_flag;        /**< its data is not read; 0 after a write with extensions */

  /* sps_range_extension(), clause 7.3.2.2.2 */
  uint32_t transform_skip_rotation_enabled_flag;    /**< residuals of 4x4 intra blocks are turned */
  uint32_t transform_skip_context_enabled_flag;     /**< one context for blocks without a transform */
  uint32_t implicit_rdpcm_enabled_flag;             /**< residuals of intra blocks may be differences */
  uint32_t explicit_rdpcm_enabled_flag;             /**< residuals of inter blocks may be differences */
  uint32_t extended_precision_processing_flag;      /**< wider range in transform and prediction */
  uint32_t intra_smoothing_disabled_flag;           /**< no filter on intra reference samples */
  uint32_t high_precision_offsets_enabled_flag;     /**< weighted prediction with offsets of full depth */
  uint32_t persistent_rice_adaptation_enabled_flag; /**< statistics of coefficients are kept */
  uint32_t cabac_bypass_alignment_enabled_flag;     /**< bypass bins are aligned */

  /* sps_multilayer_extension(), clause F.7.3.2.2.4 */
  /** vertical motion between views is limited to one coding tree block */
  uint32_t inter_view_mv_vert_constraint_flag;
} HevcSpsRecord;

/// A picture parameter set (clause 7.3.2.3) up to pps_extension_present_flag; 39 words.
typedef struct HevcPpsRecord {
  /* pic_parameter_set_rbsp(), clause 7.3.2.3 */
  uint32_t pps_pic_parameter_set_id;              /**< 0 to 63 in a valid stream */
  uint32_t pps_seq_parameter_set_id;              /**< the SPS that it refers to */
  uint32_t dependent_slice_segments_enabled_flag; /**< slice segments may take over the header in front */
  uint32_t output_flag_present_flag;              /**< slice headers say whether a picture is put out */
  uint32_t num_extra_slice_header_bits;           /**< 3 bits; reserved bits in slice headers */
  uint32_t sign_data_hiding_enabled_flag;         /**< the sign of a coefficient may be hidden in a parity */
  uint32_t cabac_init_present_flag;               /**< slice headers choose a table of initial values */
  uint32_t num_ref_idx_l0_default_active_minus1;  /**< entries of list 0 where a slice does not say, less 1 */
  uint32_t num_ref_idx_l1_default_active_minus1;  /**< the same of list 1 */
  int32_t init_qp_minus26;                        /**< quantiser where slices begin from, less 26 */
  uint32_t constrained_intra_pred_flag;           /**< intra prediction uses intra blocks only */
  uint32_t transform_skip_enabled_flag;           /**< residuals may go without a transform */
  uint32_t cu_qp_delta_enabled_flag;              /**< coding units may change the quantiser */
  /** splits of a coding tree block down to which the quantiser may change */
  uint32_t diff_cu_qp_delta_depth;
  int32_t pps_cb_qp_offset;                          /**< -12 to 12 in a valid stream */
  int32_t pps_cr_qp_offset;                          /**< the same for the other component */
  uint32_t pps_slice_chroma_qp_offsets_present_flag; /**< slice headers have offsets of their own */
  uint32_t weighted_pred_flag;                       /**< weighted prediction of P slices */
  uint32_t weighted_bipred_flag;                     /**< weighted prediction of B slices */
  uint32_t transquant_bypass_enabled_flag;           /**< coding units may be lossless */
  uint32_t tiles_enabled_flag;                       /**< 1: the elements of tiles are coded */
  uint32_t entropy_coding_sync_enabled_flag;         /**< wavefronts */
  /** columns of tiles, less 1; not 0: a configuration record keeps this set */
  uint32_t num_tile_columns_minus1;
  uint32_t num_tile_rows_minus1;                       /**< rows of tiles, less 1 */
  uint32_t uniform_spacing_flag;                       /**< 1: no widths and heights are coded */
  uint32_t column_width_minus1;                        /**< in coding tree blocks, less 1: the last width */
  uint32_t row_height_minus1;                          /**< in coding tree blocks, less 1: the last height */
  uint32_t loop_filter_across_tiles_enabled_flag;      /**< filters work across borders of tiles */
  uint32_t pps_loop_filter_across_slices_enabled_flag; /**< filters work across borders of slices */
  uint32_t deblocking_filter_control_present_flag;     /**< 1: the elements of the filter are coded */
  uint32_t deblocking_filter_override_enabled_flag;    /**< slice headers may say otherwise */
  uint32_t pps_deblocking_filter_disabled_flag; /**< 1: no deblocking where slices do not say otherwise */
  int32_t pps_beta_offset_div2;                 /**< half the offset, -6 to 6 in a valid stream */
  int32_t pps_tc_offset_div2;                   /**< half the offset, -6 to 6 in a valid stream */
  uint32_t pps_scaling_list_data_present_flag;  /**< its data is neither read nor written */
  uint32_t lists_modification_present_flag;     /**< slice headers may reorder the lists */
  /** size of merge regions in luma samples, its logarithm less 2 */
  uint32_t log2_parallel_merge_level_minus2;
  uint32_t slice_segment_header_extension_present_flag; /**< slice headers have an extension */
  uint32_t pps_extension_present_flag;                  /**< extension data is neither read nor written */
} HevcPpsRecord;

QLN_STATIC_ASSERT(sizeof(HevcProfileTierLevel) == 188 * 4, "profile, tier and level layout");
QLN_STATIC_ASSERT(offsetof(HevcProfileTierLevel, general_constraint_indicator_flags) == 9 * 4,
                  "profile, tier and level layout");
QLN_STATIC_ASSERT(offsetof(HevcProfileTierLevel, sub_layer_level_idc) == 172 * 4,
                  "profile, tier and level layout");
QLN_STATIC_ASSERT(sizeof(HevcVpsRecord) == 840, "VPS layout");
QLN_STATIC_ASSERT(offsetof(HevcVpsRecord, profile_tier_level) == 5 * 4, "VPS layout");
QLN_STATIC_ASSERT(offsetof(HevcVpsRecord, vps_timing_info_present_flag) == 199 * 4, "VPS layout");
QLN_STATIC_ASSERT(offsetof(HevcVpsRecord, vps_extension_flag) == 208 * 4, "VPS layout");
QLN_STATIC_ASSERT(sizeof(HevcShortTermRps) == 101 * 4, "reference picture set layout");
QLN_STATIC_ASSERT(offsetof(HevcShortTermRps, used_by_curr_pic_flag) == 69 * 4,
                  "reference picture set layout");
QLN_STATIC_ASSERT(sizeof(HevcSpsRecord) == 28032, "SPS layout");
QLN_STATIC_ASSERT(offsetof(HevcSpsRecord, profile_tier_level) == 3 * 4, "SPS layout");
QLN_STATIC_ASSERT(offsetof(HevcSpsRecord, sps_seq_parameter_set_id) == 191 * 4, "SPS layout");
QLN_STATIC_ASSERT(offsetof(HevcSpsRecord, sps_max_latency_increase_plus1) == 237 * 4, "SPS layout");
QLN_STATIC_ASSERT(offsetof(HevcSpsRecord, sps_scaling_list_data_present_flag) == 249 * 4, "SPS layout");
QLN_STATIC_ASSERT(offsetof(HevcSpsRecord, st_ref_pic_set) == 259 * 4, "SPS layout");
QLN_STATIC_ASSERT(offsetof(HevcSpsRecord, long_term_ref_pics) == 6725 * 4, "SPS layout");
QLN_STATIC_ASSERT(offsetof(HevcSpsRecord, vui_parameters_present_flag) == 6855 * 4, "SPS layout");
QLN_STATIC_ASSERT(offsetof(HevcSpsRecord, vui_hrd_parameters_present_flag) == 6885 * 4, "SPS layout");
QLN_STATIC_ASSERT(offsetof(HevcSpsRecord, low_delay_hrd_flag) == 6947 * 4, "SPS layout");
QLN_STATIC_ASSERT(offsetof(HevcSpsRecord, cbr_flag) == 6983 * 4, "SPS layout");
QLN_STATIC_ASSERT(offsetof(HevcSpsRecord, inter_view_mv_vert_constraint_flag) == 7007 * 4, "SPS layout");
QLN_STATIC_ASSERT(sizeof(HevcPpsRecord) == 156, "PPS layout");
QLN_STATIC_ASSERT(offsetof(HevcPpsRecord, num_tile_columns_minus1) == 22 * 4, "PPS layout");

QLN_C_END

#endif
