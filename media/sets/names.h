// What coded numbers are called: profiles, levels, colour, chroma formats.
#ifndef MEDIA_SETS_NAMES_H
#define MEDIA_SETS_NAMES_H

#include <cstdint>
#include <string>

#include "qlnmedia/stream_values.h"

namespace qlnmedia {

// ITU-T H.264 annex A; `constraintSets` holds constraint_set0_flag in bit 0 and so on.
std::string H264ProfileName(uint32_t profile_idc, uint32_t constraintSets);
std::string H264LevelName(uint32_t level_idc, uint32_t profile_idc, bool constraint_set3_flag);
std::string H264SliceTypeName(uint32_t slice_type);

// ITU-T H.265 annex A; `constraints` are the 48 bits behind the compatibility flags, first bit in bit 47.
std::string HevcProfileName(uint32_t profile_idc, uint32_t compatibility, uint64_t constraints);
std::string HevcTierName(uint32_t tier_flag);
std::string HevcLevelName(uint32_t level_idc);

// ITU-T H.273.
std::string ColourPrimariesName(uint32_t code);
std::string TransferName(uint32_t code);
std::string MatrixName(uint32_t code);

// "4:2:0" and so on.
std::string ChromaFormatName(uint32_t chroma_format_idc);
// Names of video_format (annex E), as "PAL".
std::string VideoFormatName(uint32_t video_format);

// The last aspect_ratio_idc that stands for a ratio (annex E table E-1).
inline constexpr uint32_t kLastSampleAspect = 16;
// 0 to 0 for unspecified and reserved codes.
SampleAspect SampleAspectRatio(uint32_t aspect_ratio_idc, uint32_t sar_width, uint32_t sar_height);

// "25", "29.97 (30000/1001)".
std::string RateText(uint64_t numerator, uint64_t denominator);

}  // namespace qlnmedia

#endif
