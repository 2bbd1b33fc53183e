// Streams that are patched as they come: what comes out equals the patch of a file, no more waits than the
// picture that is being read, and what breaks off ends as it should.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "qlnmedia/media/between.h"
#include "qlnmedia/media/caption_media.h"

namespace qln::test {
namespace {

using testing::HasSubstr;

constexpr int kLimit = 60;

std::vector<uint8_t> BytesIn(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string Clip(const std::string& name, const std::string& options) {
  return MediaFile(name, "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x112:r=25:d=2 -f lavfi -i sine=d=2 " +
                             options + " -threads 1 -pix_fmt yuv420p {out}");
}
const char* const kAvc = "-c:v libx264 -preset ultrafast -bf 2 -b_strategy 0 -g 25 ";
const char* const kHevc =
    "-c:v libx265 -preset ultrafast -x265-params "
    "pools=none:frame-threads=1:bframes=3:b-adapt=0:log-level=none ";

std::string RawAvc() { return Clip("live.h264", kAvc + std::string("-map 0:v")); }
std::string RawHevc() { return Clip("live.hevc", kHevc + std::string("-map 0:v")); }
std::string Transport() { return Clip("live.ts", kAvc + std::string("-c:a aac")); }
std::string Matroska() { return Clip("live.mkv", kAvc + std::string("-c:a aac")); }

CommandResult Live(const std::string& from, const std::string& to, const std::string& options) {
  return test::Run("cat '" + from + "' | '" + QLNMEDIA_PROGRAM + "' patch - - " + options + " > '" + to + "'",
                   kLimit);
}

std::vector<std::string> Changes() {
  const std::string scc = Write("live.scc", kScc);
  return {"--colour bt2020-pq --hdr p3", "--timecode 01:00:00:00", "--delimiters --recovery-points",
          "--captions '" + scc + "' --timecode 10:00:00:00"};
}

TEST(Live, RawAndTransportStreamsEqualThePatchOfAFile) {
  for (const std::string& file : {RawAvc(), RawHevc(), Transport()}) {
    for (const std::string& options : Changes()) {
      SCOPED_TRACE(file + " " + options);
      const std::string ending = std::filesystem::path(file).extension();
      const std::string want = MediaPath("live_want" + ending), got = MediaPath("live_got" + ending);
      ASSERT_EQ(Qlnmedia("patch '" + file + "' '" + want + "' " + options).exitCode, 0);
      const CommandResult result = Live(file, got, options);
      EXPECT_EQ(result.exitCode, 0) << result.output;
      EXPECT_TRUE(BytesIn(want) == BytesIn(got));
    }
  }
}

// The segment tells no size and has no index, but packets are those of the file.
TEST(Live, MatroskaHasThePacketsOfThePatchOfAFile) {
  const auto packets = [](const std::string& file) {
    return Text("ffmpeg -v error -i '" + file + "' -map 0 -c copy -f framemd5 - | grep -v '^#software'");
  };
  for (const std::string& options : Changes()) {
    SCOPED_TRACE(options);
    const std::string want = MediaPath("live_want.mkv"), got = MediaPath("live_got.mkv");
    ASSERT_EQ(Qlnmedia("patch '" + Matroska() + "' '" + want + "' " + options).exitCode, 0);
    EXPECT_EQ(Live(Matroska(), got, options).exitCode, 0);
    EXPECT_EQ(packets(got), packets(want));
    EXPECT_EQ(Text("ffprobe -v error '" + got + "' 2>&1"), "");
  }
}

TEST(Live, OneByteAtATimeGivesTheSame) {
  for (const std::string& file : {RawAvc(), Transport(), Matroska()}) {
    SCOPED_TRACE(file);
    const std::string part = MediaPath("live_part"), whole = MediaPath("live_whole"),
                      slow = MediaPath("live_slow");
    test::Run("head -c 20000 '" + file + "' > '" + part + "'");
    Live(part, whole, "--colour bt709");
    const CommandResult result = test::Run("dd if='" + part + "' bs=1 status=none | '" + QLNMEDIA_PROGRAM +
                                               "' patch - - --colour bt709 > '" + slow + "'",
                                           kLimit);
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_TRUE(BytesIn(whole) == BytesIn(slow));
    // A last packet or element that is cut off is left out.
    EXPECT_GT(std::filesystem::file_size(slow), 15000u);
  }
}

// Places of the start codes in front of the first slices of pictures.
std::vector<size_t> PicturesIn(const std::vector<uint8_t>& bytes) {
  std::vector<size_t> places;
  for (size_t i = 0; i + 4 < bytes.size(); ++i) {
    const bool code = bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1;
    const int type = bytes[i + 3] & 0x1F;
    if (code && (type == 1 || type == 5) && (bytes[i + 4] & 0x80) != 0) places.push_back(i);
  }
  return places;
}

TEST(Live, NoMoreWaitsThanThePictureThatIsBeingRead) {
  std::vector<uint8_t> bytes = BytesIn(RawAvc());
  constexpr size_t kFed = 10;
  const std::vector<size_t> places = PicturesIn(bytes);
  ASSERT_GT(places.size(), kFed);
  bytes.resize(places[kFed]);
  const Between plain({"patch", "-", "-", "--colour", "bt709"});
  plain.Feed(bytes);
  EXPECT_EQ(PicturesIn(plain.Drain()).size(), kFed - 1);
  // By place: the last group of one P and two B pictures, and those that a decoder holds back (two).
  const Between placed({"patch", "-", "-", "--timecode", "00:00:00:00"});
  placed.Feed(bytes);
  const size_t out = PicturesIn(placed.Drain()).size();
  EXPECT_LT(out, kFed - 1);
  EXPECT_GE(out, kFed - 6);
}

TEST(Live, WhatBreaksOffEndsLegally) {
  const std::string part = MediaPath("live_broken"), out = MediaPath("live_ended");
  test::Run("head -c 20001 '" + Transport() + "' > '" + part + "'");
  const CommandResult packets = Live(part, out, "--colour bt709");
  EXPECT_EQ(packets.exitCode, 0);
  EXPECT_THAT(packets.output, HasSubstr("breaks off within a packet"));
  EXPECT_EQ(std::filesystem::file_size(out) % 188, 0u);
  test::Run("head -c 20001 '" + Matroska() + "' > '" + part + "'");
  const CommandResult elements = Live(part, out, "--colour bt709");
  EXPECT_EQ(elements.exitCode, 0);
  EXPECT_THAT(elements.output, HasSubstr("breaks off within an element"));
  EXPECT_EQ(Text("ffmpeg -v error -i '" + out + "' -map 0 -c copy -f null - 2>&1"), "");
}

TEST(Live, AReaderThatGoesAwayEndsItQuietly) {
  for (const std::string& file : {RawAvc(), Transport(), Matroska()}) {
    const CommandResult result = test::Run("bash -c \"cat '" + file + "' | { '" + QLNMEDIA_PROGRAM +
                                               "' patch - - --colour bt709; echo status $? >&2; } | true\"",
                                           kLimit);
    EXPECT_EQ(result.output, "status 0\n") << file;
  }
}

TEST(Live, WhatNeedsAFileIsRefusedBeforeAByte) {
  const std::string out = MediaPath("live_refused");
  const auto refusal = [&](const std::string& file, const std::string& options) {
    const CommandResult result = Live(file, out, options);
    EXPECT_EQ(result.exitCode, 1) << options;
    EXPECT_EQ(std::filesystem::file_size(out), 0u) << options;
    return result.output;
  };
  EXPECT_THAT(refusal(RawAvc(), "--colour bt709 --verify"), HasSubstr("reads the output back"));
  EXPECT_THAT(refusal(RawAvc(), "--colour bt709 --dry-run"), HasSubstr("take the stream away"));
  EXPECT_THAT(refusal(RawHevc(), "--interlaced"), HasSubstr("look at all pictures"));
  EXPECT_THAT(refusal(Transport(), "--colour bt709 --keep-rate"), HasSubstr("at the end"));
  const std::string mp4 = Clip("live.mp4", kAvc + std::string("-c:a aac"));
  EXPECT_THAT(refusal(mp4, "--colour bt709"), HasSubstr("is MP4 or MOV"));
  EXPECT_THAT(refusal("/dev/null", "--colour bt709"), HasSubstr("is empty"));
}

}  // namespace
}  // namespace qln::test
