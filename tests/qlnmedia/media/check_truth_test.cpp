// check on files of kinds that were once blamed, or passed over: what is sound is quiet, what is wrong has
// its own name, and notes do not fail a script.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "qlnmedia/media/box_surgery.h"
#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using testing::HasSubstr;

const char* const kPictures =
    "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.4 -pix_fmt yuv420p -color_primaries 1 "
    "-color_trc 1 -colorspace 1 -color_range tv ";

void ExpectCheck(const std::string& file, int exitCode, const std::string& text) {
  const CommandResult result = Qlnmedia("check '" + file + "'");
  EXPECT_EQ(result.exitCode, exitCode) << result.output;
  EXPECT_THAT(result.output, HasSubstr(text)) << file;
}

void ExpectQuiet(const std::string& file) { ExpectCheck(file, 0, "nothing found\n"); }

TEST(CheckTruth, TimingWithoutAFixedRateIsNoRate) {
  const std::string clip = MediaFile(
      "truth_rate.mp4", std::string(kPictures) + "-c:v libx264 -x264-params force-cfr=0:vfr-input=1 {out}");
  ExpectQuiet(clip);
  const std::string other =
      MediaFile("truth_rate_unit.mp4",
                "ffmpeg -v error -y -i '" + clip +
                    "' -c copy -bsf:v h264_metadata=tick_rate=180000:fixed_frame_rate_flag=0 {out}");
  ExpectQuiet(other);
  const std::string steady = MediaFile(
      "truth_rate_steady.mp4", std::string(kPictures) + "-c:v libx264 -x264-params force-cfr=1 {out}");
  ExpectQuiet(steady);
  const std::string fixed =
      MediaFile("truth_rate_fixed.mp4",
                "ffmpeg -v error -y -i '" + steady + "' -c copy -bsf:v h264_metadata=tick_rate=100 {out}");
  ExpectCheck(fixed, 3, "rate: the container runs at 25 frames a second, the avcC says 50");
}

TEST(CheckTruth, TheShapeOfSamples) {
  const std::string clip =
      MediaFile("truth_aspect.mp4", std::string(kPictures) + "-vf setsar=16/11 -c:v libx264 {out}");
  ExpectQuiet(clip);
  ExpectQuiet(MediaFile("truth_aspect.mkv", "ffmpeg -v error -y -i '" + clip + "' -c copy {out}"));
  Bytes file = ReadFile(clip);
  const size_t pasp = FindBox(file, {"moov", "trak", "mdia", "minf", "stbl", "stsd", "avc1", "pasp"});
  file[pasp + 11] = file[pasp + 15] = 1;  // 1:1
  const std::string planted = MediaPath("truth_aspect_planted.mp4");
  WriteFile(planted, file);
  ExpectCheck(planted, 3, "aspect: the container says samples of 1:1, the avcC 16:11");
}

TEST(CheckTruth, HdrThatOnlyTheStreamTellsIsANote) {
  const std::string clip = MediaFile(
      "truth_pq.mp4",
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.4 -pix_fmt yuv420p10le -c:v libx265 "
      "-x265-params "
      "log-level=none:colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc -movflags -write_colr {out}");
  Bytes file = ReadFile(clip);
  const Bytes name = {'c', 'o', 'l', 'r'};
  const auto colr = std::search(file.begin(), file.end(), name.begin(), name.end());
  if (colr != file.end()) std::copy_n("free", 4, colr);
  const std::string planted = MediaPath("truth_pq_planted.mp4");
  WriteFile(planted, file);
  ExpectCheck(planted, 0, "note: colour: transfer: the container says nothing, the hvcC PQ");
  const CommandResult json = Qlnmedia("check --json '" + planted + "'");
  EXPECT_EQ(json.exitCode, 0);
  EXPECT_EQ(nlohmann::json::parse(json.output)["findings"][0]["severity"], "note");
}

TEST(CheckTruth, EncryptedPicturesAreNamedAndNotJudged) {
  const std::string clip =
      MediaFile("truth_encrypted.mp4", std::string(kPictures) +
                                           "-c:v libx264 -encryption_scheme cenc-aes-ctr -encryption_key "
                                           "00112233445566778899aabbccddeeff -encryption_kid "
                                           "0123456789abcdef0123456789abcdef {out}");
  const CommandResult result = Qlnmedia("check '" + clip + "'");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output,
            "stream 0: note: encryption: the samples are encrypted: what is in them is not judged\n");
}

TEST(CheckTruth, MediaDataThatLeadsPastTheFile) {
  const std::string clip =
      MediaFile("truth_mdat.mp4", std::string(kPictures) + "-c:v libx264 -movflags +faststart {out}");
  Bytes file = ReadFile(clip);
  file[FindBox(file, {"mdat"}) + 1] = 1;  // 65536 bytes more
  const std::string planted = MediaPath("truth_mdat_planted.mp4");
  WriteFile(planted, file);
  ExpectCheck(planted, 3, "damage: the file ends early: its media data (mdat) has ");
}

TEST(CheckTruth, ABoxOfAWrongSizeIsNamed) {
  const std::string clip = MediaFile("truth_box.mp4", std::string(kPictures) + "-c:v libx264 {out}");
  Bytes file = ReadFile(clip);
  const size_t box = FindBox(file, {"free"});
  file[box] = 0x7F;
  const std::string planted = MediaPath("truth_box_planted.mp4");
  WriteFile(planted, file);
  ExpectCheck(planted, 1,
              "the box \"free\" at byte " + std::to_string(box) + " says a size of 2130706440 bytes");
}

TEST(CheckTruth, DelimitersBehindTheEndOfASequence) {
  for (const bool hevc : {false, true}) {
    const std::string ending = hevc ? "hevc" : "h264";
    const std::string raw =
        MediaFile("truth_end." + ending,
                  std::string(kPictures) +
                      (hevc ? "-c:v libx265 -x265-params keyint=5:aud=1:repeat-headers=1:log-level=none {out}"
                            : "-c:v libx264 -g 5 -x264-params aud=1 {out}"));
    const Bytes end = hevc ? Hex("00000001 4801") : Hex("00000001 0A");
    const Bytes rpu = Hex("00000001 7C01 1908 80");
    Bytes sound;
    Bytes wrong;
    for (const Bytes& unit : SplitByteStream(ReadFile(raw))) {
      const int type = hevc ? unit[0] >> 1 & 63 : unit[0] & 31;
      if (type == (hevc ? 35 : 9) && !sound.empty()) {
        sound.insert(sound.end(), end.begin(), end.end());
        wrong.insert(wrong.end(), end.begin(), end.end());
        wrong.insert(wrong.end(), rpu.begin(), rpu.end());
      }
      for (Bytes* const stream : {&sound, &wrong}) {
        const Bytes code = {0, 0, 0, 1};
        stream->insert(stream->end(), code.begin(), code.end());
        stream->insert(stream->end(), unit.begin(), unit.end());
      }
    }
    const std::string path = MediaPath("truth_end_made." + ending);
    WriteFile(path, sound);
    const CommandResult quiet = Qlnmedia("check '" + path + "'");
    EXPECT_THAT(quiet.output, testing::Not(HasSubstr("order:"))) << ending;
    if (!hevc) continue;
    WriteFile(path, wrong);
    ExpectCheck(path, 3, "order: a Dolby Vision RPU stands behind the end of its sequence");
  }
}

}  // namespace
}  // namespace qln::test
