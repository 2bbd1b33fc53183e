// The parts of a signal format word.
#ifndef QLNUTIL_FORMAT_SIGNAL_FORMAT_H
#define QLNUTIL_FORMAT_SIGNAL_FORMAT_H

#include "qlnutil/qlnformat.h"

namespace qln {

constexpr uint32_t WidthToken(QLNSignalFormat format) { return format >> 9 & 0x7FF; }
constexpr uint32_t HeightToken(QLNSignalFormat format) { return format >> 20 & 0xFF; }
constexpr uint32_t ScanClass(QLNSignalFormat format) { return format >> 28 & 7; }

// Heights come signed or as 32 bits of a negative number where an image is stored bottom-up.
constexpr uint32_t AbsoluteHeight(int32_t height) {
  const uint32_t bits = static_cast<uint32_t>(height);
  return height < 0 ? 0u - bits : bits;
}

}  // namespace qln

#endif
