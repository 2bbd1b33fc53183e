/// @file qlnhevc.h
/// HEVC elementary streams: parameter set records with their readers and writers, the decoder configuration
/// record of a file, the scan of a coded frame, and Dolby Vision configuration and units.
///
/// The syntax is that of ITU-T H.265; the names of syntax elements are the standard's. A parameter set record
/// is flat: one 32-bit word for each syntax element, holding its code value as it was read, or a two's
/// complement value where the member is signed. Nothing derived is stored. The library keeps some deliberate
/// departures from the standard's syntax, which the readers and writers tell one by one.
///
/// Records are the caller's, who zeroes them before their first use: no reader clears its record, and a
/// member that the syntax does not reach keeps what it held. A flag that was read past the end of the data
/// holds 0xFFFFFFFF and counts as set, but for the few that are told. Writers check no value: one that is
/// wider than its field is cut to the field's low bits.
///
/// All functions are re-entrant on distinct records and states.
#ifndef QLNUTIL_QLNHEVC_H
#define QLNUTIL_QLNHEVC_H

#include "qlnutil/qlnapi.h"
#include "qlnutil/qlnbits.h"
#include "qlnutil/qlnframe.h"

/// Storage of the records' arrays.
#define QLN_HEVC_SUB_LAYERS 16
#define QLN_HEVC_RPS_PICTURES 16
#define QLN_HEVC_RPS_SETS 64
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
  uint32_t sub_layer_profile_present_flag[QLN_HEVC_SUB_LAYERS];
  uint32_t sub_layer_level_present_flag[QLN_HEVC_SUB_LAYERS];
  uint32_t sub_layer_profile_space[QLN_HEVC_SUB_LAYERS];
  uint32_t sub_layer_tier_flag[QLN_HEVC_SUB_LAYERS];
  uint32_t sub_layer_profile_idc[QLN_HEVC_SUB_LAYERS];
  uint32_t sub_layer_profile_compatibility_flags[QLN_HEVC_SUB_LAYERS];
  uint32_t sub_layer_progressive_source_flag[QLN_HEVC_SUB_LAYERS];
  uint32_t sub_layer_interlaced_source_flag[QLN_HEVC_SUB_LAYERS];
  uint32_t sub_layer_non_packed_constraint_flag[QLN_HEVC_SUB_LAYERS];
  uint32_t sub_layer_frame_only_constraint_flag[QLN_HEVC_SUB_LAYERS];
  uint32_t sub_layer_level_idc[QLN_HEVC_SUB_LAYERS]; /**< 30 times the level number */
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
  HevcProfileTierLevel profile_tier_level;
  /** values of every sub-layer are coded, otherwise those of the highest alone */
  uint32_t vps_sub_layer_ordering_info_present_flag;
  /** decoded picture buffer in pictures, less 1; this and the next two: of the highest sub-layer */
  uint32_t vps_max_dec_pic_buffering_minus1;
  /** pictures that may precede one in decoding order and follow it in output order */
  uint32_t vps_max_num_reorder_pics;
  uint32_t vps_max_latency_increase_plus1; /**< 0: no limit of the latency */
  uint32_t vps_max_layer_id;               /**< 6 bits; greatest nuh_layer_id in any layer set */
  uint32_t vps_num_layer_sets_minus1;      /**< layer sets, less 1; their layers are not kept */
  uint32_t vps_timing_info_present_flag;
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
  uint32_t sps_video_parameter_set_id;   /**< 4 bits; the VPS that it refers to */
  uint32_t sps_max_sub_layers_minus1;    /**< 3 bits; temporal sub-layers, less 1 */
  uint32_t sps_temporal_id_nesting_flag; /**< a decoder may change to a higher sub-layer at any picture */
  HevcProfileTierLevel profile_tier_level;
  uint32_t sps_seq_parameter_set_id;   /**< 0 to 15 in a valid stream */
  uint32_t chroma_format_idc;          /**< 0 monochrome, 1 4:2:0, 2 4:2:2, 3 4:4:4 */
  uint32_t separate_colour_plane_flag; /**< carried as ue(v), where chroma_format_idc is 3 */
  uint32_t pic_width_in_luma_samples;  /**< coded width, which the conformance window crops */
  uint32_t pic_height_in_luma_samples; /**< coded height; of a field where pictures are fields */
  uint32_t conformance_window_flag;
  /** this and the next three: cropping in chroma samples, 2 luma samples each in 4:2:0 */
  uint32_t conf_win_left_offset;
  uint32_t conf_win_right_offset;
  uint32_t conf_win_top_offset;
  uint32_t conf_win_bottom_offset;
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
  uint32_t log2_min_luma_transform_block_size_minus2;
  /** of the greatest over the smallest transform block */
  uint32_t log2_diff_max_min_luma_transform_block_size;
  uint32_t max_transform_hierarchy_depth_inter; /**< splits of a transform tree in inter coding units */
  uint32_t max_transform_hierarchy_depth_intra; /**< splits of a transform tree in intra coding units */
  uint32_t scaling_list_enabled_flag;

  /* scaling_list_data(), clause 7.3.4: of the last list that was read */
  uint32_t scaling_list_pred_mode_flag;       /**< 0: copied from another list, 1: coded */
  uint32_t scaling_list_pred_matrix_id_delta; /**< distance to the list that it is copied from */
  int32_t scaling_list_dc_coef_minus8;        /**< of lists of 16x16 and 32x32, less 8 */
  int32_t scaling_list_delta_coef;            /**< difference to the coefficient before */

  /* seq_parameter_set_rbsp() goes on */
  uint32_t sps_scaling_list_data_present_flag; /**< never set by the reader, honoured by the writer */
  uint32_t amp_enabled_flag;                   /**< asymmetric motion partitions */
  uint32_t sample_adaptive_offset_enabled_flag;
  uint32_t pcm_enabled_flag;
  uint32_t pcm_sample_bit_depth_luma_minus1;   /**< 4 bits; bits a sample, less 1 */
  uint32_t pcm_sample_bit_depth_chroma_minus1; /**< 4 bits */
  uint32_t log2_min_pcm_luma_coding_block_size_minus3;
  uint32_t log2_diff_max_min_pcm_luma_coding_block_size;
  uint32_t pcm_loop_filter_disabled_flag;             /**< no deblocking of PCM blocks */
  uint32_t num_short_term_ref_pic_sets;               /**< at most 64 */
  HevcShortTermRps st_ref_pic_set[QLN_HEVC_RPS_SETS]; /**< st_ref_pic_set(), clause 7.3.7 */
  uint32_t long_term_ref_pics_present_flag;
  uint32_t num_long_term_ref_pics_sps; /**< more than 64 are passed and not kept */
  HevcLongTermPicture long_term_ref_pics[QLN_HEVC_LONG_TERM_PICTURES];
  uint32_t sps_temporal_mvp_enabled_flag;       /**< temporal prediction of motion vectors */
  uint32_t strong_intra_smoothing_enabled_flag; /**< bilinear smoothing of intra reference samples */
  uint32_t vui_parameters_present_flag;

  /* vui_parameters(), clause E.2.1 */
  uint32_t aspect_ratio_info_present_flag;
  uint32_t aspect_ratio_idc; /**< 8 bits; table E.1, 255: the two words that follow */
  uint32_t sar_width;        /**< 16 bits; sample aspect ratio */
  uint32_t sar_height;       /**< 16 bits */
  uint32_t overscan_info_present_flag;
  uint32_t overscan_appropriate_flag; /**< 1: may be shown cropped by a display */
  uint32_t video_signal_type_present_flag;
  uint32_t video_format;          /**< 3 bits; 1 PAL, 2 NTSC, 5 unspecified */
  uint32_t video_full_range_flag; /**< samples use the whole range */
  uint32_t colour_description_present_flag;
  uint32_t colour_primaries;         /**< 8 bits; table E.3 */
  uint32_t transfer_characteristics; /**< 8 bits; table E.4 */
  uint32_t matrix_coeffs;            /**< 8 bits; table E.5 */
  uint32_t chroma_loc_info_present_flag;
  uint32_t chroma_sample_loc_type_top_field;    /**< 0 to 5, figure E.1 */
  uint32_t chroma_sample_loc_type_bottom_field; /**< 0 to 5 */
  uint32_t neutral_chroma_indication_flag;      /**< all chroma samples have the middle value */
  uint32_t field_seq_flag;                      /**< pictures are fields */
  uint32_t frame_field_info_present_flag;       /**< picture timing SEI tells how pictures are shown */
  uint32_t default_display_window_flag;
  uint32_t def_disp_win_left_offset; /**< this and the next three: in the units of the conformance window */
  uint32_t def_disp_win_right_offset;
  uint32_t def_disp_win_top_offset;
  uint32_t def_disp_win_bottom_offset;
  uint32_t vui_timing_info_present_flag;
  /** 32 bits; ticks of the time scale in one clock tick, a picture or a field */
  uint32_t vui_num_units_in_tick;
  uint32_t vui_time_scale;                      /**< 32 bits; ticks a second */
  uint32_t vui_poc_proportional_to_timing_flag; /**< the picture order count grows with the output time */
  uint32_t vui_num_ticks_poc_diff_one_minus1;   /**< clock ticks a step of the order count, less 1 */
  uint32_t vui_hrd_parameters_present_flag;

  /* hrd_parameters(), clause E.2.2, in the short form */
  uint32_t nal_hrd_parameters_present_flag;
  uint32_t vcl_hrd_parameters_present_flag;
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
  uint32_t fixed_pic_rate_within_cvs_flag[QLN_HEVC_SUB_LAYERS];
  uint32_t free_words_6931[16]; /**< not touched */
  uint32_t low_delay_hrd_flag[QLN_HEVC_SUB_LAYERS];
  uint32_t cpb_cnt_minus1[QLN_HEVC_SUB_LAYERS]; /**< schedules, less 1; one is read, whatever it says */
  /** in units of bit_rate_scale, less 1; this and the next: of the highest sub-layer */
  uint32_t bit_rate_value_minus1;
  uint32_t cpb_size_value_minus1; /**< in units of cpb_size_scale, less 1 */
  uint32_t free_words_6981[2];    /**< not touched */
  uint32_t cbr_flag;              /**< constant bit rate; of the highest sub-layer */

  /* vui_parameters() goes on */
  uint32_t bitstream_restriction_flag;
  uint32_t tiles_fixed_structure_flag; /**< all PPS have the same tiles */
  uint32_t motion_vectors_over_pic_boundaries_flag;
  uint32_t restricted_ref_pic_lists_flag; /**< the slices of a picture have the same lists */
  /** limits the size of slices, tiles and wavefront rows; 0: no limit */
  uint32_t min_spatial_segmentation_idc;
  uint32_t max_bytes_per_pic_denom;   /**< a picture has at most its raw size divided by this; 0: no limit */
  uint32_t max_bits_per_min_cu_denom; /**< the same of the smallest coding unit */
  uint32_t log2_max_mv_length_horizontal; /**< longest motion vector in quarter samples, its logarithm */
  uint32_t log2_max_mv_length_vertical;   /**< the same for the other direction */

  /* seq_parameter_set_rbsp(), its extensions */
  uint32_t sps_extension_present_flag;
  uint32_t sps_range_extension_flag;
  uint32_t sps_multilayer_extension_flag;
  uint32_t sps_3d_extension_flag;
  uint32_t sps_scc_extension_flag; /**< its data is not read; 0 after a write with extensions */

  /* sps_range_extension(), clause 7.3.2.2.2 */
  uint32_t transform_skip_rotation_enabled_flag;
  uint32_t transform_skip_context_enabled_flag;
  uint32_t implicit_rdpcm_enabled_flag;
  uint32_t explicit_rdpcm_enabled_flag;
  uint32_t extended_precision_processing_flag;
  uint32_t intra_smoothing_disabled_flag;
  uint32_t high_precision_offsets_enabled_flag;
  uint32_t persistent_rice_adaptation_enabled_flag;
  uint32_t cabac_bypass_alignment_enabled_flag;

  /* sps_multilayer_extension(), clause F.7.3.2.2.4 */
  /** vertical motion between views is limited to one coding tree block */
  uint32_t inter_view_mv_vert_constraint_flag;
} HevcSpsRecord;

/// A picture parameter set (clause 7.3.2.3) up to pps_extension_present_flag; 39 words.
typedef struct HevcPpsRecord {
  /* pic_parameter_set_rbsp(), clause 7.3.2.3 */
  uint32_t pps_pic_parameter_set_id; /**< 0 to 63 in a valid stream */
  uint32_t pps_seq_parameter_set_id; /**< the SPS that it refers to */
  uint32_t dependent_slice_segments_enabled_flag;
  uint32_t output_flag_present_flag;             /**< slice headers say whether a picture is put out */
  uint32_t num_extra_slice_header_bits;          /**< 3 bits; reserved bits in slice headers */
  uint32_t sign_data_hiding_enabled_flag;        /**< the sign of a coefficient may be hidden in a parity */
  uint32_t cabac_init_present_flag;              /**< slice headers choose a table of initial values */
  uint32_t num_ref_idx_l0_default_active_minus1; /**< entries of list 0 where a slice does not say, less 1 */
  uint32_t num_ref_idx_l1_default_active_minus1; /**< the same of list 1 */
  int32_t init_qp_minus26;                       /**< quantiser where slices begin from, less 26 */
  uint32_t constrained_intra_pred_flag;
  uint32_t transform_skip_enabled_flag;
  uint32_t cu_qp_delta_enabled_flag;
  /** splits of a coding tree block down to which the quantiser may change */
  uint32_t diff_cu_qp_delta_depth;
  int32_t pps_cb_qp_offset; /**< -12 to 12 in a valid stream */
  int32_t pps_cr_qp_offset; /**< the same for the other component */
  uint32_t pps_slice_chroma_qp_offsets_present_flag;
  uint32_t weighted_pred_flag;
  uint32_t weighted_bipred_flag;           /**< weighted prediction of B slices */
  uint32_t transquant_bypass_enabled_flag; /**< coding units may be lossless */
  uint32_t tiles_enabled_flag;
  uint32_t entropy_coding_sync_enabled_flag; /**< wavefronts */
  /** columns of tiles, less 1; not 0: a configuration record keeps this set */
  uint32_t num_tile_columns_minus1;
  uint32_t num_tile_rows_minus1; /**< rows of tiles, less 1 */
  uint32_t uniform_spacing_flag; /**< 1: no widths and heights are coded */
  uint32_t column_width_minus1;  /**< in coding tree blocks, less 1: the last width */
  uint32_t row_height_minus1;    /**< in coding tree blocks, less 1: the last height */
  uint32_t loop_filter_across_tiles_enabled_flag;
  uint32_t pps_loop_filter_across_slices_enabled_flag;
  uint32_t deblocking_filter_control_present_flag;
  uint32_t deblocking_filter_override_enabled_flag; /**< slice headers may say otherwise */
  uint32_t pps_deblocking_filter_disabled_flag;
  int32_t pps_beta_offset_div2;                /**< half the offset, -6 to 6 in a valid stream */
  int32_t pps_tc_offset_div2;                  /**< half the offset, -6 to 6 in a valid stream */
  uint32_t pps_scaling_list_data_present_flag; /**< its data is neither read nor written */
  uint32_t lists_modification_present_flag;    /**< slice headers may reorder the lists */
  /** size of merge regions in luma samples, its logarithm less 2 */
  uint32_t log2_parallel_merge_level_minus2;
  uint32_t slice_segment_header_extension_present_flag;
  uint32_t pps_extension_present_flag; /**< extension data is neither read nor written */
} HevcPpsRecord;

/// The head of an HEVC decoder configuration record (ISO/IEC 14496-15, clause 8.3.3.1), the body of an hvcC
/// box; 80 bytes. The parameter set readers fold values into it, so that after a run over several sets it
/// describes all of them.
typedef struct HevcConfigRecord {
  uint32_t configurationVersion;                /**< 8 bits; no value of it is tested */
  uint32_t general_profile_space;               /**< 2 bits; replaced by each VPS and SPS read */
  uint32_t general_tier_flag;                   /**< 1 bit; raised to the greatest of all sets read */
  uint32_t general_profile_idc;                 /**< 5 bits; the greatest */
  uint64_t general_profile_compatibility_flags; /**< 32 bits; replaced */
  uint64_t general_constraint_indicator_flags;  /**< 48 bits; replaced */
  uint32_t general_level_idc;                   /**< 8 bits; the greatest */
  uint32_t min_spatial_segmentation_idc;        /**< 12 bits; lowered to the least of all SPS read */
  /** 2 bits; 0 mixed or unknown, 1 slices, 2 tiles, 3 wavefronts; replaced by each PPS read */
  uint32_t parallelismType;
  uint32_t chromaFormat;         /**< 2 bits; this and the bit depths: replaced by each SPS read */
  uint32_t bitDepthLumaMinus8;   /**< 3 bits */
  uint32_t bitDepthChromaMinus8; /**< 3 bits */
  uint32_t avgFrameRate;         /**< 16 bits, frames in 256 seconds */
  uint32_t constantFrameRate;    /**< 2 bits; 0 not known, 1 constant, 2 constant in each temporal layer */
  uint32_t numTemporalLayers;    /**< 3 bits; raised to the greatest of all SPS read */
  uint32_t temporalIdNested;     /**< 1 bit; replaced by each SPS read */
  uint32_t lengthSizeMinusOne;   /**< 2 bits; bytes of a unit's length in samples, less 1 */
  uint32_t numOfArrays;          /**< 8 bits; arrays of units behind the head */
} HevcConfigRecord;

/// A Dolby Vision configuration as a host gives it; 24 bytes.
typedef struct DvvcConfigRecord {
  uint8_t dv_version_major; /**< version of the configuration */
  uint8_t dv_version_minor;
  /** bits 0 to 6 dv_profile, 7 to 12 dv_level, 13 rpu_present_flag, 14 el_present_flag, 15 bl_present_flag */
  uint16_t dv_flags;
  uint32_t dv_compatibility; /**< bits 0 to 3 dv_bl_signal_compatibility_id, the rest reserved */
  uint32_t dv_reserved[4];   /**< goes out as it stands */
} DvvcConfigRecord;

QLN_STATIC_ASSERT(sizeof(DvvcConfigRecord) == 24, "Dolby Vision configuration layout");
QLN_STATIC_ASSERT(offsetof(DvvcConfigRecord, dv_compatibility) == 4, "Dolby Vision configuration layout");
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
QLN_STATIC_ASSERT(sizeof(HevcConfigRecord) == 80, "configuration record layout");
QLN_STATIC_ASSERT(offsetof(HevcConfigRecord, general_profile_compatibility_flags) == 16,
                  "configuration record layout");
QLN_STATIC_ASSERT(offsetof(HevcConfigRecord, numOfArrays) == 76, "configuration record layout");

/// Reads a sequence parameter set NAL unit into a record.
///
/// The caller's bytes are never changed: the unit is copied and its emulation prevention removed, from byte 3
/// on, and all positions below are those of the unescaped unit. Kept departures from clause 7.3.2.2:
/// - `separate_colour_plane_flag` is ue(v); sub-layer ordering values keep the highest sub-layer's only.
/// - Scaling list data is walked; only the last values stay, and `sps_scaling_list_data_present_flag` is not
///   stored. 3D extension values are dropped; screen content and further extension data is not read.
/// - A predicted short-term set reads `delta_idx_minus1` in the last place only, and one flag pair for each
///   picture that the reference set's record counts, at most 16, without the pair behind the last; its own
///   counts are not derived. A set's pictures above 16, and long-term pictures above 64, are not stored; the
///   former are not read either. A reference set outside 0 to 63 reads no flags.
/// - The HRD of the VUI has the shape of a single CPB without fixed rates, whatever the flags say; with any
///   other shape everything behind it is misread, which shows in a message at best.
///
/// @param state       in: `data` plus `bitPos` / 8 is the first of the unit's two header bytes, with no start
///                    code or length in front. Bytes at or behind `size` read as 0. out: `bitPos` moved on by
///                    the length, or set to the position reached on a refusal.
/// @param sps         out, may be null
/// @param config      in and out, may be null: takes the greatest tier, profile, level and layer count, the
///                    least `min_spatial_segmentation_idc` (where `bitstream_restriction_flag` is set), and
///                    this unit's other values
/// @param lengthBits  the unit's length in bits; 0 stands for `bitLength`. With fewer than 8 bits the type
///                    reads as 0.
/// @return the position reached behind the trailing bits, in bytes of the unescaped unit; 0 for a null state,
/// null record or a `size` of 0, with nothing touched; QLN_HEVC_REFUSED without memory or for a negative
/// `size`, with nothing touched, and for
/// - a unit of another type: "Not a sps NAL %s %d", `bitPos` 7;
/// - `num_short_term_ref_pic_sets` above 64 as a signed number: no message, the word is then 0. One from 2^31
///   on is taken as no sets and stays in the word.
///
/// A unit that does not end in its trailing bits is reported by "\nqlnutilRead_HEVC_SPS failed bit length is
/// wrong = ..." or "... failed allignment bit = ...", and non-zero reserved bits of the profile by "Hevc
/// Reserved bits incorrect %s %d"; neither changes the result. Behind the end of truncated data a field or
/// flag is read as all ones, and an Exp-Golomb code as 0; a code that the end cuts is a number as large as
/// its zeros make it. `vui_parameters_present_flag`, `sps_extension_present_flag` and the scaling list data
/// flag count as clear when they lie past the end.
QLN_API uint64_t qlnutilRead_HEVC_SPS(QLNBitState* state, HevcSpsRecord* sps, HevcConfigRecord* config,
                                      uint32_t lengthBits);

/// Reads a video parameter set NAL unit into a record, in the manner of qlnutilRead_HEVC_SPS; emulation
/// prevention is removed from byte 0 on.
///
/// Kept departures from clause 7.3.2.1: the HRD parameters are read past, the extension is passed by whole
/// bytes (a VPS that has one is always reported), and only a base layer inside the stream is supported.
/// `vps_timing_info_present_flag` and `vps_extension_flag` count as clear when they lie past the end.
///
/// @param state, lengthBits  as for qlnutilRead_HEVC_SPS
/// @param vps     out, may be null
/// @param config  in and out, may be null: takes the greatest tier, profile and level, and this unit's
/// profile
///                space, compatibility and constraint flags
/// @return as for qlnutilRead_HEVC_SPS; the refusals are
/// - a unit of another type: "Not a vps NAL %s %d", `bitPos` 7, nothing stored;
/// - the two base layer bits not both 1: "Vps Reserved bits incorrect %s %d", `bitPos` 22, the id stored;
/// - `vps_reserved_0xffff_16bits` not 65535: the same message, `bitPos` 48, five words stored.
///
/// A unit that does not end in its trailing bits is reported by "\nqlnutilRead_HEVC_VPS failed ...".
QLN_API uint64_t qlnutilRead_HEVC_VPS(QLNBitState* state, HevcVpsRecord* vps, HevcConfigRecord* config,
                                      uint32_t lengthBits);

/// Reads a picture parameter set NAL unit into a record, in the manner of qlnutilRead_HEVC_SPS.
///
/// Kept departures from clause 7.3.2.3: of unequal tiles only the last width and height stay, scaling list
/// data is not looked for (the members behind `pps_scaling_list_data_present_flag` then hold bits of the
/// lists), and the bit behind `pps_extension_present_flag` is taken as the stop bit, so that a PPS with an
/// extension is reported. An over-read `uniform_spacing_flag` or `pps_deblocking_filter_disabled_flag` counts
/// as set.
///
/// @param state, lengthBits  as for qlnutilRead_HEVC_SPS
/// @param pps     out, may be null
/// @param config  in and out, may be null: takes `parallelismType` (1 slices, 2 tiles, 3 wavefronts, 0 both)
/// @return as for qlnutilRead_HEVC_SPS; the one refusal is a unit of another type: "Not a pps NAL (%d) %s %d"
/// with the type found, `bitPos` 7.
///
/// A unit that does not end in its trailing bits is reported by "\nqlnutilRead_HEVC_PPS failed ...".
QLN_API uint64_t qlnutilRead_HEVC_PPS(QLNBitState* state, HevcPpsRecord* pps, HevcConfigRecord* config,
                                      uint32_t lengthBits);

/// Writes a record as a video parameter set NAL unit: two header bytes 0x40 0x01, payload, trailing bits,
/// emulation prevention in place, with no start code or length.
///
/// It writes no HRD parameters and no extension, every layer as included in every layer set, and the one
/// triple of ordering values for each sub-layer. A timing flag that is not exactly 1 brings no timing block.
/// An escape is put between 00 00 and a byte of 3 or less from byte 3 on, as long as the third byte's index
/// is at most the unescaped length; behind k escapes the last k - 1 bytes are not looked at.
///
/// @param vps     in, may be null. The four source flags of the profile are folded into
///                `general_constraint_indicator_flags`, `vps_extension_flag` becomes 0, and
///                `vps_num_hrd_parameters` as well where timing is written.
/// @param output  out, may be null: room for the unit, at most QLN_HEVC_UNIT_SIZE bytes
/// @return bytes put at @p output; 0 for a null argument, and for a unit that would be larger than
/// QLN_HEVC_UNIT_SIZE bytes, with the output untouched.
QLN_API uint32_t qlnutilWrite_HEVC_VPS(HevcVpsRecord* vps, uint8_t* output);

/// Writes a record as a sequence parameter set NAL unit, header 0x42 0x01, in the manner of
/// qlnutilWrite_HEVC_VPS.
///
/// It mirrors the reader's form of `separate_colour_plane_flag` and of the HRD. Scaling lists come from the
/// record's single words where `sps_scaling_list_data_present_flag` is not 0, with the signed code of 2v + 2
/// for a positive v. Long-term values go out as ue(v), and a predicted short-term set with
/// `abs_delta_rps_minus1` + 1 pairs of flags and no `delta_idx_minus1`: sets with these do not read back. The
/// VUI and the extensions are written where their flags are exactly 1; a 3D extension is one of zeros, screen
/// content data is not written. An SPS without these comes back byte for byte.
///
/// @param sps       in, may be null. The four source flags of the profile are folded into
///                  `general_constraint_indicator_flags`; where extensions are written,
///                  `sps_scc_extension_flag` becomes 0 afterwards.
/// @param output    out, may be null: room for the unit, at most QLN_HEVC_UNIT_SIZE bytes
/// @param capacity  not looked at
/// @return as for qlnutilWrite_HEVC_VPS
QLN_API uint32_t qlnutilWrite_HEVC_SPS(HevcSpsRecord* sps, uint8_t* output, uint32_t capacity);

/// Writes a record as a picture parameter set NAL unit, header 0x44 0x01, in the manner of
/// qlnutilWrite_HEVC_VPS.
///
/// Signed members use the code of 2v + 2 for a positive v, so that only zero and negative values read back;
/// all tile columns get the one width, all rows the one height. List and extension data is not written
/// behind its flag.
///
/// @param pps     in, may be null
/// @param output  out, may be null: room for the unit, at most QLN_HEVC_UNIT_SIZE bytes
/// @return as for qlnutilWrite_HEVC_VPS
QLN_API uint32_t qlnutilWrite_HEVC_PPS(const HevcPpsRecord* pps, uint8_t* output);

/// Reads an HEVC decoder configuration record with its box header, and fills parameter set records from the
/// units that it holds.
///
/// A VPS or an SPS is read into a record whose `general_level_idc` is 0, a PPS into one whose
/// `num_tile_columns_minus1` is 0; other units of these types, and those without a record, are passed by
/// their length. Each unit that is read is folded into @p config. A unit of another type is passed until a
/// VPS, an SPS and a PPS have been seen; behind them there is no way past it, and the walk goes on inside it,
/// which ends in a message: in the usual order of arrays an SEI array ends the useful part of the run.
///
/// Where a reserved field of the head is wrong, the head is read once more from the bytes without emulation
/// prevention, for files whose record was escaped as a whole. No value of version or length is tested.
///
/// A refused unit leaves its small position and the walk goes on from there. Rounds of an array behind its
/// 64th that only repeat earlier ones are left out, with their messages; the outcome is that of running them.
///
/// @param state   in: `data` is the box's first byte (8 bytes of any value, then the record), `size` its
///                bytes, `bitLength` its limit, `bitPos` normally 0. out: `bitPos` is the position reached,
///                directly behind the field that failed where one did. The bytes are never changed; none
///                behind `size` is looked at.
/// @param config  in and out, may be null: zeroed by the caller
/// @param vps, sps, pps  in and out, may be null
/// @return the end of the last unit that was read, or passed for its type, as a byte offset in the box, 0
/// without one; 0 for a null state or @p config or a `size` of 0, with nothing touched, and where the head
/// has no array; QLN_HEVC_REFUSED without memory or for a negative `size`, with nothing touched, and for
/// - a reserved field that is wrong twice: "Hevc Reserved bits incorrect %s %d", twice;
/// - a unit that runs past `bitLength`: "Hevc read is past end of bitstream %s %d".
///
/// A set reserved bit of an array is reported by "Hevc Reserved bits incorrect %s %d" and ends the run with
/// what was read. "Hevc read is not the same length as entry size (%d <> %d) %s %d" names the position and
/// the unit's end in bits where they differ.
QLN_API uint32_t qlnutilRead_HEVC_CR(QLNBitState* state, HevcConfigRecord* config, HevcVpsRecord* vps,
                                     HevcSpsRecord* sps, HevcPpsRecord* pps);

/// Writes the body of an hvcC box: the 23 bytes of the head, if @p config is given, and one array of one unit
/// for VPS, SPS and PPS each. There is no box header. `numOfArrays` goes out as it stands in the record.
///
/// @param state   out: the bytes go to `bitPos`, at any bit, where they fit into `size` bytes; `bitPos` moves
///                behind them. Where they do not fit, or there is no memory, nothing is written and it stays.
/// @param config  in, may be null; each member is cut to its width
/// @param vps, sps, pps  in, may be null: complete NAL units with emulation prevention, as the writers give
///                them
/// @param vpsSize, spsSize, ppsSize  their sizes in bytes; a negative size, and any size of a null unit,
/// count
///                as no bytes. The length field has the size's low 16 bits.
/// @return `bitPos` / 8 afterwards; 0 for a null state
QLN_API uint32_t qlnutilWrite_HEVC_CR(QLNBitState* state, const HevcConfigRecord* config, const uint8_t* vps,
                                      const uint8_t* sps, const uint8_t* pps, int32_t vpsSize,
                                      int32_t spsSize, int32_t ppsSize);

/// Writes the 24-byte body of a Dolby Vision configuration box. No value is looked at or corrected, and there
/// is no box header.
///
/// @param state   out: as for qlnutilWrite_HEVC_CR
/// @param config  in; null writes nothing
/// @return `bitPos` / 8 afterwards; 0 for a null state
QLN_API uint32_t qlnutilWrite_DVVC_CR(QLNBitState* state, const DvvcConfigRecord* config);

/// Walks the NAL units of a frame in marker form, fills the records from its parameter sets, the later unit
/// overwriting, and hands out their bytes.
///
/// The frame begins with a start code, and parameter sets stand behind start codes of four bytes: behind one
/// of three they are read and copied one byte late, and refused by their readers. The unit behind an end of
/// sequence, end of bitstream, filler data or suffix SEI unit is not seen. Each of the last three bytes of
/// what is left counts as a unit that does nothing. An empty unit ends the walk. A frame in length form is
/// converted first with qlnUtilh264SizeToMarker.
///
/// @param frame         in, may be null: its `frameData` and `frameSize`. No byte behind the frame is looked
///                      at; where a unit reaches behind it, it has zero bytes there.
/// @param vps, sps, pps out, each may be null, which leaves out its parsing only. Zeroed by the caller.
/// @param reserved1, reserved2, reserved3  not read
/// @param vpsSpsBytes   out, may be null: QLN_HEVC_UNIT_SIZE bytes that receive each VPS and each SPS
/// @param ppsBytes      out, may be null: QLN_HEVC_UNIT_SIZE bytes that receive each PPS
/// @param vpsSpsSize    out, may be null: bytes put into @p vpsSpsBytes; 0, with nothing copied, for a unit
///                      above QLN_HEVC_UNIT_SIZE bytes. Left alone where there is no buffer or no such unit.
/// @param ppsSize       out, may be null: the same for @p ppsBytes
/// @return the units visited, of any type; 0 for a null frame or null data, with nothing touched, and without
/// a start code. The readers' messages go out as usual; their results do not stop the walk.
QLN_API uint32_t qlnutilFindNalUnitsHevc(const DFrame* frame, HevcVpsRecord* vps, HevcSpsRecord* sps,
                                         HevcPpsRecord* pps, uint32_t reserved1, uint32_t reserved2,
                                         uint8_t* vpsSpsBytes, uint8_t* ppsBytes, uint32_t reserved3,
                                         uint32_t* vpsSpsSize, uint32_t* ppsSize);

/// Finds the last prefix SEI unit (first byte 0x4E) and the last Dolby Vision RPU (first byte 0x7C) of an
/// access unit. Nothing is copied.
///
/// The length form is exact: a size is the unit's length minus 1, a length that leads beyond the data ends
/// the search with a size that reaches behind it, which a caller compares with its own. The start-code form
/// is coarse: it stops at every zero byte, so that payload bytes may be taken for units, and sizes reach to
/// the next stop; for n bytes with one unit and no zero byte the size is n - 9, modulo 2^32.
///
/// @param buffer   in, may be null
/// @param size     its bytes
/// @param mode     not 0: start-code form; 0: length form
/// @param seiData  out: the second header byte of the SEI unit, inside @p buffer, or null for none
/// @param seiSize  out: bytes from there on
/// @param rpuData, rpuSize  out: the same for the RPU
/// @return 1 where either size is not 0, else 0; 0 with the outputs left alone for a null @p buffer, a @p
/// size below 4, and a null output
QLN_API int32_t qlnUtilFindDolbyVisionMetadata(uint8_t* buffer, uint32_t size, int32_t mode,
                                               uint8_t** seiData, uint32_t* seiSize, uint8_t** rpuData,
                                               uint32_t* rpuSize);

/// Kept so that hosts link. @return -1, always.
QLN_API int32_t qlnutilGetHvcc(void);

QLN_C_END

#endif
