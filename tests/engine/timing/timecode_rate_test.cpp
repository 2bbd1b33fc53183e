// The rate by which timecodes count: what the file says, what --rate adds, and what contradicts.

#include "timing/timecode_rate.h"

#include <gtest/gtest.h>

#include "base/error.h"
#include "support/test_support.h"

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

// What phones write: pictures by the clock, so that an average is no rate but has one near it.
TEST(TimecodeRate, AnUnevenFileNamesItsNominalRate) {
  struct Case {
    Rational average, guess, stream;
    double nominal;
  };
  for (const Case& test :
       {Case{{29314, 1000}, {90000, 1}, {0, 1}, 30}, Case{{2998, 100}, {90000, 1}, {0, 1}, 30},
        Case{{2999, 100}, {600, 1}, {0, 1}, 30}, Case{{24621, 1000}, {600, 1}, {0, 1}, 25},
        Case{{5899, 100}, {90000, 1}, {0, 1}, 60}}) {
    const KnownRates known{test.average, test.guess, test.stream, false};
    EXPECT_NEAR(NominalRate(known).value().value(), test.nominal, 1e-9) << test.average.value();
    EXPECT_NEAR(Rate(known, "nominal"), test.nominal, 1e-9);
    try {
      Rate(known);
      ADD_FAILURE() << test.average.value();
    } catch (const Error& error) {
      EXPECT_NE(std::string(error.what()).find("--rate nominal"), std::string::npos) << error.what();
      EXPECT_NE(std::string(error.what()).find("the nominal rate is "), std::string::npos) << error.what();
    }
    EXPECT_DOUBLE_EQ(Rate(known, "30"), 30);
  }
  // What stream or times name goes first, and a rate that is one is its own.
  EXPECT_DOUBLE_EQ(Rate({{29314, 1000}, {30, 1}, {0, 1}, false}, "nominal"), 30);
  EXPECT_DOUBLE_EQ(Rate({{29314, 1000}, {90000, 1}, {30, 1}, false}, "nominal"), 30);
  EXPECT_DOUBLE_EQ(Rate({{25, 1}, {0, 1}, {0, 1}, false}, "nominal"), 25);
  EXPECT_FALSE(NominalRate({{12, 1}, {0, 1}, {0, 1}, false}));
  EXPECT_FALSE(NominalRate({}));
  EXPECT_THROW(Rate({{12, 1}, {0, 1}, {0, 1}, false}, "nominal"), Error);
}

// A video parameter set of HEVC with timing information (ITU-T H.265 clause 7.3.2.1), its profile all zero.
Bytes VpsWithTiming(uint32_t units, uint32_t scale) {
  qln::test::BitBuilder bits;
  bits.u(16, 0x4001).u(4, 0).u(1, 1).u(1, 1).u(6, 0).u(3, 0).u(1, 1).u(16, 0xFFFF);
  bits.u(8, 1).u(32, 0x60000000).u(32, 0x90000000).u(16, 0).u(8, 93);
  bits.u(1, 1).ue(4).ue(2).ue(4);  // sub-layer ordering
  bits.u(6, 0).ue(0);              // layer sets
  bits.u(1, scale != 0 ? 1 : 0);   // vps_timing_info_present_flag
  if (scale != 0) bits.u(32, units).u(32, scale).u(1, 0).ue(0);
  bits.u(1, 0);
  return Escape(bits.trailing().bytes());
}

// An HEVC SPS without a VUI.
Bytes BareSps() {
  qln::test::BitBuilder bits;
  bits.u(16, 0x4201).u(4, 0).u(3, 0).u(1, 1).u(8, 1).u(32, 0x60000000).u(32, 0x90000000).u(16, 0).u(8, 93);
  bits.ue(0).ue(1).ue(64).ue(64).u(1, 0).ue(0).ue(0).ue(4).u(1, 1).ue(4).ue(2).ue(4);
  bits.ue(0).ue(3).ue(0).ue(3).ue(0).ue(0).u(1, 0).u(1, 0).u(1, 0).u(1, 0).ue(0).u(1, 0).u(1, 0).u(1, 0);
  return Escape(bits.u(1, 0).u(1, 0).trailing().bytes());
}

TEST(TimecodeRate, AVpsTellsItWhereTheVuiDoesNot) {
  EXPECT_DOUBLE_EQ(VpsPictureRate(VpsWithTiming(1001, 30000)).value(), 30000.0 / 1001);
  EXPECT_EQ(VpsPictureRate(VpsWithTiming(0, 0)).numerator, 0);
  EXPECT_EQ(VpsPictureRate(VpsWithTiming(0, 25)).numerator, 0);
  EXPECT_EQ(VpsPictureRate(Bytes{0x40, 1}).numerator, 0);
  StreamDescription stream;
  stream.codec = VideoCodec::kHevc;
  stream.raw = true;
  ASSERT_TRUE(ReadSpsFacts(Codec::kHevc, BareSps()));
  const KnownRates known = RatesOf(stream, Codec::kHevc, {VpsWithTiming(1, 50), BareSps()});
  EXPECT_DOUBLE_EQ(known.stream.value(), 50);
  EXPECT_DOUBLE_EQ(TimecodeRate(known, "").value(), 50);
  EXPECT_EQ(RatesOf(stream, Codec::kHevc, {VpsWithTiming(0, 0), BareSps()}).stream.numerator, 0);
}

}  // namespace
}  // namespace qlnmedia
