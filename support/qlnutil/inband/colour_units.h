// Colour values as the streams carry them: whole numbers out of doubles, by arithmetic that is defined for
// all.
#ifndef QLNUTIL_INBAND_COLOUR_UNITS_H
#define QLNUTIL_INBAND_COLOUR_UNITS_H

#include <cstdint>

namespace qln {

// The whole number in front of the point, whose low bits a field takes; 0 for not a number and for what 64
// bits do not hold.
inline uint64_t WholeNumber(double value) {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63
  if (!(value > -kLimit && value < kLimit)) return 0;
  return static_cast<uint64_t>(static_cast<int64_t>(value));
}

// A chromaticity in units of 0.00002.
inline uint32_t ChromaticityUnits(double value) {
  return static_cast<uint32_t>(WholeNumber(value * 50000.0));
}

// A luminance in units of 0.0001 cd/m2.
inline uint32_t LuminanceUnits(double value) { return static_cast<uint32_t>(WholeNumber(value * 10000.0)); }

// A light level in cd/m2.
inline uint32_t LightLevelUnits(double value) { return static_cast<uint32_t>(WholeNumber(value)); }

}  // namespace qln

#endif
