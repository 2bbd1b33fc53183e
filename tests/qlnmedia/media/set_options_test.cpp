// patch --sar, --level, --tier, --vui-timing, --chroma-location, --crop and --remove end to end, on streams
// of encoders, as an independent reader sees them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using testing::Not;

struct Coder {
  const char* name;  // h264 or hevc
  const char* options;
};

const Coder kCoders[] = {
    {"h264", "-c:v libx264 -threads 1 -pix_fmt yuv420p -x264-params keyint=6:aud=1"},
    {"hevc",
     "-c:v libx265 -pix_fmt yuv420p -x265-params keyint=6:aud=1:repeat-headers=1:level-idc=41:pools=1:"
     "frame-threads=1:log-level=none"},
};

std::string Source(const Coder& coder, const std::string& container) {
  const std::string extension = container == "raw" ? coder.name : container;
  return MediaFile(
      std::string("set_options_") + coder.name + "." + extension,
      std::string("ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.5 ") + coder.options + " {out}");
}

class SetOptionsEverywhere : public testing::TestWithParam<std::tuple<Coder, const char*>> {};

TEST_P(SetOptionsEverywhere, AreReadBack) {
  const auto& [coder, container] = GetParam();
  const bool hevc = std::string(coder.name) == "hevc";
  const std::string in = Source(coder, container);
  const std::string out = MediaPath(std::string("set_options_out_") + coder.name + in.substr(in.rfind('.')));
  const std::string options = std::string(" --sar 16:11 --level 5.1 --vui-timing 29.97") +
                              (hevc ? " --tier high" : ":fixed") + " --chroma-location 2 --crop 2,6,4,0";
  const CommandResult patch = Qlnmedia("patch --verify '" + in + "' '" + out + "'" + options);
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  EXPECT_EQ(Slices(out, coder.name), Slices(in, coder.name));
  size_t sets = 0;
  for (const TracedUnit& unit : TraceHeaders(out)) {
    if (unit.heading == "Video Parameter Set") {
      EXPECT_EQ(unit.value("general_level_idc"), 153);
      EXPECT_EQ(unit.value("general_tier_flag"), 1);
    }
    if (unit.heading != "Sequence Parameter Set") continue;
    ++sets;
    EXPECT_EQ(unit.value("aspect_ratio_idc"), 4);
    EXPECT_EQ(unit.value("chroma_sample_loc_type_top_field"), 2);
    EXPECT_EQ(unit.value("chroma_sample_loc_type_bottom_field"), 2);
    if (hevc) {
      EXPECT_EQ(unit.value("general_level_idc"), 153);
      EXPECT_EQ(unit.value("general_tier_flag"), 1);
      EXPECT_EQ(unit.value("vui_num_units_in_tick"), 1001);
      EXPECT_EQ(unit.value("vui_time_scale"), 30000);
      EXPECT_EQ(unit.value("conf_win_left_offset"), 1);
      EXPECT_EQ(unit.value("conf_win_right_offset"), 3);
      EXPECT_EQ(unit.value("conf_win_top_offset"), 2);
    } else {
      EXPECT_EQ(unit.value("level_idc"), 51);
      EXPECT_EQ(unit.value("num_units_in_tick"), 1001);
      EXPECT_EQ(unit.value("time_scale"), 60000);
      EXPECT_EQ(unit.value("fixed_frame_rate_flag"), 1);
      EXPECT_EQ(unit.value("frame_crop_left_offset"), 1);
      EXPECT_EQ(unit.value("frame_crop_right_offset"), 3);
      EXPECT_EQ(unit.value("frame_crop_top_offset"), 2);
    }
  }
  EXPECT_GT(sets, 0u);
  EXPECT_EQ(
      Text("ffmpeg -v error -flags unaligned -i '" + out + "' -map 0:v -frames:v 1 -f rawvideo - | wc -c"),
      std::to_string((128 - 8) * (96 - 4) * 3 / 2) + "\n");
  EXPECT_EQ(Text("ffprobe -v error -select_streams v -show_entries stream=width,height -of csv=p=0 '" + out +
                 "' | head -1"),
            "120,92\n");
  // The rate is the one of the streams alone, which is said so.
  EXPECT_THAT(Qlnmedia("check '" + out + "'").output, Not(HasSubstr("stream 0: size")));
  // The container's own, where it has a place: samples of 16:11.
  EXPECT_EQ(Text("ffprobe -v error -select_streams v -show_entries stream=sample_aspect_ratio -of csv=p=0 '" +
                 out + "' | head -1"),
            "16:11\n");
  const std::string again = out + ".again" + out.substr(out.rfind('.'));
  const CommandResult second = Qlnmedia("patch '" + out + "' '" + again + "'" + options);
  EXPECT_THAT(second.output, Not(HasSubstr("changed"))) << second.output;
}

std::vector<std::tuple<Coder, const char*>> Cases() {
  std::vector<std::tuple<Coder, const char*>> cases;
  for (const Coder& coder : kCoders) {
    for (const char* container : {"mp4", "mkv", "ts", "raw"}) cases.emplace_back(coder, container);
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(All, SetOptionsEverywhere, testing::ValuesIn(Cases()), [](const auto& test) {
  return std::string(std::get<0>(test.param).name) + "_" + std::get<1>(test.param);
});

TEST(RemoveOption, TakesOutUnitsAndMessages) {
  for (const Coder& coder : kCoders) {
    const bool hevc = std::string(coder.name) == "hevc";
    const std::string in = Source(coder, "raw");
    const std::string out = MediaPath(std::string("removed.") + coder.name);
    const CommandResult patch = Qlnmedia("patch --verify '" + in + "' '" + out +
                                         "' --remove delimiters,sei:unregistered-user-data --remove filler");
    ASSERT_EQ(patch.exitCode, 0) << patch.output;
    EXPECT_THAT(patch.output, HasSubstr("13 units taken out, "));
    EXPECT_EQ(Slices(out, coder.name), Slices(in, coder.name));
    EXPECT_EQ(Decoded(out), Decoded(in));
    const int delimiter = hevc ? 35 : 9;
    int units = 0;
    for (const Bytes& unit : SplitByteStream(ReadFile(out))) {
      const int type = hevc ? unit[0] >> 1 & 63 : unit[0] & 31;
      EXPECT_NE(type, delimiter);
      ++units;
    }
    EXPECT_GT(units, 12);
    const CommandResult again =
        Qlnmedia("patch '" + out + "' '" + out + ".x." + coder.name + "' --remove delimiters");
    EXPECT_THAT(again.output, HasSubstr("nothing to change"));
  }
}

TEST(SetOptions, ThoseThatCannotBe) {
  const std::string avc =
      "patch '" + Source(kCoders[0], "raw") + "' '" + MediaPath("set_options_bad.h264") + "' ";
  const std::string hevc =
      "patch '" + Source(kCoders[1], "raw") + "' '" + MediaPath("set_options_bad.hevc") + "' ";
  for (const std::string& bad :
       {avc + "--sar 4/3", avc + "--level 4.7", avc + "--tier high", avc + "--crop 1,0,0,0",
        avc + "--crop 64,64,0,0", avc + "--chroma-location 6", avc + "--remove slices", hevc + "--level 1.1",
        hevc + "--vui-timing 25:fixed", hevc + "--level 3 --tier high"}) {
    const CommandResult result = Qlnmedia(bad);
    EXPECT_EQ(result.exitCode, 1) << bad << result.output;
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
  }
}

// The line says what was done: no container's colour where there is no container, no timecodes where each
// picture had its own.
TEST(SetOptions, LinesSayWhatWasDone) {
  for (const char* container : {"mp4", "mkv", "ts", "raw"}) {
    const std::string in = Source(kCoders[0], container);
    const std::string out = MediaPath("set_options_lines" + in.substr(in.rfind('.')));
    const CommandResult patch =
        Qlnmedia("patch '" + in + "' '" + out + "' --colour bt709 --timecode 01:00:00:00");
    ASSERT_EQ(patch.exitCode, 0) << patch.output;
    const bool has = std::string(container) == "mp4" || std::string(container) == "mkv";
    EXPECT_EQ(patch.output.find("container colour set") != std::string::npos, has) << container;
    EXPECT_THAT(patch.output, HasSubstr("13 pictures got their timecode"));
    const CommandResult again = Qlnmedia("patch '" + out + "' '" + out + ".2" + in.substr(in.rfind('.')) +
                                         "' --timecode 01:00:00:00");
    EXPECT_THAT(again.output, HasSubstr("nothing to change"));
  }
}

}  // namespace
}  // namespace qln::test
