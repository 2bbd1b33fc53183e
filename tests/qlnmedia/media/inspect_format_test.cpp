// The signal format that inspect tells of real video streams.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using Json = nlohmann::ordered_json;

std::string Clip(const std::string& name, const std::string& size, const std::string& options = "") {
  return MediaFile(name, "ffmpeg -v error -y -f lavfi -i testsrc2=s=" + size +
                             ":r=25:d=0.08 -c:v libx264 -preset ultrafast -threads 1 -pix_fmt yuv420p " +
                             options + " {out}");
}

Json SignalFormat(const std::string& file) {
  const CommandResult result = Qlnmedia("inspect --json '" + file + "'");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  const Json report = Json::parse(result.output, nullptr, false);
  return report["streams"][0]["signal_format"];
}

TEST(InspectFormat, Progressive) {
  const std::string file = Clip("format-720p.mp4", "1280x720");
  EXPECT_EQ(SignalFormat(file), Json::parse(R"({"word": "0x22109019", "name": "1280x720P@25"})"));
  EXPECT_THAT(Qlnmedia("inspect --details '" + file + "'").output,
              HasSubstr("Signal format  1280x720P@25 (0x22109019)\n"));
}

TEST(InspectFormat, FieldOrderOfTheStreamMakesItInterlaced) {
  EXPECT_EQ(SignalFormat(Clip("format-1080p.mp4", "1920x1080"))["name"], "1920x1080P@25");
  const std::string interlaced = Clip("format-1080i.mp4", "1920x1080", "-flags +ildct+ilme -x264opts tff=1");
  EXPECT_EQ(SignalFormat(interlaced)["name"], "1920x1080i@25");
}

// The library has a word near to each of these, of another raster or another rate.
TEST(InspectFormat, NoneWhereTheNearestIsOfAnotherRasterOrRate) {
  const std::string small = Clip("format-360p.mp4", "640x360");
  EXPECT_EQ(SignalFormat(small), nullptr);
  EXPECT_EQ(SignalFormat(Clip("format-1934.mp4", "1934x1080")), nullptr);
  EXPECT_EQ(SignalFormat(Clip("format-90.mp4", "1280x720", "-r 90")), nullptr);
  EXPECT_THAT(Qlnmedia("inspect --details '" + small + "'").output, HasSubstr("Signal format  none\n"));
}

TEST(InspectFormat, RasterThatHasNone) {
  EXPECT_EQ(SignalFormat(Clip("format-none.mp4", "192x112")), nullptr);
}

}  // namespace
}  // namespace qln::test
