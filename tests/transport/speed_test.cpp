// Speeds, and the rates and repeat counts that hosts take from them.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "kxutil/kxutil.h"
#include "qlnutil/qlntransport.h"
#include "support/test_support.h"

namespace qln {
namespace {

TEST(Speed, BeginsAtPlainPlay) { EXPECT_EQ(CQLNSpeed().Get(), 65520); }

TEST(Speed, HoldsARawValue) {
  for (const int32_t raw : {0, 1, -1, 65520, -65520, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(CQLNSpeed(raw).Get(), raw);
    CQLNSpeed speed;
    speed.Set(raw);
    EXPECT_EQ(speed.Get(), raw);
    CQLNSpeed copy(5);
    EXPECT_EQ(&(copy = speed), &copy);
    EXPECT_EQ(copy.Get(), raw);
    EXPECT_EQ(CQLNSpeed(speed).Get(), raw);
  }
}

TEST(Speed, ARatioIsRoundedHalvesAwayFromZero) {
  EXPECT_EQ(CQLNSpeed(1, 0).Get(), 0x7FFFFFFF);
  EXPECT_EQ(CQLNSpeed(0, 0).Get(), 0x7FFFFFFF);
  EXPECT_EQ(CQLNSpeed(1001, 2002).Get(), 32760);
  EXPECT_EQ(CQLNSpeed(1, 1).Get(), 65520);
  EXPECT_EQ(CQLNSpeed(-1, 4).Get(), -16380);
  EXPECT_EQ(CQLNSpeed(1, 65520 * 2).Get(), 1);    // exactly one half
  EXPECT_EQ(CQLNSpeed(-1, 65520 * 2).Get(), -1);  // minus one half
  EXPECT_EQ(CQLNSpeed(1, 65520 * 2 + 1).Get(), 0);
  EXPECT_EQ(CQLNSpeed(1, 7).Get(), 9360);
  EXPECT_EQ(CQLNSpeed(40000, 1).Get(), -1) << "outside 32 bits";
  EXPECT_EQ(CQLNSpeed(INT32_MIN, -1).Get(), -1);
  EXPECT_EQ(CQLNSpeed(INT32_MIN, INT32_MIN).Get(), 65520);
  CQLNSpeed speed;
  speed.Set(3, 2);
  EXPECT_EQ(speed.Get(), 98280);
  speed.Set(-5, 0);
  EXPECT_EQ(speed.Get(), 0x7FFFFFFF);
}

TEST(Speed, TakesADoubleTruncatedAndHeldInside32Bits) {
  const auto assigned = [](double times) {
    CQLNSpeed speed(77);
    EXPECT_EQ(&(speed = times), &speed);
    return speed.Get();
  };
  EXPECT_EQ(assigned(1.0), 65520);
  EXPECT_EQ(assigned(-1.5), -98280);
  EXPECT_EQ(assigned(0.9 / 65520), 0);
  EXPECT_EQ(assigned(-0.9 / 65520), 0);
  EXPECT_EQ(assigned(1.9 / 65520), 1);
  EXPECT_EQ(assigned(-1.9 / 65520), -1);
  EXPECT_EQ(assigned(32776.0), 32776 * 65520);
  EXPECT_EQ(assigned(2147483646.5 / 65520), 2147483646);
  EXPECT_EQ(assigned(-2147483647.5 / 65520), -2147483647);
  EXPECT_EQ(assigned(32777.0), INT32_MAX);
  EXPECT_EQ(assigned(-32777.0), INT32_MIN);
  EXPECT_EQ(assigned(1e300), INT32_MAX);
  EXPECT_EQ(assigned(-1e300), INT32_MIN);
  EXPECT_EQ(assigned(std::numeric_limits<double>::infinity()), INT32_MAX);
  EXPECT_EQ(assigned(-std::numeric_limits<double>::infinity()), INT32_MIN);
  EXPECT_EQ(assigned(std::nan("")), 0);
}

TEST(Speed, AnAssignedIntegerCountsAsAMultipleOfPlay) {
  CQLNSpeed speed;
  speed = 2;
  EXPECT_EQ(speed.Get(), 131040);
  speed = 65520;
  EXPECT_EQ(speed.Get(), INT32_MAX);
}

TEST(Speed, SplitsTowardZeroAndByFloor) {
  struct Row {
    int32_t raw, whole, frac, floorWhole, floorFrac;
  };
  for (const Row& row : {Row{0, 0, 0, 0, 0},
                         {1, 0, 1, 0, 1},
                         {-1, 0, -1, -1, 65519},
                         {65519, 0, 65519, 0, 65519},
                         {65520, 1, 0, 1, 0},
                         {-65520, -1, 0, -1, 0},
                         {-65521, -1, -1, -2, 65519},
                         {98280, 1, 32760, 1, 32760},
                         {-98280, -1, -32760, -2, 32760},
                         {INT32_MAX, 32776, INT32_MAX - 32776 * 65520, 32776, 127},
                         {INT32_MIN, -32776, INT32_MIN + 32776 * 65520, -32777, 65392}}) {
    CQLNSpeed speed(row.raw);
    EXPECT_EQ(speed.Whole(), row.whole) << row.raw;
    EXPECT_EQ(speed.Frac(), row.frac) << row.raw;
    EXPECT_EQ(speed.Get(), row.raw);
    EXPECT_EQ(speed.Fractionalize(), row.floorWhole) << row.raw;
    EXPECT_EQ(speed.Get(), row.floorFrac) << row.raw;
  }
}

TEST(Speed, AbsoluteAndDouble) {
  EXPECT_EQ(CQLNSpeed(-7).Abs(), 7);
  EXPECT_EQ(CQLNSpeed(7).Abs(), 7);
  EXPECT_EQ(CQLNSpeed(0).Abs(), 0);
  EXPECT_EQ(CQLNSpeed(INT32_MAX).Abs(), INT32_MAX);
  EXPECT_EQ(CQLNSpeed(INT32_MIN).Abs(), INT32_MIN) << "2^31 as 32 bits";
  EXPECT_EQ(CQLNSpeed(98280).Double(), 1.5);
  EXPECT_EQ(CQLNSpeed(-32760).Double(), -0.5);
  EXPECT_EQ(CQLNSpeed(1).Double(), 1 / 65520.0);
}

TEST(Speed, ProductAndRatio) {
  EXPECT_EQ((CQLNSpeed(98280) * CQLNSpeed(131040)).Get(), 196560);
  EXPECT_EQ((CQLNSpeed(-32760) * CQLNSpeed(32760)).Get(), -16380);
  EXPECT_EQ((CQLNSpeed(32760) * CQLNSpeed(1)).Get(), 1) << "one half goes up";
  EXPECT_EQ((CQLNSpeed(-32760) * CQLNSpeed(1)).Get(), -1) << "minus one half goes down";
  EXPECT_EQ((CQLNSpeed(32759) * CQLNSpeed(1)).Get(), 0);
  EXPECT_EQ((CQLNSpeed(INT32_MAX) * CQLNSpeed(131040)).Get(), -1);
  EXPECT_EQ((CQLNSpeed(98280) / CQLNSpeed(131040)).Get(), 49140);
  EXPECT_EQ((CQLNSpeed(-65520) / CQLNSpeed(32760)).Get(), -131040);
  EXPECT_EQ((CQLNSpeed(65520) / CQLNSpeed(0)).Get(), -1);
  EXPECT_EQ((CQLNSpeed(INT32_MAX) / CQLNSpeed(1)).Get(), -1);
}

TEST(SpeedRate, Is1616FixedPoint) {
  EXPECT_EQ(speedRate(65520), 0x10000u);
  EXPECT_EQ(speedRate(32760), 0x8000u);
  EXPECT_EQ(speedRate(98280), 0x18000u);
  EXPECT_EQ(speedRate(1), 1u);
  EXPECT_EQ(speedRate(-65520), 0x10000u);
  EXPECT_EQ(speedRate(0), 0u);
  EXPECT_EQ(speedRate(65519), 0xFFFEu) << "65534.99 is truncated";
  EXPECT_EQ(speedRate(INT32_MAX), 32776u << 16 | 127u);
  EXPECT_EQ(speedRate(INT32_MIN), 32776u << 16 | 128u);
}

// The run of speedReps belongs to the process; this test must be the first to use it, so nothing else does.
TEST(SpeedReps, CountsStepsAndRepeats) {
  uint32_t counter = 0;
  EXPECT_EQ(speedReps(nullptr, 0), 0u);
  EXPECT_EQ(speedReps(&counter, 0x7FFFFFFF), 1u) << "no run yet";
  EXPECT_EQ(counter, 0u);

  const auto run = [&counter](int32_t speed, size_t calls) {
    speedReps(nullptr, speed == 12345 ? 12346 : 12345);  // leaves whatever run there was
    counter = 0;
    std::vector<uint32_t> results;
    for (size_t i = 0; i < calls; ++i) results.push_back(speedReps(&counter, speed));
    return results;
  };
  using Results = std::vector<uint32_t>;
  EXPECT_EQ(run(65520, 3), Results({1, 1, 1}));
  EXPECT_EQ(counter, 6u);
  EXPECT_EQ(run(98280, 3), Results({1, 1, 1}));
  EXPECT_EQ(counter, 9u);
  EXPECT_EQ(run(32760, 3), Results({1, 1, 1}));
  EXPECT_EQ(counter, 3u);
  EXPECT_EQ(run(16380, 3), Results({2, 2, 2}));
  EXPECT_EQ(counter, 3u);
  EXPECT_EQ(run(10000, 5), Results({3, 3, 3, 4, 3}));
  EXPECT_EQ(counter, 5u);
  EXPECT_EQ(run(40000, 6), Results({0, 1, 1, 1, 1, 0}));
  EXPECT_EQ(counter, 6u);
  EXPECT_EQ(run(-65520, 5), Results({0, 0, 1, 0, 1})) << "reverse is slow, and exactly 1.0 is not above 1.0";
  EXPECT_EQ(counter, 5u);
  EXPECT_EQ(run(-1, 2), Results({32760, 32760}));
  EXPECT_EQ(run(INT32_MIN, 2), Results({0, 0}));
  EXPECT_EQ(counter, 2u);

  // Two and a half counts a call: 2, 2, then 3 once more than 1.0 has accumulated.
  run(81900, 0);
  counter = 0;
  Results counts;
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(speedReps(&counter, 81900), 1u);
    counts.push_back(counter);
  }
  EXPECT_EQ(counts, Results({2, 4, 7, 9, 12, 14}));

  // A speed of 0 does not disturb the run, 0x7FFFFFFF goes on with it, another speed begins anew.
  run(10000, 2);
  EXPECT_EQ(speedReps(nullptr, 0), 0u);
  EXPECT_EQ(speedReps(&counter, 0), 0u);
  EXPECT_EQ(counter, 2u);
  EXPECT_EQ(speedReps(&counter, 0x7FFFFFFF), 3u);
  EXPECT_EQ(speedReps(nullptr, 10000), 4u);
  EXPECT_EQ(counter, 3u);
  EXPECT_EQ(speedReps(nullptr, 16380), 2u);
  EXPECT_EQ(run(10000, 4), Results({3, 3, 3, 4}));

  // Without a counter a fast run accumulates; one count is added for it, whatever the sum has grown to.
  run(81900, 0);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(speedReps(nullptr, 81900), 1u);
  counter = 0;
  EXPECT_EQ(speedReps(&counter, 81900), 1u);  // 4.5 accumulated
  EXPECT_EQ(counter, 3u);
  EXPECT_EQ(speedReps(&counter, 81900), 1u);  // 0.5 left, now exactly 1.0
  EXPECT_EQ(counter, 5u);
  EXPECT_EQ(speedReps(&counter, 81900), 1u);
  EXPECT_EQ(counter, 8u);

  counter = 0xFFFFFFFF;
  speedReps(&counter, 65520);
  EXPECT_EQ(counter, 1u) << "the counter wraps";
}

TEST(MulDivRule, IsWhatTheSpeedsAreBuiltOn) {
  test::Random random(11);
  for (int i = 0; i < 20000; ++i) {
    const auto pick = [&random] {
      const int32_t value = static_cast<int32_t>(random.next());
      return random.below(2) == 0 ? value : value >> random.below(32);
    };
    const int32_t a = pick();
    const int32_t b = pick();
    const long double scaled = static_cast<long double>(a) * 65520 / (b == 0 ? 1 : b);
    const long double rounded =
        std::round(scaled);  // halves away from zero; 64 bits of mantissa are exact here
    const bool fits = rounded >= -2147483648.0L && rounded <= 2147483647.0L;
    ASSERT_EQ(CQLNSpeed(a, b).Get(), b == 0 ? INT32_MAX
                                     : fits ? static_cast<int32_t>(rounded)
                                            : -1)
        << a << " / " << b;
    ASSERT_EQ((CQLNSpeed(a) / CQLNSpeed(b)).Get(), b == 0 || !fits ? -1 : static_cast<int32_t>(rounded));
  }
}

}  // namespace
}  // namespace qln
