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
  ExpectOneLine(Qlnmedia("inspect '" + path + "'"), 1, path + ": is empty");
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
