// What people write for colour and HDR.

#include "hdr/values.h"

#include <gtest/gtest.h>

#include "base/error.h"

namespace qlnmedia {
namespace {

TEST(HdrValues, DisplaysByNameAndByNumbers) {
  const MasteringDisplay p3 = ParseMasteringDisplay("p3");
  EXPECT_EQ(p3.green, (MasteringDisplay::Point{13250, 34500}));  // SMPTE RP 431-2, in 0.00002
  EXPECT_EQ(p3.white, (MasteringDisplay::Point{15635, 16450}));  // D65
  EXPECT_EQ(ParseMasteringDisplay("bt2020").red, (MasteringDisplay::Point{35400, 14600}));
  const std::string text = "G(1,2)B(3,4)R(5,6)WP(7,8)L(10,9)";
  const MasteringDisplay display = ParseMasteringDisplay(text);
  EXPECT_EQ(display.red.y, 6);
  EXPECT_EQ(display.minLuminance, 9u);
  EXPECT_EQ(MasteringDisplayText(display), text);
  for (const char* bad : {"", "P3", "G(1,2)B(3,4)R(5,6)WP(7,8)L(9,9)", "G(50001,2)B(3,4)R(5,6)WP(7,8)L(10,9)",
                          "G(1,2)B(3,4)R(5,6)WP(7,8)L(10,9) ", "G(1,70000)B(3,4)R(5,6)WP(7,8)L(10,9)"})
    EXPECT_THROW(ParseMasteringDisplay(bad), Error) << bad;
}

TEST(HdrValues, LightLevels) {
  EXPECT_EQ(ParseLightLevel("1000,400"), (LightLevel{1000, 400}));
  for (const char* bad : {"", "1000", "1000,", "1000,400x", "65536,1", "-1,2"})
    EXPECT_THROW(ParseLightLevel(bad), Error) << bad;
}

TEST(HdrValues, ColoursByNameAndByNumbers) {
  EXPECT_EQ(ParseColour("bt2020-pq"), (ColourCodes{9, 16, 9}));
  EXPECT_EQ(ParseColour("bt601-625"), (ColourCodes{5, 6, 5}));
  EXPECT_EQ(ParseColour("12:18:0"), (ColourCodes{12, 18, 0}));
  for (const char* bad : {"", "bt2021", "1:2", "1:2:3:4", "256:1:1", "1:2:x"})
    EXPECT_THROW(ParseColour(bad), Error) << bad;
}

}  // namespace
}  // namespace qlnmedia
