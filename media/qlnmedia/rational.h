/// @file rational.h
/// Exact fractions: rates, and the units in which times are counted.
#ifndef QLNMEDIA_RATIONAL_H
#define QLNMEDIA_RATIONAL_H

#include <cstdint>

namespace qlnmedia {

/// `numerator` / `denominator`; 0 / 1 is "not known" for a rate.
struct Rational {
  int32_t numerator = 0;    ///< above the line
  int32_t denominator = 1;  ///< below the line; 0 counts as "not known"

  /// The quotient; 0 where the denominator is 0.
  double value() const {
    return denominator == 0 ? 0 : static_cast<double>(numerator) / static_cast<double>(denominator);
  }
  /// Equal in value; fractions need not be reduced.
  friend bool operator==(const Rational& a, const Rational& b) {
    return int64_t{a.numerator} * b.denominator == int64_t{b.numerator} * a.denominator;
  }
};

}  // namespace qlnmedia

#endif
