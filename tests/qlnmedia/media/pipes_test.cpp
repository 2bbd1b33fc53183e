// Standard input, named pipes, and readers that go away: what passes once is read once, and nothing waits.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "qlnmedia/media/caption_media.h"

namespace qln::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using Json = nlohmann::ordered_json;

constexpr int kLimit = 20;  // seconds; 124 is what a command that takes longer ends with

std::string Clip(const std::string& name, const std::string& options = "") {
  return MediaFile(name,
                   "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x112:r=25:d=1 -f lavfi -i sine=d=1 "
                   "-c:v libx264 -preset ultrafast -bf 2 -threads 1 -pix_fmt yuv420p -c:a aac " +
                       options + " {out}");
}

CommandResult Piped(const std::string& file, const std::string& arguments) {
  return test::Run("cat '" + file + "' | '" + QLNMEDIA_PROGRAM + "' " + arguments, kLimit);
}

// What a report says of the pictures does not depend on the way in which they came.
void ExpectSameReport(const std::string& file) {
  SCOPED_TRACE(file);
  const Json whole = Json::parse(Qlnmedia("inspect --json '" + file + "'").output);
  const CommandResult result = Piped(file, "inspect --json -");
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const Json piped = Json::parse(result.output);
  EXPECT_EQ(piped["summary"]["size"], nullptr);
  ASSERT_EQ(piped["streams"].size(), whole["streams"].size());
  for (const char* key : {"codec", "width", "parameter_sets", "configuration", "frames"})
    EXPECT_EQ(piped["streams"][0].value(key, Json()), whole["streams"][0].value(key, Json())) << key;
  for (const char* key : {"profile", "scan", "field_order", "range", "captions", "frame_rate_mode"})
    EXPECT_EQ(piped["summary"]["streams"][0][key], whole["summary"]["streams"][0][key]) << key;
}

TEST(Pipes, WhatIsReadInOnePassIsReadAlike) {
  for (const std::string& file :
       {Clip("pipe.ts"), Clip("pipe.mkv"), Clip("pipe-front.mp4", "-movflags +faststart"),
        Clip("pipe-parts.mp4", "-g 5 -movflags +frag_keyframe+empty_moov"),
        Clip("pipe.h264", "-an -map 0:v")}) {
    ExpectSameReport(file);
    const CommandResult checked = Piped(file, "check --json -");
    EXPECT_EQ(checked.exitCode, 0) << file;
    EXPECT_EQ(checked.output, Qlnmedia("check --json '" + file + "'").output) << file;
  }
}

TEST(Pipes, AnIndexAtTheEndWantsAFile) {
  const std::string file = Clip("pipe-back.mp4");
  for (const char* command : {"inspect", "check", "captions"}) {
    const CommandResult result = Piped(file, std::string(command) + " -");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.output, HasSubstr("its index (moov) stands behind its media data; save it to a file"));
  }
  // A redirection is the file itself.
  EXPECT_EQ(test::Run(std::string("'") + QLNMEDIA_PROGRAM + "' check - < '" + file + "'", kLimit).output,
            "nothing found\n");
}

TEST(Pipes, CaptionsAreThoseOfTheFile) {
  const std::string scc = Write("pipe.scc", kScc);
  const std::string file = MediaPath("pipe-captions.ts");
  ASSERT_EQ(Qlnmedia("patch '" + Clip("pipe.ts") + "' '" + file + "' --captions '" + scc + "'").exitCode, 0);
  const CommandResult piped = Piped(file, "captions -");
  EXPECT_EQ(piped.output, Qlnmedia("captions '" + file + "'").output);
  EXPECT_THAT(piped.output, HasSubstr("GOOD MORNING"));
  const std::string ofPipe = MediaPath("pipe-of-pipe.mcc");
  const std::string ofFile = MediaPath("pipe-of-file.mcc");
  EXPECT_EQ(Piped(file, "captions --force /dev/stdin -o '" + ofPipe + "'").exitCode, 0);
  EXPECT_EQ(Qlnmedia("captions '" + file + "' -o '" + ofFile + "'").exitCode, 0);
  EXPECT_EQ(Text("grep -v '^UUID\\|^Creation' '" + ofPipe + "'"),
            Text("grep -v '^UUID\\|^Creation' '" + ofFile + "'"));
}

TEST(Pipes, NamedPipesAreOpenedOnce) {
  const std::string file = Clip("pipe.ts");
  const std::string pipe = MediaPath("named.pipe");
  fs::remove(pipe);
  ASSERT_EQ(test::Run("mkfifo '" + pipe + "'").exitCode, 0);
  for (const char* command : {"inspect", "check"}) {
    const CommandResult result =
        test::Run("{ sleep 0.3; cat '" + file + "' > '" + pipe + "'; } & '" + QLNMEDIA_PROGRAM + "' " +
                      command + " '" + pipe + "'; status=$?; wait; exit $status",
                  kLimit);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, HasSubstr("nothing found"));
  }
  const CommandResult alone = Qlnmedia("inspect '" + pipe + "'", kLimit);
  EXPECT_EQ(alone.exitCode, 1);
  EXPECT_THAT(alone.output, HasSubstr("is a pipe that nobody writes to"));
  const CommandResult patched =
      test::Run("cat '" + file + "' > '" + pipe + "' & '" + QLNMEDIA_PROGRAM + "' patch '" + pipe + "' '" +
                    MediaPath("from_pipe.ts") + "' --force --colour bt709",
                kLimit);
  EXPECT_EQ(patched.exitCode, 0);
  EXPECT_THAT(patched.output, HasSubstr("sequence parameter sets in the stream changed"));
}

TEST(Pipes, NothingAndNoMedia) {
  EXPECT_EQ(test::Run(std::string("'") + QLNMEDIA_PROGRAM + "' inspect - < /dev/null", kLimit).exitCode, 4);
  EXPECT_EQ(test::Run(std::string("true | '") + QLNMEDIA_PROGRAM + "' check -", kLimit).exitCode, 4);
  const CommandResult words =
      test::Run(std::string("yes | tr -d '\\n' | '") + QLNMEDIA_PROGRAM + "' check -", kLimit);
  EXPECT_EQ(words.exitCode, 1);
  EXPECT_EQ(Qlnmedia("check - -", kLimit).exitCode, 2);
}

// A stream that stands still: the report is there all the same, of what has come.
TEST(Pipes, AReportDoesNotWaitForTheEnd) {
  const std::string pipe = MediaPath("still.pipe");
  fs::remove(pipe);
  const CommandResult result =
      test::Run("mkfifo '" + pipe + "'; ( cat '" + Clip("pipe.ts") + "'; exec sleep 60 ) > '" + pipe +
                    "' 2>/dev/null & writer=$!; '" + QLNMEDIA_PROGRAM + "' inspect '" + pipe +
                    "'; status=$?; kill $writer; exit $status",
                kLimit);
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.output, HasSubstr("160x112"));
}

TEST(Pipes, AReaderThatGoesAwayEndsItQuietly) {
  const std::string file = Clip("pipe.ts");
  for (const std::string& arguments :
       {"inspect --json --units --frames 20 '" + file + "'", "check '" + file + "'",
        "inspect '" + file + "' '" + file + "' '" + file + "'", std::string("patch --help")}) {
    const CommandResult result = test::Run(std::string("bash -c \"{ '") + QLNMEDIA_PROGRAM + "' " +
                                               arguments + "; echo status $? >&2; } | true\"",
                                           kLimit);
    EXPECT_EQ(result.output, "status 0\n") << arguments;
  }
}

TEST(Pipes, NoFileIsNamedLikeStandardInput) {
  const fs::path folder = MediaPath("pipe-folder");
  fs::remove_all(folder);
  fs::create_directories(folder);
  test::Run("cd '" + folder.string() + "'; cat '" + Clip("pipe.ts") + "' | '" + QLNMEDIA_PROGRAM +
                "' captions - -o -",
            kLimit);
  test::Run(
      "cd '" + folder.string() + "'; cat '" + Clip("pipe.ts") + "' | '" + QLNMEDIA_PROGRAM + "' inspect -",
      kLimit);
  EXPECT_TRUE(fs::is_empty(folder));
}

}  // namespace
}  // namespace qln::test
