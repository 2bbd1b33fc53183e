/// @file qlnformat.h
/// What video formats are made of: frame rates, timecode types, signal format words, size tokens, image
/// sizes, timecode conversion, and the names of codecs and file types.
///
/// A host holds three vocabularies of timing and turns them into one another here: a rational frame rate
/// (`rate` / `scale` frames per second), a timecode type, and a signal format word, which adds raster and
/// scan class to the rate. All tables are constant, and nothing allocates. Every function is a pure function
/// of its arguments (GetMatrixBySize and vidConvertTC call the configuration store and the timecode service),
/// prints nothing, and may be called from any thread; the one exception stands at GetMatrixBySize.
///
/// Pointers may be null everywhere: a function with a result of -1 then gives -1, any other gives 0, and
/// nothing is written.
#ifndef QLNUTIL_QLNFORMAT_H
#define QLNUTIL_QLNFORMAT_H

#include "qlnutil/qlnapi.h"

QLN_C_BEGIN

/* ---- Timecode types ----------------------------------------------------------------------------------- */

/// How a timecode counts. Records hold it in one byte; as an argument it is a 32-bit word of which only the
/// low 8 bits count.
typedef uint8_t TcType;

#define QLN_TC_FRAMES 0u         /**< a plain count of frames */
#define QLN_TC_FILM 1u           /**< 24 */
#define QLN_TC_NON_DROP_FRAME 2u /**< 30, no numbers skipped */
#define QLN_TC_DROP_FRAME 4u     /**< 29.97, two numbers skipped a minute but each tenth */
#define QLN_TC_PAL 8u            /**< 25 */
#define QLN_TC_50 16u            /**< 50 */
#define QLN_TC_59_94 32u         /**< 59.94 */
#define QLN_TC_60 64u            /**< 60 */
#define QLN_TC_FILM_DROP 128u    /**< 23.976 */
#define QLN_TC_23_98 132u        /**< 23.976; the one type that is no power of two */

/* ---- Signal formats ----------------------------------------------------------------------------------- */

/// One word for a raster at a rate and scan class: rate field in bits 0 to 8, width token in 9 to 19, height
/// token in 20 to 27, scan class in 28 to 30. Any word can be taken apart.
typedef uint32_t QLNSignalFormat;

/// The word of no format.
#define QLN_SIGNAL_FORMAT_UNKNOWN 0xF0000000u

#define QLN_SCAN_CLASS_INTERLACED 1u  /**< scan class: two fields a frame */
#define QLN_SCAN_CLASS_PROGRESSIVE 2u /**< scan class: whole frames */
#define QLN_SCAN_CLASS_SEGMENTED 4u   /**< scan class: progressive, carried as two segments */

/// What the two token functions give for a size or a token that has no counterpart.
#define QLN_SIZE_UNKNOWN 0xFFFFFFFFu

#define QLN_SCAN_INTERLACED 0x100u /**< QLNVid::scanFlags: two fields a frame */
#define QLN_SCAN_SEGMENTED 0x200u  /**< QLNVid::scanFlags: progressive, carried as two segments */

/// The fields of the host's video description record that this library knows; they lead the record, and what
/// a host keeps behind them is never touched.
typedef struct QLNVid {
  uint32_t width;       /**< pixels */
  uint32_t height;      /**< lines; a bottom-up image holds the negative number as 32 bits */
  uint32_t scale;       /**< frames per second = rate / scale */
  uint32_t rate;        /**< see scale */
  int32_t activeLeft;   /**< active rectangle, in pixels and lines of the whole signal */
  int32_t activeTop;    /**< see activeLeft */
  int32_t activeRight;  /**< first column behind the rectangle */
  int32_t activeBottom; /**< first line below the rectangle */
  uint32_t scanFlags;   /**< QLN_SCAN_INTERLACED, QLN_SCAN_SEGMENTED */
} QLNVid;

QLN_STATIC_ASSERT(sizeof(QLNVid) == 36, "the fields lie without gaps");
QLN_STATIC_ASSERT(offsetof(QLNVid, scale) == 8, "scale stands in front of rate");
QLN_STATIC_ASSERT(offsetof(QLNVid, scanFlags) == 32, "the scan flags end the known part");

/* ---- Rates and timing --------------------------------------------------------------------------------- */

/// Gives the rational rate that a signal format's rate field stands for: 14, 23, 29, 47, 59, 71 and 119 are
/// 15000, 24000, 30000, 48000, 60000, 72000 and 120000 over 1001; any other field value is itself over 1.
/// @param format the word. @param[out] rate, scale frames per second = rate / scale.
/// @return 0; -1 for QLN_SIGNAL_FORMAT_UNKNOWN (outputs left alone) and for a rate field of 256, which means
/// no rate (outputs 256 and 1).
QLN_API int32_t vidRateScale(QLNSignalFormat format, uint32_t* rate, uint32_t* scale);

/// Turns the many ways in which file headers store a frame rate into the usual pairs; most go by the integer
/// quotient rate / scale. 10, 15, 23, 24, 25, 29, 30, 59 and 60 become themselves over 1 whatever the scale.
/// @param[in,out] rate, scale frames per second = rate / scale; a pair that is not known stays, and so does
/// one with a scale of 0 whose rate is none of those nine.
/// @return 0 always.
QLN_API int32_t vidNormalizeRateScale(uint32_t* rate, uint32_t* scale);

/// Guesses a rate from the raster, for files that hold none.
/// @param width, height pixels and lines, unsigned. @param[out] rate, scale left alone for a width above
/// 4096.
/// @return 0, or -1 for a null pointer.
QLN_API int32_t vidRateScaleFromSize(uint32_t width, uint32_t height, uint32_t* rate, uint32_t* scale);

/// Frames per second. @param rate, scale their quotient counts, unless one of them is 0. @param format looked
/// at only then.
/// @return rate / scale; else the rate of the format; 29.97002997002997 where that has none.
QLN_API double vidFramesPerSecD(QLNSignalFormat format, uint32_t rate, uint32_t scale);

/// Milliseconds per frame of vidFramesPerSecD, rounded to the nearest; 0xFFFFFFFF where that does not fit,
/// as for 0 frames per second.
QLN_API uint32_t vidMsPerFrame(QLNSignalFormat format, uint32_t rate, uint32_t scale);

/// Milliseconds per frame of vidFramesPerSecD; infinite for 0 frames per second.
QLN_API double vidMsPerFrameD(QLNSignalFormat format, uint32_t rate, uint32_t scale);

/// Frames per second of a timecode type; 29.97002997002997 for type 0 and all that are unknown.
QLN_API double vidTCFramesPerSecD(uint32_t tcType);

/// Milliseconds per frame of a timecode type, rounded to the nearest.
QLN_API uint32_t vidTCMsPerFrame(uint32_t tcType);

/// Milliseconds per frame of a timecode type. QLN_TC_NON_DROP_FRAME has the time of QLN_TC_DROP_FRAME,
/// 33.36666666666667, though vidTCFramesPerSecD tells 30.0 for it: hosts pace both by the same clock.
QLN_API double vidTCMsPerFrameD(uint32_t tcType);

/// Timecode type for a rate in frames per second. Half, double, triple and quadruple rates are folded to
/// their base rate first, so 47.95 gives QLN_TC_FILM_DROP and 100 QLN_TC_PAL.
/// @return a QLN_TC_ value; QLN_TC_NON_DROP_FRAME for all rates that have no type of their own, infinite ones
/// and not-a-number included.
QLN_API uint32_t vidGetTCType(double framesPerSecond);

/* ---- Signal formats, names and tokens ----------------------------------------------------------------- */

/// Finds the signal format for a raster at a rate. Ordered rules pick among near matches; what they leave is
/// built from the size tokens.
/// @param rate, scale frames per second = rate / scale; a scale of 0 makes an infinite rate.
/// @param width pixels. @param height lines; negative for a bottom-up image, which counts as its absolute
/// value. @param progressive non-zero for progressive scan.
/// @return the word, or QLN_SIGNAL_FORMAT_UNKNOWN where no rule applies and a size has no token or the rate
/// does not fit 32 bits.
QLN_API QLNSignalFormat vidGetSignalFormat(uint32_t rate, uint32_t scale, uint32_t width, int32_t height,
                                           uint32_t progressive);

/// Writes a format's display name: the fixed one of 102 words, as "1920x1080i@29.97", else one built from the
/// sizes of its tokens (-1 for an unknown one), its scan class and its rate, as "-1x-1 @Custom".
/// @param format any word. @param[out] text 21 bytes, all of them written: the text with its terminator,
/// blanks behind it, a terminator in the last byte.
/// @return 0 always.
QLN_API int32_t vidSignalFormatToStr20(QLNSignalFormat format, char* text);

/// Size in pixels or lines that a token stands for; QLN_SIZE_UNKNOWN for any other token.
QLN_API uint32_t vidGetSizeFromToken(uint32_t token);

/// Token of the largest listed size that @p size reaches, from 240 to 8192; QLN_SIZE_UNKNOWN outside. It is
/// not the inverse of vidGetSizeFromToken: 1035 gives the token of 1024, and 2160 that of 2048.
QLN_API uint32_t vidGetTokenFromSize(uint32_t size);

/// Timecode type of a format's rate field, with the higher rates counted at their base rate (50 gives
/// QLN_TC_PAL). Only the rate field counts.
QLN_API uint32_t vidGetTCTypeSignalFormat(QLNSignalFormat format);

/// The same, with 50, 59.94 and 60 kept apart as QLN_TC_50, QLN_TC_59_94 and QLN_TC_60.
QLN_API uint32_t vidGetFPSTCTypeSignalFormat(QLNSignalFormat format);

/// Picture aspect ratio that goes with a raster. @param video only width and height are read.
/// @return numerator in the high 16 bits, denominator in the low 16, as 0x100009 for 16:9; 0 for none.
QLN_API uint32_t vidGetAspectRatio(const QLNVid* video);

/* ---- Image size, video description and colour matrix -------------------------------------------------- */

/// Pixel size of a signal format, by its tokens but for the words that those would tell wrongly.
/// @param format any word. @param[out] width, height pixels and lines; QLN_SIZE_UNKNOWN for an unknown token.
/// @param field non-zero for one field: halves the height, rounded down, where bit 28 of the word is set.
/// @return 0; -1 where a token is unknown (the height is then not halved) or a pointer is null.
QLN_API int32_t vidImageSize(QLNSignalFormat format, uint32_t* width, uint32_t* height, uint32_t field);

/// Fills a video description from a signal format: rate, scale, width, height, active rectangle, scan flags.
/// A format that is none of the common ones gets the plain sizes of its tokens and keeps the rectangle's left
/// and top that the record holds.
/// @param format any word. @param[in,out] video the known fields only; all other bits of the scan flags are
/// cleared.
/// @return 0; -1 where vidRateScale or vidImageSize fails: what they gave stands in the record, and nothing
/// else is written.
QLN_API int32_t vidSignalFormatToQLNVid(QLNSignalFormat format, QLNVid* video);

/// Picks the host's colour matrix number for a raster.
/// The process reads the configuration value "ForceVideoRangeMatrix" (section "Tarnwick\Advanced" of the
/// default store) at the first call, whatever the flags, and writes 0 there where it is absent; a stored
/// 0xFFFFFFFF is read again at the next call. Two first calls at once may both read it.
/// @param width pixels. @param height lines, counted by its absolute value. @param flags bit 0x1000 asks for
/// the matrices of the second range; a configured 1 forces it off.
/// @return 0, 4 or 6 (1, 5 or 7 with the flag in force) for up to 720 pixels, more, and more than 1125 lines.
QLN_API int32_t GetMatrixBySize(int32_t width, int32_t height, uint32_t flags);

/* ---- Timecode conversion ------------------------------------------------------------------------------ */

/// Rewrites a timecode count of one frame rate into the count of a timecode type, by way of the text form of
/// the timecode service, so that the hours, minutes, seconds and frames shown stay the same. Nothing is done
/// where the rate already counts like @p targetType; at a rate of 59.94 or 60 the count is doubled behind the
/// conversion, wrapping at 32 bits.
/// @param[in,out] timecode the count in frames; a text that the service does not take leaves it (but for the
/// doubling). @param targetType compared by its low byte, handed to the service as given.
/// @param rate, scale frames per second = rate / scale; a scale of 0 counts like QLN_TC_NON_DROP_FRAME.
QLN_API void vidConvertTC(uint32_t* timecode, uint32_t targetType, uint32_t rate, uint32_t scale);

/* ---- Type names --------------------------------------------------------------------------------------- */

/// Display name of a codec: by a table of 240 codes, then by the fourcc classes of the utility layer.
/// @param fourcc the code with its first character in the top byte; values below 256 are bitmap compression
/// numbers. Many codes are known in both byte orders.
/// @return a constant text, never null; the empty text for an unknown code.
QLN_API const char* qlnutilCodecTypeString(uint32_t fourcc);

/// Display name of a file type from 1 to 226. @return a constant text, never null; "Unknown file type" for
/// any other number and for 57, which no file type has.
QLN_API const char* qlnutilFileTypeString(int32_t fileType);

QLN_C_END

#endif
