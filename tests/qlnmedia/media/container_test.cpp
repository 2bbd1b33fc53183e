// patch and what containers hold beside the coded pictures: kept as it is, or refused by name.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "qlnmedia/media/box_surgery.h"
#include "qlnmedia/media/byte_facts.h"
#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using testing::HasSubstr;

const char* const kPictures =
    "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=1.2 -f lavfi -i sine=d=1.2 ";
const char* const kAvc = "-c:a aac -b:a 32k -c:v libx264 -threads 1 -pix_fmt yuv420p -g 10 ";

std::string Clip(const std::string& ending = "mp4") {
  return MediaFile("container." + ending, std::string(kPictures) + kAvc + "{out}");
}

std::string ClipOfHevc() {
  return MediaFile(
      "container_hevc.mp4",
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.4 -pix_fmt yuv420p -c:v libx265 "
      "-x265-params pools=1:frame-threads=1:log-level=none {out}");
}

// A file out of the clip by ffmpeg, without coding anew.
std::string Remuxed(const std::string& name, const std::string& options, const std::string& inputs = "") {
  return MediaFile("container_" + name,
                   "ffmpeg -v error -y -i '" + Clip() + "' " + inputs + " -c copy " + options + " {out}");
}

std::string OutOf(const std::string& in) {
  const size_t slash = in.rfind('/') + 1;
  return in.substr(0, slash) + "patched_" + in.substr(slash);
}

// All that ffprobe says of streams, programs, chapters and tags, but for sizes and what a patch changes.
std::string Description(const std::string& file) {
  return Text(
      "ffprobe -v error -show_streams -show_programs -show_chapters -show_format '" + file +
      "' | grep -vE '^(color_|extradata_size|bit_rate|filename|size=)|^TAG:DURATION|^duration' | sort");
}

// Patches and expects that nothing else has changed. `said` is what check has to say of it.
void ExpectKept(const std::string& in, const std::string& said = "nothing found\n") {
  const std::string out = OutOf(in);
  std::filesystem::remove(out);
  const CommandResult patch = Qlnmedia("patch --verify '" + in + "' '" + out + "' --colour bt709");
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  EXPECT_EQ(Description(out), Description(in));
  EXPECT_EQ(Times(out), Times(in));
  EXPECT_EQ(Decoded(out), Decoded(in));
  EXPECT_EQ(OtherStreams(out), OtherStreams(in));
  EXPECT_EQ(Qlnmedia("check '" + out + "'").output, said);
  // Once more changes nothing.
  const std::string again = OutOf(out);
  ASSERT_EQ(Qlnmedia("patch '" + out + "' '" + again + "' --colour bt709").exitCode, 0);
  EXPECT_EQ(Description(again), Description(out));
  EXPECT_EQ(CodedBytes(again), CodedBytes(out));
  EXPECT_EQ(Times(again), Times(out));
  EXPECT_EQ(std::filesystem::file_size(again), std::filesystem::file_size(out));
}

// A file with something planted in its boxes.
std::string Planted(const std::string& name, const Bytes& bytes) {
  const std::string file = MediaPath("container_planted_" + name);
  WriteFile(file, bytes);
  return file;
}

const BoxPath kTrack = {"moov", "trak"};
const BoxPath kDescriptions = {"moov", "trak", "mdia", "minf", "stbl", "stsd"};
const BoxPath kEdits = {"moov", "trak", "edts", "elst"};

BoxPath Under(BoxPath path, const std::string& type) {
  path.push_back(type);
  return path;
}

class Fragments : public testing::TestWithParam<std::pair<const char*, const char*>> {};

TEST_P(Fragments, StayFragments) {
  const auto& [name, flags] = GetParam();
  const std::string in =
      Remuxed(std::string("fragments_") + name + ".mp4", std::string("-movflags ") + flags);
  ExpectKept(in);
  const std::vector<std::string> boxes = TopLevelBoxes(in);
  EXPECT_EQ(TopLevelBoxes(OutOf(in)), boxes);
  EXPECT_GE(std::count(boxes.begin(), boxes.end(), "moof"), 2);
}

INSTANTIATE_TEST_SUITE_P(
    All, Fragments,
    testing::Values(std::pair{"empty", "frag_keyframe+empty_moov"},
                    std::pair{"base", "frag_keyframe+empty_moov+default_base_moof"},
                    std::pair{"delayed", "frag_keyframe+empty_moov+default_base_moof+delay_moov"},
                    std::pair{"first_in_index", "frag_keyframe"}, std::pair{"dash", "dash+frag_keyframe"},
                    std::pair{"global_index", "frag_keyframe+empty_moov+default_base_moof+global_sidx"}),
    [](const auto& test) { return std::string(test.param.first); });

TEST(Container, TheIndexStaysWhereItIs) {
  for (const char* flags : {"-movflags faststart", ""}) {
    const std::string in = Remuxed(*flags != 0 ? "faststart.mp4" : "index_behind.mp4", flags);
    ExpectKept(in);
    EXPECT_EQ(TopLevelBoxes(OutOf(in)), TopLevelBoxes(in));
  }
}

TEST(Container, ChaptersStay) {
  const std::string chapters = MediaPath("container_chapters.txt");
  const std::string text =
      ";FFMETADATA1\ntitle=T\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=500\ntitle=One\n"
      "[CHAPTER]\nTIMEBASE=1/1000\nSTART=500\nEND=1200\ntitle=Two\n";
  WriteFile(chapters, Bytes(text.begin(), text.end()));
  for (const char* ending : {"mp4", "mov", "mkv"})
    ExpectKept(Remuxed(std::string("chapters.") + ending, "-map 0 -map_metadata 1 -map_chapters 1",
                       "-i '" + chapters + "'"));
}

TEST(Container, TimecodeTracksStay) {
  for (const char* ending : {"mp4", "mov"})
    ExpectKept(Remuxed(std::string("timecode.") + ending, "-timecode 01:02:03:04"));
  EXPECT_THAT(Stream(MediaPath("patched_container_timecode.mp4"), "stream_tags=timecode"), HasSubstr(""));
}

TEST(Container, AttachedPicturesAndFilesStay) {
  const std::string cover =
      MediaFile("container_cover.png", "ffmpeg -v error -y -f lavfi -i color=red:s=64x64 -frames:v 1 {out}");
  ExpectKept(Remuxed("cover.mp4", "-map 0 -map 1 -disposition:v:1 attached_pic", "-i '" + cover + "'"));
  const std::string font = MediaPath("container_font.ttf");
  WriteFile(font, Bytes(300, 0x42));
  const std::string in =
      Remuxed("attachments.mkv", "-attach '" + cover + "' -metadata:s:2 mimetype=image/png -attach '" + font +
                                     "' -metadata:s:3 mimetype=application/x-truetype-font");
  ExpectKept(in);
  const auto dumped = [](const std::string& file, int stream) {
    const std::string path = MediaPath("container_dumped");
    std::filesystem::remove(path);
    test::Run("ffmpeg -v error -y -dump_attachment:" + std::to_string(stream) + " '" + path + "' -i '" +
              file + "'");
    return ReadFile(path);
  };
  EXPECT_EQ(dumped(OutOf(in), 3), Bytes(300, 0x42));
}

TEST(Container, SubtitlesStay) {
  const std::string text = MediaPath("container_text.srt");
  const std::string lines = "1\n00:00:00,100 --> 00:00:01,000\nHello\n\n";
  WriteFile(text, Bytes(lines.begin(), lines.end()));
  const std::string inputs = "-i '" + text + "'";
  ExpectKept(Remuxed("subtitles.mp4", "-map 0 -map 1 -c:s mov_text", inputs));
  ExpectKept(Remuxed("subtitles.mkv", "-map 0 -map 1 -c:s srt", inputs));
  ExpectKept(Remuxed("subtitles_ass.mkv", "-map 0 -map 1 -c:s ass", inputs));
}

TEST(Container, ShapeOrientationLanguageAndTagsStay) {
  ExpectKept(Remuxed("shape.mp4",
                     "-bsf:v h264_metadata=sample_aspect_ratio=16/11 -aspect 64/33 -metadata:s:v rotate=90 "
                     "-metadata:s:a language=deu -metadata title=T -metadata comment=C"));
  ExpectKept(Remuxed("shape.mkv",
                     "-metadata:s:a language=deu -metadata:s:v title=Main -metadata title=T "
                     "-disposition:a:0 forced -metadata my_tag=Z"));
  ExpectKept(
      Remuxed("keys.mov", "-map_metadata -1 -movflags use_metadata_tags -metadata com.example.make=M"));
}

TEST(Container, ProgramsOfTransportStreamsStay) {
  ExpectKept(MediaFile("container_programs.ts",
                       "ffmpeg -v error -y -i '" + Clip() + "' -i '" + Clip() +
                           "' -map 0 -map 1 -c copy -program program_num=3:title=A:st=0:st=1 "
                           "-program program_num=7:title=B:st=2:st=3 -mpegts_start_pid 0x200 {out}"));
}

TEST(Container, TransportStreamsStayWhateverStandsAroundTheirPackets) {
  for (const char* how : {"-mpegts_m2ts_mode 1", "-muxrate 2M", "-omit_video_pes_length 0 -pcr_period 10",
                          "-output_ts_offset 95443 -mpegts_flags +pat_pmt_at_frames",
                          // Time stamps and clock references begin anew at 2^33 within the file.
                          "-output_ts_offset 95443.5 -muxdelay 0 -muxpreload 0"}) {
    SCOPED_TRACE(how);
    const bool arrivalTimes = std::string(how).find("m2ts") != std::string::npos;
    static int number = 0;
    ExpectKept(MediaFile("container_transport" + std::to_string(++number) + (arrivalTimes ? ".m2ts" : ".ts"),
                         "ffmpeg -v error -y -i '" + Clip() + "' -c copy " + how + " -f mpegts {out}"));
  }
}

// Its multiplexer is another witness, where it is installed: packets by sevens, arrival times, splice
// commands.
TEST(Container, TransportStreamsOfAnotherMuxerStay) {
  if (qln::test::Run("gst-inspect-1.0 mpegtsmux && gst-inspect-1.0 h264parse && which gst-launch-1.0")
          .exitCode != 0)
    GTEST_SKIP() << "no GStreamer";
  int number = 0;
  for (const char* how : {"alignment=7", "m2ts-mode=true", "scte-35-pid=500 scte-35-null-interval=4500"}) {
    SCOPED_TRACE(how);
    ExpectKept(MediaFile(
        "container_gst" + std::to_string(++number) + ".ts",
        "gst-launch-1.0 -q mpegtsmux name=m " + std::string(how) +
            " ! filesink location={out} filesrc location='" + Clip() +
            "' ! qtdemux name=d d.video_0 ! h264parse ! queue ! m. d.audio_0 ! aacparse ! queue ! m."));
  }
}

// Recordings that were joined have a jump in their counters and times, one that begins in a picture lacks
// bytes. Neither is a reason to refuse it: what came is carried.
TEST(Container, JointsOfTransportStreamsStay) {
  const std::string whole =
      MediaFile("container_joint.ts", "ffmpeg -v error -y -i '" + Clip() + "' -c copy {out}");
  const std::string twice = MediaFile("container_twice.ts", "cat '" + whole + "' '" + whole + "' > {out}");
  const std::string part =
      MediaFile("container_part.ts", "tail -c +37601 '" + whole + "' | cat '" + whole + "' - > {out}");
  ExpectKept(twice, "stream 0: damage: a packet of stream 0 is cut off or damaged\n");
  ExpectKept(part);
}

// What comes in takes the null packets of a constant rate, and is refused where there are too few.
TEST(Container, AConstantRateStaysOneWhereItIsAskedFor) {
  const auto made = [](const char* name, const char* rate) {
    return MediaFile(name,
                     "ffmpeg -v error -y -i '" + Clip() + "' -map 0:v -c copy -muxrate " + rate + " {out}");
  };
  const std::string roomy = made("container_rate.ts", "4M"), full = made("container_full.ts", "1");
  const std::string out = OutOf(roomy);
  const std::string options = "' --verify --keep-rate --timecode 01:00:00:00";
  const CommandResult patch = Qlnmedia("patch '" + roomy + "' '" + out + options);
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  EXPECT_EQ(std::filesystem::file_size(out), std::filesystem::file_size(roomy));
  const std::string none = OutOf(full);
  std::filesystem::remove(none);
  const CommandResult refused = Qlnmedia("patch '" + full + "' '" + none + options);
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_THAT(refused.output, testing::HasSubstr("packets too few of stuffing"));
  EXPECT_FALSE(std::filesystem::exists(none));
}

TEST(Container, AStartThatIsCutAwayByTheEditListStays) {
  const std::string in =
      MediaFile("container_cut.mp4", "ffmpeg -v error -y -ss 0.6 -i '" + Clip() + "' -c copy {out}");
  ExpectKept(in);
}

TEST(Container, EditListsThatSayMoreStay) {
  const Bytes clip = ReadFile(Clip());
  const size_t list = FindBox(clip, kEdits) + 8;
  Bytes two = clip;
  // A second part: duration, media time, rate.
  InsertIntoBox(two, kEdits, 20, Hex("00000064 00000400 00010000"));
  two[list + 7] = 2;
  ExpectKept(Planted("two_edits.mp4", two));
  Bytes fast = clip;
  fast[list + 17] = 2;
  ExpectKept(Planted("fast.mp4", fast));
  Bytes shorter = clip;
  const Bytes duration = Hex("00000190");  // 0.4 s
  std::copy(duration.begin(), duration.end(), shorter.begin() + static_cast<std::ptrdiff_t>(list) + 8);
  ExpectKept(Planted("shorter.mp4", shorter));
}

TEST(Container, SeveralSampleDescriptionsStay) {
  Bytes file = ReadFile(Clip());
  const size_t stsd = FindBox(file, kDescriptions);
  const size_t entry = FindBox(file, Under(kDescriptions, "avc1"));
  const size_t size = size_t{file[entry + 2]} << 8 | file[entry + 3];
  const Bytes copy(file.begin() + static_cast<std::ptrdiff_t>(entry),
                   file.begin() + static_cast<std::ptrdiff_t>(entry + size));
  file[stsd + 15] = 2;
  AppendToBox(file, kDescriptions, copy);
  ExpectKept(Planted("two_descriptions.mp4", file));
}

TEST(Container, BoxesThatNobodyKnowsStay) {
  const Bytes clip = ReadFile(Clip());
  Bytes aperture = clip;
  AppendToBox(aperture, Under(kDescriptions, "avc1"),
              Box("clap", Hex("00000080 00000001 00000060 00000001 00000000 00000001 00000000 00000001")));
  AppendToBox(aperture, Under(kDescriptions, "avc1"), Box("x-yz", Hex("00010203")));
  ExpectKept(Planted("clap.mp4", aperture));
  Bytes reference = clip;
  AppendToBox(reference, kTrack, Box("tref", Box("cdsc", Hex("00000002"))));
  ExpectKept(Planted("cdsc.mp4", reference));
}

// Profile and compatibility of the base layer, as a Dolby Vision configuration record has them.
std::string WithDolbyVision(const std::string& name, int profile, int compatibility) {
  Bytes file = ReadFile(ClipOfHevc());
  // Version 1.0, level 3, RPU and base layer.
  Bytes record = {1, 0, static_cast<uint8_t>(profile << 1), 3 << 3 | 5,
                  static_cast<uint8_t>(compatibility << 4)};
  record.resize(24);
  AppendToBox(file, Under(kDescriptions, "hev1"), Box(profile > 7 ? "dvvC" : "dvcC", record));
  return Planted(name, file);
}

TEST(Container, DolbyVisionTracksTakeWhatHasNothingToDoWithTheirMetadata) {
  for (const auto& [profile, compatibility] : {std::pair{5, 0}, {7, 6}, {8, 1}, {8, 4}}) {
    SCOPED_TRACE(profile);
    const std::string in = WithDolbyVision("dolby_" + std::to_string(profile * 10 + compatibility) + ".mp4",
                                           profile, compatibility);
    const std::string out = OutOf(in);
    const CommandResult patch =
        Qlnmedia("patch --verify '" + in + "' '" + out + "' --delimiters --timecode 10:00:00:00");
    ASSERT_EQ(patch.exitCode, 0) << patch.output;
    EXPECT_EQ(Description(out), Description(in));
    EXPECT_EQ(Times(out), Times(in));
    EXPECT_EQ(Slices(out, "hevc"), Slices(in, "hevc"));
    EXPECT_EQ(Timecodes(out).substr(0, 11), "10:00:00:00");
  }
}

TEST(Container, WhatWouldNotBeTrueOfDolbyVisionIsRefused) {
  const auto refused = [](const std::string& in, const std::string& options) {
    const std::string out = OutOf(in);
    std::filesystem::remove(out);
    const CommandResult patch = Qlnmedia("patch '" + in + "' '" + out + "' " + options);
    EXPECT_EQ(std::filesystem::exists(out), patch.exitCode == 0);
    return patch.exitCode == 0 ? "" : patch.output;
  };
  const std::string alone = WithDolbyVision("dolby_alone.mp4", 5, 0);
  for (const char* options : {"--hdr p3", "--light-level 1000,400", "--colour bt2020-pq", "--limited-range"})
    EXPECT_THAT(
        refused(alone, options),
        HasSubstr(
            "stream 0: is a Dolby Vision track of profile 5, whose base layer means nothing by itself"));
  const std::string hdr10 = WithDolbyVision("dolby_hdr10.mp4", 8, 1);
  EXPECT_THAT(refused(hdr10, "--colour bt709"), HasSubstr("whose base layer is HDR10"));
  EXPECT_EQ(refused(hdr10, "--colour bt2020-pq --hdr p3 --light-level 1000,400"), "");
  const std::string hlg = WithDolbyVision("dolby_hlg.mp4", 8, 4);
  EXPECT_THAT(refused(hlg, "--colour bt2020-pq"), HasSubstr("whose base layer is HLG"));
  EXPECT_EQ(refused(hlg, "--colour bt2020-hlg"), "");
  const std::string sdr = WithDolbyVision("dolby_sdr.mp4", 8, 2);
  EXPECT_THAT(refused(sdr, "--colour bt2020-hlg"), HasSubstr("whose base layer is SDR"));
  EXPECT_EQ(refused(sdr, "--colour bt709"), "");
}

}  // namespace
}  // namespace qln::test
