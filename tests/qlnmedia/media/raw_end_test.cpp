// Raw streams that are cut off: shown as far as they go, with a note; whole ones of many kinds without.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "container/media_file.h"
#include "container/raw_end.h"
#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using Json = nlohmann::ordered_json;

struct Encode {
  const char* name;  // with the codec as its extension
  const char* options;
  const char* format = "yuv420p";
};

void PrintTo(const Encode& encode, std::ostream* out) { *out << encode.name; }

constexpr Encode kEncodes[] = {
    {"plain.h264", ""},
    {"fastest.h264", "-preset ultrafast"},
    {"no_b.h264", "-x264-params bframes=0"},
    {"cavlc.h264", "-x264-params cabac=0"},
    {"baseline.h264", "-profile:v baseline"},
    {"slices.h264", "-x264-params slices=4"},
    {"cavlc_slices.h264", "-x264-params slices=3:cabac=0"},
    {"small_slices.h264", "-x264-params slice-max-size=300"},
    {"open_gop.h264", "-x264-params keyint=8:open-gop=1:bframes=3"},
    {"refresh.h264", "-x264-params intra-refresh=1"},
    {"intra.h264", "-x264-params keyint=1"},
    {"mbaff.h264", "-flags +ilme+ildct -x264-params tff=1"},
    {"references.h264", "-x264-params ref=8:b-pyramid=normal:bframes=6"},
    {"temporal.h264", "-x264-params direct=temporal:bframes=5"},
    {"filler.h264", "-x264-params nal-hrd=cbr:filler=1 -b:v 800k -maxrate 800k -bufsize 400k"},
    {"coarse.h264", "-qp 51"},
    {"lossless.h264", "-qp 0"},
    {"422.h264", "", "yuv422p"},
    {"444.h264", "", "yuv444p"},
    {"10bit.h264", "", "yuv420p10le"},
    {"cavlc_references.h264", "-x264-params cabac=0:ref=6:bframes=4:b-pyramid=strict"},
    {"cavlc_444.h264", "-x264-params cabac=0", "yuv444p"},
    {"constrained.h264", "-x264-params nr=500:deadzone-inter=30:slices=2:constrained-intra=1"},
    {"mbaff_cavlc.h264", "-flags +ilme+ildct -x264-params bff=1:cabac=0"},
    {"weights.h264", "-x264-params weightp=2:bframes=2"},
    {"mbaff_fastest.h264", "-preset ultrafast -flags +ilme+ildct -x264-params tff=1:ref=3"},
    {"plain.hevc", "keyint=12"},
    {"no_b.hevc", "bframes=0"},
    {"slices.hevc", "slices=2"},
    {"wavefront.hevc", "wpp=1:pools=2"},
    {"open_gop.hevc", "open-gop=1:keyint=8:bframes=4"},
    {"layers.hevc", "temporal-layers=2:bframes=3:b-adapt=0"},
    {"hash.hevc", "hash=1"},
    {"hrd.hevc", "aud=1:repeat-headers=1:hrd=1:vbv-maxrate=500:vbv-bufsize=500"},
    {"coarse.hevc", "qp=51"},
    {"intra.hevc", "keyint=1"},
    {"fields.hevc", "interlace=tff"},
    {"lossless.hevc", "lossless=1"},
    {"references.hevc", "weightb=1:ref=6:b-pyramid=1:bframes=8"},
    {"10bit.hevc", "keyint=10", "yuv420p10le"},
    {"422.hevc", "bframes=3", "yuv422p10le"},
    {"444.hevc", "ref=4", "yuv444p"},
};

bool IsHevc(const std::string& name) { return name.ends_with(".hevc"); }

std::string File(const Encode& encode) {
  std::string options = std::string(" -c:v libx264 -threads 1 ") + encode.options;
  if (IsHevc(encode.name)) {
    options = std::string(" -c:v libx265 -x265-params log-level=none:frame-threads=1:") + encode.options;
    if (options.find("pools=") == std::string::npos) options += ":pools=1";
  }
  return MediaFile(std::string("raw-end-") + encode.name,
                   "ffmpeg -v error -y -nostdin -f lavfi -i testsrc2=s=192x112:r=25 -frames:v 16 -pix_fmt " +
                       std::string(encode.format) + options + " {out}");
}

std::string WriteCut(const Bytes& stream, size_t size, const std::string& name) {
  std::string path = MediaPath("raw-end-cut-" + name);
  WriteFile(path, Bytes(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(size)));
  return path;
}

// What is said of the first `size` bytes of a stream. Many are tried, so that no program is started for each.
std::string NotesOf(const Bytes& stream, size_t size, const std::string& name) {
  return qlnmedia::EndNote(qlnmedia::MediaFile(WriteCut(stream, size, name)));
}

// The same as the program shows it.
std::string ShownNotes(const Bytes& stream, size_t size, const std::string& name) {
  const CommandResult result = Qlnmedia("inspect --json --frames 1 '" + WriteCut(stream, size, name) + "'");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  const Json report = Json::parse(result.output, nullptr, false);
  EXPECT_EQ(report["streams"].size(), 1u);
  return report.contains("notes") ? report["notes"][0].get<std::string>() : "";
}

struct Place {
  size_t code;  // of the start code
  size_t unit;
  int type;
  bool begins;  // the first slice of a picture
};

std::vector<Place> Units(const Bytes& stream, bool hevc) {
  std::vector<Place> units;
  for (size_t i = 0; i + 6 < stream.size(); ++i) {
    if (stream[i] != 0 || stream[i + 1] != 0 || stream[i + 2] != 1) continue;
    const int type = hevc ? stream[i + 3] >> 1 & 63 : stream[i + 3] & 31;
    const bool slice = hevc ? type < 32 : type >= 1 && type <= 5;
    units.push_back({i > 0 && stream[i - 1] == 0 ? i - 1 : i, i + 3, type,
                     slice && (stream[i + (hevc ? 5 : 4)] & 0x80) != 0});
  }
  return units;
}

class RawEnd : public testing::TestWithParam<Encode> {
 protected:
  RawEnd()
      : name_(GetParam().name), stream_(ReadFile(File(GetParam()))), units_(Units(stream_, IsHevc(name_))) {}

  std::string Notes(size_t size) { return NotesOf(stream_, size, name_); }

  struct Picture {
    size_t begin;      // its first slice's start code
    size_t slicesEnd;  // behind its last slice
    size_t end;        // what begins the next picture: the stream is whole up to there
  };

  // All pictures but the last.
  std::vector<Picture> Pictures() const {
    const bool hevc = IsHevc(name_);
    std::vector<Picture> pictures;
    bool inside = false;
    for (size_t i = 0; i < units_.size(); ++i) {
      const Place& unit = units_[i];
      const bool opens =
          hevc ? (unit.type >= 32 && unit.type <= 35) || unit.type == 39 : unit.type >= 6 && unit.type <= 9;
      if (inside && (opens || unit.begins)) {
        pictures.back().end = unit.code;
        inside = false;
      }
      if (unit.begins) {
        pictures.push_back({unit.code, 0, 0});
        inside = true;
      }
      const bool slice = hevc ? unit.type < 32 : unit.type <= 5;
      if (slice && i + 1 < units_.size()) pictures.back().slicesEnd = units_[i + 1].code;
    }
    pictures.pop_back();
    return pictures;
  }

  std::string name_;
  Bytes stream_;
  std::vector<Place> units_;
};

TEST_P(RawEnd, WholeStreamsHaveNoNote) {
  EXPECT_EQ(Notes(stream_.size()), "");
  const std::vector<Picture> pictures = Pictures();
  ASSERT_GE(pictures.size(), 10u);
  for (const size_t pick : {size_t{0}, pictures.size() / 3, pictures.size() / 2, pictures.size() - 1})
    EXPECT_EQ(Notes(pictures[pick].end), "") << "at byte " << pictures[pick].end;
}

TEST_P(RawEnd, CutsInsideAPictureHaveANote) {
  const std::vector<Picture> pictures = Pictures();
  ASSERT_GE(pictures.size(), 10u);
  for (const size_t pick : {size_t{1}, pictures.size() / 2, pictures.size() - 1}) {
    const size_t from = pictures[pick].begin;
    const size_t end = pictures[pick].slicesEnd;
    // A few bytes at the end of a slice can be such that its samples do not need them.
    for (const size_t size : {from + 8, from + (end - from) / 3, from + (end - from) * 2 / 3, end - 14}) {
      if (size > end - 14 || size < from + 8) continue;
      EXPECT_THAT(Notes(size), HasSubstr("the file ends early")) << from << " to " << end << " at " << size;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Encodes, RawEnd, testing::ValuesIn(kEncodes), [](const auto& instance) {
  std::string name = instance.param.name;
  for (char& c : name) c = c == '.' ? '_' : c;
  return name;
});

TEST(RawEndUnits, CutsInParameterSetsAndSeiSayWhichUnit) {
  const struct {
    Encode encode;
    int type;
    const char* says;
  } kCases[] = {
      {{"headers.h264", "-x264-params keyint=4"}, 7, "SPS"},
      {{"headers.h264", "-x264-params keyint=4"}, 8, "PPS"},
      {{"timing.h264", "-x264-params nal-hrd=vbr:keyint=4 -b:v 300k -maxrate 300k -bufsize 300k"}, 6, "SEI"},
      {{"headers.hevc", "keyint=4:repeat-headers=1:aud=1"}, 32, "VPS"},
      {{"headers.hevc", "keyint=4:repeat-headers=1:aud=1"}, 33, "SPS"},
      {{"headers.hevc", "keyint=4:repeat-headers=1:aud=1"}, 34, "PPS"},
      {{"headers.hevc", "keyint=4:repeat-headers=1:aud=1"}, 35, "access unit delimiter"},
      {{"hash.hevc", "hash=1"}, 40, "suffix SEI"}};
  for (const auto& expected : kCases) {
    SCOPED_TRACE(expected.says);
    const Bytes stream = ReadFile(File(expected.encode));
    const std::vector<Place> units = Units(stream, IsHevc(expected.encode.name));
    Place last{};
    size_t end = stream.size();
    for (size_t i = 0; i < units.size(); ++i) {
      if (units[i].type != expected.type) continue;
      last = units[i];
      end = i + 1 < units.size() ? units[i + 1].code : stream.size();
    }
    ASSERT_NE(end, 0u);
    for (size_t size = last.unit + (IsHevc(expected.encode.name) ? 2 : 1); size < end; ++size) {
      if (stream[size - 1] == 0) continue;  // that byte and those in front of it count as trailing zeros
      if (expected.type == 40 && size + 1 == end) continue;  // without its trailing bits alone
      EXPECT_THAT(NotesOf(stream, size, expected.encode.name), HasSubstr(expected.says)) << size;
    }
  }
}

TEST(RawEndUnits, ABareStartCodeIsToldOf) {
  for (const Encode& encode : {Encode{"plain.h264", ""}, Encode{"plain.hevc", "keyint=12"}}) {
    Bytes stream = ReadFile(File(encode));
    const std::vector<Place> units = Units(stream, IsHevc(encode.name));
    EXPECT_THAT(NotesOf(stream, units.back().unit, encode.name), HasSubstr("behind its last start code"));
    // Zero bytes at the end belong to no unit.
    stream.resize(stream.size() + 5);
    EXPECT_EQ(NotesOf(stream, stream.size(), encode.name), "");
  }
}

// The unit that a half picture is followed by may stand at the end of a stream, and hides nothing.
TEST(RawEndUnits, AnUnspecifiedUnitBehindACut) {
  const Bytes stream = ReadFile(File({"plain.hevc", "keyint=12"}));
  const std::vector<Place> units = Units(stream, true);
  const Place& last = units.back();
  ASSERT_TRUE(last.begins);
  for (const int type : {62, 63}) {
    const Bytes behind = {0, 0, 0, 1, static_cast<uint8_t>(type << 1), 1, 0x55};
    Bytes cut(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>((last.code + stream.size()) / 2));
    cut.insert(cut.end(), behind.begin(), behind.end());
    EXPECT_THAT(NotesOf(cut, cut.size(), "unspecified.hevc"), HasSubstr("last picture is cut off"));
    Bytes whole = stream;
    whole.insert(whole.end(), behind.begin(), behind.end());
    EXPECT_EQ(NotesOf(whole, whole.size(), "unspecified.hevc"), "");
  }
}

// Behind gaps in frame_num the decoder makes references up, and order counts no longer follow each other.
TEST(RawEndUnits, LastPicturesBehindLostOnes) {
  for (const Encode& encode :
       {Encode{"no_b.h264", "-x264-params bframes=0"}, Encode{"cavlc.h264", "-x264-params cabac=0"},
        Encode{"mbaff_fastest.h264", "-preset ultrafast -flags +ilme+ildct -x264-params tff=1:ref=3"}}) {
    const Bytes stream = ReadFile(File(encode));
    // Where pictures begin, with what stands in front of their slices.
    std::vector<size_t> begins;
    bool behindSlice = true;
    for (const Place& unit : Units(stream, false)) {
      if (behindSlice) begins.push_back(unit.code);
      behindSlice = unit.type == 1 || unit.type == 5;
    }
    ASSERT_GT(begins.size(), 9u);
    Bytes left(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(begins[3]));
    left.insert(left.end(), stream.begin() + static_cast<std::ptrdiff_t>(begins[6]),
                stream.begin() + static_cast<std::ptrdiff_t>(begins[8]));
    EXPECT_EQ(NotesOf(left, left.size(), encode.name), "") << encode.name;
    left.resize(left.size() - (begins[8] - begins[7]) / 2);
    EXPECT_THAT(NotesOf(left, left.size(), encode.name), HasSubstr("last picture is cut off")) << encode.name;
  }
}

TEST(RawEndUnits, AStreamOfOnePicture) {
  for (const Encode& encode : {Encode{"plain.h264", ""}, Encode{"plain.hevc", "keyint=12"}}) {
    const Bytes stream = ReadFile(File(encode));
    std::vector<size_t> begins;
    for (const Place& unit : Units(stream, IsHevc(encode.name))) {
      if (unit.begins) begins.push_back(unit.code);
    }
    ASSERT_GE(begins.size(), 2u);
    EXPECT_EQ(ShownNotes(stream, begins[1], encode.name), "");
    EXPECT_THAT(ShownNotes(stream, begins[0] + (begins[1] - begins[0]) / 2, encode.name),
                HasSubstr("last picture is cut off"));
  }
}

}  // namespace
}  // namespace qln::test
