// What independent readers said is kept for the same bytes, and for nothing else.

#include "support/readings.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/media.h"
#include "support/temporary_folder.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

class ReadingsTest : public testing::Test {
 protected:
  std::string Make(const std::string& name, const std::string& text) {
    WriteFile(folder_ / name, Bytes(text.begin(), text.end()));
    return folder_ / name;
  }
  std::optional<std::string> Name(const std::string& command) const { return readings_.NameOf(command); }
  TemporaryFolder folder_;
  Readings readings_{folder_ / "kept"};
};

TEST_F(ReadingsTest, TheNameGoesByBytesAndCommand) {
  const std::string one = Make("one.ts", "some bytes"), same = Make("same.ts", "some bytes");
  const std::string other = Make("other.ts", "some bytes!"), kind = Make("one.mp4", "some bytes");
  const auto name = Name("ffprobe -show_packets '" + one + "' | sort");
  ASSERT_TRUE(name.has_value());
  EXPECT_EQ(Name("ffprobe -show_packets '" + same + "' | sort"), name);
  for (const std::string& command : std::vector<std::string>{
           "ffprobe -show_packets '" + other + "' | sort", "ffprobe -show_packets '" + kind + "' | sort",
           "ffprobe -show_frames '" + one + "' | sort", "ffprobe -show_packets '" + one + "'",
           "ffprobe -show_packets '" + one + "' '" + other + "' | sort"}) {
    EXPECT_TRUE(Name(command).has_value()) << command;
    EXPECT_NE(Name(command), name) << command;
  }
  EXPECT_TRUE(
      Name("ffmpeg -v error -i '" + one + "' -map 0:v -f framemd5 - 2>&1 | grep -v '^#'").has_value());
  EXPECT_TRUE(Name("ffmpeg -f lavfi -i 'movie=" + one + "[out+subcc]' -map 0:s -f srt -").has_value());
  EXPECT_NE(Name("ffmpeg -i 'concat:" + one + "|" + same + "' -f null -"),
            Name("ffmpeg -i 'concat:" + one + "|" + other + "' -f null -"));
}

TEST_F(ReadingsTest, CommandsThatDoMoreHaveNone) {
  const std::string in = Make("in.ts", "bytes"), list = Make("in.m3u8", "bytes");
  for (const std::string& command : std::vector<std::string>{
           "ffmpeg -i '" + in + "' -c copy '" + in + ".mp4'", "ffmpeg -y -i '" + in + "' -f null -",
           "ffmpeg -i '" + in + "' -f null - -f md5 -", "qlnmedia inspect '" + in + "'",
           "ffprobe '" + in + "' > /tmp/x", "ffprobe '" + in + "'; true", "ffprobe '" + in + "' && true",
           "ffprobe \"$(cat '" + in + "')\"", "ffprobe '" + in + "' | tee x", "ffprobe '" + in,
           "ffprobe '" + list + "'", "ffprobe '" + in + ".missing'", "ffprobe '" + folder_.path() + "'",
           "ffprobe in.ts", "cd /; ffprobe in.ts", "ffmpeg -i in.ts -i '" + in + "' -f null -",
           "cat '" + in + "'"}) {
    EXPECT_EQ(Name(command), std::nullopt) << command;
  }
}

TEST_F(ReadingsTest, WhatIsKeptComesBack) {
  EXPECT_FALSE(readings_.Find("a").has_value());
  const std::string output = "one\ntwo\n" + std::string("\0\xFF", 2);
  readings_.Keep("a", "ffprobe /x/in.ts", {3, output});
  const auto found = readings_.Find("a");
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->exitCode, 3);
  EXPECT_EQ(found->output, output);
  readings_.Keep("stopped", "ffprobe /x/in.ts", {124, output});
  readings_.Keep("named", "ffprobe /x/in.ts", {0, "/x/in.ts: nothing"});
  EXPECT_FALSE(readings_.Find("stopped").has_value());
  EXPECT_FALSE(readings_.Find("named").has_value());
}

TEST_F(ReadingsTest, AFileThatChangedIsReadAgain) {
  const auto entries = [&](const std::string& text) {
    return qln::test::Run("ffprobe -v error -show_entries packet=size -of csv=p=0 -f data '" +
                          Make("in.bin", text) + "'")
        .output;
  };
  EXPECT_EQ(entries("12345"), "5\n");
  EXPECT_EQ(entries("12345678"), "8\n");
  EXPECT_EQ(entries("12345"), "5\n");
}

}  // namespace
}  // namespace qln::test
