// Exact fractions, and how large ones are made to fit.
#ifndef MEDIA_BASE_RATIONAL_H
#define MEDIA_BASE_RATIONAL_H

#include "qlnmedia/rational.h"

namespace qlnmedia {

// The fraction in its lowest terms. Where a term is above `most`, the nearest one of the fractions that fit.
// `most` is at least 1 and fits an int32_t; a denominator of 0 gives 0 / 1.
Rational Reduced(uint64_t numerator, uint64_t denominator, uint32_t most = 1u << 30);

// Seconds in a time that is counted in units of `unit` seconds: the nearest number to the exact quotient, so
// that 7000 units of 1/5000 are 1.4. 0 where the unit is none.
inline double SecondsOf(int64_t time, Rational unit) {
  return unit.denominator == 0 ? 0 : static_cast<double>(time) * unit.numerator / unit.denominator;
}

}  // namespace qlnmedia

#endif
