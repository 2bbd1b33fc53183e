// Exact fractions, and how large ones are made to fit.
#ifndef MEDIA_BASE_RATIONAL_H
#define MEDIA_BASE_RATIONAL_H

#include "qlnmedia/rational.h"

namespace qlnmedia {

// The fraction in its lowest terms. Where a term is above `most`, the nearest one of the fractions that fit.
// `most` is at least 1 and fits an int32_t; a denominator of 0 gives 0 / 1.
Rational Reduced(uint64_t numerator, uint64_t denominator, uint32_t most = 1u << 30);

}  // namespace qlnmedia

#endif
