// Counters at a place, and what they tell.
#ifndef TESTS_TRANSPORT_COUNTER_SUPPORT_H
#define TESTS_TRANSPORT_COUNTER_SUPPORT_H

#include <gtest/gtest.h>

#include "qlnutil/qlntransport.h"
#include "support/test_support.h"

namespace qln::test {

inline CQLNPos PositionOf(const CQLNTransTC& counter) {
  CQLNPos position;
  counter.GetCPos(position);
  return position;
}

inline int32_t FractionOf(const CQLNTransTC& counter) { return PositionOf(counter).frac(); }

// A counter with a range, a speed, and then a place, fraction 0.
inline CQLNTransTC2 Counter(int32_t in, int32_t out, int32_t speed, int32_t frame) {
  CQLNTransTC2 counter;
  counter.SetRange(in, out);
  counter.SetSpeed(CQLNSpeed(speed));
  counter.SetTC(frame);
  return counter;
}

}  // namespace qln::test

#endif
