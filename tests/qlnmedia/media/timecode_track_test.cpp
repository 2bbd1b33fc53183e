// The timecode track of MP4 and MOV: put in, corrected, and held against the stream, as independent readers
// show it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mp4/build_boxes.h"
#include "qlnmedia/media/carried.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using testing::Not;

const char* const kPictures = "ffmpeg -v error -y -f lavfi -i testsrc2=s=96x64:d=1:r=30000/1001 ";
const char* const kCoded = "-c:v libx264 -preset ultrafast -bf 2 -threads 1 -pix_fmt yuv420p ";

std::string Clip(const std::string& name, const std::string& options = "") {
  return MediaFile("track_" + name, kPictures + std::string("-f lavfi -i sine=d=1 ") + kCoded +
                                        "-c:a aac -b:a 32k " + options + " {out}");
}

// What readers say of the timecode track: libavformat by its own tag, mediainfo by the whole track.
std::string TimecodeTag(const std::string& file) {
  return Text(
      "ffprobe -v error -select_streams d -show_entries stream=codec_tag_string:stream_tags=timecode -of "
      "default=nw=1:nk=1 '" +
      file + "'");
}
std::string MediaInfo(const std::string& file, const std::string& field) {
  return Text("mediainfo --Inform='Other;%" + field + "%' '" + file + "'");
}

void ExpectTimecode(const std::string& in, const std::string& out, const std::string& timecode,
                    const std::string& done) {
  const CommandResult patch =
      Qlnmedia("patch --verify '" + in + "' '" + out + "' --timecode-track --timecode '" + timecode + "'");
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  EXPECT_THAT(patch.output, HasSubstr("stream 0: timecode track " + done));
  EXPECT_EQ(TimecodeTag(out), "tmcd\n" + timecode + "\n");
  EXPECT_EQ(MediaInfo(out, "TimeCode_FirstFrame"), timecode + "\n");
  EXPECT_EQ(Decoded(out), Decoded(in));
  EXPECT_EQ(Times(out).substr(0, Times(in).size()), Times(in));
  EXPECT_EQ(Qlnmedia("check '" + out + "'").output, "nothing found\n");
  EXPECT_THAT(Text("ffprobe -v warning '" + out + "' 2>&1"), Not(HasSubstr("rror")));
}

TEST(TimecodeTrack, IsPutInWhereThereIsNone) {
  for (const char* name : {"end.mov", "end.mp4"})
    ExpectTimecode(Clip(name), OutOf(name), "10:00:00;02", "put in");
  for (const char* name : {"front.mov", "front.mp4"}) {
    const std::string in = Clip(name, "-movflags +faststart");
    const std::string out = OutOf(name);
    ExpectTimecode(in, out, "00:59:59;29", "put in");
    // Nobody but the movie's own tables names places: each sample is where it is said to be.
    const Listing before = ListFile(ReadFile(in));
    const Listing after = ListFile(ReadFile(out));
    ASSERT_EQ(after.samples.size(), before.samples.size() + 1);
    const auto& sample = after.samples.rbegin()->second;
    ASSERT_EQ(sample.size(), 1u);
    EXPECT_EQ(sample[0].data,
              (Bytes{0x00, 0x01, 0xA5, 0x73}));  // 107999 less the 108 numbers that 54 minutes lack
    const std::string again = OutOf(name, "again");
    ExpectTimecode(out, again, "00:59:59;29", "as it was");
    EXPECT_EQ(ReadFile(again), ReadFile(out));
  }
}

TEST(TimecodeTrack, IsCorrectedWhereItStands) {
  const std::string in = Clip("made.mov", "-timecode 01:00:00:00");
  const std::string out = OutOf("made.mov");
  ExpectTimecode(in, out, "02:00:00;00", "corrected");
  EXPECT_EQ(ListFile(ReadFile(out)).boxes.size(), ListFile(ReadFile(in)).boxes.size());
  ExpectTimecode(out, OutOf("made.mov", "back"), "01:00:00:00", "corrected");
}

// A drop-frame track is carried like any other, whatever changes around it.
TEST(TimecodeTrack, DropFrameTracksAreCarried) {
  const std::string in = Clip("drop.mov", "-timecode '01:00:00;00'");
  const std::string out = OutOf("drop.mov");
  Patch(in, out, "--verify --colour bt709");
  EXPECT_EQ(TimecodeTag(out), "tmcd\n01:00:00;00\n");
}

TEST(TimecodeTrack, CheckHoldsItAgainstTheStream) {
  const std::string in = Clip("other.mov", "-timecode '01:00:00;00'");
  const std::string out = OutOf("other.mov");
  Patch(in, out, "--timecode '01:00:00;02'");
  const CommandResult found = Qlnmedia("check '" + out + "'");
  EXPECT_EQ(found.exitCode, 3);
  EXPECT_EQ(
      found.output,
      "stream 0: timecode: the container begins with timecode 01:00:00;00, the stream with 01:00:00;02\n");
  Patch(in, out, "--timecode 01:00:00:00");
  EXPECT_THAT(Qlnmedia("check '" + out + "'").output, HasSubstr("01:00:00;00, the stream with 01:00:00:00"));
  Patch(in, out, "--timecode '01:00:00;00'");
  EXPECT_EQ(Qlnmedia("check '" + out + "'").output, "nothing found\n");
}

TEST(TimecodeTrack, IsRefusedByName) {
  const std::string in = Clip("end.mp4");
  const std::string asked = " --timecode 01:00:00:00 --timecode-track";
  const auto refusal = [](const std::string& arguments, int status) {
    const CommandResult result = Qlnmedia("patch " + arguments);
    EXPECT_EQ(result.exitCode, status) << result.output;
    return result.output;
  };
  EXPECT_THAT(refusal("--in-place '" + in + "'" + asked, 1), HasSubstr("cannot be done in place"));
  EXPECT_THAT(refusal("'" + in + "' x.mp4 --colour bt709 --timecode-track", 2), HasSubstr("--timecode"));
  const std::string fragments = Clip("fragments.mp4", "-movflags +frag_keyframe+empty_moov");
  EXPECT_THAT(refusal("'" + fragments + "' '" + OutOf(fragments) + "'" + asked, 1),
              HasSubstr("is in fragments"));
  // Boxes that name places by themselves: a segment index of no references, and an index of no fragments.
  for (const auto& [type, body] :
       {std::pair{"sidx", "00000000 00000001 00000400 00000000 00000000 0000 0000"},
        std::pair{"mfra", "00000010 6D66726F 00000000 00000018"}}) {
    Bytes file = ReadFile(in);
    const Bytes box = mp4::Box(type, Hex(body));
    file.insert(file.end(), box.begin(), box.end());
    const std::string placed = OutOf(std::string(type) + ".mp4", "in");
    WriteFile(placed, file);
    EXPECT_THAT(refusal("'" + placed + "' '" + OutOf(placed) + "'" + asked, 1),
                HasSubstr("takes no timecode track beside it"));
  }
  const std::string mkv = Clip("none.mkv");
  EXPECT_THAT(refusal("'" + mkv + "' '" + OutOf(mkv) + "'" + asked, 1), HasSubstr("is no MP4 or MOV"));
}

}  // namespace
}  // namespace qln::test
