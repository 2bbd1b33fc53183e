// Rates and labels of captions: files of uneven pictures, raw streams that say no rate, drop-frame labels.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qlnmedia/media/caption_media.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using testing::Not;

// Pictures by a camera's own clock, as phones write them: 29.314 a second.
std::string PhoneFile() {
  return MediaFile(
      "captions_phone.mp4",
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=64x48:d=3:r=30 -vf \"settb=1/90000,setpts='N/29.314/TB'\" "
      "-vsync passthrough -enc_time_base 1/90000 -c:v libx264 -preset ultrafast -threads 1 "
      "-pix_fmt yuv420p -video_track_timescale 90000 {out}");
}

TEST(NominalRate, IsNamedAndTaken) {
  const std::string in = PhoneFile();
  const std::string out = MediaPath("captions_phone_out.mp4");
  const std::string scc = Write("captions_phone.scc", kScc);
  for (const std::string& options : {std::string("--timecode 01:00:00:00"), "--captions '" + scc + "'"}) {
    const CommandResult refused = Qlnmedia("patch '" + in + "' '" + out + "' " + options);
    EXPECT_EQ(refused.exitCode, 1) << refused.output;
    EXPECT_THAT(refused.output, HasSubstr("--rate nominal"));
    const CommandResult patched = Qlnmedia("patch '" + in + "' '" + out + "' --rate nominal " + options);
    EXPECT_EQ(patched.exitCode, 0) << patched.output;
  }
  const CommandResult refused = Qlnmedia("captions '" + out + "' -o '" + out + ".scc'");
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_THAT(refused.output, HasSubstr("its nominal rate is 30, which --rate nominal takes"));
  ASSERT_EQ(Qlnmedia("captions '" + out + "' -o '" + out + ".scc' --rate nominal").exitCode, 0);
  ASSERT_EQ(Qlnmedia("captions '" + out + "' -o '" + out + ".mcc' --rate 30").exitCode, 0);
  EXPECT_THAT(FileText(out + ".mcc"), HasSubstr("Time Code Rate=30\n"));
  // Text goes by the pictures' times and needs no rate of captions: GOOD MORNING from half a second on.
  EXPECT_THAT(Qlnmedia("captions '" + out + "' --rate nominal").output, HasSubstr("00:00:00.5"));
  EXPECT_EQ(Qlnmedia("captions '" + out + "' --rate fast").exitCode, 1);
  EXPECT_EQ(Qlnmedia("captions '" + out + "' --timecode-type pal").exitCode, 2);
}

// x264 writes no timing into this raw stream; its rate is then what the user says.
TEST(RateOfCaptions, IsAskedForWhereTheStreamSaysNone) {
  const std::string in = MediaFile(
      "captions_untimed.hevc",
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=64x64:r=30:d=2 -c:v libx265 -pix_fmt yuv420p -x265-params "
      "vui-timing-info=0:pools=1:frame-threads=1:log-level=none {out}");
  const std::string scc = Write("captions_untimed.scc", kScc);
  const std::string out = MediaPath("captions_untimed_out.hevc");
  const CommandResult patched =
      Qlnmedia("patch '" + in + "' '" + out + "' --captions '" + scc + "' --rate 30");
  ASSERT_EQ(patched.exitCode, 0) << patched.output;
  EXPECT_THAT(patched.output, HasSubstr("20 triplets each"));
  EXPECT_EQ(Counted(out).second, 60);
  EXPECT_EQ(Qlnmedia("patch '" + in + "' '" + out + "' --delimiters --rate 30").exitCode, 2);
}

std::string Labelled(const std::string& rate, const std::string& timecode) {
  const std::string in = MediaFile("captions_labels_" + std::to_string(rate.size()) + ".mp4",
                                   "ffmpeg -v error -y -f lavfi -i testsrc2=s=64x48:d=62:r=" + rate +
                                       " -c:v libx264 -preset ultrafast -threads 1 -pix_fmt yuv420p {out}");
  const std::string scc =
      Write("captions_labels.scc", "Scenarist_SCC V1.0\n\n00:01:00:20\t9420 9470 c74f 942f\n");
  const std::string out = in + ".captions.mp4";
  const CommandResult patched = Qlnmedia("patch '" + in + "' '" + out + "' --captions '" + scc +
                                         "' --captions-offset 00:00:00:00" + timecode);
  EXPECT_EQ(patched.exitCode, 0) << patched.output;
  return out;
}

std::string Extracted(const std::string& in, const std::string& extension, const std::string& options = "") {
  const CommandResult result = Qlnmedia("captions '" + in + "' -o '" + in + extension + "' " + options);
  EXPECT_EQ(result.exitCode, 0) << result.output;
  return FileText(in + extension);
}

// Picture 1820 is 00:01:00:20 where every number counts, and 00:01:00;22 where two are left out.
TEST(CaptionLabels, FollowTheStreamsTimecodeOrTheOption) {
  const std::string drop = Labelled("30000/1001", " --timecode '10:00:00;00'");
  EXPECT_THAT(Extracted(drop, ".scc"), HasSubstr("\n00:01:00;22\t9420"));
  EXPECT_THAT(Extracted(drop, ".scc", "--timecode-type non-drop-frame"), HasSubstr("\n00:01:00:20\t9420"));
  const std::string mcc = Extracted(drop, ".mcc");
  EXPECT_THAT(mcc, HasSubstr("Time Code Rate=30DF\n"));
  EXPECT_THAT(mcc, Not(HasSubstr("\n00:01:00:00\t")));
  EXPECT_THAT(mcc, HasSubstr("\n00:01:00:02\t"));
  const std::string plain = Labelled("30000/1001", "");
  EXPECT_THAT(Extracted(plain, ".scc"), HasSubstr("\n00:01:00:20\t9420"));
  EXPECT_THAT(Extracted(plain, ".scc", "--timecode-type drop-frame"), HasSubstr("\n00:01:00;22\t9420"));
  EXPECT_THAT(Extracted(plain, ".mcc"), HasSubstr("Time Code Rate=30\n"));
  // What comes out goes in again at the same pictures.
  const std::string again = plain + ".again.mp4";
  ASSERT_EQ(Qlnmedia("patch '" + plain + "' '" + again +
                     "' --replace-captions --captions-offset 00:00:00:00 "
                     "--captions '" +
                     plain + ".scc'")
                .exitCode,
            0);
  EXPECT_EQ(Triplets(again), Triplets(plain));
  EXPECT_EQ(Qlnmedia("captions '" + plain + "' -o '" + plain + ".scc' --timecode-type pal").exitCode, 1);
  EXPECT_EQ(Qlnmedia("captions '" + plain + "' -o '" + plain + ".srt' --timecode-type drop-frame").exitCode,
            1);
}

// Exactly 30 pictures a second: drop-frame labels go by time, in and out, and .mcc has none.
TEST(CaptionLabels, GoByTimeAtExactlyThirty) {
  const std::string in = Labelled("30", "");
  EXPECT_THAT(Extracted(in, ".scc", "--timecode-type drop-frame"), HasSubstr("\n00:01:00;20\t9420"));
  const CommandResult refused =
      Qlnmedia("captions '" + in + "' -o '" + in + ".mcc' --timecode-type drop-frame");
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_THAT(refused.output, HasSubstr("no drop-frame labels at 30 pictures a second"));
  const std::string out = in + ".again.mp4";
  const CommandResult patched = Qlnmedia("patch '" + in + "' '" + out + "' --replace-captions --captions '" +
                                         in + ".scc' --captions-offset '00:00:00;00'");
  ASSERT_EQ(patched.exitCode, 0) << patched.output;
  EXPECT_THAT(patched.output,
              HasSubstr("is made for 29.97 pictures a second, the stream has 30: times are converted"));
}

}  // namespace
}  // namespace qln::test
