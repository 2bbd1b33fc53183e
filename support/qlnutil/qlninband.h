/// @file qlninband.h
/// Metadata inside coded frames: captions, timecode, interlace signalling, HDR and colour, put into H.264,
/// HEVC and MPEG-2 frames as SEI or user data, and found there.
///
/// A frame belongs to the host. A function that inserts moves the frame's bytes up inside `frameCapacity`; no
/// byte outside the capacity is touched but where a function says so. Functions are re-entrant on different
/// frames; a frame belongs to one thread while a function works on it.
///
/// The caption packet, in `captionData` with `captionSize` bytes: 4 bytes of prefix that nobody reads; the
/// head of an ANC packet (SMPTE ST 291), DID 0x61, SDID 0x01 and data count; and the caption distribution
/// packet (SMPTE ST 334-2) of as many bytes, whose own checksum is the last byte. No ANC checksum follows.
/// For ten triplets at 59.94 pictures a second, captionSize 50:
///
///     00 00 00 00                      prefix
///     61 01 2B                         ANC head: 43 bytes of user data
///     96 69 2B 7F 43 01 02             cdp_identifier, cdp_length, cdp_frame_rate 7, flags, sequence counter
///     72 EA  FC 94 2C  FD 80 80  ...   ccdata_id, marker bits and cc_count 10, ten triplets of 3 bytes
///     74 01 02 xx                      footer id, the same counter, packet_checksum
///
/// A packet that goes into a frame must satisfy, as the functions here check it: at least 14 bytes; 61 01 at
/// offset 4 and 96 69 at offset 7, the data count equal to cdp_length, or -1 silently; `captionSize` at least
/// data count + 7, or -1 with "ERROR: mfcc, declared size %d exceeds packet size %d " (the size at most data
/// count + 5) or "ERROR: mfcc, expectsize %d, calculated size %d "; the counter at offset 12 equal to the one
/// at data count + 4, or "ERROR: mfcc, counts don't match ..."; and the bytes from offset 7 to the last but
/// one summing up, modulo 256, to the last byte or to its negative, or "ERROR: mfcc, bad CC 708 Checksum ".
/// qlnutil/helpers.h builds such a packet from triplets. What qlnUtilAddHevcCaptions makes (user data "GA94")
/// is not what qlnUtilReadHevcCaptionsSEI looks for (a whole ANC packet, or line 21 pairs).
#ifndef QLNUTIL_QLNINBAND_H
#define QLNUTIL_QLNINBAND_H

#include "qlnutil/qlnapi.h"
#include "qlnutil/qlnframe.h"
#include "qlnutil/qlnhevc.h"

QLN_C_BEGIN

/* ---- Captions ----------------------------------------------------------------------------------------- */

/// Puts a caption packet into an H.264 frame as a user data SEI unit (ATSC A/53 "GA94", ITU-T T.35).
///
/// The unit gets the packet's body from offset 16 as triplets: data count minus 7 bytes, at most ten whole
/// triplets, never beyond @p captionSize. The packet's own cc_count is not read, so a packet with fewer than
/// ten triplets has the bytes of its footer follow them as if they were triplets. No emulation prevention is
/// applied to the unit.
///
/// Start code form: the unit goes in front of the first start code behind an SPS (first byte 0x67) and a PPS
/// (0x68), if that code begins in the frame's first 256 bytes. Where there is none, it goes in at offset 6,
/// right behind a delimiter with a 4-byte start code; a frame with neither parameter sets nor a delimiter has
/// its first unit cut there, so a host does not ask for it. Length form: the unit goes in front of the first
/// unit that is no delimiter, SPS or PPS, behind one SPS and one PPS at the latest, or at the frame's end
/// where that comes first; an offset of 256 or more becomes 6.
///
/// @param frame in and out; `frameSize` grows by the unit's length (19 bytes and the triplets).
/// @param caption the caption packet with its 4 bytes of prefix; may be `captionData` of the same frame.
/// @param captionSize bytes in @p caption; 0 means no captions.
/// @param lengthPrefix non-zero for a frame in length form, 0 for start codes.
/// @return 0 when the unit went in, and for a @p captionSize of 0; -1 for a null argument or a null
/// `frameData`, and for a packet that is refused, with the message told above; -102 with
/// "No Allocation for CC Data" when `frameSize` + triplet bytes + 285 is above `frameCapacity`. The frame is
/// untouched in all cases but the first.
QLN_API int32_t qlnutilAddAVCCaptions(DFrame* frame, const uint8_t* caption, uint32_t captionSize,
                                      uint32_t lengthPrefix);

/// Puts the frame's own caption packet into an HEVC frame with start codes, as a prefix SEI unit with user
/// data (ATSC A/53 "GA94").
///
/// All cc_count triplets of the packet's ccdata section go in, with emulation prevention. The unit goes in
/// front of the start code of the first unit of type 0 to 9, 16 to 21 or 39 for which there is room:
/// `frameCapacity` must be above `frameSize` + length.
///
/// `frameSize` is left as it was: **the caller adds the result to it.** `secondFieldOffset` grows by the
/// length in a frame of two fields when the unit went in in front of it.
///
/// @param frame in and out. @param reserved not used.
/// @return the bytes inserted; 0 with the frame untouched when there is no place, for a null frame or
/// `frameData`, and when there is no SEI to insert. In the last case "Sei cc not added Length 0 %s %d" goes
/// out, behind the message that tells why: "No SEI CC data size is %d" for a `captionSize` below 4 or of
/// 0xFFFFFFFF, or that of the packet's check, told above. A `captionSize` above 512 is refused without such a
/// message. Where cc_count is more than the packet holds, "\nCC count is wrong %d actual %d" goes out and the
/// triplets that are there go in.
QLN_API uint32_t qlnUtilAddHevcCaptions(DFrame* frame, uint32_t reserved);

/// Puts the frame's own caption packet in front of an MPEG-2 frame as a user data block.
///
/// The block is 00 00 00 01 B2, "GA94", 03, a count byte, FF, the packet's bytes from offset 16 (data count
/// minus 7 of them, zero bytes behind `captionSize`), FF. The count byte is the number of whole groups of
/// three bytes from there on, those of the packet's footer included, without flag bits; readers that ask for
/// process_cc_data_flag pass the block over.
///
/// @param frame in and out; `frameSize` grows by the block's length (13 bytes and the packet's).
/// @return 0 when the block went in; -1 for a null frame or `frameData`, a `captionSize` above 512, and a
/// packet that is refused, with the message told above; -102 with "No Allocation for CC
/// Data" when `frameSize` + `captionSize` + 285 is above `frameCapacity`. The frame is untouched in all cases
/// but the first.
QLN_API int32_t qlnutilAddMPEG2Captions(DFrame* frame);

/// Reads the captions of an H.264 user data SEI unit (ATSC A/53 "GA94") into a frame's caption fields.
///
/// `captionData` receives a caption packet around the triplets, `captionFlags` QLN_CAPTION_ANC, `captionSize`
/// 19 + 3 x cc_count. The packet has no footer counter, and its checksums are plain sums, so
/// the check told above does not pass it. Emulation prevention is not removed: a host hands over unescaped
/// bytes where that matters.
///
/// @param sei the unit from its NAL header on. @param size its bytes; triplets behind them read as zero.
/// @param rate rate field of the stream's format: 23, 24, 25, 30, 50, 59, 60; any other is signalled
/// as 29.97.
/// @param reserved not used.
/// @param[out] caption the caption part of a frame (DFrameCaption). `captionFlags` and `captionSize` are
/// cleared first and stay 0 where the unit holds no such captions; nothing but the three caption fields is
/// written.
/// @return 0, always. A null @p caption touches nothing.
QLN_API int32_t qlnUtilReadH264CaptionsSEI(const uint8_t* sei, uint32_t size, uint32_t rate,
                                           uint32_t reserved, DFrameCaptionPart* caption);

/// Reads the captions of an HEVC prefix SEI unit, a whole ANC packet or line 21 pairs, into a frame's caption
/// fields.
///
/// A whole packet (QLN_CAPTION_ANC) gets its sequence counter written at both places, `captionSize` becomes
/// the data count + 7, and its last byte makes the bytes from offset 7 sum to 0 modulo 256. Line 21 pairs
/// stand at the start of `captionData` (QLN_CAPTION_LINE21_FIRST: 2 bytes; with QLN_CAPTION_LINE21_SECOND:
/// 4). Emulation prevention is not removed.
///
/// @param sei the unit from its NAL header on. @param size its bytes. @param reserved not used.
/// @param[in,out] counter the counter to write, which then goes up by one modulo 65536; null keeps that of
/// the packet. It moves only when it was written.
/// @param[out] caption the caption part of a frame (DFrameCaption). `captionFlags` and `captionSize` are
/// cleared first; nothing but the three caption fields is written.
/// @return 0, always. A packet that is found but does not hold a caption distribution packet whose two
/// lengths agree is left as it was found, with "ERROR: mfcc, bad start or size 0x%02X 0x%02X 0x%02X 0x%02X
/// 0x%02X 0x%02X " and its first six bytes.
QLN_API int32_t qlnUtilReadHevcCaptionsSEI(const uint8_t* sei, uint32_t size, uint32_t reserved,
                                           uint16_t* counter, DFrameCaptionPart* caption);

/* ---- Timecode ----------------------------------------------------------------------------------------- */

/* The timecode of a frame is its timeCodeA unless that is QLN_NO_TIMECODE, else timeCodeB unless that is
   QLN_NO_TIMECODE, else timeCodeC. Timecode types are those of TimeCodeToString. */

/// Puts the frame's timecode into an H.264 frame with start codes as a pic_timing SEI unit (ITU-T H.264
/// clause D.1.3: one clock timestamp with full_timestamp_flag, counting type 4 for the types 4 and 32, else
/// 0), in front of the first slice of type 1 or 5.
///
/// @param frame in and out; `frameSize` grows by the result. @param tcType type of the timecode.
/// @return the bytes inserted, or 0 with the frame untouched: for a null frame or `frameData`, a `frameSize`
/// below 8, no room (`frameSize` + 48 and `frameSize` + unit must both be below `frameCapacity`), a frame
/// that has picture timing in front of its first slice or begins with that slice, and a frame whose first SPS
/// is missing, lacks pic_struct_present_flag, or has HRD parameters (the delays that picture timing would
/// then need are not known). No message.
QLN_API uint32_t qlnutilAddAVCTimeCode(DFrame* frame, uint8_t tcType);

/// Puts the frame's timecode into an HEVC frame with start codes as a time_code SEI unit (ITU-T H.265 clause
/// D.2.27: one clock timestamp with full_timestamp_flag, counting type 4 for type 4, 6 for type 32, else 0).
///
/// The unit goes in front of the first slice or prefix SEI that stands behind a 4-byte start code in the
/// frame's first 4096 bytes, though not at the frame's very beginning; failing that behind a leading
/// delimiter, at offset 7; failing that at offset 0. Codes of 3 bytes are not seen. `secondFieldOffset` grows
/// in every case, so in a frame of two fields it is the first one that gets the timecode.
///
/// **`frameCapacity` is not tested.** The host owes 16 bytes behind `frameSize`: the unit has 15 or 16.
///
/// @param frame in and out; `frameSize` and `secondFieldOffset` grow by the unit's length.
/// @param tcType type of the timecode.
/// @return 0, always. The frame is untouched when it is null or has no `frameData`, when a prefix SEI on the
/// way begins with a time_code message, and when it is shorter than the offset. No message.
QLN_API uint32_t qlnutilAddHEVCTimeCode(DFrame* frame, uint8_t tcType);

/// Writes a prefix SEI unit with registered user data "DTG1" (active format description, ETSI TS 101 154),
/// start code in front.
///
/// @param[out] output room for 17 bytes. @param flags the bits 0x0E go into the last byte, whose bit 0 is
/// set.
/// @return the bytes written: 17; 0 for a null output.
QLN_API uint32_t qlnUtilAddSeiATC(uint8_t* output, uint8_t flags);

/* ---- Interlace signalling ----------------------------------------------------------------------------- */

/// Copies an HEVC frame with start codes and rewrites what it says of its scan: a frame of two fields
/// (QLN_TWO_FIELDS in the source's `fieldFlags`) comes out as fields, any other as progressive.
///
/// - Parameter sets are read into records and written back: source flags, field and frame flags, a sample
///   aspect ratio of 1:2 for fields, a window of 540 lines for fields of 1920x544 without one, and a colour
///   description by raster where there is none. HRD parameters leave the SPS. The readers' and writers' forms
///   apply (see qlnhevc.h), emulation prevention included; a set that a writer does not write is copied as it
///   stands. Behind a start code of 3 bytes the sets are read one byte late, so hosts use codes of 4.
/// - A delimiter is copied. Prefix SEI are dropped, and so is everything else but slices.
/// - In front of the first slice of each field: picture timing (with the delays of the source's own), a
///   time_code with the destination's timecode, and in an intra picture of a destination without HDR flags
///   the "DTG1" user data, with mastering display metadata where the host's SPS says transfer 16. The host's
///   SPS gives the syntax of these units.
/// - Slices leave with 4-byte start codes.
/// - What stands between a unit's end and the start code behind it, such as a zero byte in front of a code of
///   four bytes, belongs to the unit behind: it is copied with a delimiter or a slice, and goes with
///   everything else. A parameter set is read from its header on then.
///
/// A frame in length form is not told apart. Units are where its bytes happen to hold 00 00 01, inside a unit
/// too; without that the count is 0, or 1 to 3 for a frame of so many bytes, and nothing is written. A host
/// converts such a frame first with qlnUtilh264SizeToMarker.
///
/// A two-field source has its first field in front of `secondFieldOffset` (at most `frameSize` counts), and
/// the destination's `secondFieldOffset` is set; it stays in a frame of one field. `fieldFlags`, `frameType`,
/// `colorFlags` and the timecode of the destination are the host's.
///
/// @param source in; not the destination. Where mastering display metadata is made and no HDR flag is set,
/// its mastering display fields are filled in with the values of a BT.2020 display of 0.05 to 100 cd/m2; no
/// flag is set.
/// @param destination out: `frameData` and `frameSize`. With a `frameCapacity` of 0 it is trusted to be large
/// enough; otherwise nothing is written behind it, and the rewrite ends in front of the first unit that would
/// not fit, `frameSize` standing at the end of the last whole one.
/// @param hostSps the SPS of the stream as the host knows it. @param reserved not used.
/// @return the number of units walked, 1 to 3 bytes at the end counting one each; 0, with nothing touched,
/// for a null argument or a null `frameData` of either. Messages are those of the parameter set readers.
QLN_API uint32_t qlnutilSetFrameInterlaced(DFrame* source, DFrame* destination, const HevcSpsRecord* hostSps,
                                           uint32_t reserved);

/* ---- HDR and colour ----------------------------------------------------------------------------------- */

/// Content light level of a stream (ITU-T H.265 clause D.2.35), in cd/m2.
typedef struct ContentLightRecord {
  uint32_t max_content_light_level;     /**< cd/m2, of the brightest pixel */
  uint32_t max_pic_average_light_level; /**< cd/m2, of the brightest picture */
} ContentLightRecord;

/// Mastering display of a stream (ITU-T H.265 clause D.2.28): chromaticities in units of 0.00002, luminances
/// in units of 0.0001 cd/m2.
typedef struct MasteringDisplayRecord {
  uint32_t redX;           /**< x of red, CIE 1931, as the next seven */
  uint32_t redY;           /**< y of red */
  uint32_t greenX;         /**< x of green */
  uint32_t greenY;         /**< y of green */
  uint32_t blueX;          /**< x of blue */
  uint32_t blueY;          /**< y of blue */
  uint32_t whitePointX;    /**< x of the white point */
  uint32_t whitePointY;    /**< y of the white point */
  uint32_t minLuminance;   /**< darkest, 0.0001 cd/m2 */
  uint32_t maxLuminance;   /**< brightest, 0.0001 cd/m2 */
  uint32_t primariesValid; /**< 1 when the record was filled */
  uint32_t luminanceValid; /**< 1 when the record was filled */
} MasteringDisplayRecord;

QLN_STATIC_ASSERT(sizeof(ContentLightRecord) == 8, "content light layout");
QLN_STATIC_ASSERT(sizeof(MasteringDisplayRecord) == 48, "mastering display layout");
QLN_STATIC_ASSERT(offsetof(MasteringDisplayRecord, minLuminance) == 32, "mastering display layout");

/// Puts the frame's HDR metadata into it: one SEI unit, directly in front of the first slice, with a
/// mastering display message when all bits of QLN_COLOR_MASTERING are set and a content light level message
/// when QLN_COLOR_MAX_CLL or QLN_COLOR_MAX_FALL is (the value without its bit is 0). With some of the bits of
/// QLN_COLOR_MASTERING alone the unit holds no message.
///
/// Doubles are truncated toward zero and their low 16 or 32 bits written; not a number, and values beyond 64
/// bits, give 0. In a frame of two fields the first one gets the unit, and `secondFieldOffset` stays.
///
/// A frame in length form comes back in length form. Length form is told from start codes by the first bytes,
/// so a first unit of 256 to 511 bytes looks like a start code of 3; a frame that begins with a 3-byte code
/// may have that code read as a length. A host that must be sure hands in marker form with 4-byte codes.
///
/// The way back is made whether or not there is a slice: 00 00 01 inside a unit of a length form frame then
/// begins a unit of its own, and `frameSize` grows by one for each such place although the result is 0. A
/// frame with a zero byte in front of a 4-byte start code counts as one in length form that ends at once: no
/// form is changed, and the SEI unit, which has a start code, goes in front of the first slice that is found.
///
/// @param frame in and out; `frameSize` grows. @param fourcc the codec; HEVC and Dolby Vision, or H.264 and
/// AVC-Intra, take part.
/// @return the bytes of the unit; 0 when nothing was added: for a null frame or `frameData`, a `frameSize`
/// below 5, another codec, none of the flags, no slice, or no room. The last is reported as "No room to Add
/// HDR SEI to dframe" with the frame as it was; a start code pattern inside a unit of a length form frame
/// asks for one byte more.
QLN_API uint64_t qlnutilWrite_HDR_WCG_SEI_Packet(DFrame* frame, uint32_t fourcc);

/// Looks through all SEI units of an H.264 or HEVC frame, in either form, for mastering display and content
/// light level messages. Of several the last one stays.
///
/// @param frame read only. @param[out] light, display zeroed first; null: such messages are passed over.
/// @return the number of messages read into a record; 0 with the records untouched for a null frame or
/// `frameData` and a `frameSize` below 5. No message.
QLN_API uint32_t qlnutilFindColorSEI(const DFrame* frame, ContentLightRecord* light,
                                     MasteringDisplayRecord* display);

/// Writes the frame's colour codes into the VUI of its first SPS.
///
/// The SPS is read into a record, changed and written: `video_full_range_flag` is the low bit of
/// `videoFullRange`, the codes whose QLN_COLOR_ bits are set are the frame's, the others stay, or become 2
/// (unspecified) where the SPS had no colour description. What the record does not hold and what the writers
/// put differently changes as well: see qlnutilWrite_SPS and qlnutilWrite_HEVC_SPS. In particular the HEVC
/// writer looks for emulation only up to the unescaped length, so a unit that grows by many escapes may keep
/// a pattern near its end; a host that feeds such streams checks the result. `secondFieldOffset` and SPS
/// copies elsewhere are not updated.
///
/// A frame in length form comes back in length form, by the same rules as for
/// qlnutilWrite_HDR_WCG_SEI_Packet.
///
/// @param frame in and out; `frameSize` changes with the SPS. @param fourcc the codec; HEVC and Dolby Vision,
/// or H.264, AVC-Intra and XAVC, take part.
/// @return 1 when the SPS was replaced; 0 when not: for a null frame or `frameData`, a `frameSize` below 5,
/// no colour bit, another codec, no SPS, an SPS that cannot be read or written (8192 bytes at most), or no
/// room, the frame then being as it was. Messages are those of the SPS readers.
QLN_API uint32_t qlnutilWriteColorimetryToSPS(DFrame* frame, uint32_t fourcc);

QLN_C_END

#endif
