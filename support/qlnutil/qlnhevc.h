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
#include "qlnutil/qlnhevc_records.h"

QLN_C_BEGIN

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
  uint8_t dv_version_minor; /**< its second number */
  /** bits 0 to 6 dv_profile, 7 to 12 dv_level, 13 rpu_present_flag, 14 el_present_flag, 15 bl_present_flag */
  uint16_t dv_flags;
  uint32_t dv_compatibility; /**< bits 0 to 3 dv_bl_signal_compatibility_id, the rest reserved */
  uint32_t dv_reserved[4];   /**< goes out as it stands */
} DvvcConfigRecord;

QLN_STATIC_ASSERT(sizeof(DvvcConfigRecord) == 24, "Dolby Vision configuration layout");
QLN_STATIC_ASSERT(offsetof(DvvcConfigRecord, dv_compatibility) == 4, "Dolby Vision configuration layout");
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
