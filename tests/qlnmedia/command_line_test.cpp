// The command line: usage errors, help, bad files; one clear line and the right exit status each.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

long Lines(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

void ExpectOneLine(const CommandResult& result, int status, const std::string& piece) {
  EXPECT_EQ(result.exitCode, status) << result.output;
  EXPECT_EQ(Lines(result.output), 1) << result.output;
  EXPECT_THAT(result.output, StartsWith("qlnmedia: "));
  EXPECT_THAT(result.output, HasSubstr(piece));
}

TEST(CommandLine, WithoutASubcommandIsAUsageError) { ExpectOneLine(Qlnmedia(""), 2, "--help"); }

TEST(CommandLine, UnknownOptionIsAUsageError) {
  ExpectOneLine(Qlnmedia("inspect --no-such-option x.mp4"), 2, "qlnmedia inspect --help");
}

TEST(CommandLine, NegativeFrameCountIsAUsageError) {
  ExpectOneLine(Qlnmedia("inspect --frames -1 x"), 2, "frames");
}

TEST(CommandLine, CountsThatAreNoneAreOneLine) {
  ExpectOneLine(Qlnmedia("inspect --frames -1 x"), 2, "--frames: -1 is no count from 0 to 2147483647");
  ExpectOneLine(Qlnmedia("inspect --frames abc x"), 2, "--frames: abc is no count from 0 to 2147483647");
  ExpectOneLine(Qlnmedia("transport --in 0 --out 1 --speed 1 --steps 1.5"), 2,
                "--steps: 1.5 is no count from 0 to 1000000");
}

TEST(CommandLine, UnknownCommandsNameTheKnownOnes) {
  ExpectOneLine(Qlnmedia("bogus"), 2,
                "bogus is no command; there are inspect, patch, recover, check, captions, format, metadata, "
                "command, transport; qlnmedia --help");
  ExpectOneLine(Qlnmedia("inspct x.mp4"), 2, "inspct is no command; inspect? there are");
  ExpectOneLine(Qlnmedia("meta list"), 2, "meta is no command; metadata? there are");
  ExpectOneLine(Qlnmedia("metadata lst"), 2, "lst is no command; list? there are list, where, get, set,");
}

TEST(CommandLine, ListsOfNamesShowWhatTheyStandFor) {
  const CommandResult colours = Qlnmedia("patch --colour list");
  EXPECT_EQ(colours.exitCode, 0);
  EXPECT_THAT(colours.output,
              testing::ContainsRegex("bt2020-pq +9:16:9 +BT.2020 +PQ .SMPTE ST 2084. +BT.2020"));
  const CommandResult displays = Qlnmedia("patch --hdr list");
  EXPECT_EQ(displays.exitCode, 0);
  EXPECT_THAT(
      displays.output,
      testing::ContainsRegex("p3 +0.68,0.32 +0.265,0.69 +0.15,0.06 +0.3127,0.329 +0.0001 to 1000 cd/m2"));
  EXPECT_THAT(displays.output,
              HasSubstr("bt2020 is G(8500,39850)B(6550,2300)R(35400,14600)WP(15635,16450)L(10000000,1)"));
  ExpectOneLine(Qlnmedia("patch --colour bt709"), 2, "IN");
}

TEST(CommandLine, HelpAndVersionSucceed) {
  const CommandResult help = Qlnmedia("--help");
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_THAT(help.output, HasSubstr("inspect"));
  EXPECT_THAT(help.output, HasSubstr("Exit status"));
  const CommandResult version = Qlnmedia("--version");
  EXPECT_EQ(version.exitCode, 0);
  EXPECT_THAT(version.output, StartsWith("qlnmedia 1."));
  EXPECT_EQ(Qlnmedia("inspect --help").exitCode, 0);
}

TEST(CommandLine, MissingFile) {
  ExpectOneLine(Qlnmedia("inspect /no/such/file.mp4"), 1, "/no/such/file.mp4: No such file or directory");
}

TEST(CommandLine, Directory) { ExpectOneLine(Qlnmedia("inspect /"), 1, "/: is a directory"); }

TEST(CommandLine, EmptyFile) {
  const std::string path = MediaPath("empty.mp4");
  WriteFile(path, {});
  ExpectOneLine(Qlnmedia("inspect '" + path + "'"), 4, path + ": is empty");
}

TEST(CommandLine, TextIsNoMedia) {
  for (const char* name : {"words.txt", "words.mp4", "words.h264"}) {
    const std::string path = MediaPath(name);
    const std::string words = "These are words, and words are no media at all.\nNone.\n";
    WriteFile(path, Bytes(words.begin(), words.end()));
    ExpectOneLine(Qlnmedia("inspect '" + path + "'"), 1, path + ": is no media that can be read");
  }
}

TEST(CommandLine, RandomBytesAreNoMedia) {
  const std::string path = MediaPath("random.bin");
  WriteFile(path, Random(7).bytes(20000));
  const CommandResult result = Qlnmedia("inspect '" + path + "'");
  EXPECT_EQ(result.exitCode, 1) << result.output;
  EXPECT_EQ(Lines(result.output), 1) << result.output;
}

TEST(CommandLine, FullStandardOutputIsNoticed) {
  const CommandResult result = Qlnmedia("--help > /dev/full");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output, HasSubstr("standard output: cannot be written"));
}

}  // namespace
}  // namespace qln::test
