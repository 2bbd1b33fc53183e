/// @file qlninband.h
/// Metadata inside coded frames: captions, timecode, interlace signalling, HDR and colour, put into H.264,
/// HEVC and MPEG-2 frames as SEI or user data, and found there.
///
/// A frame belongs to the host. A function that inserts moves the frame's bytes up inside `frameCapacity`; no
/// byte outside the capacity is touched but where a function says so. Functions are re-entrant on different
/// frames; a frame belongs to one thread while a function works on it.
///
/// The caption packet, in `captionData` with `captionSize` bytes: 4 bytes of prefix that nobody reads, then
/// an ANC packet (SMPTE ST 291: DID 0x61, SDID 0x01, data count) that holds a caption distribution packet
/// (SMPTE ST 334-2: 0x96 0x69, cdp_length, frame rate, flags, sequence counter, sections, footer) and ends in
/// one checksum byte.
#ifndef QLNUTIL_QLNINBAND_H
#define QLNUTIL_QLNINBAND_H

#include "qlnutil/qlnapi.h"
#include "qlnutil/qlnframe.h"

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
/// (0x68) that both begin in the frame's first 256 bytes. Where there is none, it goes in at offset 6, right
/// behind a delimiter with a 4-byte start code; a frame with neither parameter sets nor a delimiter has its
/// first unit cut there, so a host does not ask for it. Length form: the unit goes behind a leading
/// delimiter, SPS and PPS, or at the frame's end where that comes first; an offset of 256 or more becomes 6.
///
/// @param frame in and out; `frameSize` grows by the unit's length (19 bytes and the triplets).
/// @param caption the caption packet with its 4 bytes of prefix; may be `captionData` of the same frame.
/// @param captionSize bytes in @p caption; 0 means no captions.
/// @param lengthPrefix non-zero for a frame in length form, 0 for start codes.
/// @return 0 when the unit went in, and for a @p captionSize of 0; -1 for a null argument or a null
/// `frameData`, and for a packet that is refused, with the message that CheckCaptionPacket gives; -102 with
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
/// 0xFFFFFFFF, or that of CheckCaptionPacket. A `captionSize` above 512 is refused without such a message.
/// Where cc_count is more than the packet holds, "\nCC count is wrong %d actual %d" goes out and the triplets
/// that are there go in.
QLN_API uint32_t qlnUtilAddHevcCaptions(DFrame* frame, uint32_t reserved);

/// Puts the frame's own caption packet in front of an MPEG-2 frame as a user data block.
///
/// The block is 00 00 00 01 B2, "GA94", 03, a count byte, FF, the packet's bytes from offset 16 (data count
/// minus 7 of them, zero bytes behind `captionSize`), FF. The count byte is the number of whole triplets
/// without flag bits; readers that ask for process_cc_data_flag pass the block over.
///
/// @param frame in and out; `frameSize` grows by the block's length (13 bytes and the packet's).
/// @return 0 when the block went in; -1 for a null frame or `frameData`, a `captionSize` above 512, and a
/// packet that is refused, with the message that CheckCaptionPacket gives; -102 with "No Allocation for CC
/// Data" when `frameSize` + `captionSize` + 285 is above `frameCapacity`. The frame is untouched in all cases
/// but the first.
QLN_API int32_t qlnutilAddMPEG2Captions(DFrame* frame);

/// Reads the captions of an H.264 user data SEI unit (ATSC A/53 "GA94") into a frame's caption fields.
///
/// `captionData` receives a caption packet around the triplets, `captionFlags` QLN_CAPTION_ANC, `captionSize`
/// 19 + 3 x cc_count. The packet has no footer counter, and its checksums are plain sums, so
/// CheckCaptionPacket does not pass it. Emulation prevention is not removed: a host hands over unescaped
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

QLN_C_END

#endif
