// Captions made of text, written as timed text, kept across a transcode, and caption files that are checked:
// on the command line, with ffmpeg as the other reader.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qlnmedia/media/caption_media.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using testing::Not;

const char* const kSrt =
    "1\n00:00:00,800 --> 00:00:01,200\nGood morning,\nAm\xC3\xA9lie\n\n2\n00:00:01,200 --> "
    "00:00:01,400\nBye\n";
const Kind kSource = {"avc_b", "h264", "30000/1001", "-c:v libx264 -threads 1 -pix_fmt yuv420p -bf 3 -g 12"};
const Kind kOther = {"avc_25", "h264", "25", "-c:v libx264 -threads 1 -pix_fmt yuv420p -bf 2 -g 10"};

// Captions as ffmpeg decodes those of a video.
std::string SeenByFfmpeg(const std::string& file) {
  return Text("ffmpeg -v error -f lavfi -i 'movie=" + file + "[out0+subcc]' -map 0:s -f srt -");
}

TEST(MadeCaptions, ShowInPicturesOnTheirTimes) {
  const std::string srt = Write("captions_made.srt", kSrt);
  for (const Kind& kind : {kSource, kOther}) {
    const std::string out = MediaPath(std::string("captions_made_") + kind.name + ".mp4");
    const auto made = Qlnmedia("patch '" + Source(kind, "mp4") + "' '" + out + "' --captions '" + srt + "'");
    ASSERT_EQ(made.exitCode, 0) << made.output;
    EXPECT_THAT(made.output, Not(HasSubstr("warning")));
    const std::string back = Qlnmedia("captions '" + out + "' -o -").output;
    const std::string seen = SeenByFfmpeg(out);
    for (const char* text : {"Good morning,", "Am\xC3\xA9lie", "Bye"}) {
      EXPECT_THAT(back, HasSubstr(text));
      EXPECT_THAT(seen, HasSubstr(text));
    }
    // The nearest pictures: 800 ms are 23.98 pictures of 29.97, 20 of 25.
    const bool ntsc = std::string(kind.rate) != "25";
    EXPECT_THAT(back, HasSubstr(ntsc ? "00:00:00,801 --> 00:00:01,201" : "00:00:00,800 --> 00:00:01,200"));
  }
}

TEST(MadeCaptions, AreFilesThatLeadBack) {
  const std::string srt = Write("captions_made.srt", kSrt);
  const std::string scc = MediaPath("captions_made.scc");
  ASSERT_EQ(Qlnmedia("captions '" + srt + "' -o '" + scc + "'").exitCode, 0);
  const std::string texts = Qlnmedia("captions '" + scc + "' -o -").output;
  EXPECT_THAT(texts, HasSubstr("00:00:00,801 --> 00:00:01,201\nGood morning,\nAm\xC3\xA9lie\n"));
  EXPECT_THAT(Text("ffmpeg -v error -i '" + scc + "' -f srt -"), HasSubstr("Good morning,"));
  EXPECT_EQ(Qlnmedia("check '" + scc + "'").output, "nothing found\n");
  for (const char* ending : {"mcc", "vtt"}) {
    const std::string other = MediaPath(std::string("captions_made_other.") + ending);
    ASSERT_EQ(Qlnmedia("captions '" + scc + "' -o '" + other + "'").exitCode, 0);
    EXPECT_EQ(Qlnmedia("captions '" + other + "' -o -").output, texts) << ending;
    EXPECT_EQ(Qlnmedia("check '" + other + "'").output, "nothing found\n");
  }
  // Labels go on from those of a file.
  const std::string later = MediaPath("captions_made_later.scc");
  ASSERT_EQ(Qlnmedia("captions '" + srt + "' --start '01:00:00;00' -o '" + later + "'").exitCode, 0);
  EXPECT_THAT(Qlnmedia("captions '" + later + "' -o - --form scc").output, HasSubstr("\n01:00:00;"));
  EXPECT_EQ(Qlnmedia("captions '" + later + "' -o -").output, texts);
  // What ffmpeg reads of the timed text.
  const std::string ttml = Qlnmedia("captions '" + scc + "' -o - --form ttml").output;
  EXPECT_THAT(ttml, HasSubstr("Good morning,</p>"));
  EXPECT_THAT(Text("ffmpeg -v error -i '" + MediaPath("captions_made_other.vtt") + "' -f srt -"),
              HasSubstr("Good morning,"));
}

// Looks and places lead back, and are what ffmpeg shows.
TEST(MadeCaptions, KeepLooksAndPlaces) {
  const std::string vtt =
      Write("captions_looks.vtt",
            "WEBVTT\n\n00:01.000 --> 00:02.000\n<c.yellow>Look</c> <i>here</i> <u>now</u>\n\n"
            "00:03.000 --> 00:04.000 line:10%\n<b>Up</b>\n");
  const std::string scc = MediaPath("captions_looks.scc");
  const auto made = Qlnmedia("captions '" + vtt + "' -o '" + scc + "' --force");
  ASSERT_EQ(made.exitCode, 0) << made.output;
  EXPECT_THAT(made.output, HasSubstr("line 7: bold is left out"));
  const std::string back = Qlnmedia("captions '" + scc + "' -o - --form vtt").output;
  EXPECT_THAT(back, HasSubstr("<c.yellow>Look  </c><i>here </i><u>now</u>"));
  const std::string seen = Text("ffmpeg -v error -i '" + scc + "' -f srt -");
  EXPECT_THAT(seen, HasSubstr("<font color=\"#ffff00\">Look"));
  EXPECT_THAT(seen, HasSubstr("<i>"));
  EXPECT_THAT(seen, HasSubstr("<u>"));
}

TEST(MadeCaptions, AreRefusedWhereTextDoesNotFit) {
  const std::string srt =
      Write("captions_long.srt",
            "1\n00:00:00,100 --> 00:00:02,000\nA line that is much longer than one row is\n\n"
            "2\n00:00:03,000 --> 00:00:04,000\n5 \xE2\x82\xAC\n");
  const auto refused = Qlnmedia("captions '" + srt + "' -o -");
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_THAT(refused.output,
              HasSubstr("line 3: \"A line that is much longer than one row is\" has 42 characters"));
  EXPECT_THAT(refused.output, HasSubstr("line 2: \"A line that is much longer"));
  EXPECT_THAT(refused.output, HasSubstr("line 7: U+20AC \"\xE2\x82\xAC\" is no character of line 21"));
  EXPECT_THAT(refused.output, HasSubstr("(and 2 more); --fit breaks lines"));
  const auto fitted = Qlnmedia("captions '" + srt + "' -o - --fit --transliterate");
  EXPECT_EQ(fitted.exitCode, 0);
  EXPECT_THAT(fitted.output, HasSubstr("A line that is much longer than\none row is\n"));
  EXPECT_THAT(fitted.output, HasSubstr("\n5 EUR\n"));
  const auto patched = Qlnmedia("patch '" + Source(kSource, "mp4") + "' '" + MediaPath("captions_long.mp4") +
                                "' --captions '" + srt + "'");
  EXPECT_EQ(patched.exitCode, 1);
  EXPECT_THAT(patched.output, HasSubstr("ms late"));
  const auto checked = Qlnmedia("check '" + srt + "'");
  EXPECT_EQ(checked.exitCode, 3);
  EXPECT_THAT(checked.output, HasSubstr("ms late"));
}

// The three lines of the documentation: out, encode, in again, at the same rate and at another one.
TEST(KeptCaptions, GoThroughATranscode) {
  const std::string srt = Write("captions_kept.srt", kSrt);
  const std::string in = MediaPath("captions_kept_in.mp4");
  ASSERT_EQ(Qlnmedia("patch '" + Source(kSource, "mp4") + "' '" + in + "' --captions '" + srt + "'").exitCode,
            0);
  const std::string mcc = MediaPath("captions_kept.mcc");
  for (const char* rate : {"30000/1001", "25"}) {
    const std::string encoded = MediaPath("captions_kept_encoded.mp4");
    const std::string out = MediaPath("captions_kept_out.mp4");
    ASSERT_EQ(Qlnmedia("captions '" + in + "' -o '" + mcc + "'").exitCode, 0);
    Text("ffmpeg -v error -y -i '" + in + "' -r " + rate +
         " -c:v libx264 -threads 1 -preset ultrafast -a53cc 0 '" + encoded + "'");
    const auto put = Qlnmedia("patch '" + encoded + "' '" + out + "' --captions '" + mcc + "'");
    ASSERT_EQ(put.exitCode, 0) << put.output;
    const std::string back = Qlnmedia("captions '" + out + "' -o -").output;
    EXPECT_THAT(back, HasSubstr("Good morning,\nAm\xC3\xA9lie\n"));
    EXPECT_THAT(back, HasSubstr("\nBye\n"));
    EXPECT_THAT(SeenByFfmpeg(out), HasSubstr("Good morning,"));
    // Of one picture at the most.
    EXPECT_THAT(back, testing::ContainsRegex("00:00:00,8[0-9]* --> 00:00:01,2[0-9]*"));
  }
}

// A track that ffmpeg writes: of one caption stream it is taken, of several only by its name.
TEST(CaptionTracksOfMov, AreSources) {
  const std::string srt = Write("captions_track.srt", kSrt);
  const std::string scc = MediaPath("captions_track.scc");
  ASSERT_EQ(Qlnmedia("captions '" + srt + "' -o '" + scc + "'").exitCode, 0);
  const std::string texts = Qlnmedia("captions '" + scc + "' -o -").output;
  const std::string plain = Source(kSource, "mp4");
  const std::string mov = MediaPath("captions_track.mov");
  Text("ffmpeg -v error -y -i '" + plain + "' -i '" + scc + "' -map 0:v -map 1:s -c copy '" + mov + "'");
  const auto read = Qlnmedia("captions '" + mov + "' -o -");
  EXPECT_EQ(read.exitCode, 0) << read.output;
  for (const char* text : {"Good morning,\nAm\xC3\xA9lie\n", "\nBye\n"})
    EXPECT_THAT(read.output, HasSubstr(text));
  EXPECT_THAT(Qlnmedia("inspect --json '" + mov + "'").output, HasSubstr("\"caption_form\": \"c608\""));
  EXPECT_THAT(Qlnmedia("check '" + mov + "'").output, Not(HasSubstr("c608")));
  // As a file of elements, and back.
  const std::string anc = MediaPath("captions_track.anc");
  ASSERT_EQ(Qlnmedia("captions '" + mov + "' -o '" + anc + "'").exitCode, 0);
  EXPECT_EQ(Qlnmedia("captions '" + anc + "' -o -").output, read.output);
  EXPECT_EQ(Qlnmedia("check '" + anc + "'").output, "nothing found\n");
  // Into pictures: those of another file, and then there are two.
  const std::string both = MediaPath("captions_track_both.mov");
  const auto put = Qlnmedia("patch '" + mov + "' '" + both + "' --captions '" + mov + "'");
  ASSERT_EQ(put.exitCode, 0) << put.output;
  const auto refused = Qlnmedia("captions '" + both + "' -o -");
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_THAT(refused.output, HasSubstr("has captions in several streams: 0 (pictures), 1 (c608 track)"));
  EXPECT_EQ(Qlnmedia("captions '" + both + "' -o - --captions-from 1").output, read.output);
  EXPECT_THAT(Qlnmedia("captions '" + both + "' -o - --captions-from 0").output, HasSubstr("Good morning,"));
  EXPECT_THAT(Qlnmedia("captions '" + both + "' -o - --captions-from 7").output,
              HasSubstr("has no captions in stream 7; there are some in 0 (pictures), 1 (c608 track)"));
  // The pictures of one file into those of another, as .mcc would carry them.
  const std::string out = MediaPath("captions_track_out.mp4");
  ASSERT_EQ(
      Qlnmedia("patch '" + plain + "' '" + out + "' --captions '" + both + "' --captions-from 0").exitCode,
      0);
  EXPECT_EQ(TripletBytes(out), TripletBytes(both));
  // Those of the elements are the same.
  const std::string again = MediaPath("captions_track_again.mp4");
  ASSERT_EQ(Qlnmedia("patch '" + plain + "' '" + again + "' --captions '" + anc + "'").exitCode, 0);
  EXPECT_EQ(TripletBytes(again), TripletBytes(both));
}

}  // namespace
}  // namespace qln::test
