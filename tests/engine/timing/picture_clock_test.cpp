// The pace of a stream by what is said and what is seen, and the times of its pictures.

#include "timing/picture_clock.h"

#include <gtest/gtest.h>

#include "base/error.h"

namespace qlnmedia {
namespace {

using captions::Rate;

StreamDescription Said(Rational average, Rational base = {}) {
  StreamDescription stream;
  stream.averageRate = average;
  stream.baseRate = base;
  return stream;
}

// A stream whose pictures stand so many units of a millisecond apart.
PicturePlaces Seen(const std::vector<uint32_t>& steps) {
  PicturePlaces order;
  order.timeBase = {1, 1000};
  order.steps = steps;
  order.pictures = static_cast<uint32_t>(steps.size() + 1);
  double total = 0;
  for (const uint32_t step : steps) total += step;
  if (total > 0) order.picturesPerSecond = static_cast<double>(steps.size()) * 1000 / total;
  return order;
}

TEST(PaceOf, WhatIsSaidCountsWhereTimesBearItOut) {
  const Pace said = PaceOf(Said({30000, 1001}), Seen({33, 34, 33, 33, 34}));
  EXPECT_EQ(said.rate, Rate::k29_97);
  EXPECT_DOUBLE_EQ(said.picturesPerSecond, 30000.0 / 1001);
  EXPECT_TRUE(said.steady);
  EXPECT_EQ(PaceOf(Said({25, 1}), Seen({20, 20, 20})).rate, Rate::k50);
  EXPECT_EQ(PaceOf(Said({999, 20}, {50, 1}), Seen({20, 20, 20})).rate, Rate::k50);
  EXPECT_EQ(PaceOf(Said({24, 1}), Seen({})).rate, Rate::k24);  // nothing is seen
  EXPECT_FALSE(PaceOf(Said({12, 1}), Seen({83, 84, 83})).rate);
  EXPECT_FALSE(PaceOf(Said({}), Seen({})).rate);
}

TEST(PaceOf, AStreamWithHolesHasThePaceOfMostPictures) {
  const Pace pace = PaceOf(Said({21, 1}), Seen({40, 40, 40, 200, 40, 40, 40}));
  EXPECT_FALSE(pace.steady);
  EXPECT_EQ(pace.rate, Rate::k25);
  EXPECT_DOUBLE_EQ(pace.picturesPerSecond, 25);
}

TEST(PictureClock, CountsSteadyPicturesAndTakesTheTimesOfOthers) {
  const PicturePlaces steady = Seen({33, 34, 33});
  PictureClock count(steady, PaceOf(Said({30000, 1001}), steady));
  count.Next();
  count.Next();
  EXPECT_EQ(count.number(), 2);
  EXPECT_DOUBLE_EQ(count.seconds(), 2 * 1001 / 30000.0);
  const PicturePlaces holes = Seen({40, 40, 40, 200, 40, 40, 40});
  PictureClock times(holes, PaceOf(Said({25, 1}), holes));
  for (int i = 0; i < 4; ++i) times.Next();
  EXPECT_EQ(times.number(), 8);
  EXPECT_DOUBLE_EQ(times.seconds(), 0.32);
  for (int i = 0; i < 9; ++i) times.Next();  // behind the last one
  EXPECT_DOUBLE_EQ(times.seconds(), 0.44);
}

// 29.314 pictures a second: most of them a thirtieth apart, every fifth a bit later.
TEST(PaceOf, UnevenPicturesHaveANominalRate) {
  const PicturePlaces uneven = Seen({33, 33, 34, 33, 37, 33, 34, 33, 33, 38});
  const Pace pace = PaceOf(Said({29314, 1000}), uneven);
  EXPECT_FALSE(pace.rate);
  EXPECT_EQ(pace.nominal, Rate::k30);
  EXPECT_NE(AdviceForPace(pace).find("its nominal rate is 30, which --rate nominal takes"),
            std::string::npos);
  const Pace nominal = AskedPace(pace, uneven, "nominal");
  EXPECT_EQ(nominal.rate, Rate::k30);
  EXPECT_FALSE(nominal.steady);  // captions go by time
  EXPECT_EQ(AskedPace(pace, uneven, "29.97").rate, Rate::k29_97);
  EXPECT_EQ(AskedPace(pace, uneven, "").rate, std::nullopt);
  EXPECT_EQ(PaceOf(Said({25, 1}), Seen({40, 40})).nominal, Rate::k25);
  EXPECT_FALSE(PaceOf(Said({12, 1}), Seen({83, 84, 83})).nominal);
  PictureClock clock(uneven, nominal);
  for (int i = 0; i < 10; ++i) clock.Next();
  EXPECT_EQ(clock.number(), 10);  // 341 ms are 10.23 frames
}

TEST(PaceOf, AnAskedRateIsNoOverride) {
  const PicturePlaces steady = Seen({40, 40, 40});
  const Pace pace = PaceOf(Said({25, 1}), steady);
  EXPECT_EQ(AskedPace(pace, steady, "25").rate, Rate::k25);
  EXPECT_EQ(AskedPace(pace, steady, "nominal").rate, Rate::k25);
  for (const char* bad : {"30", "24", "50", "12", "fast", "31"})
    EXPECT_THROW(AskedPace(pace, steady, bad), Error) << bad;
  // Averages are off by one part in a hundred, and fields are pictures of their own.
  const PicturePlaces near = Seen({33, 33, 34, 33});
  EXPECT_EQ(AskedPace(PaceOf(Said({30, 1}), near), near, "29.97").rate, Rate::k29_97);
  const PicturePlaces fields = Seen({20, 20, 20});
  EXPECT_EQ(AskedPace(PaceOf(Said({50, 1}), fields), fields, "25").rate, Rate::k50);
  EXPECT_THROW(AskedPace(PaceOf(Said({12, 1}), Seen({83, 84})), Seen({83, 84}), "nominal"), Error);
}

// Readers of raw streams guess a rate where the stream has none: it contradicts nothing.
TEST(PaceOf, AGuessGivesWay) {
  StreamDescription raw = Said({25, 1});
  raw.raw = true;
  raw.codec = VideoCodec::kH264;
  const Pace pace = PaceOf(raw, Seen({}));
  EXPECT_TRUE(pace.guessed);
  const Pace asked = AskedPace(pace, Seen({}), "30");
  EXPECT_EQ(asked.rate, Rate::k30);
  EXPECT_TRUE(asked.steady);
  EXPECT_DOUBLE_EQ(asked.picturesPerSecond, 30);
}

}  // namespace
}  // namespace qlnmedia
