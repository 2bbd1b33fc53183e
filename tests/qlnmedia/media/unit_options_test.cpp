// patch --delimiters, --recovery-points, --interlaced and --progressive end to end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/patch_kinds.h"
#include "sets/set_edit.h"

namespace qln::test {
namespace {

using namespace patching;
using testing::HasSubstr;
using testing::Not;

const auto kCaseName = [](const auto& test) {
  return std::string(std::get<0>(test.param).name) + "_" + std::get<1>(test.param);
};

// What an independent reader has to say against a file.
std::string Complaints(const std::string& file) {
  return Text(
      "ffmpeg -v warning -i '" + file +
      "' -map 0:v -c copy -bsf:v trace_headers -f null - 2>&1 | grep -iE 'invalid|failed|error' || true");
}

// Everything but what was asked for is as it was, `check` finds nothing new, and a second run changes
// nothing.
void ExpectSound(const std::string& in, const std::string& out, const std::string& options, const Kind& kind,
                 const std::string& container) {
  EXPECT_EQ(Decoded(out), Decoded(in));
  EXPECT_EQ(Slices(out, kind.codec), Slices(in, kind.codec));
  if (container != "raw") {
    EXPECT_EQ(OtherStreams(out), OtherStreams(in));
  }
  EXPECT_EQ(Complaints(out), "");
  const CommandResult check = Qlnmedia("check '" + out + "'");
  if (check.exitCode != 0) {
    EXPECT_EQ(check.output, Qlnmedia("check '" + in + "'").output);
  }
  const std::string again = Patched("again_" + std::filesystem::path(out).filename().string());
  ASSERT_EQ(Qlnmedia("patch '" + out + "' '" + again + "'" + options).exitCode, 0);
  EXPECT_EQ(ReadFile(again), ReadFile(out));
}

// Headings and elements of each access unit, as an independent reader sees them.
std::vector<std::vector<TracedUnit>> Packets(const std::string& file) {
  std::vector<std::vector<TracedUnit>> packets;
  // A status line would swallow a line of the trace.
  for (TracedUnit& unit : TraceHeaders(file, "-nostats")) {
    if (unit.heading.rfind("nal_unit_type:", 0) == 0) continue;  // said of every unit ahead of all others
    if (unit.heading.rfind("Packet:", 0) == 0) packets.emplace_back();
    if (!packets.empty()) packets.back().push_back(std::move(unit));
  }
  return packets;
}

bool IsSlice(const TracedUnit& unit) { return unit.heading.rfind("Slice", 0) == 0; }

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

// The pictures of an HEVC stream in presentation order: pic_struct and source_scan_type of each, "-" without.
std::string Fields(const std::string& file) {
  struct Picture {
    int64_t group;
    int64_t order;
    std::string text;
  };
  std::vector<Picture> pictures;
  int64_t group = 0;
  for (const std::vector<TracedUnit>& packet : Packets(file)) {
    std::string text = "-";
    for (const TracedUnit& unit : packet) {
      if (unit.heading == "Picture Timing" && unit.has("pic_struct"))
        text =
            std::to_string(unit.value("pic_struct")) + "/" + std::to_string(unit.value("source_scan_type"));
      if (!IsSlice(unit) || unit.value("first_slice_segment_in_pic_flag") != 1) continue;
      const int64_t type = unit.value("nal_unit_type");
      if (type == 19 || type == 20) ++group;
      pictures.push_back({group, unit.value("slice_pic_order_cnt_lsb", 0), text});
    }
  }
  std::stable_sort(pictures.begin(), pictures.end(), [](const Picture& a, const Picture& b) {
    return std::tie(a.group, a.order) < std::tie(b.group, b.order);
  });
  std::string line;
  for (const Picture& picture : pictures) line += (line.empty() ? "" : " ") + picture.text;
  return line;
}

std::string Repeated(const std::string& pair, int times) {
  std::string line;
  for (int i = 0; i < times; ++i) line += (line.empty() ? "" : " ") + pair;
  return line;
}

// Every set of a file says the same of its scan.
void ExpectSets(const std::string& file, bool fields) {
  int sets = 0;
  for (const TracedUnit& unit : TraceHeaders(file, "-nostats")) {
    if (!unit.has("general_progressive_source_flag")) continue;
    ++sets;
    EXPECT_EQ(unit.value("general_progressive_source_flag"), fields ? 0 : 1);
    EXPECT_EQ(unit.value("general_interlaced_source_flag"), fields ? 1 : 0);
    EXPECT_EQ(unit.value("general_frame_only_constraint_flag"), fields ? 0 : 1);
    if (!unit.has("field_seq_flag")) continue;
    EXPECT_EQ(unit.value("field_seq_flag"), fields ? 1 : 0);
    if (fields) {
      EXPECT_EQ(unit.value("frame_field_info_present_flag"), 1);
    }
  }
  EXPECT_GE(sets, 2);
}

// Fields coded as if they were frames, by encoders that were not told.
const Kind kUnmarkedFields[] = {
    {"fields", "hevc",
     "-vf scale=720:576,separatefields -c:v libx265 -pix_fmt yuv420p -x265-params "
     "keyint=12:open-gop=0:repeat-headers=1:aud=1:slices=2:ctu=32:pools=1:frame-threads=1:log-"
     "level=none"},
    {"fields_hrd", "hevc",
     "-vf scale=720:576,separatefields -c:v libx265 -pix_fmt yuv420p10le -x265-params "
     "keyint=12:open-gop=0:hrd=1:vbv-bufsize=4000:vbv-maxrate=2000:bitrate=1500:pools=1:frame-threads=1:"
     "log-level=none"},
};

class InterlacedEverywhere : public testing::TestWithParam<std::tuple<Kind, const char*>> {};

TEST_P(InterlacedEverywhere, FieldsAreToldAndNothingElseChanges) {
  const auto& [kind, container] = GetParam();
  const std::string in = Source(kind, container);
  const std::string out = Patched(std::string("il_") + kind.name + "." + Extension(kind, container));
  const CommandResult patch = Qlnmedia("patch --verify '" + in + "' '" + out + "' --interlaced");
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  // Table D.2: a top field and the bottom field behind it, of an interlaced source.
  EXPECT_EQ(Fields(out), Repeated("11/0 10/0", 15));
  ExpectSets(out, true);
  ExpectSound(in, out, " --interlaced", kind, container);
  if (std::string(container) != "raw") {
    EXPECT_EQ(Times(out), Times(in));
  }
  const std::string frames = Text(
      "ffprobe -v error -select_streams v:0 -show_entries frame=interlaced_frame,top_field_first -of csv=p=0 "
      "'" +
      out + "' | sed 's/,*$//' | grep . | sort | uniq -c | tr -s ' '");
  EXPECT_EQ(frames, " 15 1,0\n 15 1,1\n");
  // Every other element of every unit is what it was.
  const auto elements = [](const std::string& file) {
    std::string text;
    for (const TracedUnit& unit : TraceHeaders(file, "-nostats")) {
      if (unit.heading.rfind("Packet:", 0) == 0 || unit.heading == "Picture Timing") continue;
      if (unit.heading.find("Supplemental") != std::string::npos) continue;
      if (unit.heading.rfind("nal_unit_type:", 0) == 0) continue;
      text += unit.heading + "\n";
      for (const TracedElement& element : unit.elements) {
        const bool changes = element.name.find("_source_flag") != std::string::npos ||
                             element.name.find("frame_only") != std::string::npos ||
                             element.name.find("field_seq") != std::string::npos ||
                             element.name.find("frame_field_info") != std::string::npos;
        if (!changes) text += element.name + " " + std::to_string(element.value) + "\n";
      }
    }
    return text;
  };
  EXPECT_EQ(elements(out), elements(in));
  const auto delays = [](const std::string& file) {
    std::vector<std::pair<int64_t, int64_t>> values;
    for (const TracedUnit& unit : TraceHeaders(file, "-nostats")) {
      if (unit.heading == "Picture Timing" && unit.has("au_cpb_removal_delay_minus1"))
        values.emplace_back(unit.value("au_cpb_removal_delay_minus1"), unit.value("pic_dpb_output_delay"));
    }
    return values;
  };
  EXPECT_EQ(delays(out), delays(in));
  EXPECT_EQ(delays(out).size(), std::string(kind.name) == "fields_hrd" ? 30u : 0u);

  // And back: these are fields now, as everybody can read.
  const CommandResult back =
      Qlnmedia("patch '" + out + "' '" + Patched("back" + out.substr(out.rfind('.'))) + "' --progressive");
  EXPECT_EQ(back.exitCode, 1);
  EXPECT_THAT(back.output, HasSubstr("its coded pictures are single fields"));
}

INSTANTIATE_TEST_SUITE_P(All, InterlacedEverywhere,
                         testing::Combine(testing::ValuesIn(kUnmarkedFields), testing::ValuesIn(kContainers)),
                         kCaseName);

// A raw stream with the scan of its sets as `edit` says.
Bytes Planted(const std::string& file, const qlnmedia::SpsEdit& edit) {
  qlnmedia::UnitRun run = qlnmedia::TakeApart(ReadFile(file), {});
  for (qlnmedia::Unit& unit : run.units) {
    const int type = qlnmedia::UnitType(qlnmedia::Codec::kHevc, unit.bytes);
    if (type == 32) unit.bytes = qlnmedia::EditVps(unit.bytes, edit).value();
    if (type == 33) unit.bytes = qlnmedia::EditSps(qlnmedia::Codec::kHevc, unit.bytes, edit).value();
  }
  return qlnmedia::PutTogether(run, {});
}

TEST(Interlaced, SetsThatWereDamagedBecomeTheEncodersAgain) {
  const std::string made = Source(kHevcFields, "raw");
  const std::string same = Patched("il_same.hevc");
  ASSERT_EQ(Qlnmedia("patch '" + made + "' '" + same + "' --interlaced").exitCode, 0);
  EXPECT_EQ(ReadFile(same), ReadFile(made));
  qlnmedia::SpsEdit edit;
  edit.interlace = {true, false, false};
  edit.frameOnly = true;
  const std::string in = MediaPath("il_damaged.hevc");
  WriteFile(in, Planted(made, edit));
  ASSERT_NE(ReadFile(in), ReadFile(made));
  const std::string out = Patched("il_mended.hevc");
  const CommandResult patch = Qlnmedia("patch '" + in + "' '" + out + "' --interlaced");
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  EXPECT_EQ(ReadFile(out), ReadFile(made));
  // Picture timing says what they are, whatever the sets say.
  const CommandResult wrong = Qlnmedia("patch '" + in + "' '" + out + "' --progressive");
  EXPECT_EQ(wrong.exitCode, 1);
  EXPECT_THAT(wrong.output,
              HasSubstr("its coded pictures are single fields: picture timing says pic_struct"));
}

TEST(Interlaced, FramesBecomeProgressiveOnly) {
  const Kind& kind = *std::find_if(std::begin(kKinds), std::end(kKinds),
                                   [](const Kind& one) { return std::string(one.name) == "hevc8"; });
  const std::string made = Source(kind, "raw");
  qlnmedia::SpsEdit edit;
  edit.interlace = {false, true, false};
  edit.frameOnly = false;
  const std::string in = MediaPath("il_frames.hevc");
  WriteFile(in, Planted(made, edit));
  ASSERT_NE(ReadFile(in), ReadFile(made));
  const std::string out = Patched("il_frames.hevc");
  const CommandResult patch = Qlnmedia("patch '" + in + "' '" + out + "' --progressive");
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  EXPECT_EQ(ReadFile(out), ReadFile(made));
  for (const std::string& file : {made, in}) {
    const CommandResult wrong = Qlnmedia("patch '" + file + "' '" + out + "' --interlaced");
    EXPECT_EQ(wrong.exitCode, 1);
    EXPECT_THAT(wrong.output, HasSubstr("nothing says that its coded pictures are single fields"));
  }
}

class ProgressiveEverywhere : public testing::TestWithParam<const char*> {};

TEST_P(ProgressiveEverywhere, SourceFlagsGoInAndNothingElse) {
  const std::string container = GetParam();
  const Kind kind = {"unknown_scan", "hevc",
                     "-c:v libx265 -pix_fmt yuv420p -x265-params "
                     "keyint=6:bframes=0:repeat-headers=1:pools=1:frame-threads=1:log-level=none"};
  qlnmedia::SpsEdit edit;
  edit.interlace = {false, false, false};
  edit.frameOnly = false;
  const std::string raw = MediaPath("il_unknown.hevc");
  WriteFile(raw, Planted(Source(kind, "raw"), edit));
  const std::string in = MediaPath("il_unknown_in." + Extension(kind, container));
  Text("ffmpeg -v error -y -fflags +genpts -r 25 -i '" + raw + "' -c copy '" + in + "'");
  const std::string out = Patched("il_unknown." + Extension(kind, container));
  const CommandResult patch = Qlnmedia("patch --verify '" + in + "' '" + out + "' --progressive");
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  ExpectSets(out, false);
  ExpectSound(in, out, " --progressive", kind, container);
}

INSTANTIATE_TEST_SUITE_P(All, ProgressiveEverywhere, testing::ValuesIn(kContainers),
                         [](const auto& test) { return std::string(test.param); });

TEST(Interlaced, WhatCannotBeIsRefusedByName) {
  const auto refused = [](const std::string& in, const std::string& options, const char* why) {
    const std::string out = Patched("refused" + std::filesystem::path(in).extension().string());
    std::filesystem::remove(out);
    const CommandResult result = Qlnmedia("patch '" + in + "' '" + out + "' " + options);
    EXPECT_EQ(result.exitCode, 1) << result.output;
    EXPECT_THAT(result.output, HasSubstr(why));
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
    EXPECT_FALSE(std::filesystem::exists(out));
  };
  const std::string fields = Source(kHevcFields, "mp4");
  refused(fields, "--progressive", "single fields: the sequence parameter set says field_seq_flag 1");
  refused(fields, "--interlaced --timecode 01:00:00:00",
          "fields must be told before they can be given timecodes");
  for (const char* option : {"--interlaced", "--progressive"})
    refused(Source(kKinds[0], "mp4"), option,
            "is H.264, whose slices say themselves whether they are fields");
  EXPECT_EQ(Qlnmedia("patch a b --interlaced --progressive").exitCode, 2);
}

TEST(Interlaced, FramesThatSayWhatTheyAreStayFrames) {
  // A stream of frames with picture timing, which the encoder writes for those of an interlaced source.
  const std::string made = Source(kHevcFields, "raw");
  qlnmedia::SpsEdit edit;
  edit.interlace = {false, true, false};
  qlnmedia::UnitRun run = qlnmedia::TakeApart(Planted(made, edit), {});
  for (qlnmedia::Unit& unit : run.units) {
    // pic_struct 1 and 2 to 3: both fields in one frame.
    if (unit.bytes.size() == 6 && unit.bytes[0] == 0x4E && unit.bytes[2] == 1)
      unit.bytes[4] = static_cast<uint8_t>(0x30 | (unit.bytes[4] & 15));
  }
  const std::string in = MediaPath("il_telecined.hevc");
  WriteFile(in, qlnmedia::PutTogether(run, {}));
  EXPECT_EQ(Fields(in), Repeated("3/0 3/0", 15));
  const std::string out = Patched("il_telecined.hevc");
  const CommandResult wrong = Qlnmedia("patch '" + in + "' '" + out + "' --interlaced");
  EXPECT_EQ(wrong.exitCode, 1);
  EXPECT_THAT(wrong.output, HasSubstr("its coded pictures are frames: picture timing says pic_struct 3"));
  const CommandResult patch = Qlnmedia("patch '" + in + "' '" + out + "' --progressive");
  EXPECT_EQ(patch.exitCode, 0) << patch.output;
  EXPECT_EQ(Fields(out), Repeated("3/1 3/1", 15));
  ExpectSets(out, false);
}

}  // namespace
}  // namespace qln::test
