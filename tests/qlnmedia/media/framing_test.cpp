// patch on streams that are framed in ways encoders seldom choose: short length fields, three-byte start
// codes, zeros behind units.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "qlnmedia/media/byte_facts.h"
#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/media/remake.h"
#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using testing::HasSubstr;

struct Coder {
  const char* name;
  const char* options;
  int seiType;
  int spsType;
};

const Coder kAvc = {"h264", "-c:v libx264 -threads 1 -crf 51", 6, 7};
const Coder kHevc = {"hevc", "-c:v libx265 -x265-params crf=51:info=0:pools=1:frame-threads=1:log-level=none",
                     39, 33};

int TypeOf(const Coder& coder, uint8_t header) { return coder.spsType == 7 ? header & 31 : header >> 1 & 63; }

// Pictures so small that every unit is below 256 bytes; without the encoder's long message.
std::string SmallPictures(const Coder& coder) {
  return MediaFile(
      std::string("framing_small_") + coder.name + ".mp4",
      std::string("ffmpeg -v error -y -f lavfi -i testsrc2=s=64x64:r=25:d=0.6 -pix_fmt yuv420p ") +
          coder.options + " -bsf:v filter_units=remove_types=" + std::to_string(coder.seiType) + " {out}");
}

class ShortLengths : public testing::TestWithParam<std::tuple<Coder, const char*, int>> {};

TEST_P(ShortLengths, StayAsTheyAre) {
  const auto& [coder, container, lengthBytes] = GetParam();
  const std::string name =
      std::string("framing_") + coder.name + "_" + std::to_string(lengthBytes) + "." + container;
  const std::string in = MediaPath(name);
  Remake remake;
  remake.lengthBytes = lengthBytes;
  RemakeFile(SmallPictures(coder), in, remake);
  const std::string out = MediaPath("patched_" + name);
  const CommandResult patch = Qlnmedia("patch --verify '" + in + "' '" + out +
                                       "' --colour bt2020-pq --full-range --hdr p3 --light-level 900,90 "
                                       "--timecode 01:00:00:00");
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  const std::string info = Text("'" QLNMEDIA_PROGRAM "' inspect --json '" + out + "'");
  EXPECT_THAT(info, HasSubstr("\"length_bytes\": " + std::to_string(lengthBytes)));
  EXPECT_EQ(Decoded(out), Decoded(SmallPictures(coder)));
  EXPECT_EQ(Times(out), Times(in));
  EXPECT_EQ(Stream(out, "color_transfer,color_range"), "color_range=pc\ncolor_transfer=smpte2084\n");
  EXPECT_THAT(Text("ffprobe -v error -show_frames '" + out + "'"), HasSubstr("01:00:00"));
  EXPECT_EQ(Qlnmedia("check '" + out + "'").output, "nothing found\n");
}

INSTANTIATE_TEST_SUITE_P(All, ShortLengths,
                         testing::Combine(testing::Values(kAvc, kHevc), testing::Values("mp4", "mov", "mkv"),
                                          testing::Values(1, 2)),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).name) + "_" + std::get<1>(test.param) +
                                  "_" + std::to_string(std::get<2>(test.param));
                         });

TEST(Framing, AUnitThatOutgrowsItsLengthFieldIsRefused) {
  // A message of 243 bytes and a timing message of none beside it: with its clock the unit passes 255 bytes.
  Bytes sei = {6, 5, 243};
  sei.insert(sei.end(), 243, 0xAA);
  for (const uint8_t byte : Hex("01 01 04 80")) sei.push_back(byte);
  const std::string in = MediaPath("framing_outgrown.mp4");
  const std::string picStruct =
      MediaFile("framing_pic_struct.mp4",
                std::string("ffmpeg -v error -y -f lavfi -i testsrc2=s=64x64:r=25:d=0.2 -pix_fmt yuv420p ") +
                    kAvc.options + " -x264-params pic-struct=1 -bsf:v filter_units=remove_types=6 {out}");
  Remake remake;
  remake.lengthBytes = 1;
  remake.units = [&sei](std::vector<Bytes>& units, int) { units.insert(units.begin(), sei); };
  RemakeFile(picStruct, in, remake);
  const std::string out = MediaPath("framing_outgrown_out.mp4");
  std::filesystem::remove(out);
  const CommandResult result = Qlnmedia("patch '" + in + "' '" + out + "' --timecode 01:00:00:00");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output, HasSubstr("does not fit its 1-byte length field"));
  EXPECT_FALSE(std::filesystem::exists(out));
}

// The encoder's byte stream with short start codes at every third unit and zeros behind every second one.
Bytes Unusual(const Bytes& stream) {
  Bytes unusual;
  int count = 0;
  for (const Bytes& unit : SplitByteStream(stream)) {
    const Bytes framed = WithStartCode(unit, count % 3 == 1 ? 3 : 4);
    unusual.insert(unusual.end(), framed.begin(), framed.end());
    if (count % 2 == 1) unusual.insert(unusual.end(), static_cast<size_t>(count % 5), uint8_t{0});
    ++count;
  }
  return unusual;
}

class StartCodes : public testing::TestWithParam<std::tuple<Coder, const char*>> {};

// With the same number of bits in every SPS, nothing but their bytes may differ.
TEST_P(StartCodes, AndZerosOfOtherUnitsStayAsTheyAre) {
  const auto& [coder, container] = GetParam();
  const bool raw = std::string(container) == "raw";
  const std::string encoder =
      coder.spsType == 7 ? "-c:v libx264 -threads 1 -g 5 -bf 0 -x264-params slices=2:aud=1"
                         : "-c:v libx265 -x265-params "
                           "keyint=5:bframes=0:aud=1:repeat-headers=1:pools=1:frame-threads=1:log-level=none";
  const std::string clip = MediaFile(
      std::string("framing_codes.") + coder.name,
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.6 -pix_fmt yuv420p -color_primaries 1 "
      "-color_trc 1 -colorspace 1 -color_range tv " +
          encoder + " {out}");
  const std::string unusual = MediaPath(std::string("framing_unusual.") + coder.name);
  WriteFile(unusual, Unusual(ReadFile(clip)));
  std::string in = unusual;
  if (!raw) {
    in = MediaPath(std::string("framing_unusual_") + coder.name + ".ts");
    Text("ffmpeg -v error -y -fflags +genpts -i '" + unusual + "' -c copy '" + in + "'");
  }
  const std::string out =
      MediaPath(std::string("framing_unusual_out_") + coder.name + "." + (raw ? coder.name : "ts"));
  const CommandResult patch = Qlnmedia("patch --verify '" + in + "' '" + out + "' --colour 9:16:9");
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  const std::vector<Bytes> before = StartCodePieces(raw ? ReadFile(in) : CodedBytes(in));
  const std::vector<Bytes> after = StartCodePieces(raw ? ReadFile(out) : CodedBytes(out));
  ASSERT_EQ(before.size(), after.size());
  int sets = 0;
  int shortCodes = 0;
  for (size_t i = 0; i < before.size(); ++i) {
    ASSERT_EQ(before[i].size(), after[i].size()) << i;
    shortCodes += i > 0 && before[i - 1].back() != 0 ? 1 : 0;
    if (before[i].size() > 3 && TypeOf(coder, before[i][3]) == coder.spsType) {
      EXPECT_NE(before[i], after[i]);
      ++sets;
    } else {
      EXPECT_EQ(before[i], after[i]) << i;
    }
  }
  EXPECT_EQ(sets, 3);
  EXPECT_GT(shortCodes, 5);
}

INSTANTIATE_TEST_SUITE_P(All, StartCodes,
                         testing::Combine(testing::Values(kAvc, kHevc), testing::Values("raw", "ts")),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).name) + "_" + std::get<1>(test.param);
                         });

// One length in front of all units of a frame, start codes between them, as some phones write it.
TEST(JoinedUnits, AreReadAndStayJoined) {
  const std::string plain =
      MediaFile("framing_slices.mp4",
                "ffmpeg -v error -y -f lavfi -i testsrc2=s=96x80:r=25:d=0.4 -c:v libx264 -threads 1 -preset "
                "ultrafast -x264-params slices=3 {out}");
  const std::string in = MediaPath("framing_joined.mp4");
  Remake remake;
  remake.units = [](std::vector<Bytes>& units, int) {
    Bytes all = units[0];
    for (size_t i = 1; i < units.size(); ++i) {
      all.insert(all.end(), {0, 0, 0, 1});
      all.insert(all.end(), units[i].begin(), units[i].end());
    }
    units = {all};
  };
  RemakeFile(plain, in, remake);
  EXPECT_THAT(Qlnmedia("check '" + in + "'").output,
              HasSubstr("damage: one length covers several units with start codes between them (10 times)"));
  const std::string shown = Text("'" QLNMEDIA_PROGRAM "' inspect --json --frames 2 '" + in + "'");
  EXPECT_THAT(shown, HasSubstr("\"unit_count\": 3"));
  EXPECT_THAT(shown, HasSubstr("one length covers several units"));
  const std::string same = MediaPath("framing_joined_same.mp4");
  ASSERT_EQ(Qlnmedia("patch --verify '" + in + "' '" + same + "' --recovery-points").exitCode, 0);
  EXPECT_EQ(ReadFile(same), ReadFile(in));
  const std::string out = MediaPath("framing_joined_out.mp4");
  const CommandResult patch =
      Qlnmedia("patch --verify '" + in + "' '" + out + "' --timecode 01:00:00:00 --delimiters");
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  EXPECT_THAT(patch.output, HasSubstr("10 pictures got their timecode"));
  EXPECT_EQ(Decoded(out), Decoded(plain));
  EXPECT_THAT(Timecodes(out), HasSubstr("01:00:00:09"));
}

}  // namespace
}  // namespace qln::test
