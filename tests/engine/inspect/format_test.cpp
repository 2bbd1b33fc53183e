// Signal formats described.

#include "inspect/format.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace qlnmedia {
namespace {

using testing::ElementsAre;

TEST(Format, TimecodeTypesOfAFastRate) {
  const Json json = DescribeFormat(0x2380B23B).ToJson();
  EXPECT_EQ(json["timecode_type"]["text"], "drop-frame");
  EXPECT_EQ(json["timecode_type_full_rate"]["text"], "59.94");
}

TEST(Format, UnknownTokensAndRatesAreSaid) {
  const Json json = DescribeFormat(0x10000100).ToJson();
  EXPECT_EQ(json["name"], "-1x-1i@Custom");
  EXPECT_EQ(json["width_token"], Json::parse(R"({"token": 0, "size": null})"));
  EXPECT_FALSE(json.contains("width"));
  EXPECT_FALSE(json.contains("rate"));
  EXPECT_FALSE(json.contains("active_area"));
}

TEST(Format, DifferencesFromWhatWasAskedAreNoted) {
  const Json sd = DescribeRaster({.width = 720, .height = 480, .rate = 30, .progressive = true}).ToJson();
  EXPECT_EQ(sd["word"], "0x1120421D");
  EXPECT_THAT(sd["notes"], ElementsAre("the format is one of 30000/1001; 30 was asked for",
                                       "the format is one of 720x486; 720x480 was asked for",
                                       "the format is interlaced; progressive was asked for"));
  const Json film =
      DescribeRaster({.width = 2048, .height = 1080, .rate = 24, .progressive = false}).ToJson();
  EXPECT_EQ(film["word"], "0x4380C018");
  EXPECT_THAT(film["notes"], ElementsAre("the format is segmented frames; interlaced was asked for"));
  const Json exact = DescribeRaster({.width = 1920, .height = -1080, .rate = 2398, .scale = 100}).ToJson();
  EXPECT_EQ(exact["word"], "0x2380B217");
  EXPECT_FALSE(exact.contains("notes"));
}

TEST(Format, HostsGetTheSameAsAReport) {
  EXPECT_EQ(ReportOnFormat(0x2380B21D).ToJson(-1), DescribeFormat(0x2380B21D).ToJson().dump());
  const Raster raster{.width = 1920, .height = 1080, .rate = 30000, .scale = 1001};
  EXPECT_EQ(ReportOnRaster(raster).ToJson(-1), DescribeRaster(raster).ToJson().dump());
  EXPECT_EQ(ReportOnRaster(raster).root().label, "Signal format 0x2380B21D");
}

}  // namespace
}  // namespace qlnmedia
