// The coded picture buffer, worked out by hand by ITU-T H.264 clause C.1 and H.265 clauses C.2.2 and C.2.3.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "html/cpb_model.h"
#include "html/hrd.h"
#include "support/test_support.h"

namespace qlnmedia::html {
namespace {

using qln::test::BitBuilder;

constexpr CpbSchedule kConstant{.bitRate = 8000, .cpbSize = 8000, .constant = true, .tick = 0.1};
constexpr CpbSchedule kVariable{.bitRate = 16000, .cpbSize = 8000, .constant = false, .tick = 0.1};
constexpr uint32_t kHalfSecond = 45000;

std::vector<std::optional<CpbState>> StatesOf(const CpbSchedule& schedule,
                                              const std::vector<CpbPicture>& pictures) {
  CpbModel model;
  for (const CpbPicture& picture : pictures) model.Take(schedule, picture);
  model.Finish();
  return model.Settled();
}

std::vector<double> Befores(const std::vector<std::optional<CpbState>>& states) {
  std::vector<double> befores;
  for (const auto& state : states) befores.push_back(state ? state->before : -1);
  return befores;
}

MATCHER_P(Near, value, "") { return std::abs(arg - value) < 1e-6; }

// Bits arrive without a pause: 8000 times the time, less what has been taken out.
TEST(CpbModel, ConstantRate) {
  const auto states = StatesOf(kConstant, {{2000, BufferingPeriod{kHalfSecond, 0}, 0},
                                           {1000, {}, 1},
                                           {1000, {}, 2},
                                           {2000, {}, 3},
                                           {4000, {}, 4}});
  EXPECT_THAT(Befores(states),
              testing::ElementsAre(Near(4000), Near(2800), Near(2600), Near(2400), Near(1200)));
  EXPECT_NEAR(states[3]->arrival, 0.75, 1e-9);
  EXPECT_NEAR(states[3]->removal, 0.8, 1e-9);
  EXPECT_FALSE(states[3]->underflow);
  // Its last bit is there at 1.25 s, and it is to be taken out at 0.9 s.
  EXPECT_NEAR(states[4]->arrival, 1.25, 1e-9);
  EXPECT_TRUE(states[4]->underflow);
}

// A picture does not begin to arrive more than the initial delay (and its offset) in front of its removal.
TEST(CpbModel, VariableRateWaits) {
  std::vector<CpbPicture> pictures = {{800, BufferingPeriod{kHalfSecond, 0}, 0}};
  for (uint64_t i = 1; i < 6; ++i) pictures.push_back({1600, {}, i});
  const auto states = StatesOf(kVariable, pictures);
  EXPECT_NEAR(states[0]->arrival, 0.05, 1e-9);
  EXPECT_NEAR(states[1]->arrival, 0.2, 1e-9);  // from 0.1 s on
  EXPECT_NEAR(states[0]->before, 800 + 4 * 1600, 1e-6);
  pictures[0].period->offset = 4500;  // 0.05 s
  EXPECT_NEAR(StatesOf(kVariable, pictures)[1]->arrival, 0.15, 1e-9);
}

// At a constant rate it follows the one before at once.
TEST(CpbModel, ConstantRateDoesNotWait) {
  CpbSchedule constant = kVariable;
  constant.constant = true;
  const auto states =
      StatesOf(constant, {{800, BufferingPeriod{kHalfSecond, 0}, 0}, {1600, {}, 1}, {1600, {}, 2}});
  EXPECT_NEAR(states[1]->arrival, 0.15, 1e-9);
}

// The removal of a picture that begins a period counts from the period before, and the delays behind it from
// itself; its arrival may begin its own delay ahead, without the offset.
TEST(CpbModel, APeriodBehindAnother) {
  const auto states = StatesOf(kVariable, {{1600, BufferingPeriod{kHalfSecond, 0}, 0},
                                           {1600, {}, 1},
                                           {1600, BufferingPeriod{36000, 9000}, 2},
                                           {1600, {}, 1}});
  EXPECT_NEAR(states[2]->removal, 0.7, 1e-9);
  EXPECT_NEAR(states[2]->arrival, 0.3 + 0.1, 1e-9);
  EXPECT_NEAR(states[3]->removal, 0.8, 1e-9);
  EXPECT_NEAR(states[3]->arrival, 0.4 + 0.1, 1e-9);  // 0.8 less 0.5 would be earlier than the end before
}

TEST(CpbModel, MoreThanTheBufferHolds) {
  CpbSchedule small = kConstant;
  small.cpbSize = 3000;
  const auto states = StatesOf(small, {{2000, BufferingPeriod{kHalfSecond, 0}, 0}, {2000, {}, 1}});
  EXPECT_TRUE(states[0]->overflow);
  EXPECT_FALSE(states[1]->overflow);
}

// A late picture is taken out at the next tick that finds it whole.
TEST(CpbModel, LowDelayIsLateAndNoUnderflow) {
  CpbSchedule late = kConstant;
  late.lowDelay = true;
  const auto states = StatesOf(late, {{2000, BufferingPeriod{18000, 0}, 0}, {100, {}, 1}});
  EXPECT_FALSE(states[0]->underflow);
  EXPECT_NEAR(states[0]->removal, 0.3, 1e-9);  // 0.2 s, whole at 0.25 s
}

TEST(CpbModel, NothingIsKnownInFrontOfTheFirstPeriod) {
  const auto states =
      StatesOf(kConstant, {{1000, {}, 0}, {2000, BufferingPeriod{kHalfSecond, 0}, 0}, {1000, {}, 1}});
  ASSERT_EQ(states.size(), 3u);
  EXPECT_FALSE(states[0]);
  EXPECT_TRUE(states[1]);
  EXPECT_THAT(Befores(StatesOf({}, {{1000, {}, 0}})), testing::ElementsAre(-1));
}

TEST(CpbModel, AScheduleWithoutMeasureEnds) {
  CpbSchedule slow = kConstant;
  slow.bitRate = 1;
  std::vector<CpbPicture> pictures(5000, {1000000, {}, 1});
  pictures[0].period = BufferingPeriod{0xFFFFFFFF, 0};
  EXPECT_EQ(StatesOf(slow, pictures).size(), 5000u);
}

TEST(RemovalDelays, GoOnWhereTheCodedOnesBeginAnew) {
  RemovalDelays delays;
  EXPECT_EQ(delays.Next(3, 2, true), 3u);
  EXPECT_EQ(delays.Next(1, 2, false), 1u);
  EXPECT_EQ(delays.Next(3, 2, false), 3u);
  EXPECT_EQ(delays.Next(1, 2, false), 5u);
  EXPECT_EQ(delays.Next(4, 2, true), 4u);
  EXPECT_EQ(delays.Next(1, 2, false), 1u);
}

// hrd_parameters() of clause E.1.2 in an SPS of Baseline profile.
Bytes SpsWithHrd() {
  BitBuilder bits;
  bits.u(8, 0x67).u(8, 66).u(8, 0).u(8, 31).ue(0).ue(0).ue(0).ue(2).ue(1).u(1, 0);
  bits.ue(7).ue(5).u(1, 1).u(1, 1).u(1, 0);
  bits.u(1, 1);  // VUI
  bits.u(1, 0).u(1, 0).u(1, 0).u(1, 0);
  bits.u(1, 1).u(32, 1).u(32, 50).u(1, 1);
  bits.u(1, 1);                   // NAL HRD
  bits.ue(1).u(4, 2).u(4, 3);     // two schedules
  bits.ue(999).ue(1999).u(1, 1);  // 1000 << 8 bit/s, 2000 << 7 bits
  bits.ue(1).ue(1).u(1, 0);
  bits.u(5, 19).u(5, 9).u(5, 7).u(5, 24);
  bits.u(1, 0);                  // VCL HRD
  bits.u(1, 1).u(1, 0).u(1, 0);  // low_delay_hrd_flag
  return Escape(bits.trailing().bytes());
}

TEST(Hrd, OfAnH264Sps) {
  const std::optional<Hrd> hrd = HrdOf(Codec::kH264, SpsWithHrd());
  ASSERT_TRUE(hrd);
  EXPECT_EQ(hrd->schedule.bitRate, 256000u);
  EXPECT_EQ(hrd->schedule.cpbSize, 256000u);
  EXPECT_TRUE(hrd->schedule.constant);
  EXPECT_TRUE(hrd->schedule.lowDelay);
  EXPECT_DOUBLE_EQ(hrd->schedule.tick, 0.02);
  EXPECT_EQ(hrd->schedules, 2u);
  EXPECT_TRUE(hrd->nal);
  const Bytes period = BitBuilder().ue(0).u(20, 70000).u(20, 123).u(20, 1).u(20, 2).align().bytes();
  const std::optional<BufferingPeriod> read = ReadBufferingPeriod(Codec::kH264, period, *hrd);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->delay, 70000u);
  EXPECT_EQ(read->offset, 123u);
  EXPECT_FALSE(ReadBufferingPeriod(Codec::kH264, Bytes{0x80}, *hrd));
  EXPECT_EQ(ReadRemovalDelay(Codec::kH264, BitBuilder().u(10, 777).u(8, 2).align().bytes(), *hrd), 777u);
}

TEST(Hrd, OfAPayloadOfHevc) {
  Hrd hrd;
  hrd.initialDelayLength = 20;
  hrd.removalDelayLength = 10;
  hrd.outputDelayLength = 8;
  // irap_cpb_params_present_flag brings two offsets, and other delays behind the first ones.
  const Bytes period = BitBuilder()
                           .ue(0)
                           .u(1, 1)
                           .u(10, 5)
                           .u(8, 6)
                           .u(1, 0)
                           .u(10, 0)
                           .u(20, 90000)
                           .u(20, 7)
                           .u(20, 1)
                           .u(20, 1)
                           .align()
                           .bytes();
  EXPECT_EQ(ReadBufferingPeriod(Codec::kHevc, period, hrd)->delay, 90000u);
  EXPECT_EQ(ReadRemovalDelay(Codec::kHevc, BitBuilder().u(10, 4).u(8, 2).align().bytes(), hrd), 5u);
  const Bytes cut =
      BitBuilder().ue(0).u(1, 1).u(10, 5).u(8, 6).u(1, 0).u(10, 0).u(20, 90000).u(20, 7).align().bytes();
  EXPECT_FALSE(ReadBufferingPeriod(Codec::kHevc, cut, hrd));
  hrd.frameFieldInfo = true;
  EXPECT_EQ(ReadRemovalDelay(Codec::kHevc, BitBuilder().u(7, 0).u(10, 4).u(8, 2).align().bytes(), hrd), 5u);
}

}  // namespace
}  // namespace qlnmedia::html
