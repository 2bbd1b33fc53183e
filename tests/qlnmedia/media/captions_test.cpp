// Captions end to end: out of a file, into real streams, and out again, seen by an independent reader.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using testing::Not;

const char* const kScc =
    "Scenarist_SCC V1.0\n\n01:00:00:03\t94ae 94ae 9420 9420 9470 9470 c74f 4fc4 20cd 4f52 ce49 cec7 942f 942f"
    "\n\n01:00:01:00\t942c 942c\n";

struct Kind {
  const char* name;
  const char* raw;  // name of the raw form
  const char* rate;
  const char* options;
};

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

std::string Text(const std::string& command) {
  const CommandResult result = Run(command);
  EXPECT_EQ(result.exitCode, 0) << command << "\n" << result.output;
  return result.output;
}

std::string Write(const std::string& name, const std::string& text) {
  const std::string path = MediaPath(name);
  WriteFile(path, Bytes(text.begin(), text.end()));
  return path;
}

std::string Source(const Kind& kind, const std::string& extension) {
  const bool raw = extension == kind.raw;
  return MediaFile(std::string("captions_") + kind.name + "." + extension,
                   std::string("ffmpeg -v error -y -f lavfi -i testsrc2=s=96x64:d=1.5:r=") + kind.rate + " " +
                       (raw ? "" : "-f lavfi -i sine=d=1.5 -c:a aac -b:a 32k ") + kind.options + " {out}");
}

std::string Decoded(const std::string& file) {
  return Text("ffmpeg -v error -i '" + file +
              "' -map 0:v -f framemd5 - | grep -v '^#' | awk -F, '{print $NF}'");
}

std::string Times(const std::string& file) {
  return Text("ffprobe -v error -show_entries packet=stream_index,pts_time,dts_time,flags -of csv=p=0 '" +
              file + "' | sed 's/side_data.*//; s/,$//' | grep . | sort -s -t, -k1,1n");
}

// Pictures, and pictures with captions, as ffprobe counts them.
std::pair<int, int> Counted(const std::string& file) {
  const std::string text = Text("ffprobe -v error -select_streams v -show_frames '" + file + "'");
  const auto count = [&text](const std::string& what) {
    int n = 0;
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; ++at) ++n;
    return n;
  };
  return {count("[/FRAME]"), count("ATSC A53 Part 4 Closed Captions")};
}

// The caption triplets that a player gets, in presentation order.
std::string Triplets(const std::string& file) {
  return Text("ffmpeg -v error -f lavfi -i 'movie=" + file + "[out+subcc]' -map 0:s -c copy -f md5 -");
}

std::string Shown(const std::string& file) {
  return Text("ffmpeg -v error -f lavfi -i 'movie=" + file + "[out+subcc]' -map 0:s -f srt -");
}

std::string PatchedName(const Kind& kind, const std::string& extension) {
  return MediaPath(std::string("captions_out_") + kind.name + "." + extension);
}

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
  // The thirteenth pair from frame 3 on shows the caption, frame 30 takes it down; the decoder rounds up how
  // long it stands.
  EXPECT_EQ(std::string(text.begin(), text.end()), "1\n00:00:00,501 --> 00:00:01,002\nGOOD MORNING\n\n");
  EXPECT_THAT(Shown(out), HasSubstr("00:00:00,501 --> 00:00:01,002"));
}

TEST(CaptionCheck, NamesGapsAndWrongCounts) {
  const std::string scc = Write("captions_check.scc", kScc);
  const Kind& kind = kKinds[1];
  const std::string in = Source(kind, "ts");
  const std::string out = MediaPath("captions_check.ts");
  ASSERT_EQ(Qlnmedia("patch '" + in + "' '" + out + "' --captions '" + scc + "'").exitCode, 0);
  EXPECT_THAT(Qlnmedia("check '" + out + "'").output, Not(HasSubstr("caption")));
  EXPECT_THAT(Qlnmedia("inspect '" + out + "'").output, HasSubstr("GOOD MORNING"));
  EXPECT_THAT(Qlnmedia("inspect '" + in + "' --json").output, Not(HasSubstr("\"captions\"")));

  const std::string joined = MediaPath("captions_joined.mp4");
  Text("ffmpeg -v error -y -i 'concat:" + out + "|" + in + "' -map 0:v -c copy '" + joined + "'");
  const CommandResult gaps = Qlnmedia("check '" + joined + "'");
  EXPECT_EQ(gaps.exitCode, 3);
  EXPECT_THAT(gaps.output, HasSubstr("a picture without captions in a stream that has some"));

  const std::string raw = MediaPath("captions_check.h264");
  const std::string faster = MediaPath("captions_faster.mp4");
  Text("ffmpeg -v error -y -i '" + out + "' -map 0:v -c copy '" + raw + "' && ffmpeg -v error -y -r 50 -i '" +
       raw + "' -c copy '" + faster + "'");
  EXPECT_THAT(Qlnmedia("check '" + faster + "'").output,
              HasSubstr("a picture with 24 caption triplets, more than the 12 of its rate"));
}

TEST(CaptionPatch, BadFilesAreOneLineAndNoOutput) {
  const std::string in = Source(kKinds[0], "mp4");
  const std::string out = MediaPath("captions_never.mp4");
  std::filesystem::remove(out);
  const std::pair<const char*, const char*> files[] = {
      {"hello\n", "line 1: neither a Scenarist file"},
      {"Scenarist_SCC V1.0\n\n00:00:02:00\t9420\n\n00:00:01:00\t9420\n", "line 5: the time goes back"},
      {"Scenarist_SCC V1.0\r\n\r\n00:00:02:00\t9420 94", "line 3: not groups of four"},
      {"Scenarist_SCC V1.0\n\n00:00:02:31\t9420\n", "line 3: a timecode that does not exist"},
  };
  for (const auto& [text, reason] : files) {
    const std::string file = Write("captions_bad.scc", text);
    const CommandResult result = Qlnmedia("patch '" + in + "' '" + out + "' --captions '" + file + "'");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.output, HasSubstr(reason));
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
    EXPECT_FALSE(std::filesystem::exists(out));
  }
  const std::string good = Write("captions_good.scc", kScc);
  EXPECT_THAT(Qlnmedia("patch '" + in + "' '" + out + "' --captions /no/such.scc").output,
              HasSubstr("No such file"));
  EXPECT_THAT(
      Qlnmedia("patch '" + in + "' '" + out + "' --captions '" + good + "' --captions-offset 25:00:00:00")
          .output,
      HasSubstr("is no timecode"));
  EXPECT_THAT(Qlnmedia("captions '" + in + "'").output, HasSubstr("has no captions"));
  EXPECT_THAT(Qlnmedia("captions '" + in + "' -o x.doc").output, HasSubstr("is no kind of caption file"));
  EXPECT_FALSE(std::filesystem::exists(out));
}

}  // namespace
}  // namespace qln::test
