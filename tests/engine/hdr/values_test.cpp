// What people write for colour and HDR.

#include "hdr/values.h"

#include <gtest/gtest.h>

#include "base/error.h"
#include "qlnmedia/value_names.h"

namespace qlnmedia {
namespace {

TEST(HdrValues, DisplaysByNameAndByNumbers) {
  const MasteringDisplay p3 = ParseMasteringDisplay("p3");
  EXPECT_EQ(p3.green, (MasteringDisplay::Point{13250, 34500}));  // SMPTE RP 431-2, in 0.00002
  EXPECT_EQ(p3.white, (MasteringDisplay::Point{15635, 16450}));  // D65
  EXPECT_EQ(ParseMasteringDisplay("bt2020").red, (MasteringDisplay::Point{35400, 14600}));
  const std::string text = "G(11,12)B(13,14)R(15,16)WP(17,18)L(10,9)";
  const MasteringDisplay display = ParseMasteringDisplay(text);
  EXPECT_EQ(display.red.y, 16);
  EXPECT_EQ(display.minLuminance, 9u);
  EXPECT_EQ(MasteringDisplayText(display), text);
  for (const char* bad :
       {"", "P3", "G(11,12)B(13,14)R(15,16)WP(17,18)L(9,9)", "G(50001,12)B(13,14)R(15,16)WP(17,18)L(10,9)",
        "G(11,12)B(13,14)R(15,16)WP(17,18)L(10,9) ", "G(11,70000)B(13,14)R(15,16)WP(17,18)L(10,9)"})
    EXPECT_THROW(ParseMasteringDisplay(bad), Error) << bad;
}

// ITU-T H.265 clause D.3.28 bounds what a point can be; PQ ends at 10000 cd/m2.
TEST(HdrValues, WhatNoDisplayHasIsRefused) {
  const auto with = [](const char* red, const char* light = "L(10000000,1)") {
    return std::string("G(8500,39850)B(6550,2300)R(") + red + ")WP(15635,16450)" + light;
  };
  for (const char* good : {"5,5", "37000,5", "5,42000", "37000,13000"})
    EXPECT_NO_THROW(ParseMasteringDisplay(with(good))) << good;
  for (const char* bad : {"4,5", "5,4", "37001,5", "5,42001", "37000,13001", "0,0"})
    EXPECT_THROW(ParseMasteringDisplay(with(bad)), Error) << bad;
  EXPECT_NO_THROW(ParseMasteringDisplay(with("35400,14600", "L(100000000,0)")));
  EXPECT_THROW(ParseMasteringDisplay(with("35400,14600", "L(100000001,1)")), Error);
}

TEST(HdrValues, NamesStandForWhatIsParsed) {
  for (const NamedDisplay& named : NamedDisplays()) {
    EXPECT_EQ(ParseMasteringDisplay(named.name), named.display);
    EXPECT_EQ(ParseMasteringDisplay(named.text), named.display);
  }
  const std::vector<NamedColour> colours = NamedColours();
  for (const NamedColour& named : colours) EXPECT_EQ(ParseColour(named.name), named.codes);
  EXPECT_EQ(colours.at(3).transfer, "PQ (SMPTE ST 2084)");
  EXPECT_EQ(LuminanceText(10000000), "1000");
  EXPECT_EQ(LuminanceText(50), "0.005");
}

TEST(HdrValues, LightLevels) {
  EXPECT_EQ(ParseLightLevel("1000,400"), (LightLevel{1000, 400}));
  EXPECT_EQ(ParseLightLevel("400,400"), (LightLevel{400, 400}));
  EXPECT_EQ(ParseLightLevel("0,400"), (LightLevel{0, 400}));  // a maximum that nobody knows
  for (const char* bad : {"", "1000", "1000,", "1000,400x", "65536,1", "-1,2", "400,401"})
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
