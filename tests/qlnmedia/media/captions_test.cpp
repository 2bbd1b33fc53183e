// Captions end to end: out of a file, into real streams, and out again, seen by an independent reader.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "qlnmedia/media/caption_media.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using testing::Not;

const Kind kKinds[] = {
    {"avc_b", "h264", "30000/1001", "-c:v libx264 -threads 1 -pix_fmt yuv420p -bf 3 -g 12"},
    {"avc_p", "h264", "25",
     "-c:v libx264 -threads 1 -pix_fmt yuv420p -bf 0 -g 12 -x264-params slices=2:aud=1"},
    {"avc_i", "h264", "25",
     "-c:v libx264 -threads 1 -pix_fmt yuv420p -flags +ilme+ildct -x264-params tff=1:keyint=8"},
    {"avc_open", "h264", "60000/1001",
     "-c:v libx264 -threads 1 -pix_fmt yuv420p -x264-params open-gop=1:keyint=12:bframes=2"},
    {"hevc_b", "hevc", "24000/1001",
     "-c:v libx265 -pix_fmt yuv420p -x265-params bframes=3:keyint=12:pools=1:frame-threads=1:log-level=none"},
    {"hevc_p", "hevc", "50",
     "-c:v libx265 -pix_fmt yuv420p -x265-params "
     "bframes=0:temporal-layers=1:aud=1:repeat-headers=1:pools=1:frame-threads=1:log-level=none"},
    {"hevc_fields", "hevc", "25",
     "-c:v libx265 -pix_fmt yuv420p -x265-params interlace=tff:pools=1:frame-threads=1:log-level=none"},
    {"mpeg2_b", "m2v", "30000/1001", "-c:v mpeg2video -bf 2 -g 9"},
    {"mpeg2_p", "m2v", "25", "-c:v mpeg2video -bf 0 -g 9"},
    {"mpeg2_i", "m2v", "30", "-c:v mpeg2video -bf 2 -g 9 -flags +ilme+ildct"},
};

class Matrix : public testing::TestWithParam<Kind> {};

TEST_P(Matrix, CaptionsGoIntoEveryPicture) {
  const Kind& kind = GetParam();
  const std::string scc = Write(std::string("captions_") + kind.name + ".scc", kScc);
  for (const std::string extension : {"mp4", "mov", "mkv", "ts", kind.raw}) {
    SCOPED_TRACE(extension);
    const std::string in = Source(kind, extension);
    const std::string out = PatchedName(kind, extension);
    const CommandResult patched =
        Qlnmedia("patch '" + in + "' '" + out + "' --verify --captions '" + scc + "'");
    ASSERT_EQ(patched.exitCode, 0) << patched.output;
    EXPECT_EQ(Decoded(out), Decoded(in));
    const bool raw = extension == kind.raw;
    if (!raw) {
      EXPECT_EQ(Times(out), Times(in));
      // A player needs times, which raw streams of some codecs do not have.
      EXPECT_THAT(Shown(out), HasSubstr("GOOD MORNING"));
    }
    const auto [pictures, captioned] = Counted(out);
    EXPECT_GT(pictures, 30);
    EXPECT_EQ(captioned, pictures);
    EXPECT_THAT(Text(std::string(QLNMEDIA_PROGRAM) + " captions '" + out + "'"), HasSubstr("GOOD MORNING"));

    // What comes out goes in again and is the same.
    const std::string mcc = MediaPath(std::string("captions_") + kind.name + ".mcc");
    const std::string again = PatchedName(kind, "again." + extension);
    ASSERT_EQ(Qlnmedia("captions '" + out + "' -o '" + mcc + "'").exitCode, 0);
    const CommandResult second =
        Qlnmedia("patch '" + in + "' '" + again + "' --captions '" + mcc + "' --captions-offset 00:00:00:00");
    ASSERT_EQ(second.exitCode, 0) << second.output;
    EXPECT_THAT(second.output, Not(HasSubstr("warning")));
    Text("ffmpeg -v error -y -i '" + out + "' -map 0:v -c copy -f framemd5 '" + mcc +
         ".1' && ffmpeg -v error -y -i '" + again + "' -map 0:v -c copy -f framemd5 '" + mcc +
         ".2' && cmp '" + mcc + ".1' '" + mcc + ".2'");
  }
}

INSTANTIATE_TEST_SUITE_P(Captions, Matrix, testing::ValuesIn(kKinds),
                         [](const auto& kind) { return std::string(kind.param.name); });

// What a player takes out of one stream is what it takes out of the next, whatever the coding order.
TEST(CaptionPatch, PresentationOrderIsThatOfAPlayer) {
  const std::string scc = Write("captions_order.scc", kScc);
  const Kind without = {"order_p", "h264", "30000/1001", "-c:v libx264 -threads 1 -pix_fmt yuv420p -bf 0"};
  std::string expected;
  for (const Kind& kind : {without, kKinds[0], kKinds[7]}) {
    const std::string out = PatchedName(kind, "order.mp4");
    const CommandResult patched =
        Qlnmedia("patch '" + Source(kind, "mp4") + "' '" + out + "' --captions '" + scc + "'");
    ASSERT_EQ(patched.exitCode, 0) << patched.output;
    const std::string triplets = Triplets(out);
    if (expected.empty()) expected = triplets;
    EXPECT_EQ(triplets, expected) << kind.name;
  }
}

TEST(CaptionPatch, OldCaptionsStayOrGoAsAsked) {
  const std::string scc = Write("captions_replace.scc", kScc);
  for (const Kind& kind : {kKinds[0], kKinds[4], kKinds[7]}) {
    SCOPED_TRACE(kind.name);
    const std::string first = PatchedName(kind, "first.mkv");
    const std::string second = PatchedName(kind, "second.mkv");
    const CommandResult patched =
        Qlnmedia("patch '" + Source(kind, "mkv") + "' '" + first + "' --captions '" + scc + "'");
    ASSERT_EQ(patched.exitCode, 0) << patched.output;
    std::filesystem::remove(second);
    const CommandResult refused = Qlnmedia("patch '" + first + "' '" + second + "' --captions '" + scc + "'");
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_THAT(refused.output, HasSubstr("--replace-captions"));
    EXPECT_FALSE(std::filesystem::exists(second));
    const CommandResult replaced =
        Qlnmedia("patch '" + first + "' '" + second + "' --replace-captions --captions '" + scc +
                 "' --captions-offset 01:00:00:01");
    ASSERT_EQ(replaced.exitCode, 0) << replaced.output;
    const auto [pictures, captioned] = Counted(second);
    EXPECT_EQ(captioned, pictures);
    EXPECT_EQ(Decoded(first), Decoded(second));
    EXPECT_NE(Triplets(first), Triplets(second));
    const CommandResult back =
        Qlnmedia("patch '" + second + "' '" + first + ".mkv' --replace-captions --captions '" + scc + "'");
    ASSERT_EQ(back.exitCode, 0) << back.output;
    EXPECT_EQ(Triplets(first + ".mkv"), Triplets(first));
  }
}

TEST(CaptionPatch, OtherUserDataStays) {
  const std::string scc = Write("captions_other.scc", kScc);
  const std::string in =
      MediaFile("captions_other.mp4",
                "ffmpeg -v error -y -i '" + Source(kKinds[0], "mp4") +
                    "' -c copy -bsf:v "
                    "h264_metadata=sei_user_data=086f3693-b7b3-4f2c-9653-21492feee5b8+hello_there {out}");
  const std::string out = MediaPath("captions_other_out.mp4");
  const CommandResult patched =
      Qlnmedia("patch '" + in + "' '" + out + "' --replace-captions --captions '" + scc + "'");
  ASSERT_EQ(patched.exitCode, 0) << patched.output;
  const auto count = [](const std::string& file) {
    return Text("grep -a -o hello_there '" + file + "' | wc -l");
  };
  EXPECT_NE(count(in), "0\n");
  EXPECT_EQ(count(out), count(in));
}

TEST(CaptionRead, StreamsOfOtherEncodersAreReadAlike) {
  const std::string scc = Write("captions_encoders.scc", kScc);
  const std::string out = PatchedName(kKinds[0], "encoders.mp4");
  ASSERT_EQ(
      Qlnmedia("patch '" + Source(kKinds[0], "mp4") + "' '" + out + "' --captions '" + scc + "'").exitCode,
      0);
  ASSERT_EQ(Qlnmedia("captions '" + out + "' -o '" + out + ".mcc'").exitCode, 0);
  for (const char* coder : {"libx264 -threads 1", "mpeg2video -bf 2"}) {
    const std::string coded = MediaPath("captions_encoded.ts");
    Text("ffmpeg -v error -y -i '" + out + "' -an -c:v " + coder + " '" + coded + "'");
    const CommandResult read = Qlnmedia("captions '" + coded + "' -o '" + coded + ".scc'");
    ASSERT_EQ(read.exitCode, 0) << coder << read.output;
    const Bytes text = ReadFile(coded + ".scc");
    EXPECT_EQ(
        std::string(text.begin(), text.end()),
        "Scenarist_SCC V1.0\n\n00:00:00:03\t94ae 94ae 9420 9420 9470 9470 c74f 4fc4 20cd 4f52 ce49 cec7 942f "
        "942f\n\n00:00:01:00\t942c 942c\n")
        << coder;
    ASSERT_EQ(Qlnmedia("captions '" + coded + "' -o '" + coded + ".mcc'").exitCode, 0);
    EXPECT_EQ(FileText(coded + ".mcc"), FileText(out + ".mcc")) << coder;
  }
}

TEST(CaptionRead, TextHasItsTimes) {
  const std::string scc = Write("captions_times.scc", kScc);
  const std::string out = PatchedName(kKinds[0], "times.mp4");
  ASSERT_EQ(
      Qlnmedia("patch '" + Source(kKinds[0], "mp4") + "' '" + out + "' --captions '" + scc + "'").exitCode,
      0);
  ASSERT_EQ(Qlnmedia("captions '" + out + "' -o '" + out + ".srt'").exitCode, 0);
  const Bytes text = ReadFile(out + ".srt");
  // The thirteenth pair from frame 3 on shows the caption, frame 30 takes it down, 30 * 1001 / 30000 seconds
  // from the first; the independent decoder rounds up how long it stands.
  EXPECT_EQ(std::string(text.begin(), text.end()), "1\n00:00:00,501 --> 00:00:01,001\nGOOD MORNING\n\n");
  EXPECT_THAT(Shown(out), HasSubstr("00:00:00,501 --> 00:00:01,002"));
}

}  // namespace
}  // namespace qln::test
