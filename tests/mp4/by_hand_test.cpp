// Patches of real pictures in every layout that is put together by hand, in this process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mp4/hand_made.h"
#include "mp4/patch_by_engine.h"
#include "support/media.h"

namespace qln::test::mp4 {
namespace {

CodedPictures Pictures(bool hevc) {
  const std::string coder =
      hevc ? "-c:v libx265 -x265-params "
             "log-level=none:pools=1:frame-threads=1:bframes=0:keyint=5:min-keyint=5:scenecut=0"
           : "-c:v libx264 -threads 1 -bf 0 -g 5";
  return TakePictures(
      ReadFile(MediaFile(hevc ? "by-hand-265.mp4" : "by-hand-264.mp4",
                         "ffmpeg -v error -y -f lavfi -i testsrc2=s=64x64:r=25:d=0.8 -preset ultrafast "
                         "-pix_fmt yuv420p " +
                             coder + " {out}")),
      hevc);
}

class ByHand : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(Codecs, ByHand, testing::Bool(),
                         [](const auto& codec) { return codec.param ? "Hevc" : "H264"; });

TEST_P(ByHand, OnlyWhatWasAskedForChanges) {
  const std::vector<HandMade> all = AllByHand(Pictures(GetParam()));
  EXPECT_GE(all.size(), GetParam() ? 140u : 360u);
  size_t byBoxes = 0;  // files that are described without libavformat
  for (size_t i = 0; i < all.size(); ++i) {
    SCOPED_TRACE(all[i].name);
    // Each file with one of the wishes, and in place, in turn; scripts/matrix_mp4.sh has all with all.
    const Wishes wishes = i % 2 == 0 ? Wishes::kDelimiters : Wishes::kEverything;
    const std::string said = JudgePatch(all[i].file, all[i].init, wishes);
    if (wishes == Wishes::kEverything && !all[i].untrue.empty()) {
      EXPECT_THAT(said, testing::HasSubstr(all[i].untrue));
    } else {
      EXPECT_EQ(said, "");
    }
    if (all[i].init.empty()) {
      EXPECT_EQ(JudgeBoxStreams(all[i].file, &byBoxes), "");
    }
    if (i % 5 == 0 && all[i].init.empty() && all[i].untrue.empty()) {
      EXPECT_EQ(JudgeInPlace(all[i].file), "");
    }
  }
  EXPECT_GT(byBoxes, all.size() / 2);
}

}  // namespace
}  // namespace qln::test::mp4
