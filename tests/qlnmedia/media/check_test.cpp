// check: nothing on good files, every planted disagreement by name.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using testing::HasSubstr;

const char* const kPictures = "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.4 ";
const char* const kAvc = "-c:v libx264 -threads 1 -pix_fmt yuv420p -g 5 ";
const char* const kHevc =
    "-c:v libx265 -pix_fmt yuv420p10le -x265-params keyint=5:pools=1:frame-threads=1:log-level=none";

std::string Tagged(int primaries, const char* range) {
  const std::string code = std::to_string(primaries);
  return "-color_primaries " + code + " -color_trc " + code + " -colorspace " + code + " -color_range " +
         range + " ";
}

CommandResult Check(const std::string& file, const std::string& options = "") {
  return Qlnmedia("check " + options + " '" + file + "'");
}

void ExpectFinding(const std::string& file, const std::string& text) {
  const CommandResult result = Check(file);
  EXPECT_EQ(result.exitCode, 3) << result.output;
  EXPECT_THAT(result.output, HasSubstr(text));
}

TEST(Check, NothingOnGoodFiles) {
  for (const char* extension : {"mp4", "mov", "mkv", "ts", "h264"}) {
    const std::string file = MediaFile(std::string("check_good.") + extension,
                                       kPictures + std::string(kAvc) + Tagged(1, "tv") + "{out}");
    const CommandResult result = Check(file);
    EXPECT_EQ(result.exitCode, 0) << extension << result.output;
    EXPECT_EQ(result.output, "nothing found\n");
  }
  for (const char* extension : {"mp4", "mov", "mkv", "ts", "hevc"}) {
    const std::string file =
        MediaFile(std::string("check_good_hevc.") + extension, kPictures + std::string(kHevc) + " {out}");
    EXPECT_EQ(Check(file).output, "nothing found\n") << extension;
  }
}

TEST(Check, NothingOnOurOwnOutput) {
  for (const char* extension : {"mp4", "mov", "mkv", "ts"}) {
    for (const char* codec : {kAvc, kHevc}) {
      const std::string in = MediaFile(std::string("check_in_") + (codec == kAvc ? "a." : "h.") + extension,
                                       kPictures + std::string(codec) + " {out}");
      const std::string out = MediaPath(std::string("check_patched.") + extension);
      ASSERT_EQ(Qlnmedia("patch '" + in + "' '" + out +
                         "' --colour bt2020-pq --full-range --hdr p3 --light-level 900,100")
                    .exitCode,
                0);
      EXPECT_EQ(Check(out).output, "nothing found\n") << extension << codec;
    }
  }
}

TEST(Check, ContainerColourAndRange) {
  const std::string in =
      MediaFile("check_colour.mp4", kPictures + std::string(kAvc) + Tagged(1, "tv") + "{out}");
  const std::string file = MediaFile(
      "check_colour_other.mov",
      "ffmpeg -v error -y -i '" + in + "' -c copy -color_primaries 9 -color_trc 16 -colorspace 9 {out}");
  ExpectFinding(file, "colour: primaries: the container says BT.2020, the avcC BT.709");
  ExpectFinding(file, "colour: transfer: the container says PQ (SMPTE ST 2084), the avcC BT.709");
  const std::string range =
      MediaFile("check_range.mkv", "ffmpeg -v error -y -i '" + in + "' -c copy -color_range pc {out}");
  ExpectFinding(range, "range: the container says full range, the avcC limited");
}

TEST(Check, SetsThatChangeUnderOneId) {
  const std::string a = MediaFile("check_a.h264", kPictures + std::string(kAvc) + "{out}");
  const std::string b = MediaFile("check_b.h264", kPictures + std::string(kAvc) + "-vf scale=64:64 {out}");
  Bytes both = ReadFile(a);
  const Bytes second = ReadFile(b);
  both.insert(both.end(), second.begin(), second.end());
  const std::string file = MediaPath("check_both.h264");
  WriteFile(file, both);
  // One recording behind the other, each with its sets in front: as the standard lets them.
  const CommandResult result = Check(file);
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_THAT(result.output,
              HasSubstr("note: sets: SPS 0 of the stream differs from the one before it, where a "
                        "sequence begins"));
}

TEST(Check, UnitsOutOfOrder) {
  const std::string clip =
      MediaFile("check_order.h264", kPictures + std::string(kAvc) + "-x264-params slices=2:aud=1 {out}");
  std::vector<Bytes> units = SplitByteStream(ReadFile(clip));
  // An SEI between the two slices of the first picture.
  Bytes stream;
  bool planted = false;
  for (const Bytes& unit : units) {
    const Bytes framed = WithStartCode(unit);
    stream.insert(stream.end(), framed.begin(), framed.end());
    if (!planted && (unit[0] & 31) == 5) {
      const Bytes sei = WithStartCode(Hex("06 05 01 AA 80"));
      stream.insert(stream.end(), sei.begin(), sei.end());
      planted = true;
    }
  }
  const std::string raw = MediaPath("check_order_bad.h264");
  WriteFile(raw, stream);
  const CommandResult result = Check(raw);
  EXPECT_EQ(result.exitCode, 3) << result.output;
  EXPECT_THAT(result.output, HasSubstr("order: "));
}

TEST(Check, JsonForm) {
  const std::string in =
      MediaFile("check_colour.mp4", kPictures + std::string(kAvc) + Tagged(1, "tv") + "{out}");
  const CommandResult good = Check(in, "--json");
  EXPECT_EQ(good.exitCode, 0);
  EXPECT_EQ(good.output, "{\n  \"findings\": []\n}\n");
}

TEST(Check, BadInput) {
  EXPECT_EQ(Check("/no/such/file").exitCode, 1);
  const std::string sound =
      MediaFile("check_sound.m4a", "ffmpeg -v error -y -f lavfi -i sine=d=0.2 -c:a aac {out}");
  EXPECT_EQ(Check(sound).exitCode, 4);  // nothing that the command is about
}

}  // namespace
}  // namespace qln::test
