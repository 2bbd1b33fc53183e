// Caption tracks that patch puts into MOV and MP4, as ffmpeg, ffprobe and GStreamer see them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "qlnmedia/media/caption_media.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using testing::Not;

const Kind kNtsc = {"avc_b", "h264", "30000/1001", "-c:v libx264 -threads 1 -pix_fmt yuv420p -bf 3 -g 12"};
const Kind kKinds[] = {
    kNtsc,
    {"avc_film", "h264", "24000/1001", "-c:v libx264 -threads 1 -pix_fmt yuv420p -bf 2 -g 12"},
    {"avc_25", "h264", "25", "-c:v libx264 -threads 1 -pix_fmt yuv420p -bf 2 -g 10"},
    {"avc_fast", "h264", "60000/1001", "-c:v libx264 -threads 1 -pix_fmt yuv420p -bf 2 -g 12"},
};

// Of one kind of stream, in the order of their times.
std::string PacketTimes(const std::string& file, const std::string& kind) {
  return Text("ffprobe -v error -select_streams " + kind + " -show_entries packet=pts_time -of csv=p=0 '" +
              file + "' | sed 's/,.*//' | sort -n");
}

std::vector<double> ShownTimes(const std::string& file, const std::string& kind) {
  std::vector<double> times;
  std::istringstream lines(PacketTimes(file, kind));
  for (double time; lines >> time;) {
    if (time > -0.001) times.push_back(time);
  }
  return times;
}

std::string EverySecondLine(const std::string& text) {
  std::string kept;
  size_t line = 0;
  for (size_t at = 0; at < text.size(); ++line) {
    const size_t end = text.find('\n', at) + 1;
    if (line % 2 == 0) kept += text.substr(at, end - at);
    at = end;
  }
  return kept;
}

std::string Put(const std::string& in, const std::string& out, const std::string& options) {
  std::filesystem::remove(out);
  const CommandResult put = Qlnmedia("patch --verify '" + in + "' '" + out + "' --caption-track " + options);
  EXPECT_EQ(put.exitCode, 0) << put.output;
  return put.output;
}

TEST(PutCaptionTrack, IsWhatOthersRead) {
  const std::string scc = Write("caption_track.scc", kScc);
  for (const Kind& kind : kKinds) {
    for (const std::string extension : {"mov", "mp4"}) {
      if (extension == "mp4" && &kind != &kKinds[0]) continue;
      SCOPED_TRACE(kind.name + extension);
      const std::string in = Source(kind, extension);
      const std::string out = PatchedName(kind, "track." + extension);
      EXPECT_THAT(Put(in, out, "--captions '" + scc + "' --caption-language eng"),
                  HasSubstr("stream 0: caption track put in: "));
      EXPECT_EQ(Decoded(out), Decoded(in));
      EXPECT_EQ(Times(out).substr(0, Times(in).size()), Times(in));
      EXPECT_EQ(Text("ffprobe -v error -select_streams s -show_entries "
                     "stream=codec_name,codec_tag_string:stream_tags=language -of csv=p=0 '" +
                     out + "'"),
                "eia_608,c608,eng\n");
      // Line 21 has 30 frames a second: of 60 pictures each two have one.
      const std::string pictures = PacketTimes(out, "v");
      const bool fast = std::string(kind.name) == "avc_fast";
      EXPECT_EQ(PacketTimes(out, "s"), fast ? EverySecondLine(pictures) : pictures);
      EXPECT_THAT(Text("ffmpeg -v error -i '" + out + "' -map 0:s -f srt -"), HasSubstr("GOOD MORNING"));
      const std::string back = Qlnmedia("captions '" + out + "' -o -").output;
      EXPECT_THAT(back, HasSubstr("\nGOOD MORNING\n"));
      EXPECT_THAT(Text("ffprobe -v warning '" + out + "' 2>&1"), Not(HasSubstr("rror")));
    }
  }
  // The text and the times of the file that it was made of, in both readers.
  const std::string out = PatchedName(kNtsc, "track.mov");
  const auto shown = [](const std::string& from) {
    return Text("ffmpeg -v error -i '" + from + "' -map 0:s -f srt - | grep -v -- '-->'");
  };
  EXPECT_EQ(Qlnmedia("captions '" + out + "' -o -").output, Qlnmedia("captions '" + scc + "' -o -").output);
  EXPECT_EQ(shown(out), shown(scc));
}

// Whatever the pictures' edits are: none, with pictures that are held back; and those of a cut.
TEST(PutCaptionTrack, FollowsThePicturesEdits) {
  const std::string scc = Write("caption_track_edits.scc", kScc);
  const std::string in = Source(kNtsc, "mov");
  for (const char* how : {"-use_editlist 0", "-movflags +faststart"}) {
    SCOPED_TRACE(how);
    const bool none = std::string(how) == "-use_editlist 0";
    const std::string cut = MediaFile(none ? "track_no_edits.mov" : "track_cut.mov",
                                      "ffmpeg -v error -y " + std::string(none ? "" : "-ss 0.5 ") + "-i '" +
                                          in + "' -c copy " + how + " {out}");
    const std::string out = MediaPath("caption_track_edited.mov");
    Put(cut, out, "--captions '" + scc + "'");
    // Empty edits count in milliseconds here. What edits leave out comes along for decoders, as far as they
    // need it.
    const std::vector<double> pictures = ShownTimes(out, "v");
    EXPECT_THAT(ShownTimes(out, "s"), testing::Pointwise(testing::DoubleNear(0.00051), pictures));
    EXPECT_GT(pictures.size(), 25u);
    EXPECT_EQ(Times(out).substr(0, Times(cut).size()), Times(cut));
  }
}

// Pictures of other codecs take a track too, and other changes may go with it.
TEST(PutCaptionTrack, StandsBesideAnyPictures) {
  const std::string scc = Write("caption_track_any.scc", kScc);
  const std::string prores =
      MediaFile("track_prores.mov",
                "ffmpeg -v error -y -f lavfi -i testsrc2=s=96x64:d=1.5:r=30000/1001 -c:v prores {out}");
  const std::string out = MediaPath("caption_track_any.mov");
  Put(prores, out, "--captions '" + scc + "'");
  EXPECT_EQ(Decoded(out), Decoded(prores));
  EXPECT_THAT(Qlnmedia("captions '" + out + "' -o -").output, HasSubstr("GOOD MORNING"));
  const std::string in = Source(kNtsc, "mov");
  const std::string more =
      Put(in, out, "--captions '" + scc + "' --colour bt709 --timecode '10:00:00;00' --timecode-track");
  EXPECT_THAT(more, HasSubstr("timecode track put in"));
  EXPECT_THAT(more, HasSubstr("caption track put in"));
  EXPECT_EQ(Text("ffprobe -v error -show_entries stream=codec_tag_string -of csv=p=0 '" + out +
                 "' | grep . | sort -u"),
            "avc1\nc608\nmp4a\ntmcd\n");
}

// The captions of pictures become a track, and that one another.
TEST(PutCaptionTrack, IsMadeOfPicturesAndReplaced) {
  const std::string scc = Write("caption_track_made.scc", kScc);
  const std::string in = Source(kNtsc, "mov");
  const std::string pictures = PatchedName(kNtsc, "track_pictures.mov");
  ASSERT_EQ(Qlnmedia("patch '" + in + "' '" + pictures + "' --captions '" + scc + "'").exitCode, 0);
  const std::string out = PatchedName(kNtsc, "track_made.mov");
  Put(pictures, out, "--captions '" + pictures + "'");
  const std::string of = Qlnmedia("captions '" + out + "' -o - --captions-from 0").output;
  EXPECT_THAT(of, HasSubstr("GOOD MORNING"));
  const std::string track = Qlnmedia("captions '" + out + "' -o - --captions-from 2").output;
  EXPECT_EQ(track, of);
  const std::string again = PatchedName(kNtsc, "track_again.mov");
  std::filesystem::remove(again);
  const auto refused =
      Qlnmedia("patch '" + out + "' '" + again + "' --captions '" + scc + "' --caption-track");
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_THAT(refused.output, HasSubstr("has a caption track, track 3; --replace-captions"));
  EXPECT_FALSE(std::filesystem::exists(again));
  EXPECT_THAT(Put(out, again, "--captions '" + scc + "' --captions-offset 01:00:00:02 --replace-captions"),
              HasSubstr("caption track replaced"));
  EXPECT_EQ(Qlnmedia("captions '" + again + "' -o - --captions-from 0").output, of);
  EXPECT_NE(Qlnmedia("captions '" + again + "' -o - --captions-from 2").output, of);
}

// What GStreamer takes out of the track, and makes of it: the pairs of each picture, none lost.
TEST(PutCaptionTrack, IsWhatGStreamerReads) {
  if (qln::test::Run("gst-launch-1.0 --version && gst-inspect-1.0 qtdemux && gst-inspect-1.0 ccconverter")
          .exitCode != 0)
    GTEST_SKIP() << "no GStreamer with caption plug-ins";
  const std::string scc = Write("caption_track_gst.scc", kScc);
  const std::string out = PatchedName(kNtsc, "track_gst.mov");
  Put(Source(kNtsc, "mov"), out, "--captions '" + scc + "'");
  const std::string pairs = MediaPath("caption_track_gst.bin");
  Text("gst-launch-1.0 -q filesrc location='" + out +
       "' ! qtdemux name=d d.subtitle_0 ! queue ! ccconverter ! " +
       "'closedcaption/x-cea-608,format=raw' ! filesink location='" + pairs + "'");
  Bytes expected =
      Hex("8080 8080 8080 94AE 94AE 9420 9420 9470 9470 C74F 4FC4 20CD 4F52 CE49 CEC7 942F 942F 8080 8080 "
          "8080 8080 "
          "8080 8080 8080 8080 8080 8080 8080 8080 8080 942C 942C");
  const Bytes null = Hex("8080");
  while (expected.size() < 90) expected.insert(expected.end(), null.begin(), null.end());
  EXPECT_EQ(ReadFile(pairs), expected);
}

TEST(PutCaptionTrack, IsRefusedByName) {
  const std::string scc = Write("caption_track_refused.scc", kScc);
  const std::string in = Source(kNtsc, "mp4");
  const std::string asked = " --caption-track --captions '" + scc + "'";
  const auto refusal = [](const std::string& arguments, int status = 1) {
    const CommandResult result = Qlnmedia("patch " + arguments);
    EXPECT_EQ(result.exitCode, status) << result.output;
    return result.output;
  };
  EXPECT_THAT(refusal("--in-place '" + in + "'" + asked), HasSubstr("cannot be done in place"));
  EXPECT_THAT(refusal("'" + in + "' x.mp4 --colour bt709 --caption-track", 2), HasSubstr("--captions"));
  const std::string fragments =
      MediaFile("track_fragments.mp4",
                "ffmpeg -v error -y -i '" + in + "' -c copy -movflags +frag_keyframe+empty_moov {out}");
  const std::string out = MediaPath("caption_track_refused.mp4");
  EXPECT_THAT(refusal("'" + fragments + "' '" + out + "'" + asked), HasSubstr("is in fragments"));
  const std::string mkv = Source(kNtsc, "mkv");
  EXPECT_THAT(refusal("'" + mkv + "' '" + out + ".mkv'" + asked), HasSubstr("is no MP4 or MOV"));
  EXPECT_THAT(refusal("'" + in + "' '" + out + "'" + asked + " --caption-language english"),
              HasSubstr("\"english\" is no language"));
  EXPECT_THAT(refusal("'" + in + "' '" + out + "' --captions '" + scc + "' --caption-language eng", 2),
              HasSubstr("--caption-track"));
  EXPECT_FALSE(std::filesystem::exists(out));
  const CommandResult dry = Qlnmedia("patch --dry-run '" + in + "'" + asked);
  EXPECT_EQ(dry.exitCode, 0) << dry.output;
  EXPECT_THAT(dry.output, HasSubstr("would: stream 0: caption track put in: 45 samples of line 21, field 1"));
}

}  // namespace
}  // namespace qln::test
