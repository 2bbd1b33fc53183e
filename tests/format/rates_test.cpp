// Rate fields, rational rates, floating-point rates and timecode types.

#include "qlnutil/format/rates.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <tuple>
#include <utility>

#include "qlnutil/format/tc_type.h"
#include "qlnutil/qlnformat.h"

namespace qln {
namespace {

using RatePair = std::pair<uint32_t, uint32_t>;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();
constexpr uint32_t kUntouched = 0xCDCDCDCD;

double Below(double value) { return std::nextafter(value, -kInfinity); }
double Above(double value) { return std::nextafter(value, kInfinity); }

TEST(RateScale, GivesTheRateOfEveryFieldValue) {
  const std::map<uint32_t, RatePair> listed = {
      {14, {15000, 1001}}, {15, {15, 1}},       {23, {24000, 1001}}, {24, {24, 1}},
      {25, {25, 1}},       {29, {30000, 1001}}, {30, {30, 1}},       {47, {48000, 1001}},
      {48, {48, 1}},       {50, {50, 1}},       {59, {60000, 1001}}, {60, {60, 1}},
      {71, {72000, 1001}}, {72, {72, 1}},       {100, {100, 1}},     {119, {120000, 1001}}};
  for (uint32_t field = 0; field < 512; ++field) {
    for (const uint32_t others : {0u, 0x2380B200u, 0x1100F400u, 0xF0001000u, 0xFFFFFE00u}) {
      uint32_t rate = kUntouched;
      uint32_t scale = kUntouched;
      const int32_t result = vidRateScale(others | field, &rate, &scale);
      const RatePair expected = listed.contains(field) ? listed.at(field) : RatePair{field, 1};
      EXPECT_EQ(RatePair(rate, scale), expected) << field;
      EXPECT_EQ(result, field == 256 ? -1 : 0) << field;
    }
  }
}

TEST(RateScale, FieldWithoutARowIsAPlainNumber) {
  uint32_t rate = 0;
  uint32_t scale = 0;
  EXPECT_EQ(vidRateScale(0x1380B21A, &rate, &scale), 0);
  EXPECT_EQ(RatePair(rate, scale), RatePair(26, 1));
}

TEST(RateScale, UnknownFormatLeavesTheOutputsAlone) {
  uint32_t rate = kUntouched;
  uint32_t scale = kUntouched;
  EXPECT_EQ(vidRateScale(0xF0000000, &rate, &scale), -1);
  EXPECT_EQ(RatePair(rate, scale), RatePair(kUntouched, kUntouched));
  EXPECT_EQ(vidRateScale(0xF0000001, &rate, &scale), 0);
  EXPECT_EQ(RatePair(rate, scale), RatePair(1, 1));
}

TEST(RateScale, NullPointersWriteNothing) {
  uint32_t other = kUntouched;
  EXPECT_EQ(vidRateScale(0x2380B219, nullptr, &other), -1);
  EXPECT_EQ(vidRateScale(0x2380B219, &other, nullptr), -1);
  EXPECT_EQ(vidRateScaleFromSize(720, 480, nullptr, &other), -1);
  EXPECT_EQ(vidRateScaleFromSize(720, 480, &other, nullptr), -1);
  EXPECT_EQ(vidRateScaleFromSize(5000, 480, &other, nullptr), -1);
  EXPECT_EQ(vidRateScaleFromFPS(25.0, nullptr, &other), -1);
  EXPECT_EQ(vidRateScaleFromFPS(25.0, &other, nullptr), -1);
  EXPECT_EQ(vidRateScaleFromFPS(1.0, &other, nullptr), -1);
  EXPECT_EQ(other, kUntouched);
}

TEST(RateScaleFromSize, FollowsTheTableAtEveryEdge) {
  const RatePair ntsc{30000, 1001};
  const RatePair pal{25, 1};
  const RatePair film{24, 1};
  const std::tuple<uint32_t, uint32_t, RatePair> rows[] = {
      {0, 0, ntsc},       {720, 0, ntsc},           {720, 512, ntsc},   {720, 513, pal},
      {0, 513, pal},      {720, 0xFFFFFFFF, pal},   {721, 512, ntsc},   {721, 513, ntsc},
      {1080, 4000, ntsc}, {1081, 0, pal},           {1081, 4000, pal},  {1828, 1080, pal},
      {1829, 1080, ntsc}, {1920, 1080, ntsc},       {1920, 1236, ntsc}, {1921, 1235, pal},
      {1921, 1236, film}, {2048, 1235, pal},        {2048, 1236, film}, {2048, 0xFFFFFFFF, film},
      {2049, 0, film},    {2049, 0xFFFFFFFF, film}, {4096, 2160, film}};
  for (const auto& [width, height, expected] : rows) {
    uint32_t rate = kUntouched;
    uint32_t scale = kUntouched;
    EXPECT_EQ(vidRateScaleFromSize(width, height, &rate, &scale), 0);
    EXPECT_EQ(RatePair(rate, scale), expected) << width << 'x' << height;
  }
}

TEST(RateScaleFromSize, WiderRastersLeaveTheOutputsAlone) {
  for (const uint32_t width : {4097u, 8192u, 0x80000000u, 0xFFFFFFFFu}) {
    uint32_t rate = kUntouched;
    uint32_t scale = kUntouched;
    EXPECT_EQ(vidRateScaleFromSize(width, 480, &rate, &scale), 0);
    EXPECT_EQ(RatePair(rate, scale), RatePair(kUntouched, kUntouched)) << width;
  }
}

TEST(FramesPerSecond, TakesRateAndScaleWhereBothAreThere) {
  EXPECT_EQ(vidFramesPerSecD(0x2380B219, 30000, 1001), 30000.0 / 1001.0);
  EXPECT_EQ(vidFramesPerSecD(0xF0000000, 7, 2), 3.5);
  EXPECT_EQ(vidFramesPerSecD(0xF0000000, 0xFFFFFFFF, 1), 4294967295.0);
}

TEST(FramesPerSecond, FallsBackToTheFormat) {
  EXPECT_EQ(vidFramesPerSecD(0x2380B219, 0, 0), 25.0);
  EXPECT_EQ(vidFramesPerSecD(0x2380B23B, 50, 0), 60000.0 / 1001.0);
  EXPECT_EQ(vidFramesPerSecD(0x2380B217, 0, 1), 24000.0 / 1001.0);
  EXPECT_EQ(vidFramesPerSecD(0x2380B200, 0, 0), 0.0);
}

TEST(FramesPerSecond, IsNtscForAllThatIsUnknown) {
  EXPECT_EQ(vidFramesPerSecD(0xF0000000, 0, 1), 29.97002997002997);
  EXPECT_EQ(vidFramesPerSecD(0xF0000000, 25, 0), 29.97002997002997);
  EXPECT_EQ(vidFramesPerSecD(0xF0000000, 0, 0), 29.97002997002997);
  EXPECT_EQ(vidFramesPerSecD(0x2380B21D, 25, 0), 29.97002997002997);
  EXPECT_EQ(vidFramesPerSecD(0x2380B300, 0, 0), 29.97002997002997);  // rate field 256
}

TEST(MsPerFrame, RoundsToTheNearest) {
  EXPECT_EQ(vidMsPerFrame(0x2380B21D, 0, 0), 33u);
  EXPECT_EQ(vidMsPerFrame(0x2380B219, 0, 0), 40u);
  EXPECT_EQ(vidMsPerFrame(0x2380B23B, 0, 0), 17u);
  EXPECT_EQ(vidMsPerFrame(0xF0000000, 0, 0), 33u);
  EXPECT_EQ(vidMsPerFrame(0, 400, 1), 3u);  // 2.5
  EXPECT_EQ(vidMsPerFrame(0, 0xFFFFFFFF, 1), 0u);
}

TEST(MsPerFrame, TooLargeIsAllOnes) {
  EXPECT_EQ(vidMsPerFrame(0x2380B200, 0, 0), 0xFFFFFFFFu);
  EXPECT_EQ(vidMsPerFrame(0, 1, 0xFFFFFFFF), 0xFFFFFFFFu);
  EXPECT_EQ(vidMsPerFrame(0, 1, 4294968), 0xFFFFFFFFu);  // 4294968000 ms
  EXPECT_EQ(vidMsPerFrame(0, 1, 4294967), 4294967000u);
  EXPECT_EQ(vidMsPerFrameD(0x2380B200, 0, 0), kInfinity);
}

TEST(MsPerFrame, IsTheInverseOfFramesPerSecond) {
  EXPECT_EQ(vidMsPerFrameD(0, 25, 1), 40.0);
  EXPECT_EQ(vidMsPerFrameD(0x2380B21E, 0, 0), 1000.0 / 30.0);
  EXPECT_EQ(vidMsPerFrameD(0xF0000000, 0, 0), 1000.0 / 29.97002997002997);
}

struct TcRow {
  uint32_t type;
  const char* text;
  double framesPerSecond;
  double msPerFrame;
  uint32_t msRounded;
};

constexpr TcRow kTcRows[] = {
    {0, "frames", 29.97002997002997, 33.36666666666667, 33},
    {1, "film", 24.0, 41.666666666666664, 42},
    {2, "non-drop-frame", 30.0, 33.36666666666667, 33},
    {4, "drop-frame", 29.97002997002997, 33.36666666666667, 33},
    {8, "pal", 25.0, 40.0, 40},
    {16, "50", 50.0, 20.0, 20},
    {32, "59.94", 59.94005994005994, 16.68333333333333, 17},
    {64, "60", 60.0, 16.66666666666667, 17},
    {128, "film-drop", 23.976023976023978, 41.708333333333336, 42},
    {132, "23.98", 23.976023976023978, 41.708333333333336, 42},
};

TEST(TcType, EveryTypeHasItsTextRateAndTime) {
  for (uint32_t type = 0; type < 256; ++type) {
    TcRow expected = {type, nullptr, 29.97002997002997, 33.36666666666667, 33};
    for (const TcRow& row : kTcRows) {
      if (row.type == type) expected = row;
    }
    for (const uint32_t high : {0u, 0x100u, 0x32100u, 0xFFFFFF00u}) {
      EXPECT_EQ(vidTCFramesPerSecD(high | type), expected.framesPerSecond) << type;
      EXPECT_EQ(vidTCMsPerFrameD(high | type), expected.msPerFrame) << type;
      EXPECT_EQ(vidTCMsPerFrame(high | type), expected.msRounded) << type;
      EXPECT_STREQ(TcTypeText(high | type), expected.text) << type;
    }
  }
}

TEST(TcType, ConstantsHaveTheirValues) {
  EXPECT_EQ(QLN_TC_FRAMES, 0u);
  EXPECT_EQ(QLN_TC_FILM, 1u);
  EXPECT_EQ(QLN_TC_NON_DROP_FRAME, 2u);
  EXPECT_EQ(QLN_TC_DROP_FRAME, 4u);
  EXPECT_EQ(QLN_TC_PAL, 8u);
  EXPECT_EQ(QLN_TC_50, 16u);
  EXPECT_EQ(QLN_TC_59_94, 32u);
  EXPECT_EQ(QLN_TC_60, 64u);
  EXPECT_EQ(QLN_TC_FILM_DROP, 128u);
  EXPECT_EQ(QLN_TC_23_98, 132u);
  EXPECT_EQ(sizeof(TcType), 1u);
}

TEST(GetTCType, ClassifiesWorkedRates) {
  const std::pair<double, uint32_t> rows[] = {
      {24.95, 8},  {24.9, 1},  {14.98, 4},  {15.0, 2},  {47.95, 128},  {48.0, 1}, {100.0, 8},
      {119.88, 4}, {120.0, 2}, {25.1, 2},   {25.0, 8},  {23.976, 128}, {24.0, 1}, {29.97, 4},
      {30.0, 2},   {50.0, 16}, {59.94, 32}, {60.0, 64}, {71.928, 128}, {72.0, 1}, {99.9, 2}};
  for (const auto& [rate, type] : rows) EXPECT_EQ(vidGetTCType(rate), type) << rate;
}

TEST(GetTCType, ChangesAtEveryEdgeAndNowhereElse) {
  const std::pair<double, uint32_t> rows[] = {
      // Straight ranges.
      {Below(23.0), 2},
      {23.0, 128},
      {Below(24.0), 128},
      {24.0, 1},
      {24.9, 1},
      {Above(24.9), 8},
      {25.0, 8},
      {Below(25.1), 8},
      {25.1, 2},
      {29.0, 2},
      {Above(29.0), 4},
      {Below(30.0), 4},
      {30.0, 2},
      {30.9, 2},
      {46.9, 2},
      {Below(47.0), 2},
      {Above(48.5), 1},
      {Below(49.0), 1},
      {49.0, 2},
      {Below(50.0), 2},
      {50.0, 16},
      {Below(59.0), 16},
      {59.0, 32},
      {Below(60.0), 32},
      {60.0, 64},
      {Above(60.0), 2},
      {70.9, 2},
      // Folded by 2: 14.0 counts as 28, 14.5 as 29, 15.5 as 31.
      {Below(14.0), 2},
      {14.0, 2},
      {14.5, 2},
      {Above(14.5), 4},
      {Below(15.0), 4},
      {15.0, 2},
      {15.5, 2},
      {Above(15.5), 2},
      // Folded by 1/2: 47.0 counts as 23.5, 48.5 as 24.25.
      {47.0, 128},
      {Below(48.0), 128},
      {48.0, 1},
      {48.5, 1},
      // Folded by 1/3: 71.0 counts as 23.67, 72.5 as 24.17.
      {Below(71.0), 2},
      {71.0, 128},
      {71.999, 128},
      {72.0, 1},
      {72.5, 1},
      {Above(72.5), 2},
      // Folded by 1/4: 100.0 counts as 25, 100.4 as 25.1, 116.0 as 29, 120.0 as 30.
      {Below(100.0), 2},
      {100.0, 8},
      {100.3, 8},
      {100.41, 2},
      {116.0, 2},
      {Above(116.0), 4},
      {Below(120.0), 4},
      {120.0, 2},
      {Above(120.0), 2},
      // No rates.
      {0.0, 2},
      {-25.0, 2},
      {1e300, 2},
      {kInfinity, 2},
      {-kInfinity, 2},
      {kNotANumber, 2}};
  for (const auto& [rate, type] : rows) EXPECT_EQ(vidGetTCType(rate), type) << rate;
}

TEST(RateScaleFromFps, GivesThePairOfEachRange) {
  const std::tuple<double, uint32_t, uint32_t> rows[] = {{Above(24.9), 25, 1},
                                                         {25.0, 25, 1},
                                                         {Below(25.1), 25, 1},
                                                         {23.0, 24000, 1001},
                                                         {Below(24.0), 24000, 1001},
                                                         {24.0, 24, 1},
                                                         {24.9, 24, 1},
                                                         {Above(48.5), 48, 1},
                                                         {Below(49.0), 48, 1},
                                                         {60.0, 60, 1},
                                                         {Above(60.0), 60, 1},
                                                         {70.9, 60, 1},
                                                         {1e9, 60, 1},
                                                         {kInfinity, 60, 1},
                                                         {59.0, 60000, 1001},
                                                         {Below(60.0), 60000, 1001},
                                                         {50.0, 50, 1},
                                                         {Below(59.0), 50, 1},
                                                         {Above(29.0), 30000, 1001},
                                                         {Below(30.0), 30000, 1001},
                                                         {30.0, 30, 1},
                                                         {Below(30.9), 30, 1},
                                                         // Folded first.
                                                         {14.98, 30000, 1001},
                                                         {15.0, 30, 1},
                                                         {47.95, 24000, 1001},
                                                         {48.0, 24, 1},
                                                         {71.93, 24000, 1001},
                                                         {72.0, 24, 1},
                                                         {100.0, 25, 1},
                                                         {119.88, 30000, 1001},
                                                         {120.0, 30, 1}};
  for (const auto& [fps, rate, scale] : rows) {
    uint32_t gotRate = kUntouched;
    uint32_t gotScale = kUntouched;
    EXPECT_EQ(vidRateScaleFromFPS(fps, &gotRate, &gotScale), 0) << fps;
    EXPECT_EQ(RatePair(gotRate, gotScale), RatePair(rate, scale)) << fps;
  }
}

TEST(RateScaleFromFps, OtherRatesAreHundredthsOfTheirIntegerPart) {
  const std::pair<double, uint32_t> rows[] = {
      {0.0, 0},          {0.99, 0},    {12.7, 1200},    {Below(23.0), 2200},
      {25.1, 2500},      {28.9, 2800}, {29.0, 2900},    {30.9, 3000},
      {46.9, 4600},      {49.0, 4900}, {14.0, 2800},    {15.5, 3100},  // folded to 28 and 31
      {-5.5, 0u - 500u}, {-1e300, 0},  {-kInfinity, 0}, {kNotANumber, 0}};
  for (const auto& [fps, rate] : rows) {
    uint32_t gotRate = kUntouched;
    uint32_t gotScale = kUntouched;
    EXPECT_EQ(vidRateScaleFromFPS(fps, &gotRate, &gotScale), 1) << fps;
    EXPECT_EQ(RatePair(gotRate, gotScale), RatePair(rate, 100)) << fps;
  }
}

}  // namespace
}  // namespace qln
