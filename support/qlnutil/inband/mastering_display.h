// The mastering display colour volume message (ITU-T H.264 clause D.1.29, H.265 clause D.2.28), which two
// writers make.
#ifndef QLNUTIL_INBAND_MASTERING_DISPLAY_H
#define QLNUTIL_INBAND_MASTERING_DISPLAY_H

#include "qlnutil/bits/bit_writer.h"
#include "qlnutil/inband/colour_units.h"
#include "qlnutil/qlnframe.h"

namespace qln {

// The flags of a frame that has HDR metadata of any kind.
inline constexpr uint32_t kHdrFlags = QLN_COLOR_MASTERING | QLN_COLOR_MAX_CLL | QLN_COLOR_MAX_FALL;

inline constexpr uint8_t kMasteringDisplayPayload = 137;
inline constexpr uint32_t kMasteringDisplayBytes = 24;
inline constexpr uint8_t kContentLightPayload = 144;
inline constexpr uint32_t kContentLightBytes = 4;

// Writes the 24 bytes behind the message's type and size. The syntax has green first, a frame has red first.
inline void WriteMasteringDisplay(BitWriter& writer, const DFrame& frame) {
  constexpr int kOrder[] = {2, 3, 4, 5, 0, 1, 6, 7};  // green, blue, red, white point
  for (const int index : kOrder) writer.WriteBits(16, ChromaticityUnits(frame.displayPrimaries[index]));
  writer.WriteBits(32, LuminanceUnits(frame.maxDisplayLuminance));
  writer.WriteBits(32, LuminanceUnits(frame.minDisplayLuminance));
}

}  // namespace qln

#endif
