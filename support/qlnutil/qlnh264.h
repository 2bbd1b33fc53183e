/// @file qlnh264.h
/// H.264 elementary streams (ITU-T H.264): parameter sets, slice headers, the avcC box, frame scans, the two
/// frame forms, and units put in front of a frame.
///
/// The four records hold syntax element values under the names of ITU-T H.264 clause 7.3, one 32-bit word an
/// element, in a fixed order without padding or pointers, so that a record may be copied, zeroed and compared
/// as plain memory. A word is an unsigned code value, or two's complement where the member is signed. Nothing
/// derived is stored.
///
/// The caller allocates and owns the records. Readers do not clear them: a field whose element is absent from
/// the stream keeps what it held, so zero a record first where a fresh result is wanted. Truncated streams
/// are not refused: a flag beyond the end is stored as 0xFFFFFFFF and counts as set, and the only sign of a
/// short unit is a `bitPos` above `bitLength` afterwards.
///
/// All functions are re-entrant on separate states, records and frames. A state must not be shared between
/// threads during a call.
#ifndef QLNUTIL_QLNH264_H
#define QLNUTIL_QLNH264_H

#include "qlnutil/qlnapi.h"
#include "qlnutil/qlnbits.h"
#include "qlnutil/qlnframe.h"

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
  H264HrdSchedule schedule[QLN_H264_HRD_SCHEDULES];
  /** 5 bits; this and the next two: bits of a field of SEI, less 1 */
  uint32_t initial_cpb_removal_delay_length_minus1;
  uint32_t cpb_removal_delay_length_minus1; /**< 5 bits; in picture timing SEI */
  uint32_t dpb_output_delay_length_minus1;  /**< 5 bits; in picture timing SEI */
  uint32_t time_offset_length;              /**< 5 bits; length of time_offset in bits */
} H264HrdRecord;

/// NAL header, seq_parameter_set_data() of clause 7.3.2.1.1 and vui_parameters() of clause E.1.1.
typedef struct H264SpsRecord {
  /* nal_unit(), clause 7.3.1 */
  uint32_t forbidden_zero_bit;
  uint32_t nal_ref_idc;   /**< 2 bits; not 0: the unit is of use to others */
  uint32_t nal_unit_type; /**< 5 bits; 7 for an SPS */

  /* seq_parameter_set_data(), clause 7.3.2.1.1 */
  uint32_t profile_idc; /**< 8 bits; profile of Annex A */
  uint32_t constraint_set0_flag;
  uint32_t constraint_set1_flag;
  uint32_t constraint_set2_flag;
  uint32_t constraint_set3_flag;
  uint32_t constraint_set4_flag;
  uint32_t constraint_set5_flag;
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
  uint32_t seq_scaling_matrix_present_flag;
  uint32_t log2_max_frame_num_minus4;         /**< bits of frame_num, less 4 */
  uint32_t pic_order_cnt_type;                /**< 0 by low bits, 1 by a cycle of offsets, 2 as decoded */
  uint32_t log2_max_pic_order_cnt_lsb_minus4; /**< bits of pic_order_cnt_lsb, less 4 */
  uint32_t delta_pic_order_always_zero_flag;  /**< slice headers have no differences */
  uint32_t offset_for_non_ref_pic;            /**< the code number after a read; written as a signed value */
  uint32_t offset_for_top_to_bottom_field;    /**< the code number after a read; written as a signed value */
  uint32_t num_ref_frames_in_pic_order_cnt_cycle;
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
  uint32_t frame_cropping_flag;
  /** this and the next three: in chroma samples, vertically times 2 where frame_mbs_only_flag is 0 */
  uint32_t frame_crop_left_offset;
  uint32_t frame_crop_right_offset;
  uint32_t frame_crop_top_offset;
  uint32_t frame_crop_bottom_offset;
  uint32_t vui_parameters_present_flag;

  /* vui_parameters(), clause E.1.1 */
  uint32_t aspect_ratio_info_present_flag;
  uint32_t aspect_ratio_idc; /**< 8 bits; table E-1, 255: the two words that follow */
  uint32_t sar_width;        /**< 16 bits; sample aspect ratio */
  uint32_t sar_height;       /**< 16 bits */
  uint32_t overscan_info_present_flag;
  uint32_t overscan_appropriate_flag; /**< 1: may be shown cropped by a display */
  uint32_t video_signal_type_present_flag;
  uint32_t video_format;          /**< 3 bits; 1 PAL, 2 NTSC, 5 unspecified */
  uint32_t video_full_range_flag; /**< samples use the whole range */
  uint32_t colour_description_present_flag;
  uint32_t colour_primaries;         /**< 8 bits; table E-3 */
  uint32_t transfer_characteristics; /**< 8 bits; table E-4 */
  uint32_t matrix_coefficients;      /**< 8 bits; table E-5 */
  uint32_t chroma_loc_info_present_flag;
  uint32_t chroma_sample_loc_type_top_field;    /**< 0 to 5, figure E-1 */
  uint32_t chroma_sample_loc_type_bottom_field; /**< 0 to 5 */
  uint32_t timing_info_present_flag;
  uint32_t num_units_in_tick;     /**< 32 bits; ticks of the time scale in one clock tick, half a frame */
  uint32_t time_scale;            /**< 32 bits; ticks a second */
  uint32_t fixed_frame_rate_flag; /**< the distance of pictures in time is constant */
  uint32_t nal_hrd_parameters_present_flag;
  uint32_t vcl_hrd_parameters_present_flag;
  H264HrdRecord nal_hrd;            /**< of the stream with all its units */
  H264HrdRecord vcl_hrd;            /**< of the slices alone */
  uint32_t low_delay_hrd_flag;      /**< a big picture may come late */
  uint32_t pic_struct_present_flag; /**< picture timing SEI tells how pictures are shown */
  uint32_t bitstream_restriction_flag;
  uint32_t motion_vectors_over_pic_boundaries_flag;
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
  uint32_t forbidden_zero_bit;
  uint32_t nal_ref_idc;   /**< 2 bits; not 0: the unit is of use to others */
  uint32_t nal_unit_type; /**< 5 bits; 8 for a PPS */

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
  uint32_t deblocking_filter_control_present_flag;
  uint32_t constrained_intra_pred_flag;    /**< intra prediction uses intra blocks only */
  uint32_t redundant_pic_cnt_present_flag; /**< slice headers may belong to redundant pictures */
  uint32_t more_rbsp_data_present;         /**< result of the reader's look-ahead; once set it stays set */
  uint32_t transform_8x8_mode_flag;
  uint32_t pic_scaling_matrix_present_flag;
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
  uint32_t forbidden_zero_bit;
  uint32_t nal_ref_idc;   /**< 2 bits; not 0: a reference picture */
  uint32_t nal_unit_type; /**< 5 bits; 5 for a slice of an IDR picture */

  /* slice_header(), clause 7.3.3 */
  uint32_t first_mb_in_slice;    /**< number of its first macroblock, or pair of them */
  uint32_t slice_type;           /**< as coded, 0 to 9 */
  uint32_t pic_parameter_set_id; /**< the PPS that it refers to */
  uint32_t frame_num;            /**< log2_max_frame_num_minus4 + 4 bits */
  uint32_t field_pic_flag;
  uint32_t bottom_field_flag;         /**< of a field: 0 top, 1 bottom */
  uint32_t idr_pic_id;                /**< tells IDR pictures that follow each other apart */
  uint32_t pic_order_cnt_lsb;         /**< log2_max_pic_order_cnt_lsb_minus4 + 4 bits */
  int32_t delta_pic_order_cnt_bottom; /**< bottom field of a frame against the top field */
  int32_t delta_pic_order_cnt[2];     /**< against what the cycle of offsets gives */
  uint32_t redundant_pic_cnt;         /**< 0 for the primary picture */
  uint32_t direct_spatial_mv_pred_flag;
  uint32_t num_ref_idx_active_override_flag;
  uint32_t num_ref_idx_l0_active_minus1; /**< entries of list 0, less 1; not filled from the PPS */
  uint32_t num_ref_idx_l1_active_minus1; /**< entries of list 1, less 1; not filled from the PPS */
  uint32_t reserved[5];                  /**< never read or written */
  uint32_t cabac_init_idc;
  int32_t slice_qp_delta; /**< against pic_init_qp_minus26 */
  uint32_t sp_for_switch_flag;
  int32_t slice_qs_delta;                 /**< against pic_init_qs_minus26 */
  uint32_t disable_deblocking_filter_idc; /**< 0 on, 1 off, 2 off at the slice's border */
  int32_t slice_alpha_c0_offset_div2;     /**< half the offset, -6 to 6 in a valid stream */
  int32_t slice_beta_offset_div2;         /**< half the offset, -6 to 6 in a valid stream */
  uint32_t slice_group_change_cycle;      /**< steps of a changing slice group */

  /* pred_weight_table(), clause 7.3.3.2 */
  uint32_t luma_log2_weight_denom; /**< logarithm of what weights are divided by */
  uint32_t chroma_log2_weight_denom;
  uint32_t luma_weight_l0_flag; /**< the last one read */
  int32_t luma_weight_l0[64];
  int32_t luma_offset_l0[64];
  uint32_t chroma_weight_l0_flag;  /**< the last one read */
  int32_t chroma_weight_l0[64][2]; /**< of each entry: Cb, Cr */
  int32_t chroma_offset_l0[64][2];
  uint32_t luma_weight_l1_flag; /**< this and the following l1 fields are never filled */
  int32_t luma_weight_l1[64];
  int32_t luma_offset_l1[64];
  uint32_t chroma_weight_l1_flag;
  int32_t chroma_weight_l1[64][2];
  int32_t chroma_offset_l1[64][2];

  /* ref_pic_list_reordering(), clause 7.3.3.1 */
  uint32_t ref_pic_list_reordering_flag_l0;
  uint32_t ref_pic_list_reordering_flag_l1;
  /** 0 down, 1 up, 2 long-term, 3 end; this and the next two: of the last command */
  uint32_t reordering_of_pic_nums_idc;
  uint32_t abs_diff_pic_num_minus1; /**< difference of picture numbers, less 1 */
  uint32_t long_term_pic_num;

  /* dec_ref_pic_marking(), clause 7.3.3.3 */
  uint32_t no_output_of_prior_pics_flag;
  uint32_t long_term_reference_flag; /**< the IDR picture becomes a long-term one */
  uint32_t adaptive_ref_pic_marking_mode_flag;
  uint32_t memory_management_control_operation; /**< this and the next four: of the last operation */
  uint32_t difference_of_pic_nums_minus1;
  uint32_t mmco_long_term_pic_num; /**< long_term_pic_num of the marking operations */
  uint32_t long_term_frame_idx;
  uint32_t max_long_term_frame_idx_plus1;
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

/// Reads one sequence parameter set (clause 7.3.2.1.1, with Annex E).
///
/// Departures, on which hosts rely: profile_idc 44, 83, 86, 100, 110, 118, 122, 128 and 244 alone carry the
/// high-profile elements, all others store chroma_format_idc 1 and the value 8 in both bit depth fields;
/// absent scaling lists are left as they were, without fall-back, and a list that asks for the default
/// comes out as all 8; the picture order offsets are stored as code numbers, a cycle as its last one; at most
/// 8 schedules of an HRD are read, further ones put the rest out of step; nal_unit_type and stop bit are
/// stored, not tested; extension data is not looked at. Emulation prevention bytes in the first three bytes
/// or at the very end stay.
///
/// @param state  In: `data` at the NAL header byte, `size` the unit's size in bytes with its emulation
///               prevention, `bitLength` normally 8 times that, `bitPos` normally 0. Out: `bitPos` behind the
///               parsed data, counted without emulation prevention; the rest is unchanged. The bytes are
///               never written.
/// @param record Filled; owned by the caller; null is refused. Not cleared first.
/// @return `bitPos` / 8 afterwards: a mark of success, not a position in the caller's bytes. 0 for a null
///         record, a size of 0 or no memory, with nothing touched.
QLN_API uint64_t qlnutilRead_SPS(QLNBitState* state, H264SpsRecord* record);

/// Writes one sequence parameter set with emulation prevention, without start code or length.
///
/// A read and a write give the same bytes for units without scaling lists, with pic_order_cnt_type 0 or 2
/// and at most 8 schedules in each HRD. Exceptions: trailing and extension data is dropped; ue(v) values from
/// 0xFFFFFF up take a longer code; emulation prevention differs where zero runs cross from one escaped triple
/// into the next, in the first three bytes, and at the very end. Scaling list entries are written as they
/// stand, not as differences, and the picture order offsets as signed values, so that such units change.
/// Flags are written by their low bit; a value is cut to its field's width.
///
/// Escaping restarts behind each escaped triple, so raw zeros of five bytes (00 00 00 00 01) leave a start
/// code inside the unit; no valid parameter set holds them.
///
/// @param state  Output. Bytes go to `data` at `bitPos`, which moves behind them and is not reset. `size` is
///               no limit: the unescaped unit is built in a scratch buffer of 2 * `size` bytes, so it must be
///               at least half the unescaped length. The caller gives `data` room for one and a half times
///               the unescaped length. `bitLength` is not used.
/// @param record Read only; null is refused.
/// @return `bitPos` / 8 afterwards. 0, with nothing written, for a null record, for a unit that does not fit
///         the scratch buffer, and without memory.
QLN_API uint64_t qlnutilWrite_SPS(QLNBitState* state, const H264SpsRecord* record);

/// Reads one picture parameter set (clause 7.3.2.2) without the SPS that it refers to.
///
/// Departures, on which hosts rely: map type 2 reads one rectangle more than the standard; there are 6 or 8
/// scaling lists, never 12; whether more data follows is decided by the 7 bits behind the next one, so that a
/// stop bit among them counts as data, and a record that comes in with more_rbsp_data_present set stays set.
/// 00 00 0C loses its last byte as 00 00 03 does. Groups beyond the record's arrays are read and not stored.
///
/// @param state  As for qlnutilRead_SPS; a size of 0 is parsed as a unit that ended before it began.
/// @param record Filled; owned by the caller; null is refused. Not cleared first.
/// @return `bitPos` / 8 afterwards; 0 for a null record or no memory, with nothing touched.
QLN_API uint32_t qlnutilRead_PPS(QLNBitState* state, H264PpsRecord* record);

/// Writes one picture parameter set with emulation prevention, without start code or length.
///
/// What is read back is not always the record. Map type 6 is written without its group ids, map type 2 with
/// num_slice_groups_minus1 rectangles, one fewer than the reader takes, and scaling list entries as they
/// stand instead of as differences. Emulation prevention is the standard's, while the reader also takes the
/// 0C out of 00 00 0C. The stop bit is as rbsp_stop_one_bit says: a record that was not read from a stream
/// needs it set to 1. Where transform_8x8_mode_flag is neither 0 nor 1 there are 6 lists and twice the flag,
/// as a signed number, more: 12 at most. Further conditions as for qlnutilWrite_SPS.
///
/// @param state  Output, as for qlnutilWrite_SPS.
/// @param record Read only; null is refused.
/// @return `bitPos` / 8 afterwards. 0, with nothing written, for a null record, for a unit that does not fit
///         the scratch buffer, and without memory.
QLN_API uint32_t qlnutilWrite_PPS(QLNBitState* state, const H264PpsRecord* record);

/// Reads a slice header (clause 7.3.3) from the first 256 bytes of a slice.
///
/// Departures, on which hosts rely: reference marking is not parsed (an I slice skips two bits for it, others
/// none); the weight table is read for P and SP slices only; num_ref_idx counts are not taken from the PPS;
/// slice_group_change_cycle has its own width. In CABAC streams the header is walked a second time when what
/// follows it is not the run of ones that the standard asks for. In CAVLC streams the bit behind the header
/// is stored in @p pps.
///
/// @param state       `data` at the NAL header byte and `size` the unit's size in bytes; neither `bitPos` nor
///                    `bitLength` is used, nothing of it is changed. The bytes are never written.
/// @param header      Filled; owned by the caller. Not cleared first: field_pic_flag and the num_ref_idx
///                    counts are used as they stand where the stream has none. Null gives 0.
/// @param sps         The active SPS, read only. Null gives 0.
/// @param pps         The active PPS; rbsp_stop_one_bit is written in CAVLC streams. Null gives 0.
/// @param nalUnitType The type by which all decisions are taken; that of the header byte is stored only.
/// @param unused      Ignored.
/// @return first_mb_in_slice.
QLN_API uint32_t qlnutilRead_SliceHeader(QLNBitState* state, H264SliceHeaderRecord* header,
                                         const H264SpsRecord* sps, H264PpsRecord* pps, int32_t nalUnitType,
                                         uint32_t unused);

/// Part of the surface, so that hosts link; slice headers are never written.
/// @return QLN_H264_NOT_SUPPORTED (-1) whatever the arguments, all of which are ignored.
QLN_API uint32_t qlnutilWrite_SliceHeader(QLNBitState* state, H264SliceHeaderRecord* header,
                                          const H264SpsRecord* sps, H264PpsRecord* pps, int32_t nalUnitType,
                                          uint32_t unused);

/// Walks a slice header in place and rewrites the CABAC alignment bits behind it as a 1 and zeros, the form
/// of RBSP trailing bits. CAVLC streams are walked only.
///
/// Reads as qlnutilRead_SliceHeader does, but with reference marking: operation 5 takes a difference value
/// and operation 3 does not, unlike clause 7.3.3.3.
///
/// @param state       At the first bit behind the NAL header, over data without emulation prevention. Bytes
///                    at or behind `size` count as 0. Out: `bitPos` on the byte boundary behind the header.
///                    Bits at or behind `bitLength`, and bytes behind `size`, are not written.
/// @param header      Filled, but for its three NAL header words; null does nothing.
/// @param sps         The active SPS, read only; null does nothing.
/// @param pps         The active PPS; rbsp_stop_one_bit is written in CAVLC streams; null does nothing.
/// @param nalUnitType The slice's type.
/// @param marking     Non-zero when the slice has reference marking, in practice its nal_ref_idc.
/// @return 0.
QLN_API uint32_t qlnutilFix_SliceHeader(QLNBitState* state, H264SliceHeaderRecord* header,
                                        const H264SpsRecord* sps, H264PpsRecord* pps, uint32_t nalUnitType,
                                        int32_t marking);

/// Reads an avcC box (ISO/IEC 14496-15, AVCDecoderConfigurationRecord behind 8 header bytes) and hands out
/// its first SPS and its first PPS. Type and version are not tested. A PPS longer than 512 bytes ends the
/// list of PPS. The extension header of profiles 100, 110, 122 and 144 is read; a count above 1 in it is
/// reported as "Extended pps_count %d. Ignoring".
///
/// @param state At the box's first byte; `bitPos` moves behind what was read. The bytes are never written.
/// @param sps   Out, whole record; untouched when the box has none; may be null.
/// @param pps   Out, whole record; untouched when the box has none; may be null.
/// @return 0; 0xFFFFFFFF for a box size of 0 (`bitPos` stays), for an SPS length of 0 (`bitPos` behind it)
///         and without memory, with both records untouched.
QLN_API uint32_t qlnutilReadAvcc(QLNBitState* state, H264SpsRecord* sps, H264PpsRecord* pps);

/// Builds an avcC box from the units of a frame. The size s of the first unit (its length, or the way to the
/// next start code) stays in force for the whole walk: units are looked for every s + 4 bytes, and the SPS
/// and the PPS found there are both copied with s bytes. Meant for frames of one SPS and PPS of equal size.
///
/// @param frame  Read only; null gives 0; null data counts as an empty frame.
/// @param output Receives the box; null gives 0. Needs 14 + (2 + s) + (3 + s) bytes.
/// @return bytes written, also stored as the box size; 14, with zero profile bytes and no sets, where nothing
///         was found.
QLN_API uint32_t qlnutilGetAvcc(const DFrame* frame, uint8_t* output);

/// Walks the units of a frame and fills the records from its parameter sets; the last of each kind wins.
///
/// The frame should be in length form. Of a frame with start codes only the first unit is found reliably,
/// four bytes too long. An SEI message is stepped over by the size of its first message, which in practice
/// ends the walk there; parameter sets stand in front of it.
///
/// @param frame    Read only. Null, or null data, gives 0; the box of @p avcc is read all the same.
/// @param sps      Filled, not cleared first. Null: SPS units are copied and counted, slices are counted.
/// @param pps      Filled, not cleared first; slices store into rbsp_stop_one_bit. Null as for @p sps.
/// @param avcc     First byte of a whole avcC box, or null. Read before the frame, as qlnutilReadAvcc does,
///                 with at most 512 bytes; no byte is looked at that its counts and lengths do not announce.
/// @param spsBytes Receives an SPS unit from its NAL header on, with emulation prevention. Null, or room for
///                 QLN_H264_UNIT_BUFFER_SIZE bytes.
/// @param ppsBytes The same for the PPS.
/// @param spsSize  Out, bytes copied to @p spsBytes; 0 for a unit above 1024 bytes, of which none are copied;
///                 null allowed; untouched when the frame has no SPS or @p spsBytes is null.
/// @param ppsSize  The same for the PPS.
/// @return units visited; 0 when the frame holds 4 bytes or fewer.
QLN_API uint32_t qlnutilFindNalUnits(const DFrame* frame, H264SpsRecord* sps, H264PpsRecord* pps,
                                     const uint8_t* avcc, uint8_t* spsBytes, uint8_t* ppsBytes,
                                     uint32_t* spsSize, uint32_t* ppsSize);

/// Finds the first unit with a given NAL header byte. Prefixes count as 4 bytes.
///
/// @param buffer   The frame; null gives 0 and touches nothing.
/// @param size     Bytes in it; below 4 gives 0 and touches nothing.
/// @param mode     0: length form. Else marker form: a unit ends where any of the next three bytes is 0, or
///                 the one behind them is 1, so that its size comes out short.
/// @param header   The wanted NAL header byte, nal_ref_idc included.
/// @param unit     Out: the unit's prefix inside @p buffer; null when none was found. A null pointer gives 0
///                 and touches nothing.
/// @param unitSize Out: its size with the prefix; 0 when none was found. A last unit in length form has the
///                 size that its length says, also beyond the buffer (low 32 bits); a last unit in marker
///                 form comes out 4 bytes short. A null pointer gives 0 and touches nothing.
/// @return 1 if found with a size other than 0, else 0. A last unit in length form with a length of
///         0xFFFFFFFC has a size whose low 32 bits are 0: the result is 0, and @p unit is set.
QLN_API uint32_t qlnUtilFindSpecificNAL(uint8_t* buffer, uint32_t size, int32_t mode, uint8_t header,
                                        uint8_t** unit, uint32_t* unitSize);

/// Puts an access unit delimiter and SEI messages in front of a frame, in the order delimiter, buffering
/// period, picture timing, recovery point. What stands in the frame is not looked at.
///
/// Buffering period and recovery point go to frames of type 0x10000000 only and need an SPS; a picture timing
/// without one is empty. The picture structure of the timing is a constant. At most 32 schedules with fields
/// of at most 32 bits are written for each HRD.
///
/// @param frame                        Changed in place; its `secondFieldOffset` is not. Null does nothing.
/// @param sps                          SPS unit bytes from the NAL header on, or an H264SpsRecord, or null.
/// @param spsLength                    Above 0: bytes at @p sps; below 0: @p sps is a record; 0: no SPS.
/// @param addDelimiter                 Non-zero adds an access unit delimiter for the frame's type.
/// @param addPicTiming                 Non-zero adds a picture timing SEI.
/// @param addRecoveryPoint             Non-zero adds a recovery point SEI.
/// @param addBufferingPeriod           Non-zero adds a buffering period SEI.
/// @param initialCpbRemovalDelay       Of every schedule, 90 kHz.
/// @param initialCpbRemovalDelayOffset Of every schedule, 90 kHz.
/// @param cpbRemovalDelay              In clock ticks.
/// @param dpbOutputDelay               In clock ticks.
/// @param useLengths                   1: a frame in marker form is converted to length form first and new
///                                     units get a length; 0: new units get a start code.
///
/// Where the frame has no room for the new units or for the conversion, "No room for NAL units in DFrame
/// (kxmov2)" is reported; the frame stays as it was but for a conversion that fitted.
QLN_API void qlnutilAddNalUnits(DFrame* frame, const void* sps, int32_t spsLength, uint8_t addDelimiter,
                                uint8_t addPicTiming, uint8_t addRecoveryPoint, uint8_t addBufferingPeriod,
                                uint32_t initialCpbRemovalDelay, uint32_t initialCpbRemovalDelayOffset,
                                uint32_t cpbRemovalDelay, uint32_t dpbOutputDelay, uint8_t useLengths);

/// Turns a frame from marker form into length form, in place. Bytes in front of the next start code, trailing
/// zeros included, count to the unit. The last three bytes are not searched for a start code.
///
/// @param buffer The frame. Needs as many spare bytes behind @p size as there are start codes of 3 bytes,
///               each of which grows to 4. Null gives @p size.
/// @param size   Bytes in it.
/// @return the new size; @p size, with nothing changed, unless the frame has 4 bytes or more and begins with
///         a start code of 3 or 4 bytes.
QLN_API uint32_t qlnUtilh264MarkerToSize(uint8_t* buffer, uint32_t size);

/// Turns a frame from length form into marker form with 4-byte start codes, in place; the size of the data
/// does not change.
///
/// @param buffer The frame; null gives @p size.
/// @param size   Bytes in it.
/// @return @p size; the offset of the first length that is 0, where the frame counts as ended. A frame that
///         begins with 00 00 00 01 is left as it is. The walk ends at a place with fewer than 4 bytes left,
///         and at a length that is not below the number of bytes left there, its own 4 included; all from
///         there on stays as it is. A length that is only up to 3 bytes too long still becomes a start code,
///         the last one.
QLN_API uint32_t qlnUtilh264SizeToMarker(uint8_t* buffer, uint32_t size);

QLN_C_END

#endif
