// Folding of frame rates to their base rate, and what is classified behind it.
#ifndef QLNUTIL_FORMAT_RATES_H
#define QLNUTIL_FORMAT_RATES_H

#include <cstdint>
#include <limits>

namespace qln {

// Low 9 bits of a signal format.
inline constexpr uint32_t kRateFieldMask = 0x1FF;
// The rate field that says that the rate is none of those with a field value.
inline constexpr uint32_t kRateFieldNone = 256;

// A range of rates in frames per second.
struct RateRange {
  double from;
  bool fromIncluded;
  double below;  // or kNoRateLimit

  constexpr bool Contains(double r) const { return (fromIncluded ? r >= from : r > from) && !(r >= below); }
};

// No rate, the infinite one included, is at or above not-a-number.
inline constexpr double kNoRateLimit = std::numeric_limits<double>::quiet_NaN();

// Brings half, double, triple and quadruple rates to the rate that the same timecode counts at.
double FoldToBaseRate(double framesPerSecond);

// Gives the rational rate for a rate in frames per second, after folding: 25, 23.976, 24, 48, 60 (and above),
// 59.94, 50, 29.97 or 30. Any other rate gives its integer part times 100 over 100, in 32 bits; a rate that
// is not a number, or whose integer part does not fit 32 bits with sign, gives 0 over 100. Returns 0 for a
// rate of the list, 1 for any other, -1 for a null pointer (nothing is written).
int32_t vidRateScaleFromFPS(double framesPerSecond, uint32_t* rate, uint32_t* scale);

}  // namespace qln

#endif
