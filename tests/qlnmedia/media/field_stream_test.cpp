// The streams of coded fields that other tests rely on: a player shows their frames, and in the order told.

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "qlnmedia/media/field_mux.h"
#include "support/media.h"

namespace qln::test {
namespace {

// The top and bottom luma of each frame that a player shows.
std::vector<std::pair<int, int>> ShownLuma(const std::string& path) {
  const std::string lines =
      Run("ffmpeg -v error -i '" + path +
          "' -vf extractplanes=y,crop=16:2:0:0,setpts=N/25/TB -fps_mode passthrough -f rawvideo - | "
          "od -An -v -tu1 -w32 | awk "
          "'{print $1, $17}'")
          .output;
  std::vector<std::pair<int, int>> shown;
  std::istringstream in(lines);
  for (int top = 0, bottom = 0; in >> top >> bottom;) shown.emplace_back(top, bottom);
  return shown;
}

std::vector<std::pair<int, int>> ExpectedLuma(const std::vector<CodedFrame>& frames) {
  std::vector<std::pair<int, std::pair<int, int>>> placed;
  int first = 0;
  for (int i = 0; i < static_cast<int>(frames.size()); ++i) {
    const CodedFrame& frame = frames[static_cast<size_t>(i)];
    if (frame.idr) first = i;
    const int luma = 32 + 4 * (i % 48);
    const int second = frame.fields ? luma + 2 : luma;
    placed.push_back(
        {first + frame.place, {frame.bottomFirst ? second : luma, frame.bottomFirst ? luma : second}});
  }
  std::sort(placed.begin(), placed.end());
  std::vector<std::pair<int, int>> expected;
  for (const auto& [place, luma] : placed) expected.push_back(luma);
  return expected;
}

TEST(FieldStream, APlayerShowsTheFramesInTheirOrder) {
  for (const bool bottomFirst : {false, true}) {
    for (const int pocType : {0, 1}) {
      const std::vector<CodedFrame> frames = FieldGroups(3, bottomFirst);
      const std::string path = MediaPath("field_stream.h264");
      WriteFile(path,
                MakeFieldStream(frames, {.pocType = pocType, .pictureTiming = true, .delimiters = true}));
      EXPECT_EQ(ShownLuma(path), ExpectedLuma(frames)) << pocType << bottomFirst;
    }
  }
}

TEST(FieldStream, InPresentationOrderWithoutPictureOrderInTheSlices) {
  std::vector<CodedFrame> frames;
  for (int i = 0; i < 24; ++i) frames.push_back({.place = i % 20, .idr = i % 20 == 0, .fields = i % 3 != 0});
  const std::string path = MediaPath("field_stream.h264");
  WriteFile(path, MakeFieldStream(frames, {.pocType = 2}));
  EXPECT_EQ(ShownLuma(path), ExpectedLuma(frames));
}

TEST(FieldStream, InContainers) {
  const std::vector<CodedFrame> frames = FieldGroups(2);
  for (const char* extension : {"mp4", "mov", "mkv", "ts"}) {
    for (const bool bothInOnePacket : {false, true}) {
      const std::string path = MediaPath(std::string("field_stream.") + extension);
      MuxFields(path, frames, bothInOnePacket);
      EXPECT_EQ(ShownLuma(path), ExpectedLuma(frames)) << extension << bothInOnePacket;
    }
  }
}

}  // namespace
}  // namespace qln::test
