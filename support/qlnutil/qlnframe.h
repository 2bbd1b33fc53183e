/// @file qlnframe.h
/// The coded frame record through which a host hands one picture to the stream functions.
///
/// A frame stands in one of two forms: in length form each NAL unit has its size in front as a 4-byte
/// big-endian number, in marker form it has a start code. qlnUtilh264MarkerToSize and qlnUtilh264SizeToMarker
/// turn one into the other. A function that inserts data moves bytes up inside `frameCapacity` and changes
/// `frameSize`; the pointer stays. The frame must not be read by another thread while such a function works
/// on it.
#ifndef QLNUTIL_QLNFRAME_H
#define QLNUTIL_QLNFRAME_H

#include "qlnutil/qlnapi.h"

/// Bytes of captionData.
#define QLN_CAPTION_DATA_SIZE 512

/// `colorFlags`: which colour metadata of a frame are valid.
#define QLN_COLOR_MATRIX 0x0004u
#define QLN_COLOR_TRANSFER 0x0008u  /**< transferCharacteristics is valid */
#define QLN_COLOR_PRIMARIES 0x0010u /**< colourPrimaries is valid */
#define QLN_COLOR_MASTERING 0x0DE0u /**< all six bits together: the mastering display values */
#define QLN_COLOR_MAX_CLL 0x1000u   /**< maxContentLightLevel is valid */
#define QLN_COLOR_MAX_FALL 0x2000u  /**< maxFrameAverageLightLevel is valid */

/// `captionFlags`: the kind of the caption data.
#define QLN_CAPTION_ANC 0x1000u
#define QLN_CAPTION_LINE21_FIRST 0x0100u  /**< the byte pair of line 21, field 1 */
#define QLN_CAPTION_LINE21_SECOND 0x0200u /**< the byte pair of line 21, field 2 */

/// `fieldFlags`: both bits set, the buffer holds two fields.
#define QLN_TWO_FIELDS 0x60000u

/// No time code in `timeCodeA` or `timeCodeB`.
#define QLN_NO_TIMECODE 0xFFFFFFFFu

/* The time code and caption fields, once for both records that hold them. */
#define QLN_FRAME_CAPTION_FIELDS                                                                \
  uint32_t timeCodeC;                         /**< third choice of time code, in frames */      \
  uint32_t timeCodeA;                         /**< first choice; QLN_NO_TIMECODE means none */  \
  uint32_t timeCodeB;                         /**< second choice; QLN_NO_TIMECODE means none */ \
  uint32_t captionFlags;                      /**< kind of the caption data */                  \
  uint32_t captionSize;                       /**< bytes used in captionData */                 \
  uint8_t captionData[QLN_CAPTION_DATA_SIZE]; /**< caption packet: 4 bytes of prefix, then the ANC packet */

QLN_C_BEGIN

/// The time code and caption part of a frame, which the caption readers take. DFrameCaption gives it for a
/// frame.
typedef struct __attribute__((may_alias)) DFrameCaptionPart {
  QLN_FRAME_CAPTION_FIELDS
} DFrameCaptionPart;

/// One coded frame. The host owns the record and everything that it points to.
typedef struct DFrame {
  uint32_t frameType; /**< picture type: 0x10000000 intra, 0x80000000 and 0x20000000 the two inter types */
  QLN_FRAME_CAPTION_FIELDS
  uint32_t colorFlags;              /**< QLN_COLOR_ bits: which of the following are valid */
  uint32_t matrixCoefficients;      /**< code of ITU-T H.273 */
  uint32_t transferCharacteristics; /**< code of ITU-T H.273 */
  uint32_t colourPrimaries;         /**< code of ITU-T H.273 */
  double displayPrimaries[8];       /**< x, y of red, green, blue, white point, CIE 1931, 0 to 1 */
  double maxDisplayLuminance;       /**< cd/m2 */
  double minDisplayLuminance;       /**< cd/m2 */
  double maxContentLightLevel;      /**< cd/m2 */
  double maxFrameAverageLightLevel; /**< cd/m2 */
  uint32_t videoFullRange;          /**< low bit: full range */
  uint8_t* frameData;               /**< the coded frame, in length form or marker form */
  uint32_t frameCapacity;           /**< bytes available at frameData */
  uint32_t frameSize;               /**< bytes used */
  uint32_t fieldFlags;              /**< QLN_TWO_FIELDS: the buffer holds two fields */
  uint32_t secondFieldOffset;       /**< offset of the second field within frameData, bytes */
} DFrame;

QLN_STATIC_ASSERT(sizeof(DFrameCaptionPart) == 532, "caption part layout");
QLN_STATIC_ASSERT(offsetof(DFrame, captionFlags) - offsetof(DFrame, timeCodeC) ==
                      offsetof(DFrameCaptionPart, captionFlags),
                  "caption part layout");
QLN_STATIC_ASSERT(offsetof(DFrame, captionData) - offsetof(DFrame, timeCodeC) ==
                      offsetof(DFrameCaptionPart, captionData),
                  "caption part layout");
QLN_STATIC_ASSERT(offsetof(DFrame, colorFlags) - offsetof(DFrame, timeCodeC) == sizeof(DFrameCaptionPart),
                  "caption part layout");

/// @return the time code and caption part of @p frame, inside it.
static inline DFrameCaptionPart* DFrameCaption(DFrame* frame) {
  return (DFrameCaptionPart*)(void*)&frame->timeCodeC;
}

QLN_C_END

#endif
