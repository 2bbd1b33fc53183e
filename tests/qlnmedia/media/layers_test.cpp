// Streams of two HEVC layers, as a stereo recording has them, whose writers give each layer a packet of its
// own: the higher layer's completes the picture in front of it, and is none itself.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "qlnmedia/media/carried.h"
#include "units/access_unit.h"
#include "units/unit_types.h"

namespace qln::test {
namespace {

using qlnmedia::Codec;
using qlnmedia::Unit;
using testing::HasSubstr;

constexpr qlnmedia::Framing kStartCodes{};

std::vector<Unit> UnitsOf(const std::string& path) {
  return qlnmedia::TakeApart(ReadFile(path), kStartCodes).units;
}

int TypeOf(const Unit& unit) { return qlnmedia::UnitType(Codec::kHevc, unit.bytes); }
bool IsSlice(const Unit& unit) { return qlnmedia::IsSlice(Codec::kHevc, TypeOf(unit)); }
bool IsBase(const Unit& unit) { return qlnmedia::IsBaseLayer(Codec::kHevc, unit.bytes); }

// Each slice and each set of pictures and sequences once more, as a unit of layer 1 (ITU-T H.265 clause
// 7.3.1.2: nuh_layer_id stands in front of the last three bits of the header).
std::string Layered() {
  const std::string one = MediaFile(
      "one_layer.265",
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=96x64:d=0.5:r=24 -c:v libx265 -preset ultrafast "
      "-x265-params log-level=none:keyint=6:bframes=2:pools=1:frame-threads=1 -pix_fmt yuv420p {out}");
  std::vector<Unit> both;
  for (const Unit& unit : UnitsOf(one)) {
    both.push_back(unit);
    const int type = TypeOf(unit);
    if (!IsSlice(unit) && type != qlnmedia::hevc::kSps && type != qlnmedia::hevc::kPps) continue;
    both.push_back(unit);
    both.back().bytes[1] |= 1 << 3;
  }
  std::string path = MediaPath("layers.265");
  qlnmedia::UnitRun run;
  run.units = std::move(both);
  WriteFile(path, qlnmedia::PutTogether(run, kStartCodes));
  return path;
}

// In MP4 by libavformat, which splits the layers.
std::string Muxed(const std::string& raw) {
  std::string path = MediaPath("layers.mp4");
  EXPECT_EQ(qln::test::Run("ffmpeg -v quiet -y -r 24 -i '" + raw + "' -c copy '" + path + "'").exitCode, 0);
  return path;
}

// What no patch here changes.
std::vector<Bytes> Kept(const std::vector<Unit>& units) {
  std::vector<Bytes> kept;
  for (const Unit& unit : units) {
    if (IsSlice(unit) || TypeOf(unit) == qlnmedia::hevc::kPps) kept.push_back(unit.bytes);
  }
  return kept;
}

size_t Count(const std::vector<Unit>& units, bool (*holds)(const Unit&)) {
  return static_cast<size_t>(std::count_if(units.begin(), units.end(), holds));
}

bool IsBaseSlice(const Unit& unit) { return IsSlice(unit) && IsBase(unit); }

TEST(Layers, AreNoFindings) {
  const std::string raw = Layered();
  ASSERT_EQ(Count(UnitsOf(raw), IsBaseSlice), 12u);
  EXPECT_EQ(Qlnmedia("check '" + raw + "'").output, "nothing found\n");
  const std::string muxed = Muxed(raw);
  EXPECT_GT(std::stoi(Text("ffprobe -v quiet -count_packets -show_entries stream=nb_read_packets -of "
                           "default=nw=1:nk=1 '" +
                           muxed + "'")),
            12);
  EXPECT_EQ(Qlnmedia("check '" + muxed + "'").output, "nothing found\n");
}

// A picture gets one of what is asked for, in front of its base layer.
TEST(Layers, PicturesArePatchedOnce) {
  const std::string raw = Layered();
  const std::vector<Unit> before = UnitsOf(raw);
  struct Case {
    const char* options;
    const char* said;
    bool (*added)(const Unit&);
    size_t more;
  };
  const auto isDelimiter = [](const Unit& unit) { return TypeOf(unit) == qlnmedia::hevc::kDelimiter; };
  const auto isSei = [](const Unit& unit) { return TypeOf(unit) == qlnmedia::hevc::kPrefixSei; };
  for (const Case& test : {Case{"--delimiters", "12 delimiters put in", isDelimiter, 12},
                           Case{"--timecode 01:00:00:00", "12 pictures got their timecode", isSei, 12},
                           Case{"--colour bt2020-pq --hdr bt2020 --light-level 1000,400", "", isSei, 0},
                           Case{"--colour bt709", "sequence parameter sets", isDelimiter, 0}}) {
    const std::string out = MediaPath("layers_patched.265");
    const CommandResult result = Qlnmedia("patch --verify '" + raw + "' '" + out + "' " + test.options);
    ASSERT_EQ(result.exitCode, 0) << test.options << "\n" << result.output;
    EXPECT_THAT(result.output, HasSubstr(test.said));
    const std::vector<Unit> after = UnitsOf(out);
    if (test.more != 0) {
      EXPECT_EQ(Count(after, test.added), Count(before, test.added) + test.more);
    }
    EXPECT_EQ(Kept(after), Kept(before)) << test.options;
    // Whatever came in stands in front of a slice of the base layer.
    for (size_t i = 0; i + 1 < after.size(); ++i) {
      if (IsBaseSlice(after[i])) {
        EXPECT_FALSE(IsBase(after[i + 1])) << test.options << " " << i;
      }
    }
    EXPECT_EQ(Qlnmedia("check '" + out + "'").output, "nothing found\n") << test.options;
  }
}

TEST(Layers, TimecodesAndCaptionsCountPictures) {
  const std::string muxed = Muxed(Layered());
  const std::string out = MediaPath("layers_patched.mp4");
  CommandResult result = Qlnmedia("patch --verify '" + muxed + "' '" + out + "' --timecode 01:00:00:00");
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_THAT(result.output, HasSubstr("12 pictures got their timecode"));
  const std::string scc = MediaPath("layers.scc");
  const std::string text = "Scenarist_SCC V1.0\n\n00:00:00:00\t9420 9420\n\n";
  WriteFile(scc, Bytes(text.begin(), text.end()));
  result = Qlnmedia("patch --verify '" + muxed + "' '" + out + "' --captions '" + scc + "' --rate 24");
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_THAT(result.output, HasSubstr("captions put into 12 pictures"));
}

// Two views in each picture: the container says so by an element whose display size is that of the picture,
// the stream by a message.
TEST(Views, InOnePicture) {
  const std::string in = MediaFile(
      "views.mkv",
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=96x64:d=0.3:r=24 -c:v libx264 -x264-params frame-packing=3 "
      "-preset ultrafast -pix_fmt yuv420p -metadata:s:v stereo_mode=left_right {out}");
  const auto report = nlohmann::json::parse(Qlnmedia("inspect --json '" + in + "'").output);
  EXPECT_EQ(report["streams"][0]["stereo"], "side by side");
  EXPECT_EQ(report["streams"][0]["frame_packing"], "side by side");
  EXPECT_EQ(Qlnmedia("check '" + in + "'").output, "nothing found\n");
}

}  // namespace
}  // namespace qln::test
