// Making room in a coded frame, which everything that inserts has in common.
#ifndef QLNUTIL_INBAND_FRAME_INSERT_H
#define QLNUTIL_INBAND_FRAME_INSERT_H

#include <cstdint>
#include <cstring>

#include "qlnutil/qlnframe.h"

namespace qln {

// Result of the functions that insert, for no room in the frame.
inline constexpr int32_t kNoRoom = -102;

// Moves the frame's bytes from `offset` (at most frameSize) up by `count` and copies `bytes` into the gap.
// frameSize stays: the caller has seen to the room, and most callers add `count` to it.
inline void InsertBytes(DFrame* frame, uint32_t offset, const uint8_t* bytes, uint32_t count) {
  uint8_t* const place = frame->frameData + offset;
  std::memmove(place + count, place, frame->frameSize - offset);
  std::memcpy(place, bytes, count);
}

}  // namespace qln

#endif
