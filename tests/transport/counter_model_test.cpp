// The counter of a clip, and long random programs of counters against the wide model.

#include <gtest/gtest.h>

#include <vector>

#include "qlnutil/qlntransport.h"
#include "support/test_support.h"
#include "transport/counter_support.h"
#include "transport/wide_model.h"

namespace qln {
namespace {

using test::Counter;
using test::FractionOf;
using test::WideCounter;
using test::WidePosition;

TEST(ClipCounter, CountsFromTheInPoint) {
  CQLNTransTC2 counter = Counter(100, 110, 65520, 104);
  EXPECT_EQ(counter.In(), 100);
  EXPECT_EQ(counter.Out(), 110);
  EXPECT_EQ(counter.GetClipTC(), 4);
  counter.SetClipTC(13);
  EXPECT_EQ(counter.GetTC(), 103) << "folded";
  counter.SetClipTCLimit(1000);
  EXPECT_EQ(counter.GetTC(), 109);
  EXPECT_EQ(counter.GetClipTC(), 9);
  counter.SetClipTCLimit(9);
  EXPECT_EQ(counter.GetTC(), 109);
  counter.SetClipTCLimit(10);
  EXPECT_EQ(counter.GetTC(), 109);
  counter.SetClipTCLimit(3);
  EXPECT_EQ(counter.GetTC(), 103);
}

TEST(ClipCounter, LimitsWithoutFolding) {
  CQLNTransTC2 counter = Counter(100, 110, 16380, 104);
  ++counter;
  EXPECT_EQ(counter.GetRepeat(), 4);
  counter.SetSpeedZero(CQLNSpeed(16380));
  counter.SetTC(CQLNPos(104, 49140));
  EXPECT_EQ(counter.GetRepeat(), 1);
  ++counter;
  --counter;
  --counter;
  EXPECT_EQ(counter.GetIndex(), 0xFFFFFFFFu);
  counter.SetTC(CQLNPos(104, 49140));
  ++counter;
  EXPECT_EQ(counter.GetRepeat(), 4);
  const std::vector<std::pair<int32_t, int32_t>> rows = {{99, 100},  {100, 100}, {105, 105},      {109, 109},
                                                         {110, 109}, {500, 109}, {INT32_MIN, 100}};
  for (const auto& [wanted, got] : rows) {
    counter.SetTCLimit(wanted);
    EXPECT_EQ(counter.GetTC(), got);
    EXPECT_EQ(FractionOf(counter), 0);
    EXPECT_EQ(counter.GetIndex(), 1u) << "stays";
  }
  counter.SetTC(CQLNPos(104, 49140));
  EXPECT_EQ(counter.GetRepeat(), 1);
  counter.SetTCLimit(105);
  EXPECT_EQ(counter.GetRepeat(), 1) << "the count of the old place, once more";
  // Empty and open ranges give what the rule gives.
  counter.SetRange(50, 50);
  counter.SetTCLimit(60);
  EXPECT_EQ(counter.GetTC(), 49);
  counter.SetTCLimit(40);
  EXPECT_EQ(counter.GetTC(), 50);
  counter.SetRange(50, -1);
  counter.SetTCLimit(60);
  EXPECT_EQ(counter.GetTC(), -2);
}

// One random member call, made on a counter and on the model.
void Call(test::Random& random, CQLNTransTC2& counter, WideCounter& model) {
  const int32_t a = static_cast<int32_t>(random.next()) >> random.below(32);
  const int32_t b = static_cast<int32_t>(random.next()) >> random.below(32);
  const int32_t near = static_cast<int32_t>(random.below(400)) - 150;
  const int32_t speed = random.below(3) == 0 ? a : static_cast<int32_t>(random.below(9) - 4) * 16380;
  switch (random.below(24)) {
    case 0:
      counter.SetRange(a, b);
      model.SetRange(a, b);
      break;
    case 1:
      counter.SetRange(near, near + 40);
      model.SetRange(near, near + 40);
      break;
    case 2:
      counter.SetRange(near, -1);
      model.SetRange(near, -1);
      break;
    case 3:
      counter.SetSpeed(CQLNSpeed(speed));
      model.SetSpeed(speed);
      break;
    case 4:
      counter.SetSpeedZero(CQLNSpeed(speed));
      model.SetSpeedZero(speed);
      break;
    case 5:
      counter = CQLNSpeed(speed);
      model.speed = speed;
      break;
    case 6:
      counter.SetTC(near);
      model.GoToFrame(near);
      break;
    case 7:
      counter = a;
      model.GoToFrame(a);
      break;
    case 8:
      counter.SetTC(CQLNPos(near, b));
      model.GoTo(WidePosition::Of(near, b));
      break;
    case 9:
      counter.SetTCLimit(near);
      model.LimitFrame(near);
      break;
    case 10:
      counter.SetClipTC(near);
      model.GoToFrame(model.in + near);
      break;
    case 11:
      counter.SetClipTCLimit(near);
      model.GoToClipFrameLimited(near);
      break;
    case 12:
      counter += near;
      model.Step(1, near);
      break;
    case 13:
      counter -= a;
      model.Step(-1, a);
      break;
    case 14:
    case 15:
      --counter;
      model.Step(-1, 1);
      break;
    case 16:
    case 17:
      ASSERT_EQ(counter.GetRepeat(), static_cast<int32_t>(model.Count()));
      break;
    case 18: {
      CQLNTransTC2 copy;
      copy = counter;
      counter = CQLNTransTC2(copy);
      break;
    }
    default:
      ++counter;
      model.Step(1, 1);
      break;
  }
}

TEST(Counter, LongRandomProgramsAgreeWithTheWideModel) {
  for (uint64_t seed = 1; seed <= 40; ++seed) {
    test::Random random(seed);
    CQLNTransTC2 counter;
    WideCounter model;
    for (int i = 0; i < 20000; ++i) {
      Call(random, counter, model);
      ASSERT_EQ(counter.GetTC(), model.position.Whole()) << "seed " << seed << " call " << i;
      ASSERT_EQ(FractionOf(counter), model.position.Fraction()) << "seed " << seed << " call " << i;
      ASSERT_EQ(counter.GetIn(), static_cast<int32_t>(model.in));
      ASSERT_EQ(counter.GetOut(), static_cast<int32_t>(model.out));
      ASSERT_EQ(counter.GetDur(), test::To32(model.Duration()));
      ASSERT_EQ(counter.GetLSpeed(), static_cast<int32_t>(model.speed));
      ASSERT_EQ(counter.CQLNTransTC::GetIndex(), static_cast<int32_t>(model.index));
      ASSERT_EQ(counter.GetLastPlayCount(), static_cast<int32_t>(model.lastCount)) << "seed " << seed;
      ASSERT_EQ(counter.GetClipTC(), test::To32(test::Wide{counter.GetTC()} - model.in));
      if (HasFatalFailure()) return;
    }
  }
}

}  // namespace
}  // namespace qln
