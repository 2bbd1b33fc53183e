// Best approximations of a fraction, by its continued fraction.

#include "base/rational.h"

#include <algorithm>
#include <numeric>

namespace qlnmedia {

namespace {

__extension__ using Wide = unsigned __int128;

struct Terms {
  uint64_t numerator;
  uint64_t denominator;
};

// The largest count for which `from + count * step` stays at most `most`.
uint64_t Room(uint64_t from, uint64_t step, uint64_t most) {
  return step == 0 ? UINT64_MAX : (most - from) / step;
}

}  // namespace

Rational Reduced(uint64_t numerator, uint64_t denominator, uint32_t most) {
  if (denominator == 0) return {};
  const uint64_t common = std::gcd(numerator, denominator);
  uint64_t n = numerator / common;
  uint64_t d = denominator / common;
  Terms before{0, 1};
  Terms last{1, 0};
  if (n <= most && d <= most) {
    last = {n, d};
    d = 0;
  }
  while (d != 0) {
    const uint64_t quotient = n / d;
    const uint64_t fits = std::min(Room(before.numerator, last.numerator, most),
                                   Room(before.denominator, last.denominator, most));
    if (quotient > fits) {
      // Between the last two convergents: nearer than the last one if it takes more than half of the step.
      const Terms between{fits * last.numerator + before.numerator,
                          fits * last.denominator + before.denominator};
      const bool nearer =
          Wide{d} * (Wide{2} * fits * last.denominator + before.denominator) > Wide{n} * last.denominator;
      if (nearer) last = between;
      break;
    }
    const Terms next{quotient * last.numerator + before.numerator,
                     quotient * last.denominator + before.denominator};
    before = last;
    last = next;
    const uint64_t rest = n % d;
    n = d;
    d = rest;
  }
  return {static_cast<int32_t>(last.numerator), static_cast<int32_t>(last.denominator)};
}

}  // namespace qlnmedia
