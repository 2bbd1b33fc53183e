// Where timecodes jump.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "html/clocks.h"

namespace qlnmedia::html {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

uint32_t Clock(uint32_t hours, uint32_t minutes, uint32_t seconds, uint32_t frames, bool drop = false) {
  ClockTime time;
  time.hours = hours;
  time.minutes = minutes;
  time.seconds = seconds;
  time.frames = frames;
  time.drop = drop;
  return PackedClock(time);
}

TEST(PackedClock, ComesBack) {
  const ClockTime time = UnpackedClock(Clock(23, 59, 58, 299, true));
  EXPECT_EQ(time.Text(), "23:59:58;299");
  EXPECT_EQ(Clock(0, 0, 0, 0), 1u);
}

TEST(ClockJumps, AnOrdinarySecondIsNone) {
  EXPECT_THAT(ClockJumps({Clock(10, 0, 0, 23), Clock(10, 0, 0, 24), Clock(10, 0, 1, 0)}, 25), IsEmpty());
  EXPECT_THAT(ClockJumps({Clock(23, 59, 59, 24), Clock(0, 0, 0, 0)}, 25), IsEmpty());
}

TEST(ClockJumps, ForwardsAndBack) {
  EXPECT_THAT(
      ClockJumps({Clock(10, 0, 0, 1), Clock(10, 0, 0, 3), Clock(10, 0, 0, 2), Clock(10, 0, 0, 3)}, 25),
      ElementsAre(1, 2));
}

// The numbers 0 and 1 of most minutes are left out (SMPTE ST 12-1 clause 4.2.2).
TEST(ClockJumps, DropFrameIsNone) {
  EXPECT_THAT(ClockJumps({Clock(0, 0, 59, 29, true), Clock(0, 1, 0, 2, true)}, 30000.0 / 1001), IsEmpty());
  EXPECT_THAT(ClockJumps({Clock(0, 9, 59, 29, true), Clock(0, 10, 0, 0, true)}, 30000.0 / 1001), IsEmpty());
  EXPECT_THAT(ClockJumps({Clock(0, 0, 59, 29), Clock(0, 1, 0, 2)}, 30000.0 / 1001), ElementsAre(1));
}

TEST(ClockJumps, PicturesWithoutAClockCount) {
  EXPECT_THAT(ClockJumps({Clock(1, 0, 0, 0), 0, Clock(1, 0, 0, 2)}, 25), IsEmpty());
  EXPECT_THAT(ClockJumps({Clock(1, 0, 0, 0), 0, Clock(1, 0, 0, 1)}, 25), ElementsAre(2));
  EXPECT_THAT(ClockJumps({0, 0}, 25), IsEmpty());
}

// At 50 pictures a second clocks may count 25 numbers, each on two pictures.
TEST(ClockJumps, NumbersOnTwoPictures) {
  std::vector<uint32_t> clocks;
  for (uint32_t i = 0; i < 120; ++i) clocks.push_back(Clock(0, 0, i / 50, i / 2 % 25));
  EXPECT_THAT(ClockJumps(clocks, 50), IsEmpty());
  clocks[80] = Clock(0, 0, 5, 0);
  EXPECT_THAT(ClockJumps(clocks, 50), ElementsAre(80, 81));
}

}  // namespace
}  // namespace qlnmedia::html
