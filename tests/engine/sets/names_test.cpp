// Names of coded numbers, from the published tables.

#include "sets/names.h"

#include <gtest/gtest.h>

namespace qlnmedia {
namespace {

TEST(Names, H264ProfilesAndLevels) {
  EXPECT_EQ(H264ProfileName(66, 0), "Baseline");
  EXPECT_EQ(H264ProfileName(66, 1 << 1), "Constrained Baseline");
  EXPECT_EQ(H264ProfileName(100, 0), "High");
  EXPECT_EQ(H264ProfileName(100, 1 << 4), "Progressive High");
  EXPECT_EQ(H264ProfileName(100, 3 << 4), "Constrained High");
  EXPECT_EQ(H264ProfileName(110, 1 << 3), "High 10 Intra");
  EXPECT_EQ(H264ProfileName(244, 1 << 3), "High 4:4:4 Intra");
  EXPECT_EQ(H264ProfileName(244, 0), "High 4:4:4 Predictive");
  EXPECT_EQ(H264ProfileName(7, 0), "profile 7");
  EXPECT_EQ(H264LevelName(31, 100, false), "3.1");
  EXPECT_EQ(H264LevelName(40, 100, false), "4");
  EXPECT_EQ(H264LevelName(11, 66, true), "1b");
  EXPECT_EQ(H264LevelName(11, 100, true), "1.1");
  EXPECT_EQ(H264LevelName(9, 100, false), "1b");
  EXPECT_EQ(H264SliceTypeName(7), "I");
  EXPECT_EQ(H264SliceTypeName(0), "P");
  EXPECT_EQ(H264SliceTypeName(10), "type 10");
}

TEST(Names, HevcProfilesTiersAndLevels) {
  EXPECT_EQ(HevcProfileName(1, 0, 0), "Main");
  EXPECT_EQ(HevcProfileName(2, 0, 0), "Main 10");
  EXPECT_EQ(HevcProfileName(0, 1u << 30 >> 1, 0), "Main 10");
  // max_12bit, max_10bit, max_422chroma, lower_bit_rate set.
  EXPECT_EQ(HevcProfileName(4, 0, 1ull << 43 | 1ull << 42 | 1ull << 40 | 1ull << 35), "Main 4:2:2 10");
  EXPECT_EQ(HevcProfileName(4, 0, 1ull << 43 | 1ull << 42 | 1ull << 41 | 1ull << 35), "Main 4:4:4");
  EXPECT_EQ(HevcProfileName(4, 0, 1ull << 43 | 1ull << 40 | 1ull << 39 | 1ull << 37), "Main 12 Intra");
  EXPECT_EQ(HevcProfileName(4, 0, 1ull << 37), "Main 4:4:4 16 Intra");
  EXPECT_EQ(HevcTierName(1), "High");
  EXPECT_EQ(HevcLevelName(93), "3.1");
  EXPECT_EQ(HevcLevelName(120), "4");
  EXPECT_EQ(HevcLevelName(100), "level_idc 100");
}

TEST(Names, Colour) {
  EXPECT_EQ(ColourPrimariesName(9), "BT.2020");
  EXPECT_EQ(TransferName(16), "PQ (SMPTE ST 2084)");
  EXPECT_EQ(MatrixName(9), "BT.2020 non-constant luminance");
  EXPECT_EQ(MatrixName(77), "reserved 77");
  EXPECT_EQ(ChromaFormatName(2), "4:2:2");
  EXPECT_EQ(ChromaFormatName(9), "chroma format 9");
}

TEST(Names, RatesAndSampleAspects) {
  EXPECT_EQ(RateText(25, 1), "25");
  EXPECT_EQ(RateText(50, 2), "25");
  EXPECT_EQ(RateText(60000, 2002), "29.97 (30000/1001)");
  EXPECT_EQ(RateText(1, 0), "-");
  EXPECT_EQ(SampleAspectRatio(2, 0, 0).width, 12u);
  EXPECT_EQ(SampleAspectRatio(255, 7, 5).height, 5u);
  EXPECT_EQ(SampleAspectRatio(17, 7, 5).width, 0u);
}

}  // namespace
}  // namespace qlnmedia
