// CheckFile as hosts call it: sound files, files with something planted, progress and calling off.

#include "qlnmedia/check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "support/media.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kPictures[] = "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.4 -pix_fmt yuv420p ";

std::string Sound() {
  return qln::test::MediaFile("checked.mp4", std::string(kPictures) + "-c:v libx264 -threads 1 {out}");
}

// The muxer writes one colour and the coder another.
std::string TwoColours() {
  return qln::test::MediaFile(
      "checked_colours.mp4",
      std::string(kPictures) +
          "-c:v libx264 -threads 1 -x264-params colorprim=bt709:transfer=bt709:colormatrix="
          "bt709 {out}.mkv && ffmpeg -v error -y -i {out}.mkv -c copy -color_primaries bt2020 "
          "-color_trc smpte2084 -colorspace bt2020nc -movflags write_colr {out}");
}

TEST(CheckFile, FindsNothingInSoundFiles) {
  EXPECT_THAT(CheckFile(Sound()), IsEmpty());
  EXPECT_THAT(CheckFile(qln::test::MediaFile("checked.h264",
                                             std::string(kPictures) + "-c:v libx264 -threads 1 {out}")),
              IsEmpty());
}

TEST(CheckFile, NamesColoursThatDisagree) {
  const std::vector<Finding> findings = CheckFile(TwoColours());
  const auto colour = std::find_if(findings.begin(), findings.end(), [](const Finding& finding) {
    return finding.kind == FindingKind::kColour;
  });
  ASSERT_NE(colour, findings.end());
  EXPECT_EQ(colour->stream, 0u);
  EXPECT_EQ(colour->severity, Severity::kWarning);
  EXPECT_THAT(colour->text, HasSubstr("9"));
}

TEST(CheckFile, NamesAFileThatEndsEarly) {
  qln::test::Bytes bytes = qln::test::ReadFile(
      qln::test::MediaFile("checked.ts", std::string(kPictures) + "-c:v libx264 -threads 1 {out}"));
  bytes.resize(bytes.size() - 100);
  const std::string path = qln::test::MediaPath("checked_cut.ts");
  qln::test::WriteFile(path, bytes);
  const std::vector<Finding> findings = CheckFile(path);
  EXPECT_TRUE(std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
    return finding.kind == FindingKind::kDamage && finding.text.find("cut off") != std::string::npos;
  }));
}

TEST(CheckFile, TellsItsStepsAndCanBeCalledOff) {
  int steps = 0;
  bool finished = false;
  EXPECT_THAT(CheckFile(Sound(),
                        [&](const ProgressStep& step) {
                          ++steps;
                          EXPECT_LE(step.done, step.total);
                          finished = step.finished;
                          return true;
                        }),
              IsEmpty());
  EXPECT_GT(steps, 0);
  EXPECT_TRUE(finished);
  EXPECT_THROW(CheckFile(Sound(), [](const ProgressStep&) { return false; }), Cancelled);
}

TEST(CheckFile, RefusesWhatItCannotRead) {
  EXPECT_THROW(CheckFile("/no/such/file"), Error);
  EXPECT_THROW(CheckFile(qln::test::MediaFile(
                   "checked.avi", "ffmpeg -v error -y -f lavfi -i testsrc2=s=64x64:d=0.2 -c:v mjpeg {out}")),
               Error);
}

TEST(CheckFile, WordsOfKindsAndSeverities) {
  EXPECT_STREQ(FindingWord(FindingKind::kColour), "colour");
  EXPECT_STREQ(FindingWord(FindingKind::kEncryption), "encryption");
  EXPECT_STREQ(SeverityWord(Severity::kError), "error");
  EXPECT_STREQ(SeverityWord(Severity::kWarning), "warning");
  EXPECT_STREQ(SeverityWord(Severity::kNote), "note");
}

}  // namespace
}  // namespace qlnmedia
