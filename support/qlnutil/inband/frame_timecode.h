// The timecode of a frame, and its digits.
#ifndef QLNUTIL_INBAND_FRAME_TIMECODE_H
#define QLNUTIL_INBAND_FRAME_TIMECODE_H

#include <cstdint>

#include "qlnutil/qlnframe.h"
#include "timecode/kxtimecode.h"
#include "timecode/timecode_types.h"

namespace qln {

// The frame's timecode as a count of frames: the first choice that is one.
inline uint32_t FrameTimeCode(const DFrame& frame) {
  if (frame.timeCodeA != QLN_NO_TIMECODE) return frame.timeCodeA;
  if (frame.timeCodeB != QLN_NO_TIMECODE) return frame.timeCodeB;
  return frame.timeCodeC;
}

struct TimeDigits {
  uint8_t hours;
  uint8_t minutes;
  uint8_t seconds;
  uint8_t frames;
};

inline TimeDigits DigitsOf(uint32_t frameCount, uint8_t tcType) {
  char output[32] = {};  // as large as for a text: a host's own service may be careless
  TimeCodeToString(frameCount, tcType | KX_TIMECODE_BINARY, output);
  return {static_cast<uint8_t>(output[0]), static_cast<uint8_t>(output[1]), static_cast<uint8_t>(output[2]),
          static_cast<uint8_t>(output[3])};
}

}  // namespace qln

#endif
