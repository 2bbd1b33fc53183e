// Which syntax a fourcc stands for, where one operation serves H.264 and HEVC.
#ifndef QLNUTIL_INBAND_CODEC_FORM_H
#define QLNUTIL_INBAND_CODEC_FORM_H

#include <cstdint>

#include "kxutil/kxutil.h"

namespace qln {

enum class CodecForm { kNone, kH264, kHevc };

// HEVC wins where a fourcc is in both classes.
inline CodecForm CodecFormOf(uint32_t fourcc, bool withXavc) {
  if (fccIsHEVC(fourcc) || fccIsDolbyVision(fourcc)) return CodecForm::kHevc;
  if (fccIsh264(fourcc) || fccIsAVCi(fourcc) || (withXavc && fccIsXAVC(fourcc))) return CodecForm::kH264;
  return CodecForm::kNone;
}

// Smallest frame in which a unit is looked for, and fewest bytes that must be left; bytes.
inline constexpr uint32_t kSmallestFrame = 5;

}  // namespace qln

#endif
