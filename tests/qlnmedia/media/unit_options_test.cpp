// patch --delimiters and --recovery-points end to end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/media/unit_options.h"
#include "qlnmedia/patch_kinds.h"
#include "units/access_unit.h"
#include "units/units.h"

namespace qln::test {
namespace {

using namespace patching;
using testing::HasSubstr;
using testing::Not;

// True for an HEVC picture that is an entry by itself, all of whose slices are intra.
bool IsEntry(const std::vector<TracedUnit>& packet) {
  return std::any_of(packet.begin(), packet.end(), [](const TracedUnit& unit) {
    return IsSlice(unit) && unit.value("nal_unit_type") >= 16;
  });
}

// The number that the standards' tables give the slice types of a picture.
int64_t PictureType(const std::vector<TracedUnit>& packet, bool hevc, int* slices) {
  bool p = false;
  bool b = false;
  *slices = 0;
  for (const TracedUnit& unit : packet) {
    if (!IsSlice(unit)) continue;
    ++*slices;
    const int64_t type = unit.value("slice_type") % 5;
    p = p || type == (hevc ? 1 : 0);
    b = b || type == (hevc ? 0 : 1);
  }
  return b ? 2 : p ? 1 : 0;
}

class DelimitersEverywhere : public testing::TestWithParam<std::tuple<Kind, const char*>> {};

TEST_P(DelimitersEverywhere, EveryPictureBeginsWithOne) {
  const auto& [kind, container] = GetParam();
  const bool hevc = std::string(kind.codec) == "hevc";
  const std::string in = Source(kind, container);
  const std::string out = Patched(std::string("aud_") + kind.name + "." + Extension(kind, container));
  const CommandResult patch = Qlnmedia("patch --verify '" + in + "' '" + out + "' --delimiters");
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  ExpectSound(in, out, " --delimiters", kind, container);
  if (std::string(container) != "raw") {
    EXPECT_EQ(Times(out), Times(in));
  }
  const auto before = Packets(in);
  const auto after = Packets(out);
  ASSERT_EQ(after.size(), before.size());
  int added = 0;
  for (size_t i = 0; i < after.size(); ++i) {
    int slices = 0;
    const int64_t type = PictureType(after[i], hevc, &slices);
    if (slices == 0) continue;
    ASSERT_GT(after[i].size(), 1u);
    ASSERT_EQ(after[i][1].heading, "Access Unit Delimiter") << i;
    EXPECT_EQ(std::count_if(after[i].begin(), after[i].end(),
                            [](const TracedUnit& unit) { return unit.heading == "Access Unit Delimiter"; }),
              1);
    const bool had = before[i][1].heading == "Access Unit Delimiter";
    if (had) continue;
    ++added;
    const int64_t said = after[i][1].value(hevc ? "pic_type" : "primary_pic_type");
    if (hevc && slices > 1 && !IsEntry(after[i])) {
      EXPECT_EQ(said, 2);
    } else {
      EXPECT_EQ(said, type) << i;
    }
  }
  // Transport streams come with them out of this muxer.
  if (std::string(container) == "ts" || std::string(kind.name) == "hevc10_open") {
    EXPECT_EQ(added, 0);
    EXPECT_THAT(patch.output, HasSubstr("nothing to change"));
  } else {
    EXPECT_EQ(added, 15 * (std::string(kind.name) == "hevc_fields" ? 2 : 1));
    EXPECT_THAT(patch.output, HasSubstr(std::to_string(added) + " delimiters put in"));
  }
}

// Every kind as a raw stream, and in all containers those whose slices differ.
std::vector<std::tuple<Kind, const char*>> DelimiterCases() {
  std::vector<std::tuple<Kind, const char*>> cases;
  for (const auto& [kind, container] : CasesWithFields()) {
    const std::string name = kind.name;
    if (std::string(container) == "raw" || name == "avc8" || name == "avc8_slices" || name == "hevc8" ||
        name == "hevc_slices" || name == "hevc_fields")
      cases.emplace_back(kind, container);
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(All, DelimitersEverywhere, testing::ValuesIn(DelimiterCases()), kCaseName);

// An encoder's open groups of pictures, with and without its own recovery points.
const Kind kWithPoints = {"points", "h264",
                          "-c:v libx264 -threads 1 -pix_fmt yuv420p -x264-params "
                          "open-gop=1:keyint=5:bframes=2:scenecut=0"};
const Kind kWithoutPoints = {"nopoints", "h264",
                             "-c:v libx264 -threads 1 -pix_fmt yuv420p -x264-params "
                             "open-gop=1:keyint=5:bframes=2:scenecut=0 -bsf:v filter_units=remove_types=6"};

// For each picture, in coding order: whether it has a recovery point.
std::string Points(const std::string& file) {
  std::string text;
  for (const std::vector<TracedUnit>& packet : Packets(file)) {
    const TracedUnit* point = nullptr;
    const TracedUnit* slice = nullptr;
    for (const TracedUnit& unit : packet) {
      if (unit.heading == "Recovery Point") point = &unit;
      if (IsSlice(unit) && slice == nullptr) slice = &unit;
    }
    if (slice == nullptr) continue;
    text += point == nullptr ? '-' : 'R';
    if (point == nullptr) continue;
    EXPECT_EQ(point->value("recovery_frame_cnt", point->value("recovery_poc_cnt")), 0);
    EXPECT_EQ(point->value("broken_link_flag"), 0);
  }
  return text;
}

class RecoveryPointsEverywhere : public testing::TestWithParam<const char*> {};

TEST_P(RecoveryPointsEverywhere, GoWhereTheEncoderHadThem) {
  const std::string container = GetParam();
  const std::string in = Source(kWithoutPoints, container);
  const std::string expected = Points(Source(kWithPoints, container));
  EXPECT_EQ(expected.size(), 15u);
  EXPECT_EQ(std::count(expected.begin(), expected.end(), 'R'), 2);
  EXPECT_THAT(Points(in), Not(HasSubstr("R")));
  const std::string out = Patched("points." + Extension(kWithoutPoints, container));
  const CommandResult patch = Qlnmedia("patch --verify '" + in + "' '" + out + "' --recovery-points");
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  EXPECT_THAT(patch.output, HasSubstr("2 recovery points put in"));
  EXPECT_EQ(Points(out), expected);
  ExpectSound(in, out, " --recovery-points", kWithoutPoints, container);
  // Those that are there stay alone.
  const std::string same = Patched("points_same." + Extension(kWithPoints, container));
  const CommandResult nothing =
      Qlnmedia("patch '" + Source(kWithPoints, container) + "' '" + same + "' --recovery-points");
  EXPECT_EQ(nothing.exitCode, 0);
  EXPECT_THAT(nothing.output, HasSubstr("nothing to change"));
}

TEST_P(RecoveryPointsEverywhere, GoToCraPictures) {
  const std::string container = GetParam();
  const Kind kind = {"cra", "hevc",
                     "-c:v libx265 -pix_fmt yuv420p -x265-params "
                     "keyint=5:min-keyint=5:open-gop=1:bframes=2:scenecut=0:repeat-headers=1:pools=1:"
                     "frame-threads=1:log-level=none"};
  const std::string in = Source(kind, container);
  EXPECT_THAT(Points(in), Not(HasSubstr("R")));
  std::string expected;
  for (const std::vector<TracedUnit>& packet : Packets(in)) {
    for (const TracedUnit& unit : packet) {
      if (!IsSlice(unit)) continue;
      expected += unit.value("nal_unit_type") == 21 ? 'R' : '-';
      break;
    }
  }
  EXPECT_THAT(expected, HasSubstr("R"));
  const std::string out = Patched("cra." + Extension(kind, container));
  const CommandResult patch = Qlnmedia("patch --verify '" + in + "' '" + out + "' --recovery-points");
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  EXPECT_EQ(Points(out), expected);
  ExpectSound(in, out, " --recovery-points", kind, container);
}

TEST_P(RecoveryPointsEverywhere, StandTogetherWithEverythingElse) {
  const std::string container = GetParam();
  const std::string in = Source(kWithoutPoints, container);
  const std::string out = Patched("all." + Extension(kWithoutPoints, container));
  const std::string options =
      " --recovery-points --delimiters --colour bt2020-pq --hdr p3 --light-level 1000,400 --timecode "
      "01:00:00:00";
  const CommandResult patch = Qlnmedia("patch --verify '" + in + "' '" + out + "'" + options);
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  EXPECT_EQ(Points(out), Points(Source(kWithPoints, container)));
  ExpectSound(in, out, options, kWithoutPoints, container);
}

INSTANTIATE_TEST_SUITE_P(All, RecoveryPointsEverywhere, testing::ValuesIn(kContainers),
                         [](const auto& test) { return std::string(test.param); });

TEST(RecoveryPoints, IntraPicturesOfWhichNothingIsKnownAreLeftAlone) {
  // Intra pictures inside a group: what follows refers to what stands in front of them.
  const std::string raw = MediaFile(
      "patch_cuts.h264",
      "printf '4 i -1\\n8 i -1\\n' > {out}.types && ffmpeg -v error -f lavfi -i testsrc2=s=128x96:r=25:d=0.6 "
      "-pix_fmt yuv420p -f yuv4mpegpipe - | x264 --quiet --no-progress --threads 1 --demuxer y4m --qpfile "
      "{out}.types --keyint 100 --bframes 0 --scenecut 0 -o {out} - && rm {out}.types");
  const std::string boxed =
      MediaFile("patch_cuts.mp4", "ffmpeg -v error -y -fflags +genpts -r 25 -i '" + raw + "' -c copy {out}");
  for (const std::string& in : {raw, boxed}) {
    const std::string out = Patched("cuts" + std::filesystem::path(in).extension().string());
    const CommandResult patch = Qlnmedia("patch '" + in + "' '" + out + "' --recovery-points");
    ASSERT_EQ(patch.exitCode, 0) << patch.output;
    EXPECT_THAT(patch.output, HasSubstr("2 intra pictures left alone, since nothing says that decoding can "
                                        "start there"));
    EXPECT_EQ(Points(out), "---------------");
  }
}

TEST(RecoveryPoints, MarksOfTheContainerStayWhenSomethingElseIsPatched) {
  for (const char* container : {"mp4", "mov", "mkv"}) {
    const std::string in = Source(kWithoutPoints, container);
    const std::string tagged = Patched(std::string("marks_tagged.") + container);
    ASSERT_EQ(Qlnmedia("patch '" + in + "' '" + tagged + "' --colour bt709").exitCode, 0);
    const auto marks = [](const std::string& file) {
      return Text("ffprobe -v trace '" + file + "' 2>&1 | grep -o 'keyframe_count = [0-9]*' | head -1");
    };
    if (std::string(container) != "mkv") {
      EXPECT_EQ(marks(in), "keyframe_count = 3\n");
      EXPECT_EQ(marks(tagged), marks(in));
    }
    const std::string out = Patched(std::string("marks.") + container);
    ASSERT_EQ(Qlnmedia("patch '" + tagged + "' '" + out + "' --recovery-points").exitCode, 0);
    EXPECT_EQ(Points(out), Points(Source(kWithPoints, container)));
  }
}

// Streams all of whose start codes have three bytes, the first of a picture included.
TEST(ShortStartCodes, UnitsThatAreNotTouchedKeepThem) {
  for (const char* name : {"avc8_slices", "hevc_slices"}) {
    const Kind& kind = *std::find_if(std::begin(kKinds), std::end(kKinds),
                                     [&](const Kind& one) { return std::string(one.name) == name; });
    const auto codec = std::string(kind.codec) == "hevc" ? qlnmedia::Codec::kHevc : qlnmedia::Codec::kH264;
    Bytes stream;
    for (const Bytes& unit : SplitByteStream(ReadFile(Source(kind, "raw"))))
      stream = Join({stream, WithStartCode(unit, 3)});
    const std::string raw = MediaPath(std::string("short_") + name + "." + kind.codec);
    WriteFile(raw, stream);
    const std::string ts = MediaPath(std::string("short_") + name + ".ts");
    Text("ffmpeg -v error -y -fflags +genpts -r 25 -i '" + raw + "' -c copy '" + ts + "'");
    for (const std::string& in : {raw, ts}) {
      const std::string container = in == raw ? "raw" : "ts";
      const std::string out = Patched(std::filesystem::path(in).filename().string());
      const std::string options =
          " --delimiters --recovery-points --colour 9:16:9 --hdr bt2020 --light-level 1000,400";
      const CommandResult patch = Qlnmedia("patch --verify '" + in + "' '" + out + "'" + options);
      ASSERT_EQ(patch.exitCode, 0) << patch.output;
      ExpectSound(in, out, options, kind, container);
      if (container == "ts") continue;
      int slices = 0;
      for (const qlnmedia::Unit& unit : qlnmedia::TakeApart(ReadFile(out), {}).units) {
        const int type = qlnmedia::UnitType(codec, unit.bytes);
        if (qlnmedia::IsSlice(codec, type)) {
          ++slices;
          EXPECT_EQ(unit.startCodeBytes, 3);
        } else if (qlnmedia::UnitTypeName(codec, type) == "access unit delimiter") {
          EXPECT_EQ(unit.startCodeBytes, 4);
        }
      }
      EXPECT_GE(slices, 30);
    }
  }
}

}  // namespace
}  // namespace qln::test
