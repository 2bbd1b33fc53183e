// qlnmedia format: rasters and words described, and what the command line refuses.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using Json = nlohmann::ordered_json;
using testing::HasSubstr;
using testing::Not;

TEST(Format, RasterAsText) {
  const CommandResult result = Qlnmedia("format 1920 1080 29.97");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output,
            "Signal format 0x2380B21D\n"
            "  Word           0x2380B21D\n"
            "  Name           1920x1080P@29.97\n"
            "  Scan           progressive\n"
            "  Width token    89, which stands for 1920\n"
            "  Height token   56, which stands for 1080\n"
            "  Rate field     29\n"
            "  Width          1920\n"
            "  Height         1080\n"
            "  Aspect ratio   16:9\n"
            "  Rate           30000/1001, 29.97 frames a second\n"
            "  Frame time     33.3667 ms\n"
            "  Timecode type  drop-frame (4)\n"
            "  At full rate   drop-frame (4)\n"
            "  Active area    columns 0 to 1919, lines 41 to 1120\n");
}

TEST(Format, WordAndItsRasterSayTheSame) {
  EXPECT_EQ(Qlnmedia("format 0x2380B21D").output, Qlnmedia("format 1920 1080 30000/1001").output);
  EXPECT_EQ(Qlnmedia("format 595636765").output, Qlnmedia("format 0x2380B21D").output);
}

TEST(Format, InterlacedWordAsJson) {
  const CommandResult result = Qlnmedia("format 0x1380B219 --json");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(Json::parse(result.output), Json::parse(R"({
      "word": "0x1380B219", "name": "1920x1080i@25", "scan": "interlaced",
      "width_token": {"token": 89, "size": 1920}, "height_token": {"token": 56, "size": 1080},
      "rate_field": 25, "width": 1920, "height": 1080, "field_height": 540,
      "aspect_ratio": {"numerator": 16, "denominator": 9}, "rate": {"numerator": 25, "denominator": 1},
      "frame_time": 40.0, "timecode_type": {"type": 8, "text": "pal"},
      "timecode_type_full_rate": {"type": 8, "text": "pal"},
      "active_area": {"left": 0, "top": 40, "right": 1920, "bottom": 1120}})"));
}

TEST(Format, RatesThatNoWordHoldsAreSaid) {
  for (const char* rate : {"12.5", "25/2", "29.98", "29.314", "0.5", "600"}) {
    const CommandResult result = Qlnmedia(std::string("format 1920 1080 ") + rate);
    EXPECT_THAT(result.output, HasSubstr("note: no word holds ")) << rate;
  }
  EXPECT_THAT(Qlnmedia("format 1920 1080 12.5").output,
              HasSubstr("no word holds 12.5 frames a second; this one says 11/1"));
  for (const char* rate : {"23.98", "23.976", "29.97", "30000/1001", "59.94", "60", "25", "24"})
    EXPECT_THAT(Qlnmedia(std::string("format 1920 1080 ") + rate).output, Not(HasSubstr("note:"))) << rate;
}

TEST(Format, InterlacedRaster) {
  EXPECT_THAT(Qlnmedia("format 1920 1080 25 --interlaced").output, HasSubstr("1920x1080i@25\n"));
  EXPECT_THAT(Qlnmedia("format 1920 -1080 25 --interlaced").output, HasSubstr("1920x1080i@25\n"));
}

TEST(Format, RasterWithoutAFormat) {
  const CommandResult result = Qlnmedia("format 100 100 30");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output,
            "Signal format 0xF0000000\n"
            "  Word  0xF0000000\n"
            "  note: there is no format for 100x100 progressive at 30/1\n");
  EXPECT_THAT(Qlnmedia("format 0xF0000000").output,
              HasSubstr("note: this is the word for an unknown format"));
}

TEST(Format, WrongUsage) {
  for (const char* arguments :
       {"format", "format 1920 1080", "format 1920 1080 25 1", "format word", "format 0x",
        "format 0x123456789", "format -- -1", "format wide 1080 25", "format 1920 high 25",
        "format 1920 3000000000 25", "format 1920 1080 fast", "format 1920 1080 0", "format 1920 1080 25/0",
        "format 1920 1080 -25", "format 0x2380B21D --interlaced"}) {
    const CommandResult result = Qlnmedia(arguments);
    EXPECT_EQ(result.exitCode, 2) << arguments << result.output;
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << arguments << result.output;
    EXPECT_THAT(result.output, HasSubstr("qlnmedia format --help"));
  }
}

}  // namespace
}  // namespace qln::test
