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
#include "qlnutil/qlnh264_records.h"

QLN_C_BEGIN

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
