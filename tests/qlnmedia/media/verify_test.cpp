// What is held against the input of files that are no MP4 or MOV: each fault planted in a second file is
// found under its name.

#include "patch/verify.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "base/error.h"
#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using qlnmedia::EditOptions;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr char kPictures[] = "ffmpeg -v error -y -f lavfi -i testsrc2=s=96x80:r=25:d=0.6 ";
constexpr char kCoded[] = "-c:v libx264 -preset ultrafast -bf 2 -g 8 -threads 1 -c:a aac -b:a 32k {out}";

std::string Mkv() {
  return MediaFile("verify.mkv", std::string(kPictures) +
                                     "-f lavfi -i sine=d=0.6 -metadata title=One -metadata:s:a place=here " +
                                     kCoded);
}
std::string Ts() {
  return MediaFile("verify.ts", std::string(kPictures) + "-f lavfi -i sine=d=0.6 " + kCoded);
}

// The same again by another muxer, with something changed.
std::string Again(const std::string& in, const std::string& name, const std::string& options) {
  const bool transport = in.ends_with(".ts");
  return MediaFile("verify_" + name + (transport ? ".ts" : ".mkv"),
                   "ffmpeg -v error -y -copyts -i '" + in + "' -c copy " +
                       (transport ? "-mpegts_copyts 1 -muxdelay 0 -muxpreload 0 " : "") + options + " {out}");
}

std::string Edited(const std::string& name, const std::string& options) {
  return MediaFile("verify_" + name + ".mkv",
                   "cp '" + Mkv() + "' {out} && mkvpropedit -q {out} " + options + " && touch {out}");
}

std::string WithBytes(const std::string& name, const Bytes& bytes) {
  const std::string path = MediaPath("verify_" + name);
  WriteFile(path, bytes);
  return path;
}

// What the comparison of packets throws, else what it warns of, else "".
std::string Packets(const std::string& in, const std::string& out, const EditOptions& changes = {}) {
  try {
    std::string all;
    for (const std::string& text : qlnmedia::VerifyMuxed(in, out, changes, "out").otherwise)
      all += text + "\n";
    return all;
  } catch (const qlnmedia::Error& error) {
    return error.what();
  }
}

TEST(MuxedVerification, FindsNothingInTheSameAgain) {
  for (const std::string& file : {Mkv(), Ts()}) {
    const std::string again = Again(file, "same", file == Mkv() ? "-bitexact" : "");
    EXPECT_EQ(Packets(file, again), "");
    EXPECT_EQ(Packets(file, file), "");
    EXPECT_THAT(qlnmedia::VerifyMuxed(file, again, {}, "out").text,
                HasSubstr("of 2 streams have the input's presentation and decoding times, durations, sync "
                          "marks, side data and bytes"));
  }
}

TEST(MuxedVerification, Times) {
  EXPECT_THAT(Packets(Mkv(), Again(Mkv(), "pts", "-bsf:v setts=pts='PTS+eq(N\\,5)':dts=DTS")),
              HasSubstr("out: stream 0, packet 5: its presentation time is not the input's"));
  EXPECT_THAT(Packets(Ts(), Again(Ts(), "pts", "-bsf:v setts=pts='PTS+eq(N\\,5)':dts=DTS")),
              HasSubstr("stream 0, packet 5: its presentation time"));
  EXPECT_THAT(Packets(Ts(), Again(Ts(), "dts", "-bsf:v setts=pts=PTS:dts='DTS-9*eq(N\\,4)'")),
              HasSubstr("stream 0, packet 4: its decoding time"));
}

TEST(MuxedVerification, DurationsAreNamed) {
  const std::string out = Edited("duration", "--edit track:v1 --set default-duration=20000000");
  EXPECT_THAT(
      Packets(Mkv(), out),
      HasSubstr("stream 0: 15 packets have another duration than in the input (packet 0: 20 ms, was 40 ms)"));
  EXPECT_THAT(qlnmedia::VerifyMuxed(Mkv(), out, {}, "out").text,
              HasSubstr("durations (but for 1 streams, named above)"));
}

TEST(MuxedVerification, BytesButThoseThatArePatched) {
  const std::string in = MediaFile(
      "verify.h264", std::string(kPictures) + "-c:v libx264 -preset ultrafast -g 8 -threads 1 -aud 1 {out}");
  const Bytes whole = ReadFile(in);
  Bytes bytes = whole;
  bytes[bytes.size() - 20] ^= 1;  // in the last slice
  EXPECT_THAT(Packets(in, WithBytes("slice.h264", bytes)), HasSubstr("its coded data is not the input's"));
  EXPECT_THAT(qlnmedia::VerifyMuxed(in, in, {}, "out").text, HasSubstr("15 packets have the input's bytes"));
  // A type of unit that nobody asked to change counts, and one that somebody did does not.
  EditOptions colour;
  colour.colour = qlnmedia::ColourCodes{1, 1, 1};
  EditOptions light;
  light.lightLevel = qlnmedia::LightLevel{1000, 400};
  EditOptions delimiters;
  delimiters.delimiters = true;
  const struct {
    uint8_t head;
    EditOptions asked;
  } kCases[] = {{0x67, colour}, {0x06, light}, {0x09, delimiters}};
  for (const auto& unit : kCases) {
    SCOPED_TRACE(unit.head);
    bytes = whole;
    const Bytes start = {0, 0, 1, unit.head};
    const auto at = std::search(bytes.begin(), bytes.end(), start.begin(), start.end());
    ASSERT_NE(at, bytes.end());
    if (unit.head == 0x06) {
      at[30] ^= 1;  // inside of the encoder's settings
    } else if (unit.head == 0x09) {
      at[4] ^= 0x20;  // primary_pic_type
    } else {
      at[6] ^= 1;  // level_idc
    }
    const std::string out = WithBytes("unit.h264", bytes);
    EXPECT_THAT(Packets(in, out), HasSubstr("its coded data is not the input's"));
    EXPECT_EQ(Packets(in, out, unit.asked), "");
  }
}

TEST(MuxedVerification, SideData) {
  Bytes bytes = ReadFile(Ts());
  for (size_t at = 0; at + 188 <= bytes.size(); at += 188) {
    const Bytes sound = {0, 0, 1, 0xC0};
    const auto end = bytes.begin() + static_cast<std::ptrdiff_t>(at + 188);
    const auto found = std::search(end - 184, end, sound.begin(), sound.end());
    if ((bytes[at + 1] & 0x5F) == 0x41 && bytes[at + 2] == 1 && found != end) found[3] = 0xC1;
  }
  EXPECT_THAT(Packets(Ts(), WithBytes("stream_id.ts", bytes)),
              HasSubstr("stream 1, packet 0: its side data"));
}

TEST(MuxedVerification, SyncMarks) {
  const std::string in =
      MediaFile("verify_ffv1.mkv", std::string(kPictures) + "-c:v ffv1 -level 3 -g 5 {out}");
  Bytes bytes = ReadFile(in);
  // A SimpleBlock of track 1 that is none.
  size_t at = 0;
  for (size_t i = 0; at == 0 && i + 9 < bytes.size(); ++i) {
    if (bytes[i] != 0xA3) continue;
    const size_t size = bytes[i + 1] >= 0x80 ? 1 : bytes[i + 1] >= 0x40 ? 2 : 3;
    if (bytes[i + 1 + size] == 0x81 && bytes[i + 4 + size] == 0) at = i + 4 + size;
  }
  ASSERT_NE(at, 0u);
  bytes[at] = 0x80;
  const std::string out = WithBytes("mark.mkv", bytes);
  EXPECT_THAT(Packets(in, out), HasSubstr("stream 0, packet 1: its sync mark"));
  EXPECT_THAT(Packets(out, in), HasSubstr("stream 0, packet 1: its sync mark"));
  EditOptions points;
  points.recoveryPoints = true;
  EXPECT_EQ(Packets(in, out, points), "");
}

TEST(MuxedVerification, NumberOfPictures) {
  EXPECT_THAT(Packets(Mkv(), Again(Mkv(), "fewer", "-frames:v 12")),
              HasSubstr("stream 0 has not as many packets as the input"));
}

// What a patch says of files whose frames stand as long as their blocks say, or as nobody says.
TEST(MuxedVerification, DurationsStayUntold) {
  const std::string out = MediaPath("verify_out.mkv");
  const CommandResult plain = Qlnmedia("patch --verify '" + Mkv() + "' '" + out + "' --colour bt709");
  EXPECT_EQ(plain.exitCode, 0);
  EXPECT_THAT(plain.output, AllOf(HasSubstr("verified: "), Not(HasSubstr("warning"))));
  // No default duration comes in where there was none.
  const std::string without = Edited("without", "--edit track:v1 --delete default-duration");
  ASSERT_EQ(Qlnmedia("patch '" + without + "' '" + out + "' --colour bt709").exitCode, 0);
  const auto lengths = [](const std::string& file) {
    return test::Run("mkvinfo '" + file + "' | grep -c 'Default duration'").output;
  };
  EXPECT_EQ(lengths(Mkv()), "1\n");
  EXPECT_EQ(lengths(without), "0\n");
  EXPECT_EQ(lengths(out), "0\n");
}

// What other muxers write.
TEST(MuxedVerification, FilesOfOtherMuxers) {
  const auto merged = [](const std::string& name, const std::string& options) {
    return MediaFile("verify_merged_" + name + ".mkv",
                     "mkvmerge -q -o {out} " + options + " '" + Mkv() + "'");
  };
  const std::string opus = MediaFile(
      "verify_opus.mkv", "ffmpeg -v error -y -i '" + Mkv() + "' -map 0 -c:v copy -c:a libopus {out}");
  const std::string times = MediaPath("verify_times.txt");
  std::string lines = "# timestamp format v2\n0\n40\n95\n120\n";
  for (int time = 160; time < 600; time += 40) lines += std::to_string(time) + "\n";
  WriteFile(times, Bytes(lines.begin(), lines.end()));
  const std::string kCases[] = {
      opus,
      MediaFile("verify_merged_opus.mkv", "mkvmerge -q -o {out} '" + opus + "'"),
      merged("shape", "--display-dimensions 0:200x120"),
      merged("views", "--stereo-mode 0:1"),
      merged("cropped", "--cropping 0:2,4,2,4"),
      merged("uneven", "--timestamps 0:'" + times + "'"),
      merged("fine", "--timestamp-scale 100000"),
  };
  const std::string out = MediaPath("verify_out.mkv");
  for (const std::string& file : kCases) {
    const CommandResult result = Qlnmedia("patch --verify '" + file + "' '" + out + "' --colour bt709");
    EXPECT_EQ(result.exitCode, 0) << file << result.output;
    EXPECT_THAT(result.output, AllOf(HasSubstr("verified: "), HasSubstr("; all elements are the input's"),
                                     Not(HasSubstr("warning"))))
        << file;
  }
}

}  // namespace
}  // namespace qln::test
