// The rate by which timecodes count: what the file says, what --rate adds, and what contradicts.

#include "timing/timecode_rate.h"

#include <gtest/gtest.h>

#include "base/error.h"

namespace qlnmedia {
namespace {

double Rate(const KnownRates& known, const std::string& asked = {}) {
  return TimecodeRate(known, asked).value();
}

TEST(TimecodeRate, AVuiCountsFields) {
  SpsFacts sps;
  EXPECT_EQ(VuiFrameRate(Codec::kH264, sps).numerator, 0);
  sps.numUnitsInTick = 1001;
  sps.timeScale = 60000;
  EXPECT_DOUBLE_EQ(VuiFrameRate(Codec::kH264, sps).value(), 30000.0 / 1001);
  EXPECT_DOUBLE_EQ(VuiFrameRate(Codec::kHevc, sps).value(), 60000.0 / 1001);
  sps.hevc.interlace[2] = true;  // field_seq_flag
  EXPECT_DOUBLE_EQ(VuiFrameRate(Codec::kHevc, sps).value(), 30000.0 / 1001);
  sps.numUnitsInTick = 0xFFFFFFFF;
  sps.timeScale = 0xFFFFFFFF;
  EXPECT_NEAR(VuiFrameRate(Codec::kH264, sps).value(), 0.5, 1e-6);
}

TEST(TimecodeRate, TheContainerGoesFirst) {
  EXPECT_DOUBLE_EQ(Rate({{25, 1}, {0, 1}, {0, 1}, false}), 25);
  EXPECT_DOUBLE_EQ(Rate({{25, 1}, {0, 1}, {50, 1}, false}), 25);
  EXPECT_DOUBLE_EQ(Rate({{0, 1}, {0, 1}, {24000, 1001}, false}), 24000.0 / 1001);
  // A packet a field.
  EXPECT_DOUBLE_EQ(Rate({{50, 1}, {0, 1}, {25, 1}, true}), 25);
  EXPECT_DOUBLE_EQ(Rate({{50, 1}, {0, 1}, {50, 1}, true}), 50);
}

TEST(TimecodeRate, AShortClipsAverageGivesWayToANearRate) {
  EXPECT_DOUBLE_EQ(Rate({{1950, 77}, {0, 1}, {25, 1}, false}), 25);
  EXPECT_DOUBLE_EQ(Rate({{1950, 77}, {25, 1}, {0, 1}, false}), 25);
  EXPECT_DOUBLE_EQ(Rate({{600, 13}, {50, 1}, {25, 1}, true}), 25);
  EXPECT_DOUBLE_EQ(Rate({{12, 1}, {25, 1}, {25, 1}, false}), 12);  // which ParseTimecode refuses
  EXPECT_DOUBLE_EQ(Rate({{24, 1}, {25, 1}, {25, 1}, false}), 24);
  EXPECT_DOUBLE_EQ(Rate({{1950, 77}, {0, 1}, {0, 1}, false}, "25"), 25);
}

TEST(TimecodeRate, AskedForWhereNothingIsKnown) {
  EXPECT_THROW(Rate({}), Error);
  try {
    Rate({});
  } catch (const Error& error) {
    EXPECT_NE(std::string(error.what()).find("--rate"), std::string::npos) << error.what();
  }
  EXPECT_DOUBLE_EQ(Rate({}, "25"), 25);
  EXPECT_DOUBLE_EQ(Rate({}, "29.97"), 29.97);
  EXPECT_DOUBLE_EQ(Rate({}, "30000/1001"), 30000.0 / 1001);
  for (const char* bad : {"0", "fast", "25/0", "-25", "25x", "1e3"})
    EXPECT_THROW(Rate({}, bad), Error) << bad;
}

TEST(TimecodeRate, AContradictionIsRefused) {
  EXPECT_THROW(Rate({{25, 1}, {0, 1}, {0, 1}, false}, "30"), Error);
  EXPECT_THROW(Rate({{0, 1}, {0, 1}, {25, 1}, false}, "50"), Error);
  EXPECT_THROW(Rate({{0, 1}, {0, 1}, {30000, 1001}, false}, "30"), Error);
  EXPECT_DOUBLE_EQ(Rate({{0, 1}, {0, 1}, {30000, 1001}, false}, "29.97"), 29.97);
  // Averages of rounded times are not exact, and fields may be packets.
  EXPECT_DOUBLE_EQ(Rate({{2999, 100}, {0, 1}, {0, 1}, false}, "30000/1001"), 30000.0 / 1001);
  EXPECT_DOUBLE_EQ(Rate({{50, 1}, {0, 1}, {0, 1}, true}, "25"), 25);
  EXPECT_THROW(Rate({{50, 1}, {0, 1}, {0, 1}, false}, "25"), Error);
}

}  // namespace
}  // namespace qlnmedia
