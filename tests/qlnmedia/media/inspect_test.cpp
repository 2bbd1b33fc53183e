// inspect on real files.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using Json = nlohmann::ordered_json;

std::string Clip(const std::string& name, const std::string& options = "") {
  return MediaFile(name,
                   "ffmpeg -v error -y -f lavfi -i testsrc2=s=192x112:r=25:d=0.4 -f lavfi -i sine=d=0.4 "
                   "-c:v libx264 -threads 1 -pix_fmt yuv420p -c:a aac " +
                       options + " {out}");
}

Json InspectJson(const std::string& file, const std::string& options = "") {
  const CommandResult result = Qlnmedia("inspect --json " + options + " '" + file + "'");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  return Json::parse(result.output, nullptr, false);
}

TEST(Inspect, ContainerAndStreams) {
  const Json report = InspectJson(Clip("plain.mp4"));
  EXPECT_EQ(report["container"]["format"], "mov,mp4,m4a,3gp,3g2,mj2");
  ASSERT_EQ(report["streams"].size(), 2u);
  EXPECT_EQ(report["streams"][0]["codec"], "h264");
  EXPECT_EQ(report["streams"][0]["width"], 192);
  EXPECT_EQ(report["streams"][1]["type"], "audio");
}

TEST(Inspect, CutOffWithoutIndexDoesNotOpen) {
  const Bytes whole = ReadFile(Clip("plain.mp4"));
  const std::string path = MediaPath("cut-index.mp4");
  WriteFile(path, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(whole.size() / 2)));
  const CommandResult result = Qlnmedia("inspect '" + path + "'");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output, HasSubstr("cut off"));
}

TEST(Inspect, CutOffBehindItsIndexIsShownWithANote) {
  const Bytes whole = ReadFile(Clip("front.mp4", "-movflags +faststart"));
  const std::string path = MediaPath("cut-data.mp4");
  WriteFile(path, Bytes(whole.begin(), whole.end() - static_cast<std::ptrdiff_t>(whole.size() / 3)));
  const Json report = InspectJson(path);
  ASSERT_TRUE(report.contains("notes"));
  EXPECT_THAT(report["notes"][0].get<std::string>(), HasSubstr("the file ends early"));
  EXPECT_FALSE(InspectJson(Clip("front.mp4", "-movflags +faststart")).contains("notes"));
}

TEST(Inspect, SoundAloneHasNoVideo) {
  const std::string path = MediaFile("sound.m4a", "ffmpeg -v error -y -f lavfi -i sine=d=0.2 -c:a aac {out}");
  const CommandResult result = Qlnmedia("inspect '" + path + "'");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output, HasSubstr("sound.m4a: has no video stream"));
}

}  // namespace
}  // namespace qln::test
