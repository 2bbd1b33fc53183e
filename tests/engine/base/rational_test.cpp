// Fractions in their lowest terms, and the best of those that fit where they do not.

#include "base/rational.h"

#include <gtest/gtest.h>

#include <cmath>

namespace qlnmedia {
namespace {

struct Case {
  uint64_t numerator;
  uint64_t denominator;
  uint32_t most;
  Rational expected;
};

TEST(Rational, IsReduced) {
  for (const Case& test :
       {Case{60000, 2002, 1u << 30, {30000, 1001}}, Case{0, 7, 1u << 30, {0, 1}},
        Case{7, 0, 1u << 30, {0, 1}}, Case{25, 1, 1u << 30, {25, 1}},
        Case{0xFFFFFFFF, 2 * uint64_t{0xFFFFFFFF}, 1u << 30, {1, 2}},
        // The convergents of pi, and what lies between them.
        Case{314159265, 100000000, 10, {3, 1}}, Case{314159265, 100000000, 22, {22, 7}},
        Case{314159265, 100000000, 400, {355, 113}}, Case{314159265, 100000000, 350, {333, 106}}}) {
    const Rational reduced = Reduced(test.numerator, test.denominator, test.most);
    EXPECT_EQ(reduced.numerator, test.expected.numerator) << test.numerator << "/" << test.denominator;
    EXPECT_EQ(reduced.denominator, test.expected.denominator) << test.numerator << "/" << test.denominator;
  }
}

// No fraction that fits is nearer: all of them are tried.
TEST(Rational, IsTheNearestOfThoseThatFit) {
  constexpr uint32_t kMost = 40;
  for (uint64_t numerator = 1; numerator < 400; numerator += 7) {
    for (uint64_t denominator = 1; denominator < 400; denominator += 11) {
      const double value = static_cast<double>(numerator) / static_cast<double>(denominator);
      if (value > kMost) continue;
      double best = value;
      for (uint32_t d = 1; d <= kMost; ++d) {
        const double n = std::min(std::round(value * d), static_cast<double>(kMost));
        best = std::min(best, std::abs(n / d - value));
      }
      EXPECT_NEAR(std::abs(Reduced(numerator, denominator, kMost).value() - value), best, 1e-12)
          << numerator << "/" << denominator;
    }
  }
}

}  // namespace
}  // namespace qlnmedia
