// CheckLive against CheckFile: the same findings, each told once, when it shows.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "check/finding_list.h"
#include "qlnmedia/check.h"
#include "qlnmedia/patch.h"
#include "support/media.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::Bytes;
using qln::test::MediaPath;
using qln::test::ReadFile;
using qln::test::WriteFile;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kScc[] =
    "Scenarist_SCC V1.0\n\n01:00:00:03\t94ae 94ae 9420 9420 9470 9470 c74f 4fc4 20cd 4f52 942f 942f\n";

std::string Clip(const std::string& name, const std::string& options) {
  return qln::test::MediaFile(
      name, "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x112:r=25:d=4 " + options + " -threads 1 {out}");
}

std::string Beside(const std::string& file, const std::string& word) {
  const size_t dot = file.rfind('.');
  return file.substr(0, dot) + word + file.substr(dot);
}

std::string WithCaptions(const std::string& file) {
  const std::string scc = MediaPath("check_live.scc"), out = Beside(file, "_captioned");
  WriteFile(scc, Bytes(std::begin(kScc), std::end(kScc) - 1));
  PatchOptions options;
  options.in = file;
  options.out = out;
  options.captions.emplace().file = scc;
  PatchFile(options);
  return out;
}

// The first and the last part with captions, the one between them without.
std::string Gapped(const std::string& file) {
  const std::string joined = Beside(file, "_joined");
  const Bytes plain = ReadFile(file);
  const Bytes captioned = ReadFile(WithCaptions(file));
  Bytes all = captioned;
  all.insert(all.end(), plain.begin(), plain.end());
  all.insert(all.end(), captioned.begin(), captioned.end());
  WriteFile(joined, all);
  return joined;
}

std::vector<std::string> Words(const std::vector<Finding>& findings) {
  std::vector<std::string> words;
  for (const Finding& one : findings)
    words.push_back(std::string(SeverityWord(one.severity)) + " " + FindingWord(one.kind) + " of " +
                    std::to_string(one.stream) + " at " + std::to_string(one.frame) + " x" +
                    std::to_string(one.count) + ": " + one.text);
  std::sort(words.begin(), words.end());
  return words;
}

const char* const kAvc = "-c:v libx264 -preset ultrafast -bf 3 -b_strategy 0 -g 25 -pix_fmt yuv420p";
const char* const kFields = "-c:v libx264 -preset ultrafast -bf 2 -g 25 -pix_fmt yuv420p -flags +ildct+ilme";
const char* const kMpeg2 = "-c:v mpeg2video -bf 2 -g 12";

class SameFindings : public testing::TestWithParam<std::pair<const char*, const char*>> {};

TEST_P(SameFindings, AreToldOnceEachAsTheyShow) {
  const auto& [name, options] = GetParam();
  const std::string file = Gapped(Clip(name, options));
  std::vector<Finding> heard;
  const std::vector<Finding> live = CheckLive(file, {{}, [&](const Finding& finding, std::optional<double>) {
                                                       EXPECT_EQ(finding.count, 1);
                                                       heard.push_back(finding);
                                                     }});
  EXPECT_EQ(Words(live), Words(CheckFile(file)));
  ASSERT_EQ(heard.size(), live.size());
  bool gap = false;
  for (size_t i = 0; i < live.size(); ++i) {
    EXPECT_EQ(heard[i].text, live[i].text);
    gap = gap || live[i].text.find("a gap of 100 pictures (4.00 s)") == 0;
  }
  EXPECT_TRUE(gap) << testing::PrintToString(Words(live));
}

INSTANTIATE_TEST_SUITE_P(Streams, SameFindings,
                         testing::Values(std::pair("check_live.h264", kAvc), std::pair("check_live.ts", kAvc),
                                         std::pair("check_live_fields.ts", kFields),
                                         std::pair("check_live_mpeg2.ts", kMpeg2)));

// What ffprobe prints of this stream as the presentation time of the first picture behind the captions.
TEST(CheckLive, FindingsHaveTheTimeOfTheStream) {
  const std::string plain = Clip("check_live_time.ts", kAvc);
  const std::string file = Gapped(plain);
  std::optional<double> time;
  CheckLive(file, {{}, [&](const Finding& finding, std::optional<double> seconds) {
                     if (finding.text.find("a gap of") == 0) time = seconds;
                   }});
  const std::string first =
      qln::test::Run("ffprobe -v error -select_streams v -show_entries packet=pts_time -of csv=p=0 '" +
                     plain + "' | tr -d ',' | grep . | sort -n | head -1")
          .output;
  ASSERT_TRUE(time.has_value());
  EXPECT_NEAR(*time, std::stod(first), 0.001);
}

TEST(CheckLive, TheChecksEndWithWhatTheCallbackThrows) {
  struct Enough {};
  const std::string file = Gapped(Clip("check_live.ts", kAvc));
  int heard = 0;
  const auto found = [&](const Finding&, std::optional<double>) {
    ++heard;
    throw Enough();
  };
  EXPECT_THROW(CheckLive(file, {{}, found}), Enough);
  EXPECT_EQ(heard, 1);
  EXPECT_THROW(CheckLive(file, {[](const ProgressStep&) { return false; }, {}}), Cancelled);
}

TEST(CheckLive, KindsAreCountedTogetherBehindTenThousand) {
  std::vector<std::string> told;
  FindingList list([&](const Finding& finding, std::optional<double>) { told.push_back(finding.text); });
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 10050; ++i) list.Add(0, FindingKind::kSets, std::to_string(i), i);
  }
  EXPECT_EQ(told.size(), 10001u);
  EXPECT_EQ(list.findings().front().count, 2);
  EXPECT_THAT(list.findings().back().text, HasSubstr("more of these"));
  EXPECT_EQ(list.findings().back().count, 100);
  FindingList unlimited;
  for (int i = 0; i < 10050; ++i) unlimited.Add(0, FindingKind::kSets, std::to_string(i), i);
  EXPECT_EQ(unlimited.findings().size(), 10050u);
}

}  // namespace
}  // namespace qlnmedia
