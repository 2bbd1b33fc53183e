// The cleaning of frame rates from file headers.

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <utility>
#include <vector>

#include "qlnutil/qlnformat.h"

namespace {

// The rates that have a rule of their own, whatever their quotient.
const std::set<uint32_t> kLiterals = {10,   15,   23,   24,   25,   29,   30,   59,    60,
                                      2397, 2398, 2400, 2996, 2997, 2998, 3000, 23976, 23977};

using RatePair = std::pair<uint32_t, uint32_t>;

RatePair Normalized(uint32_t rate, uint32_t scale) {
  EXPECT_EQ(vidNormalizeRateScale(&rate, &scale), 0);
  return {rate, scale};
}

TEST(NormalizeRateScale, NineLiteralRatesStandOverOneWhateverTheScale) {
  for (const uint32_t rate : {10u, 15u, 23u, 24u, 25u, 29u, 30u, 59u, 60u}) {
    for (const uint32_t scale : {0u, 1u, 2u, 1001u, 0xFFFFFFFFu})
      EXPECT_EQ(Normalized(rate, scale), RatePair(rate, 1)) << rate << '/' << scale;
  }
}

TEST(NormalizeRateScale, WorkedExamples) {
  EXPECT_EQ(Normalized(50000, 1000), RatePair(50, 1));
  EXPECT_EQ(Normalized(15000, 1001), RatePair(15000, 1001));
  EXPECT_EQ(Normalized(48000, 1001), RatePair(48000, 1001));
  EXPECT_EQ(Normalized(2398, 100), RatePair(23976, 1000));
  EXPECT_EQ(Normalized(2998, 128), RatePair(24000, 1001));
  EXPECT_EQ(Normalized(1000, 3), RatePair(1000, 3));
  EXPECT_EQ(Normalized(90000, 3003), RatePair(30000, 1001));
}

TEST(NormalizeRateScale, LiteralHundredthsTakeOnlyTheirQuotients) {
  // The pair for each quotient that the literal rates know; all others stay.
  const std::map<uint32_t, RatePair> fractional = {{23, {23976, 1000}}};
  const std::map<uint32_t, RatePair> rate2400 = {{24, {24, 1}}, {23, {24000, 1001}}};
  const std::map<uint32_t, RatePair> rate2997 = {{29, {30000, 1001}}, {23, {24000, 1001}}};
  const std::map<uint32_t, RatePair> rate3000 = {{30, {30, 1}}, {29, {30000, 1001}}};
  const std::vector<std::pair<uint32_t, std::map<uint32_t, RatePair>>> literals = {
      {2397, fractional}, {2398, fractional}, {23976, fractional}, {23977, fractional}, {2400, rate2400},
      {2996, rate2997},   {2997, rate2997},   {2998, rate2997},    {3000, rate3000}};
  for (const auto& [rate, pairs] : literals) {
    std::map<uint32_t, int> seen;
    for (uint32_t scale = 1; scale <= rate + 1; ++scale) {
      const uint32_t quotient = rate / scale;
      const RatePair expected = pairs.contains(quotient) ? pairs.at(quotient) : RatePair{rate, scale};
      ASSERT_EQ(Normalized(rate, scale), expected) << rate << '/' << scale;
      ++seen[quotient];
    }
    for (const auto& [quotient, pair] : pairs) EXPECT_GT(seen[quotient], 0) << rate << ' ' << quotient;
  }
}

TEST(NormalizeRateScale, OtherRatesGoByTheirQuotient) {
  const std::map<uint32_t, RatePair> usual = {{23, {24000, 1001}}, {24, {24, 1}},       {25, {25, 1}},
                                              {29, {30000, 1001}}, {30, {30, 1}},       {48, {48, 1}},
                                              {50, {50, 1}},       {59, {60000, 1001}}, {60, {60, 1}}};
  for (const uint32_t scale : {1u, 2u, 3u, 1000u, 1001u, 1000000u}) {
    for (uint32_t quotient = 0; quotient < 130; ++quotient) {
      for (const uint32_t rest : {0u, 1u, scale - 1}) {
        if (rest >= scale) continue;
        const uint32_t rate = quotient * scale + rest;
        const bool literal = kLiterals.contains(rate);
        if (literal) continue;
        RatePair expected = rest == 0 ? RatePair{quotient, 1} : RatePair{rate, scale};
        if (usual.contains(quotient)) expected = usual.at(quotient);
        ASSERT_EQ(Normalized(rate, scale), expected) << rate << '/' << scale;
      }
    }
  }
}

TEST(NormalizeRateScale, LargeValues) {
  EXPECT_EQ(Normalized(0xFFFFFFFF, 1), RatePair(0xFFFFFFFF, 1));
  EXPECT_EQ(Normalized(0xFFFFFFFF, 0xFFFFFFFF), RatePair(1, 1));
  EXPECT_EQ(Normalized(0xFFFFFFFE, 0xFFFFFFFF), RatePair(0xFFFFFFFE, 0xFFFFFFFF));
  EXPECT_EQ(Normalized(0xFFFFFFFF, 2), RatePair(0xFFFFFFFF, 2));
  EXPECT_EQ(Normalized(0, 5), RatePair(0, 1));
}

TEST(NormalizeRateScale, ScaleOfZeroStays) {
  for (const uint32_t rate : {0u, 1u, 48u, 50u, 2397u, 2400u, 2997u, 3000u, 30000u, 0xFFFFFFFFu})
    EXPECT_EQ(Normalized(rate, 0), RatePair(rate, 0)) << rate;
}

TEST(NormalizeRateScale, NullPointersWriteNothing) {
  uint32_t value = 50000;
  EXPECT_EQ(vidNormalizeRateScale(nullptr, &value), 0);
  EXPECT_EQ(vidNormalizeRateScale(&value, nullptr), 0);
  EXPECT_EQ(value, 50000u);
}

}  // namespace
