// The transport counter: each rule by itself.

#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

#include "qlnutil/qlntransport.h"
#include "support/test_support.h"
#include "transport/counter_support.h"

namespace qln {
namespace {

using test::Counter;
using test::FractionOf;

int32_t CountOf(CQLNTransTC& counter) {
  int32_t count = -7;
  counter.GetTC(count);
  return count;
}

TEST(Counter, BeginsAtRest) {
  CQLNTransTC2 counter;
  EXPECT_EQ(counter.GetIn(), 0);
  EXPECT_EQ(counter.GetOut(), 0);
  EXPECT_EQ(counter.GetDur(), 0);
  EXPECT_EQ(counter.GetTC(), 0);
  EXPECT_EQ(FractionOf(counter), 0);
  EXPECT_EQ(counter.GetLSpeed(), 0);
  EXPECT_EQ(counter.GetIndex(), 0u);
  EXPECT_EQ(counter.GetLastPlayCount(), 1);
  uint32_t count = 99;
  EXPECT_EQ(counter.GetTC(count), 0);
  EXPECT_EQ(count, 1u);
}

TEST(Counter, CopiesArePlainAndSelfAssignmentDoesNothing) {
  CQLNTransTC2 counter = Counter(100, 110, 16380, 103);
  ++counter;
  CountOf(counter);
  CQLNTransTC2 copy;
  copy = counter;
  CQLNTransTC base;
  EXPECT_EQ(&(base = counter), &base);
  const CQLNTransTC2 constructed(counter);
  for (const CQLNTransTC* other :
       {static_cast<const CQLNTransTC*>(&copy), static_cast<const CQLNTransTC*>(&base),
        static_cast<const CQLNTransTC*>(&constructed)}) {
    EXPECT_EQ(other->GetIn(), 100);
    EXPECT_EQ(other->GetOut(), 110);
    EXPECT_EQ(other->GetDur(), 10);
    EXPECT_EQ(other->GetTC(), 104);
    EXPECT_EQ(other->GetLSpeed(), 16380);
    EXPECT_EQ(other->GetIndex(), 1);
  }
  EXPECT_EQ(copy.GetLastPlayCount(), 4);
  CQLNTransTC2& same = counter;
  counter = same;
  EXPECT_EQ(counter.GetTC(), 104);
}

TEST(Counter, ACopyKeepsAStalePlayCount) {
  CQLNTransTC2 counter = Counter(0, 100, 16380, 5);
  EXPECT_EQ(CountOf(counter), 4);
  counter = CQLNSpeed(32760);  // does not ask for a new count
  CQLNTransTC2 copy;
  copy = counter;
  EXPECT_EQ(CountOf(copy), 4);
}

TEST(Counter, AssignmentsGiveBackItsOwnMembers) {
  CQLNTransTC counter;
  CQLNPos& position = (counter = CQLNPos(7, 100));
  EXPECT_EQ(position.floor(), 7);
  position.Set(9, 0);
  EXPECT_EQ(counter.GetTC(), 9);
  CQLNSpeed& speed = (counter = CQLNSpeed(1234));
  speed.Set(4321);
  EXPECT_EQ(counter.GetLSpeed(), 4321);
  EXPECT_EQ((counter = 12), 12);
  static_assert(std::is_same_v<decltype(++counter), int32_t&>);
  static_assert(std::is_same_v<decltype(--counter), int32_t&>);
  static_assert(std::is_same_v<decltype(counter += 1), int32_t>);
  static_assert(std::is_same_v<decltype(counter -= 1), int32_t>);
  counter = CQLNSpeed(65520);
  ++counter = 40;
  EXPECT_EQ(counter.GetTC(), 40);
  --counter = 50;
  EXPECT_EQ(counter.GetTC(), 50);
  // Its own members as arguments are harmless.
  counter.SetTC(position);
  EXPECT_EQ(counter.GetTC(), 50);
  counter.SetSpeed(speed);
  EXPECT_EQ(counter.GetLSpeed(), 65520);
  counter.GetCPos(position);
  counter.GetCSpeed(speed);
  EXPECT_EQ(counter.GetTC(), 50);
  EXPECT_EQ(counter.GetLSpeed(), 65520);
  CQLNSpeed copy(7);
  counter.GetCSpeed(copy);
  EXPECT_EQ(copy.Get(), 65520);

  CQLNTransTC2 clip;
  clip.SetRange(10, 20);
  EXPECT_EQ((clip = 25), 15);
  EXPECT_EQ((clip = CQLNPos(26, 5)).floor(), 16);
  EXPECT_EQ((clip = CQLNSpeed(77)).Get(), 77);
}

TEST(Counter, ANewOneHasItsPlayCountStillToWorkOut) {
  CQLNTransTC counter;
  counter = CQLNSpeed(16380);
  EXPECT_EQ(CountOf(counter), 4);
}

TEST(Counter, AnAssignedSpeedLeavesFractionAndPlayCount) {
  CQLNTransTC counter = Counter(0, 0, 16380, 5);
  EXPECT_EQ(CountOf(counter), 4);
  counter = CQLNSpeed(32760);
  EXPECT_EQ(FractionOf(counter), 0);
  EXPECT_EQ(CountOf(counter), 4) << "the count of the old speed, once more";
  ++counter;
  EXPECT_EQ(counter.GetTC(), 7) << "four times half a frame";
  EXPECT_EQ(CountOf(counter), 2);
}

TEST(Counter, PlayCountIsReadInFourWidthsAndInto64Bits) {
  const auto at = [] { return Counter(0, 0, 1, 5); };  // 65520 ticks a frame
  CQLNTransTC counter = at();
  int16_t s16 = 0;
  EXPECT_EQ(counter.GetTC(s16), 5);
  EXPECT_EQ(s16, static_cast<int16_t>(65520 - 65536));
  uint16_t u16 = 0;
  counter.GetTC(u16);
  EXPECT_EQ(u16, 65520);
  int32_t s32 = 0;
  counter.GetTC(s32);
  EXPECT_EQ(s32, 65520);
  uint32_t u32 = 0;
  counter.GetTC(u32);
  EXPECT_EQ(u32, 65520u);
  long s64 = -1;
  EXPECT_EQ(counter.GetTC(s64), 5);
  EXPECT_EQ(s64, 65520);
  unsigned long u64 = 0;
  counter.GetTC(u64);
  EXPECT_EQ(u64, 65520u);
  long long widest = 0;
  counter.GetTC(widest);
  EXPECT_EQ(widest, 65520);
}

TEST(Counter, RangesComeInEitherOrder) {
  CQLNTransTC counter;
  counter.SetTC(3);
  counter.SetRange(20, 10);
  EXPECT_EQ(counter.GetIn(), 10);
  EXPECT_EQ(counter.GetOut(), 20);
  EXPECT_EQ(counter.GetDur(), 10);
  EXPECT_EQ(counter.GetTC(), 3) << "the range alone moves nothing";
  counter.SetRange(10, 10);
  EXPECT_EQ(counter.GetDur(), 0);
  counter.SetRange(10, -1);
  EXPECT_EQ(counter.GetIn(), 10);
  EXPECT_EQ(counter.GetOut(), -1);
  EXPECT_EQ(counter.GetDur(), -11);
  counter.SetRange(-1, 10);
  EXPECT_EQ(counter.GetIn(), -1);
  EXPECT_EQ(counter.GetOut(), 10);
  counter.SetRange(10, -2);
  EXPECT_EQ(counter.GetIn(), -2);
  EXPECT_EQ(counter.GetOut(), 10);
  counter.SetRange(-1, -1);
  EXPECT_EQ(counter.GetDur(), 0);
  counter.SetRange(INT32_MAX, INT32_MIN);
  EXPECT_EQ(counter.GetIn(), INT32_MIN);
  EXPECT_EQ(counter.GetDur(), -1) << "wraps";
}

TEST(Counter, SetSpeedPutsShuttleSpeedsInMidFrame) {
  CQLNTransTC2 counter;
  for (const int32_t speed : {0, 1, -1, 32760, 65519, 65521, -65519, 131040, INT32_MAX, INT32_MIN}) {
    counter.SetTC(CQLNPos(5, 17));
    counter.SetSpeed(CQLNSpeed(speed));
    EXPECT_EQ(FractionOf(counter), 32760) << speed;
    EXPECT_EQ(counter.GetTC(), 5);
    counter.SetTC(CQLNPos(5, 17));
    counter.SetSpeedZero(CQLNSpeed(speed));
    EXPECT_EQ(FractionOf(counter), 17) << speed;
    EXPECT_EQ(counter.GetLSpeed(), speed);
  }
  for (const int32_t speed : {65520, -65520}) {
    counter.SetTC(CQLNPos(5, 17));
    counter.SetSpeed(CQLNSpeed(speed));
    EXPECT_EQ(FractionOf(counter), 0) << speed;
    counter.SetTC(CQLNPos(5, 17));
    counter.SetSpeedZero(CQLNSpeed(speed));
    EXPECT_EQ(FractionOf(counter), 0) << speed;
    EXPECT_EQ(counter.GetTC(), 5);
  }
}

TEST(Counter, BothSpeedSettersAskForANewPlayCount) {
  CQLNTransTC2 counter = Counter(0, 0, 16380, 5);
  EXPECT_EQ(counter.GetRepeat(), 4);
  counter.SetSpeedZero(CQLNSpeed(32760));
  EXPECT_EQ(counter.GetLastPlayCount(), 4) << "nothing worked out yet";
  EXPECT_EQ(counter.GetRepeat(), 2);
  counter.SetSpeed(CQLNSpeed(16380));
  EXPECT_EQ(counter.GetRepeat(), 2) << "from mid-frame";
}

TEST(Counter, WithoutARangeItRunsFree) {
  CQLNTransTC2 counter = Counter(0, 0, 65520, 5);
  EXPECT_EQ(++counter, 6);
  EXPECT_EQ(--counter, 5);
  counter.SetTC(-50);
  EXPECT_EQ(counter.GetTC(), -50) << "no folding";
  counter.SetTC(INT32_MAX);
  EXPECT_EQ(++counter, INT32_MIN);
}

TEST(Counter, AtRestOnlyTheIndexMoves) {
  CQLNTransTC2 counter = Counter(0, 100, 0, 5);
  EXPECT_EQ(++counter, 5);
  EXPECT_EQ(counter.GetIndex(), 1u);
  EXPECT_EQ(--counter, 5);
  --counter;
  EXPECT_EQ(counter.GetIndex(), 0xFFFFFFFFu) << "steps back count below 0";
  EXPECT_EQ(counter.CQLNTransTC::GetIndex(), -1);
}

TEST(Counter, StepsByManyChangeTheIndexByOne) {
  CQLNTransTC2 counter = Counter(0, 100, 65520, 50);
  EXPECT_EQ(counter += 7, 57);
  EXPECT_EQ(counter.GetIndex(), 1u);
  EXPECT_EQ(counter -= 3, 54);
  EXPECT_EQ(counter.GetIndex(), 0u);
}

TEST(Counter, LoopsForwardAtTheOutPoint) {
  CQLNTransTC counter = Counter(100, 110, 65520, 109);
  EXPECT_EQ(++counter, 100);
  EXPECT_EQ(++counter, 101);
  counter = Counter(0, 100, 131040, 99);
  EXPECT_EQ(++counter, 1);
  counter = Counter(0, 100, 32760, 99);
  EXPECT_EQ(CountOf(counter), 2);
  EXPECT_EQ(++counter, 0);
  EXPECT_EQ(FractionOf(counter), 0);
}

TEST(Counter, LoopsBackwardAsHostsKnowIt) {
  CQLNTransTC counter = Counter(100, 110, 65520, 100);
  EXPECT_EQ(--counter, 105);
  counter = Counter(0, 10, -65520, 0);
  EXPECT_EQ(++counter, 9);
  EXPECT_EQ(++counter, 8);
  counter = Counter(0, 100, 65520, 0);
  EXPECT_EQ(--counter, 99);
}

TEST(Counter, FoldsAPositionThatIsSet) {
  const auto folded = [](int32_t in, int32_t out, int32_t frame) {
    CQLNTransTC counter;
    counter.SetRange(in, out);
    counter.SetTC(frame);
    return counter.GetTC();
  };
  EXPECT_EQ(folded(10, 12, 20), 10);
  EXPECT_EQ(folded(10, 12, 5), 11);
  EXPECT_EQ(folded(0, 10, -99), 7);
  EXPECT_EQ(folded(0, 10, -100), 6);
  EXPECT_EQ(folded(10, -1, 5), 16);
  EXPECT_EQ(folded(10, -1, 10), 10);
  EXPECT_EQ(folded(10, -1, 0), 11);
  EXPECT_EQ(folded(10, -1, 9), 20);
  EXPECT_EQ(folded(10, -1, -1), -12);
  EXPECT_EQ(folded(10, -1, -99), -110);
  EXPECT_EQ(folded(10, -1, -100), -100);
  EXPECT_EQ(folded(-5, -1, -1), -5) << "in front of -1 it is a range like any other: -1 + 4 frames, folded";
  EXPECT_EQ(folded(10, -1, INT32_MAX), INT32_MAX);
  EXPECT_EQ(folded(0, 100, -1), 99);
}

TEST(Counter, APositionThatIsSetKeepsItsFractionAndZeroesTheIndex) {
  CQLNTransTC2 counter = Counter(0, 10, 16380, 3);
  ++counter;
  counter.SetTC(CQLNPos(13, 49140));
  EXPECT_EQ(counter.GetTC(), 3);
  EXPECT_EQ(FractionOf(counter), 49140);
  EXPECT_EQ(counter.GetIndex(), 0u);
  EXPECT_EQ(CountOf(counter), 1);
  ++counter;
  counter.SetTC(7);
  EXPECT_EQ(counter.GetIndex(), 0u);
  EXPECT_EQ(FractionOf(counter), 0);
  EXPECT_EQ(CountOf(counter), 4);
}

TEST(Counter, SlowStepsCrossIntoTheNextFrame) {
  CQLNTransTC counter = Counter(0, 0, 16380, 3);
  for (int32_t frame = 3; frame < 8; ++frame) {
    EXPECT_EQ(counter.GetTC(), frame);
    EXPECT_EQ(CountOf(counter), 4);
    ++counter;
  }
  // Half speed from mid-frame, where SetSpeed puts it: 1, then 2.
  counter.SetTC(3);
  counter.SetSpeed(CQLNSpeed(32760));
  EXPECT_EQ(CountOf(counter), 1);
  EXPECT_EQ(++counter, 4);
  EXPECT_EQ(FractionOf(counter), 0);
  EXPECT_EQ(CountOf(counter), 2);
  // A quarter back from the start of a frame: 1 onto three quarters of the frame before, then 4.
  counter = Counter(0, 0, -16380, 3);
  EXPECT_EQ(CountOf(counter), 1);
  EXPECT_EQ(++counter, 2);
  EXPECT_EQ(FractionOf(counter), 49140);
  EXPECT_EQ(CountOf(counter), 4);
  EXPECT_EQ(++counter, 1);
  EXPECT_EQ(CountOf(counter), 4);
}

TEST(Counter, FastStepsMoveByTheSpeed) {
  CQLNTransTC counter = Counter(0, 0, 98280, 3);
  std::vector<std::pair<int32_t, int32_t>> places;
  for (int i = 0; i < 3; ++i) {
    ++counter;
    places.emplace_back(counter.GetTC(), FractionOf(counter));
    EXPECT_EQ(CountOf(counter), 1);
  }
  EXPECT_EQ(places, (std::vector<std::pair<int32_t, int32_t>>{{4, 32760}, {6, 0}, {7, 32760}}));
}

TEST(Counter, AtRestAndAtSpeedThePlayCountLeavesTheLastOneAlone) {
  CQLNTransTC2 counter = Counter(0, 0, 16380, 3);
  EXPECT_EQ(counter.GetRepeat(), 4);
  for (const int32_t speed : {0, 65520, -65520, 200000, INT32_MAX, INT32_MIN}) {
    counter.SetSpeed(CQLNSpeed(speed));
    EXPECT_EQ(counter.GetRepeat(), 1) << speed;
    EXPECT_EQ(counter.GetLastPlayCount(), 4) << speed;
  }
}

TEST(Counter, TheMostNegativeDistanceIsSubtractedAsItStands) {
  CQLNTransTC forward = Counter(0, 0, INT32_MIN, 0);
  CQLNTransTC back = forward;
  ++forward;
  --back;
  EXPECT_EQ(forward.GetTC(), -32777);
  EXPECT_EQ(FractionOf(forward), 65392);
  EXPECT_EQ(back.GetTC(), 32776);
  EXPECT_EQ(FractionOf(back), 128);
}

}  // namespace
}  // namespace qln
