// The arithmetic that speeds and positions share: frames of 65520 units, in 32 bits that wrap.
#ifndef QLNUTIL_TRANSPORT_FIXED_POINT_H
#define QLNUTIL_TRANSPORT_FIXED_POINT_H

#include <cstdint>

#include "qlnutil/qlntransport.h"

namespace qln {

constexpr int32_t WrappingAdd(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

constexpr int32_t WrappingSubtract(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

constexpr int32_t WrappingMultiply(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

// Right for the most negative value too.
constexpr uint32_t AbsoluteSpeed(int32_t raw) {
  return raw < 0 ? 0u - static_cast<uint32_t>(raw) : static_cast<uint32_t>(raw);
}

// Plain play and plain reverse leave no fraction behind; every other speed counts as shuttling.
constexpr bool IsPlainSpeed(int32_t raw) { return raw == QLN_SPEED_PLAY || raw == -QLN_SPEED_PLAY; }

struct FloorParts {
  int32_t whole;
  int32_t fraction;  // 0 to 65519
};

// Whole frames, rounded down, and what remains.
constexpr FloorParts SplitByFloor(int32_t units) {
  FloorParts parts{units / QLN_SPEED_PLAY, units % QLN_SPEED_PLAY};
  if (parts.fraction < 0) {
    --parts.whole;
    parts.fraction += QLN_SPEED_PLAY;
  }
  return parts;
}

}  // namespace qln

#endif
