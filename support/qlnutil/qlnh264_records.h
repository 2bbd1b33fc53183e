/// @file qlnh264_records.h
/// The records of H.264 parameter sets and slice headers, for qlnh264.h, which tells how they are filled.
///
/// They hold syntax element values under the names of ITU-T H.264 clause 7.3, one 32-bit word an element, in
/// a fixed order without padding or pointers, so that a record may be copied, zeroed and compared as plain
/// memory.
#ifndef QLNUTIL_QLNH264_RECORDS_H
#define QLNUTIL_QLNH264_RECORDS_H

#include "qlnutil/qlnapi.h"

/// Schedules that an H264HrdRecord holds; the standard allows 32.
#define QLN_H264_HRD_SCHEDULES 8
/// Result of a function that is part of the surface but does nothing.
#define QLN_H264_NOT_SUPPORTED 0xFFFFFFFFu
/// Bytes that the SPS and PPS buffers of qlnutilFindNalUnits hold.
#define QLN_H264_UNIT_BUFFER_SIZE 1024

QLN_C_BEGIN

/// One schedule of the hypothetical reference decoder.
typedef struct H264HrdSchedule {
  uint32_t bit_rate_value_minus1; /**< in units of bit_rate_scale, less 1 */
  uint32_t cpb_size_value_minus1; /**< in units of cpb_size_scale, less 1 */
  uint32_t cbr_flag;              /**< constant bit rate */
} H264HrdSchedule;

/// hrd_parameters() of clause E.1.2.
typedef struct H264HrdRecord {
  uint32_t cpb_cnt_minus1; /**< schedules, less 1; at most 7 after a read */
  uint32_t bit_rate_scale; /**< 4 bits; unit of bit rates: 2^(6 + this) bits a second */
  uint32_t cpb_size_scale; /**< 4 bits; unit of buffer sizes: 2^(4 + this) bits */
  H264HrdSchedule schedule[QLN_H264_HRD_SCHEDULES]; /**< SchedSelIdx, cpb_cnt_minus1 + 1 of them are filled */
  /** 5 bits; this and the next two: bits of a field of SEI, less 1 */
  uint32_t initial_cpb_removal_delay_length_minus1;
  uint32_t cpb_removal_delay_length_minus1; /**< 5 bits; in picture timing SEI */
  uint32_t dpb_output_delay_length_minus1;  /**< 5 bits; in picture timing SEI */
  uint32_t time_offset_length;              /**< 5 bits; length of time_offset in bits */
} H264HrdRecord;

/// NAL header, seq_parameter_set_data() of clause 7.3.2.1.1 and vui_parameters() of clause E.1.1.
typedef struct H264SpsRecord {
  /* nal_unit(), clause 7.3.1 */
  uint32_t forbidden_zero_bit; /**< 1 bit, 0 in a valid stream */
  uint32_t nal_ref_idc;        /**< 2 bits; not 0: the unit is of use to others */
  uint32_t nal_unit_type;      /**< 5 bits; 7 for an SPS */

  /* seq_parameter_set_data(), clause 7.3.2.1.1 */
  uint32_t profile_idc;          /**< 8 bits; profile of Annex A */
  uint32_t constraint_set0_flag; /**< clause A.2.1: obeys the Baseline profile */
  uint32_t constraint_set1_flag; /**< clause A.2.2: obeys the Main profile */
  uint32_t constraint_set2_flag; /**< clause A.2.3: obeys the Extended profile */
  uint32_t constraint_set3_flag; /**< level 1b, or intra only; by the profile (clause 7.4.2.1.1) */
  uint32_t constraint_set4_flag; /**< by the profile: pictures are frames alone */
  uint32_t constraint_set5_flag; /**< by the profile: no B slices */
  uint32_t reserved_zero_2bits;  /**< 2 bits, as read */
  uint32_t level_idc;            /**< 8 bits; 10 times the level number */
  uint32_t seq_parameter_set_id; /**< 0 to 31 in a valid stream */
  /** 0 monochrome, 1 4:2:0, 2 4:2:2, 3 4:4:4; 1 after a read of a profile without the element */
  uint32_t chroma_format_idc;
  uint32_t seq_scaling_list_present_flag[12]; /**< 0 to 5: 4x4 lists, from 6 on: 8x8 lists */
  int32_t ScalingList4x4[6][16];              /**< scaling_list(), clause 7.3.2.1.1.1, in zig-zag order */
  uint32_t UseDefaultScalingMatrix4x4Flag[6]; /**< never set by the reader, honoured by the writer */
  int32_t ScalingList8x8[6][64];              /**< the same for 8x8 blocks */
  uint32_t UseDefaultScalingMatrix8x8Flag[6]; /**< never set by the reader, honoured by the writer */
  uint32_t separate_colour_plane_flag;        /**< 4:4:4 as three monochrome planes */
  /** bits a sample, less 8; 8 after a read of a profile without the element */
  uint32_t bit_depth_luma_minus8;
  /** bits a sample, less 8; 8 after a read of a profile without the element */
  uint32_t bit_depth_chroma_minus8;
  uint32_t qpprime_y_zero_transform_bypass_flag; /**< lossless coding at quantiser 0 */
  uint32_t seq_scaling_matrix_present_flag;      /**< 1: scaling lists of the sequence are coded */
  uint32_t log2_max_frame_num_minus4;            /**< bits of frame_num, less 4 */
  uint32_t pic_order_cnt_type;                   /**< 0 by low bits, 1 by a cycle of offsets, 2 as decoded */
  uint32_t log2_max_pic_order_cnt_lsb_minus4;    /**< bits of pic_order_cnt_lsb, less 4 */
  uint32_t delta_pic_order_always_zero_flag;     /**< slice headers have no differences */
  uint32_t offset_for_non_ref_pic;         /**< the code number after a read; written as a signed value */
  uint32_t offset_for_top_to_bottom_field; /**< the code number after a read; written as a signed value */
  uint32_t num_ref_frames_in_pic_order_cnt_cycle; /**< length of the cycle, 0 to 255 */
  uint32_t offset_for_ref_frame; /**< the last of the cycle: a code number, written as a signed value */
  uint32_t max_num_ref_frames;   /**< greatest number of reference frames */
  uint32_t gaps_in_frame_num_value_allowed_flag; /**< frame numbers may be missing */
  uint32_t pic_width_in_mbs_minus1;              /**< width in macroblocks of 16 samples, less 1 */
  /** height in macroblocks, or in pairs of them where frame_mbs_only_flag is 0, less 1 */
  uint32_t pic_height_in_map_units_minus1;
  uint32_t frame_mbs_only_flag;          /**< 0: pictures may be fields */
  uint32_t mb_adaptive_frame_field_flag; /**< macroblock pairs may be coded as fields */
  /** motion vectors of direct blocks come from the corners of 8x8 blocks */
  uint32_t direct_8x8_inference_flag;
  uint32_t frame_cropping_flag; /**< 1: the next four are coded */
  /** this and the next three: in chroma samples, vertically times 2 where frame_mbs_only_flag is 0 */
  uint32_t frame_crop_left_offset;
  uint32_t frame_crop_right_offset;     /**< cut off at the right */
  uint32_t frame_crop_top_offset;       /**< cut off at the top */
  uint32_t frame_crop_bottom_offset;    /**< cut off at the bottom */
  uint32_t vui_parameters_present_flag; /**< 1: what follows is coded */

  /* vui_parameters(), clause E.1.1 */
  uint32_t aspect_ratio_info_present_flag;      /**< 1: aspect_ratio_idc is coded */
  uint32_t aspect_ratio_idc;                    /**< 8 bits; table E-1, 255: the two words that follow */
  uint32_t sar_width;                           /**< 16 bits; sample aspect ratio */
  uint32_t sar_height;                          /**< 16 bits */
  uint32_t overscan_info_present_flag;          /**< 1: the next flag is coded */
  uint32_t overscan_appropriate_flag;           /**< 1: may be shown cropped by a display */
  uint32_t video_signal_type_present_flag;      /**< 1: video_format to matrix_coefficients are coded */
  uint32_t video_format;                        /**< 3 bits; 1 PAL, 2 NTSC, 5 unspecified */
  uint32_t video_full_range_flag;               /**< samples use the whole range */
  uint32_t colour_description_present_flag;     /**< 1: the next three are coded */
  uint32_t colour_primaries;                    /**< 8 bits; table E-3 */
  uint32_t transfer_characteristics;            /**< 8 bits; table E-4 */
  uint32_t matrix_coefficients;                 /**< 8 bits; table E-5 */
  uint32_t chroma_loc_info_present_flag;        /**< 1: the next two are coded */
  uint32_t chroma_sample_loc_type_top_field;    /**< 0 to 5, figure E-1 */
  uint32_t chroma_sample_loc_type_bottom_field; /**< 0 to 5 */
  uint32_t timing_info_present_flag;            /**< 1: the next three are coded */
  uint32_t num_units_in_tick;     /**< 32 bits; ticks of the time scale in one clock tick, half a frame */
  uint32_t time_scale;            /**< 32 bits; ticks a second */
  uint32_t fixed_frame_rate_flag; /**< the distance of pictures in time is constant */
  uint32_t nal_hrd_parameters_present_flag;         /**< 1: nal_hrd is coded */
  uint32_t vcl_hrd_parameters_present_flag;         /**< 1: vcl_hrd is coded */
  H264HrdRecord nal_hrd;                            /**< of the stream with all its units */
  H264HrdRecord vcl_hrd;                            /**< of the slices alone */
  uint32_t low_delay_hrd_flag;                      /**< a big picture may come late */
  uint32_t pic_struct_present_flag;                 /**< picture timing SEI tells how pictures are shown */
  uint32_t bitstream_restriction_flag;              /**< 1: the next six are coded */
  uint32_t motion_vectors_over_pic_boundaries_flag; /**< 0: no motion vector leads out of the picture */
  uint32_t max_bytes_per_pic_denom; /**< a picture has at most its raw size divided by this; 0: no limit */
  uint32_t max_bits_per_mb_denom;   /**< the same of a macroblock */
  uint32_t log2_max_mv_length_horizontal; /**< longest motion vector in quarter samples, its logarithm */
  uint32_t log2_max_mv_length_vertical;   /**< the same for the other direction */
  /** frames that may precede one in decoding order and follow it in output order */
  uint32_t max_num_reorder_frames;
  uint32_t max_dec_frame_buffering; /**< decoded picture buffer in frames */
  uint32_t rbsp_stop_one_bit;       /**< as read */
} H264SpsRecord;

/// NAL header and pic_parameter_set_rbsp() of clause 7.3.2.2.
typedef struct H264PpsRecord {
  /* nal_unit(), clause 7.3.1 */
  uint32_t forbidden_zero_bit; /**< 1 bit, 0 in a valid stream */
  uint32_t nal_ref_idc;        /**< 2 bits; not 0: the unit is of use to others */
  uint32_t nal_unit_type;      /**< 5 bits; 8 for a PPS */

  /* pic_parameter_set_rbsp(), clause 7.3.2.2 */
  uint32_t pic_parameter_set_id;     /**< 0 to 255 in a valid stream */
  uint32_t seq_parameter_set_id;     /**< the SPS that it refers to */
  uint32_t entropy_coding_mode_flag; /**< 0 CAVLC, 1 CABAC */
  /** slice headers have differences for bottom fields */
  uint32_t bottom_field_pic_order_in_frame_present_flag;
  uint32_t num_slice_groups_minus1; /**< slice groups, less 1 */
  uint32_t slice_group_map_type; /**< 0 interleaved, 1 dispersed, 2 rectangles, 3 to 5 changing, 6 listed */
  uint32_t run_length_minus1[8]; /**< type 0: macroblocks in a row, less 1 */
  uint32_t top_left[8];          /**< type 2: corner of a rectangle, macroblock number */
  uint32_t bottom_right[8];      /**< type 2: the other corner */
  uint32_t slice_group_change_direction_flag; /**< types 3 to 5 */
  uint32_t slice_group_change_rate_minus1;    /**< types 3 to 5: map units a step, less 1 */
  uint32_t pic_size_in_map_units_minus1;      /**< type 6: entries that follow, less 1 */
  uint32_t slice_group_id[256];               /**< type 6: group of each map unit; read only, never written */
  uint32_t num_ref_idx_l0_default_active_minus1; /**< entries of list 0 where a slice does not say, less 1 */
  uint32_t num_ref_idx_l1_default_active_minus1; /**< the same of list 1 */
  uint32_t weighted_pred_flag;                   /**< weighted prediction of P slices */
  uint32_t weighted_bipred_idc;                  /**< 2 bits; of B slices: 0 none, 1 coded, 2 by distance */
  int32_t pic_init_qp_minus26;                   /**< quantiser where slices begin from, less 26 */
  int32_t pic_init_qs_minus26;                   /**< the same of SP and SI slices */
  int32_t chroma_qp_index_offset;                /**< -12 to 12 in a valid stream */
  uint32_t deblocking_filter_control_present_flag; /**< slice headers control the deblocking filter */
  uint32_t constrained_intra_pred_flag;            /**< intra prediction uses intra blocks only */
  uint32_t redundant_pic_cnt_present_flag;         /**< slice headers may belong to redundant pictures */
  uint32_t more_rbsp_data_present;            /**< result of the reader's look-ahead; once set it stays set */
  uint32_t transform_8x8_mode_flag;           /**< 1: 8x8 transforms may be in use */
  uint32_t pic_scaling_matrix_present_flag;   /**< 1: scaling lists of the picture are coded */
  uint32_t pic_scaling_list_present_flag[12]; /**< 0 to 5: 4x4 lists, from 6 on: 8x8 lists */
  int32_t ScalingList4x4[6][16];              /**< scaling_list(), clause 7.3.2.1.1.1, in zig-zag order */
  uint32_t UseDefaultScalingMatrix4x4Flag[6]; /**< never set by the reader, honoured by the writer */
  int32_t ScalingList8x8[6][64];              /**< the same for 8x8 blocks */
  uint32_t UseDefaultScalingMatrix8x8Flag[6]; /**< never set by the reader, honoured by the writer */
  int32_t second_chroma_qp_index_offset;      /**< of the second chroma component */
  uint32_t rbsp_stop_one_bit; /**< as read; the slice header functions store into it for CAVLC streams */
} H264PpsRecord;

/// NAL header and slice_header() of clause 7.3.3 with its parts.
typedef struct H264SliceHeaderRecord {
  /* nal_unit(), clause 7.3.1 */
  uint32_t forbidden_zero_bit; /**< 1 bit, 0 in a valid stream */
  uint32_t nal_ref_idc;        /**< 2 bits; not 0: a reference picture */
  uint32_t nal_unit_type;      /**< 5 bits; 5 for a slice of an IDR picture */

  /* slice_header(), clause 7.3.3 */
  uint32_t first_mb_in_slice;                /**< number of its first macroblock, or pair of them */
  uint32_t slice_type;                       /**< as coded, 0 to 9 */
  uint32_t pic_parameter_set_id;             /**< the PPS that it refers to */
  uint32_t frame_num;                        /**< log2_max_frame_num_minus4 + 4 bits */
  uint32_t field_pic_flag;                   /**< 1: a slice of a field */
  uint32_t bottom_field_flag;                /**< of a field: 0 top, 1 bottom */
  uint32_t idr_pic_id;                       /**< tells IDR pictures that follow each other apart */
  uint32_t pic_order_cnt_lsb;                /**< log2_max_pic_order_cnt_lsb_minus4 + 4 bits */
  int32_t delta_pic_order_cnt_bottom;        /**< bottom field of a frame against the top field */
  int32_t delta_pic_order_cnt[2];            /**< against what the cycle of offsets gives */
  uint32_t redundant_pic_cnt;                /**< 0 for the primary picture */
  uint32_t direct_spatial_mv_pred_flag;      /**< B slices: 1 spatial, 0 temporal direct prediction */
  uint32_t num_ref_idx_active_override_flag; /**< 1: the next two are coded */
  uint32_t num_ref_idx_l0_active_minus1;     /**< entries of list 0, less 1; not filled from the PPS */
  uint32_t num_ref_idx_l1_active_minus1;     /**< entries of list 1, less 1; not filled from the PPS */
  uint32_t reserved[5];                      /**< never read or written */
  uint32_t cabac_init_idc;                   /**< table of initial values, 0 to 2 */
  int32_t slice_qp_delta;                    /**< against pic_init_qp_minus26 */
  uint32_t sp_for_switch_flag;               /**< SP slices: decoded as switching pictures */
  int32_t slice_qs_delta;                    /**< against pic_init_qs_minus26 */
  uint32_t disable_deblocking_filter_idc;    /**< 0 on, 1 off, 2 off at the slice's border */
  int32_t slice_alpha_c0_offset_div2;        /**< half the offset, -6 to 6 in a valid stream */
  int32_t slice_beta_offset_div2;            /**< half the offset, -6 to 6 in a valid stream */
  uint32_t slice_group_change_cycle;         /**< steps of a changing slice group */

  /* pred_weight_table(), clause 7.3.3.2 */
  uint32_t luma_log2_weight_denom;   /**< logarithm of what weights are divided by */
  uint32_t chroma_log2_weight_denom; /**< the same of chroma */
  uint32_t luma_weight_l0_flag;      /**< the last one read */
  int32_t luma_weight_l0[64];        /**< of each entry of list 0 */
  int32_t luma_offset_l0[64];        /**< of each entry of list 0 */
  uint32_t chroma_weight_l0_flag;    /**< the last one read */
  int32_t chroma_weight_l0[64][2];   /**< of each entry: Cb, Cr */
  int32_t chroma_offset_l0[64][2];   /**< of each entry: Cb, Cr */
  uint32_t luma_weight_l1_flag;      /**< this and the following l1 fields are never filled */
  int32_t luma_weight_l1[64];        /**< of each entry of list 1; never filled */
  int32_t luma_offset_l1[64];        /**< of each entry of list 1; never filled */
  uint32_t chroma_weight_l1_flag;    /**< never filled */
  int32_t chroma_weight_l1[64][2];   /**< of each entry: Cb, Cr; never filled */
  int32_t chroma_offset_l1[64][2];   /**< of each entry: Cb, Cr; never filled */

  /* ref_pic_list_reordering(), clause 7.3.3.1 */
  uint32_t ref_pic_list_reordering_flag_l0; /**< 1: commands for list 0 follow */
  uint32_t ref_pic_list_reordering_flag_l1; /**< 1: commands for list 1 follow */
  /** 0 down, 1 up, 2 long-term, 3 end; this and the next two: of the last command */
  uint32_t reordering_of_pic_nums_idc;
  uint32_t abs_diff_pic_num_minus1; /**< difference of picture numbers, less 1 */
  uint32_t long_term_pic_num;       /**< number of a long-term picture */

  /* dec_ref_pic_marking(), clause 7.3.3.3 */
  uint32_t no_output_of_prior_pics_flag;        /**< of an IDR picture: those in front are not put out */
  uint32_t long_term_reference_flag;            /**< the IDR picture becomes a long-term one */
  uint32_t adaptive_ref_pic_marking_mode_flag;  /**< 1: operations follow, 0: sliding window */
  uint32_t memory_management_control_operation; /**< this and the next four: of the last operation */
  uint32_t difference_of_pic_nums_minus1; /**< operations 1 and 3: difference of picture numbers, less 1 */
  uint32_t mmco_long_term_pic_num;        /**< long_term_pic_num of the marking operations */
  uint32_t long_term_frame_idx;           /**< operations 3 and 6: index that a picture gets */
  uint32_t max_long_term_frame_idx_plus1; /**< operation 4: greatest index, plus 1; 0 for none */
} H264SliceHeaderRecord;

QLN_STATIC_ASSERT(sizeof(H264HrdRecord) == 124, "HRD layout");
QLN_STATIC_ASSERT(offsetof(H264HrdRecord, initial_cpb_removal_delay_length_minus1) == 27 * 4, "HRD layout");
QLN_STATIC_ASSERT(sizeof(H264SpsRecord) == 2556, "SPS layout");
QLN_STATIC_ASSERT(offsetof(H264SpsRecord, seq_scaling_list_present_flag) == 14 * 4, "SPS layout");
QLN_STATIC_ASSERT(offsetof(H264SpsRecord, separate_colour_plane_flag) == 518 * 4, "SPS layout");
QLN_STATIC_ASSERT(offsetof(H264SpsRecord, vui_parameters_present_flag) == 543 * 4, "SPS layout");
QLN_STATIC_ASSERT(offsetof(H264SpsRecord, nal_hrd) == 566 * 4, "SPS layout");
QLN_STATIC_ASSERT(offsetof(H264SpsRecord, rbsp_stop_one_bit) == 638 * 4, "SPS layout");
QLN_STATIC_ASSERT(sizeof(H264PpsRecord) == 3244, "PPS layout");
QLN_STATIC_ASSERT(offsetof(H264PpsRecord, slice_group_id) == 36 * 4, "PPS layout");
QLN_STATIC_ASSERT(offsetof(H264PpsRecord, more_rbsp_data_present) == 302 * 4, "PPS layout");
QLN_STATIC_ASSERT(offsetof(H264PpsRecord, rbsp_stop_one_bit) == 810 * 4, "PPS layout");
QLN_STATIC_ASSERT(sizeof(H264SliceHeaderRecord) == 3276, "slice header layout");
QLN_STATIC_ASSERT(offsetof(H264SliceHeaderRecord, cabac_init_idc) == 24 * 4, "slice header layout");
QLN_STATIC_ASSERT(offsetof(H264SliceHeaderRecord, luma_weight_l1_flag) == 420 * 4, "slice header layout");
QLN_STATIC_ASSERT(offsetof(H264SliceHeaderRecord, max_long_term_frame_idx_plus1) == 818 * 4,
                  "slice header layout");

QLN_C_END

#endif
