// patch --interlaced and --progressive end to end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/media/unit_options.h"
#include "qlnmedia/patch_kinds.h"
#include "sets/set_edit.h"

namespace qln::test {
namespace {

using namespace patching;
using testing::HasSubstr;

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
