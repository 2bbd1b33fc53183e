// What people write for changes of sets, and for what shall go.

#include "qlnmedia/stream_values.h"

#include <gtest/gtest.h>

#include "base/error.h"

namespace qlnmedia {
namespace {

TEST(ChangeValues, AreRead) {
  EXPECT_EQ(ParseSampleAspect("16:11"), (SampleAspect{16, 11}));
  EXPECT_EQ(ParseSampleAspect("2:2"), (SampleAspect{1, 1}));
  EXPECT_EQ(ParseSampleAspect("0:0"), (SampleAspect{0, 0}));
  EXPECT_EQ(ParseSampleAspect("65535:65534"), (SampleAspect{65535, 65534}));
  EXPECT_EQ(ParseLevel("4"), 40u);
  EXPECT_EQ(ParseLevel("4.1"), 41u);
  EXPECT_EQ(ParseLevel("1b"), 9u);
  EXPECT_TRUE(ParseTier("high"));
  EXPECT_FALSE(ParseTier("main"));
  EXPECT_EQ(ParseVuiTiming("25"), (VuiTiming{25, 1, {}}));
  EXPECT_EQ(ParseVuiTiming("29.97"), (VuiTiming{30000, 1001, {}}));
  EXPECT_EQ(ParseVuiTiming("30000/1001:fixed"), (VuiTiming{30000, 1001, true}));
  EXPECT_EQ(ParseVuiTiming("23.98"), (VuiTiming{24000, 1001, {}}));
  EXPECT_EQ(ParseVuiTiming("30"), (VuiTiming{30, 1, {}}));
  EXPECT_EQ(ParseChromaLocation("5"), 5u);
  EXPECT_EQ(ParseCropping("1,2,3,4"), (Cropping{1, 2, 3, 4}));
}

TEST(ChangeValues, RemovalsNameUnitsAndMessages) {
  UnitRemoval expected;
  expected.delimiters = expected.filler = expected.unspecified = true;
  expected.messages = {1, 137, 144, 4, 200};
  expected.providers = {{0xB5, 0x003C}, {0x26, {}}};
  EXPECT_EQ(
      ParseRemoval("delimiters,filler,unspecified,sei:1,sei:mastering-display-colour-volume,"
                   "sei:Content-Light-Level,sei:registered-user-data-itu-t-t-35,sei:200,t35:b5:003C,t35:26"),
      expected);
  EXPECT_TRUE(expected.any());
  EXPECT_FALSE(UnitRemoval().any());
}

TEST(ChangeValues, WhatIsNoneIsRefused) {
  for (const char* bad : {"", "16", "16:", ":9", "0:1", "1:0", "65536:1", "-1:1", "1:1:1", "4/3"})
    EXPECT_THROW(ParseSampleAspect(bad), Error) << bad;
  for (const char* bad : {"", "0", "4.", ".1", "4.11", "41", "4,1", "1c", "-4"})
    EXPECT_THROW(ParseLevel(bad), Error) << bad;
  for (const char* bad : {"", "High", "low"}) EXPECT_THROW(ParseTier(bad), Error) << bad;
  for (const char* bad : {"", ":fixed", "0", "25:free", "25:fixed:fixed", "fast"})
    EXPECT_THROW(ParseVuiTiming(bad), Error) << bad;
  for (const char* bad : {"", "6", "-1", "left"}) EXPECT_THROW(ParseChromaLocation(bad), Error) << bad;
  for (const char* bad : {"", "1,2,3", "1,2,3,4,5", "1,2,3,x", "1,2,3,-4", "1,2,,4"})
    EXPECT_THROW(ParseCropping(bad), Error) << bad;
  for (const char* bad : {"", "slices", "delimiters,", "sei:", "sei:nothing", "sei:-1", "sei:type-7",
                          "t35:", "t35:B", "t35:B5:", "t35:B5:3C", "t35:B5:003C:1", "t35:GG"})
    EXPECT_THROW(ParseRemoval(bad), Error) << bad;
}

}  // namespace
}  // namespace qlnmedia
