// Positions: the normal form, and sums that are exact modulo 2^32 frames.

#include <gtest/gtest.h>

#include "qlnutil/qlntransport.h"
#include "support/test_support.h"
#include "transport/wide_model.h"

namespace qln {
namespace {

using test::WidePosition;

::testing::AssertionResult Is(const CQLNPos& position, int32_t whole, int32_t fraction) {
  if (position.floor() == whole && position.frac() == fraction) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << position.floor() << " + " << position.frac() << "/65520";
}

TEST(Position, BeginsAtZero) {
  const CQLNPos position;
  EXPECT_TRUE(Is(position, 0, 0));
  EXPECT_TRUE(position.IsZero());
  EXPECT_FALSE(position.IsNeg());
  EXPECT_FALSE(position.IsPlus());
  EXPECT_EQ(position.ceil(), 0);
}

TEST(Position, NormalisesOnEveryWayIn) {
  EXPECT_TRUE(Is(CQLNPos(0, -1), -1, 65519));
  EXPECT_TRUE(Is(CQLNPos(3, 65520), 4, 0));
  EXPECT_TRUE(Is(CQLNPos(0, -65520), -1, 0));
  EXPECT_TRUE(Is(CQLNPos(0, -65521), -2, 65519));
  EXPECT_TRUE(Is(CQLNPos(INT32_MAX, 65520), INT32_MIN, 0));
  EXPECT_TRUE(Is(CQLNPos(INT32_MIN, -1), INT32_MAX, 65519));
  EXPECT_TRUE(Is(CQLNPos(CQLNSpeed(-16380)), -1, 49140));
  EXPECT_TRUE(Is(CQLNPos(CQLNSpeed(98280)), 1, 32760));
  CQLNPos position(9, 9);
  EXPECT_EQ(&(position = CQLNSpeed(-1)), &position);
  EXPECT_TRUE(Is(position, -1, 65519));
  position.Set(CQLNSpeed(65520));
  EXPECT_TRUE(Is(position, 1, 0));
  position.Set(2, 65521);
  EXPECT_TRUE(Is(position, 3, 1));
  CQLNPos copy;
  EXPECT_EQ(&(copy = position), &copy);
  EXPECT_TRUE(Is(copy, 3, 1));
}

TEST(Position, TellsItsSignAndEdges) {
  const CQLNPos justBelow(0, -1);
  EXPECT_TRUE(justBelow.IsNeg());
  EXPECT_TRUE(justBelow.IsPlus()) << "its fraction is above 0";
  EXPECT_FALSE(justBelow.IsZero());
  EXPECT_EQ(justBelow.floor(), -1);
  EXPECT_EQ(justBelow.ceil(), 0);
  EXPECT_EQ(justBelow.fracbar(), 0);
  const CQLNPos seven(7, 0);
  EXPECT_EQ(seven.fracbar(), 65519);
  EXPECT_EQ(seven.ceil(), 7);
  EXPECT_TRUE(seven.IsPlus());
  EXPECT_FALSE(seven.IsNeg());
  EXPECT_TRUE(CQLNPos(0, 1).IsPlus());
  EXPECT_TRUE(CQLNPos(1, 0).IsPlus());
  EXPECT_FALSE(CQLNPos(0, 1).IsZero());
  EXPECT_FALSE(CQLNPos(-7, 0).IsPlus());
  EXPECT_EQ(CQLNPos(INT32_MAX, 1).ceil(), INT32_MIN);
}

TEST(Position, FromARatioInPlain32BitArithmetic) {
  const auto ratio = [](int32_t n, int32_t d) {
    CQLNPos position(5, 5);
    position.SetAsFrac(n, d);
    return position;
  };
  EXPECT_TRUE(Is(ratio(3, 2), 1, 32760));
  EXPECT_TRUE(Is(ratio(-3, 2), -2, 32760));
  EXPECT_TRUE(Is(ratio(3, -2), -2, 32760));
  EXPECT_TRUE(Is(ratio(-3, -2), 1, 32760));
  EXPECT_TRUE(Is(ratio(1001, 30000), 0, 2186));
  EXPECT_TRUE(Is(ratio(5, 0), 0, 0));
  EXPECT_TRUE(Is(ratio(INT32_MIN, -1), INT32_MIN, 0));
  EXPECT_TRUE(Is(ratio(INT32_MIN, 1), INT32_MIN, 0));
  // 32776 x 65520 is 2147483520 and still fits; 32777 x 65520 wraps to -2147418256.
  EXPECT_TRUE(Is(ratio(32776, 40000), 0, 53687));
  EXPECT_TRUE(Is(ratio(32777, 40000), -1, 65520 - 53685));
}

TEST(Position, SumsAndDifferences) {
  EXPECT_TRUE(Is(CQLNPos(1, 40000) + CQLNPos(2, 40000), 4, 14480));
  EXPECT_TRUE(Is(CQLNPos(1, 1) - CQLNPos(2, 2), -2, 65519));
  CQLNPos position(3, 0);
  EXPECT_EQ(&(position += CQLNSpeed(98280)), &position);
  EXPECT_TRUE(Is(position, 4, 32760));
  EXPECT_EQ(&(position -= CQLNSpeed(-98280)), &position);
  EXPECT_TRUE(Is(position, 6, 0));
  position -= CQLNSpeed(1);
  EXPECT_TRUE(Is(position, 5, 65519));
}

TEST(Position, LongRandomProgramsAgreeWithTheWideModel) {
  test::Random random(3);
  CQLNPos position;
  WidePosition model;
  for (int i = 0; i < 300000; ++i) {
    const int32_t a = static_cast<int32_t>(random.next()) >> random.below(32);
    const int32_t b = static_cast<int32_t>(random.next()) >> random.below(32);
    switch (random.below(8)) {
      case 0:
        position.Set(a, b);
        model = WidePosition::Of(a, b);
        break;
      case 1:
        position.Set(CQLNSpeed(a));
        model = WidePosition::Of(0, a);
        break;
      case 2:
        position += CQLNSpeed(a);
        model = model.Moved(a);
        break;
      case 3:
        position -= CQLNSpeed(a);
        model = model.Moved(-int64_t{a});
        break;
      case 4:
        position = position + CQLNPos(a, b);
        model = model.Plus(WidePosition::Of(a, b));
        break;
      case 5:
        position = position - CQLNPos(a, b);
        model = model.Minus(WidePosition::Of(a, b));
        break;
      case 6:
        position = CQLNPos(a, b) - position;
        model = WidePosition::Of(a, b).Minus(model);
        break;
      default:
        position = CQLNPos(position);
        break;
    }
    ASSERT_TRUE(Is(position, model.Whole(), model.Fraction())) << "operation " << i;
    ASSERT_EQ(position.fracbar(), 65519 - model.Fraction());
    ASSERT_EQ(position.IsZero(), model.Whole() == 0 && model.Fraction() == 0);
  }
}

}  // namespace
}  // namespace qln
