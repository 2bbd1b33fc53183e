// check --follow: what is found comes out while the stream goes on, each once, and nothing else is found than
// otherwise.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "qlnmedia/media/between.h"
#include "qlnmedia/media/caption_media.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using Json = nlohmann::ordered_json;

constexpr int kLimit = 60;

std::string Clip(const std::string& name, const std::string& size) {
  return MediaFile(name,
                   "ffmpeg -v error -y -f lavfi -i testsrc2=s=" + size +
                       ":r=25:d=2 -c:v libx264 -preset ultrafast -g 25 -threads 1 -pix_fmt yuv420p {out}");
}
std::string Small() { return Clip("follow_small.h264", "160x112"); }

Bytes Joined(const std::vector<std::string>& files) {
  Bytes all;
  for (const std::string& file : files) {
    const Bytes bytes = ReadFile(file);
    all.insert(all.end(), bytes.begin(), bytes.end());
  }
  return all;
}

// Two sizes by turns under one number, and a third, which breaks off.
std::string Changing() {
  const std::string path = MediaPath("follow_changing.h264");
  const std::string wide = Clip("follow_wide.h264", "192x112"), high = Clip("follow_high.h264", "160x128");
  Bytes bytes = Joined({Small(), wide, Small(), high});
  bytes.resize(bytes.size() - 100);
  WriteFile(path, bytes);
  return path;
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

Json WithoutTime(Json line) {
  line.erase("time");
  line.erase("count");
  return line;
}

TEST(Follow, FindsWhatTheWholeRunFinds) {
  const std::string file = Changing();
  const Json whole = Json::parse(Qlnmedia("check --json '" + file + "'").output)["findings"];
  ASSERT_GE(whole.size(), 2u);
  for (const std::string& from : {"'" + file + "'", "- < '" + file + "'", std::string("pipe")}) {
    const bool pipe = from == "pipe";
    const CommandResult result =
        pipe ? test::Run("cat '" + file + "' | '" + QLNMEDIA_PROGRAM + "' check - --follow --json", kLimit)
             : Qlnmedia("check --follow --json " + from);
    std::vector<std::string> lines = LinesOf(result.output);
    ASSERT_EQ(lines.size(), whole.size() + 1) << result.output;
    const Json last = Json::parse(lines.back());
    EXPECT_EQ(last["status"], result.exitCode);
    EXPECT_EQ(last["findings"], whole);
    for (size_t i = 0; i < whole.size(); ++i) {
      const Json line = Json::parse(lines[i]);
      EXPECT_EQ(line["count"], 1);
      EXPECT_TRUE(line["time"].is_null()) << "a raw stream tells none";
      EXPECT_EQ(WithoutTime(line), WithoutTime(whole[i]));
    }
  }
}

TEST(Follow, TextIsThatOfTheWholeRunWithAFewLastWords) {
  const std::string file = Changing();
  std::vector<std::string> whole = LinesOf(Qlnmedia("check '" + file + "'").output);
  std::vector<std::string> lines = LinesOf(Qlnmedia("check --follow '" + file + "'").output);
  ASSERT_EQ(lines.size(), whole.size() + 1);
  EXPECT_THAT(lines.back(), HasSubstr(std::to_string(whole.size()) + " findings: "));
  for (size_t i = 0; i < whole.size(); ++i) {
    const size_t times = whole[i].rfind(" (");
    if (whole[i].ends_with(" times)")) {
      EXPECT_THAT(lines.back(),
                  HasSubstr("finding " + std::to_string(i + 1) + " " +
                            whole[i].substr(times + 2, whole[i].find(' ', times + 2) - times - 2)));
      whole[i].resize(times);
    }
    EXPECT_EQ(lines[i], whole[i]);
  }
  EXPECT_EQ(Qlnmedia("check --follow '" + Small() + "'").output, "nothing found\n");
}

TEST(Follow, FindingsComeBeforeTheStreamEnds) {
  Between program({"check", "-", "--follow", "--json"});
  program.Feed(ReadFile(Small()));
  EXPECT_TRUE(program.Drain(300).empty());
  const Bytes change = ReadFile(Clip("follow_wide.h264", "192x112"));
  program.Feed(change);
  program.Feed(change);  // the reader looks at some pictures before it hands out the first one
  const Json line = Json::parse(program.Line());
  EXPECT_EQ(line["what"], "sets");
  EXPECT_EQ(line["frame"], 50);
  program.Close();
  const std::vector<uint8_t> rest = program.Drain();
  EXPECT_THAT(std::string(rest.begin(), rest.end()), HasSubstr("\"findings\":[{"));
}

TEST(Follow, OneByteAtATimeAndAnEndInTheMiddle) {
  const std::string part = MediaPath("follow_part.h264");
  Bytes bytes = Joined({Small(), Clip("follow_wide.h264", "192x112")});
  bytes.resize(bytes.size() - 100);
  WriteFile(part, bytes);
  const CommandResult slow = test::Run(
      "dd if='" + part + "' bs=1 status=none | '" + QLNMEDIA_PROGRAM + "' check --follow -", kLimit);
  EXPECT_EQ(slow.output, Qlnmedia("check --follow '" + part + "'").output);
  EXPECT_THAT(slow.output, HasSubstr("damage"));
}

// Also where there is nothing to say: the writer would go on for ever.
TEST(Follow, AReaderThatGoesAwayEndsIt) {
  for (const std::string& file : {Small(), Changing()}) {
    const CommandResult result =
        test::Run("bash -c \"(while cat '" + file + "'; do :; done) 2> /dev/null | { '" + QLNMEDIA_PROGRAM +
                      "' check - --follow; echo status $? >&2; } | true\"",
                  kLimit);
    EXPECT_EQ(result.output, "status 0\n") << file;
  }
}

TEST(Follow, WhatDoesNotGoWithItIsRefusedByName) {
  const std::string file = "'" + Small() + "'";
  for (const std::string other : {"--csv", "--html x.html", "--journal x.journal"}) {
    const CommandResult result = Qlnmedia("check --follow " + file + " " + other);
    EXPECT_EQ(result.exitCode, 2) << other;
    EXPECT_THAT(result.output, HasSubstr(other.substr(0, other.find(' ')))) << other;
    EXPECT_THAT(result.output, HasSubstr("--follow")) << other;
  }
  const CommandResult several = Qlnmedia("check --follow " + file + " " + file);
  EXPECT_EQ(several.exitCode, 2);
  EXPECT_THAT(several.output, HasSubstr("--follow is for one"));
}

}  // namespace
}  // namespace qln::test
