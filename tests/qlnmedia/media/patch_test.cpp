// patch end to end: what went in is seen by independent readers, and nothing else has changed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/patch_kinds.h"

namespace qln::test {
namespace {

using namespace patching;
using testing::HasSubstr;
using testing::Not;

class PatchEverywhere : public testing::TestWithParam<std::tuple<Kind, const char*>> {};

TEST_P(PatchEverywhere, ColourAndHdrGoInAndNothingElseChanges) {
  const auto& [kind, container] = GetParam();
  const std::string in = Source(kind, container);
  const std::string out = Patched(std::string(kind.name) + "." + Extension(kind, container));
  const std::string options =
      " --colour bt2020-pq --full-range --hdr "
      "'G(8500,39850)B(6550,2300)R(35400,14600)WP(15635,16450)L(40000000,50)'"
      " --light-level 1234,345";
  const CommandResult patch = Qlnmedia("patch --verify '" + in + "' '" + out + "'" + options);
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  EXPECT_THAT(patch.output, HasSubstr("verified"));

  EXPECT_EQ(Decoded(out), Decoded(in));
  EXPECT_EQ(Slices(out, kind.codec), Slices(in, kind.codec));
  if (std::string(container) != "raw") {
    EXPECT_EQ(Times(out), Times(in));
    EXPECT_EQ(OtherStreams(out), OtherStreams(in));
  }
  EXPECT_EQ(Stream(out, "color_range,color_space,color_transfer,color_primaries"),
            "color_range=pc\ncolor_space=bt2020nc\ncolor_transfer=smpte2084\ncolor_primaries=bt2020\n");
  const std::string info = Text("mediainfo --Details=0 '" + out + "'");
  EXPECT_THAT(info, HasSubstr("Mastering display color primaries        : BT.2020"));
  EXPECT_THAT(info, HasSubstr("min: 0.0050 cd/m2, max: 4000 cd/m2"));
  EXPECT_THAT(info, testing::ContainsRegex("Maximum Content Light Level +: 1234"));
  EXPECT_THAT(info, testing::ContainsRegex("Maximum Frame-Average Light Level +: 345"));
  if (std::string(kind.codec) == "hevc") {
    const std::string frames = Text(
        "ffprobe -v error -select_streams v:0 -show_frames -show_entries frame=pict_type:side_data_list '" +
        out + "'");
    EXPECT_THAT(frames, HasSubstr("green_y=39850/50000"));
    EXPECT_THAT(frames, HasSubstr("max_luminance=40000000/10000"));
    EXPECT_THAT(frames, HasSubstr("max_content=1234"));
  }

  // Once more changes nothing.
  const std::string again = Patched(std::string(kind.name) + "_again." + Extension(kind, container));
  ASSERT_EQ(Qlnmedia("patch '" + out + "' '" + again + "'" + options).exitCode, 0);
  EXPECT_EQ(ReadFile(out), ReadFile(again));
}

INSTANTIATE_TEST_SUITE_P(All, PatchEverywhere, testing::ValuesIn(CasesWithFields()), [](const auto& test) {
  return std::string(std::get<0>(test.param).name) + "_" + std::get<1>(test.param);
});

// Every element of every set, as an independent reader sees it, but for those that were to change.
TEST(Patch, OnlyTheNamedElementsOfTheSetsChange) {
  for (const Kind& kind : kKinds) {
    const std::string in = Source(kind, "raw");
    const std::string out = Patched(std::string("elements_") + Extension(kind, "raw") + "." + kind.codec);
    ASSERT_EQ(Qlnmedia("patch '" + in + "' '" + out + "' --colour 9:18:9 --full-range").exitCode, 0);
    const auto before = TraceHeaders(in);
    const auto after = TraceHeaders(out);
    ASSERT_EQ(before.size(), after.size()) << kind.name;
    int changed = 0;
    for (size_t i = 0; i < before.size(); ++i) {
      if (before[i].heading.rfind("Packet:", 0) == 0) continue;
      EXPECT_EQ(before[i].heading, after[i].heading);
      std::vector<std::pair<std::string, int64_t>> was;
      std::vector<std::pair<std::string, int64_t>> is;
      const auto keep = [](const TracedElement& element) {
        for (const char* name : {"vui_parameters_present_flag", "video_signal_type_present_flag",
                                 "video_format", "video_full_range_flag", "colour_description_present_flag",
                                 "colour_primaries", "transfer_characteristics", "matrix_coefficients"}) {
          if (element.name == name) return false;
        }
        return element.name != "bit_equal_to_zero" && element.name != "rbsp_alignment_zero_bit";
      };
      for (const TracedElement& element : before[i].elements) {
        if (keep(element)) was.emplace_back(element.name, element.value);
      }
      for (const TracedElement& element : after[i].elements) {
        if (keep(element)) is.emplace_back(element.name, element.value);
      }
      EXPECT_EQ(was, is) << kind.name << " " << before[i].heading;
      if (before[i].heading == "Sequence Parameter Set") {
        ++changed;
        EXPECT_EQ(after[i].value("colour_primaries"), 9);
        EXPECT_EQ(after[i].value("transfer_characteristics"), 18);
        EXPECT_EQ(after[i].value("video_full_range_flag"), 1);
      }
    }
    EXPECT_GT(changed, 0) << kind.name;
  }
}

TEST(Patch, RangeAloneLeavesTheColourAndColourAloneTheRange) {
  const std::string in = MediaFile(
      "patch_tagged.mp4", std::string(kPictures) +
                              "-c:v libx264 -threads 1 -pix_fmt yuv420p -color_primaries 1 -color_trc 1 "
                              "-colorspace 1 -color_range pc {out}");
  const std::string out = Patched("range.mp4");
  ASSERT_EQ(Qlnmedia("patch '" + in + "' '" + out + "' --limited-range").exitCode, 0);
  EXPECT_EQ(Stream(out, "color_range,color_space,color_transfer,color_primaries"),
            "color_range=tv\ncolor_space=bt709\ncolor_transfer=bt709\ncolor_primaries=bt709\n");
  ASSERT_EQ(Qlnmedia("patch '" + in + "' '" + out + "' --colour bt601-625").exitCode, 0);
  EXPECT_EQ(Stream(out, "color_range,color_space,color_transfer,color_primaries"),
            "color_range=pc\ncolor_space=bt470bg\ncolor_transfer=smpte170m\ncolor_primaries=bt470bg\n");
}

TEST(Patch, EarlierHdrMessagesGoAndOtherMessagesStay) {
  const std::string in =
      MediaFile("patch_hdr10.mp4", std::string(kPictures) +
                                       "-c:v libx265 -pix_fmt yuv420p10le -x265-params "
                                       "\"hdr10=1:repeat-headers=1:max-cll=900,300:master-display=G(13250,"
                                       "34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)"
                                       ":keyint=6:pools=1:frame-threads=1:log-level=none\" {out}");
  const std::string out = Patched("hdr10.mp4");
  ASSERT_EQ(Qlnmedia("patch '" + in + "' '" + out + "' --light-level 700,70").exitCode, 0);
  const std::string frames = Text("ffprobe -v error -select_streams v:0 -show_frames '" + out + "'");
  EXPECT_THAT(frames, HasSubstr("max_content=700"));
  EXPECT_THAT(frames, Not(HasSubstr("max_content=900")));
  EXPECT_THAT(frames, HasSubstr("green_x=13250/50000"));
}

TEST(Patch, DryRunWritesNothing) {
  const std::string in = Source(kKinds[0], "mp4");
  const std::string out = Patched("dry.mp4");
  std::filesystem::remove(out);
  const CommandResult result = Qlnmedia("patch --dry-run '" + in + "' '" + out + "' --colour bt709");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.output, HasSubstr("avcC"));
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST(Patch, InputAsOutputIsRefused) {
  const std::string in = Source(kKinds[0], "mp4");
  const Bytes before = ReadFile(in);
  const CommandResult result = Qlnmedia("patch '" + in + "' '" + in + "' --colour bt709");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output, HasSubstr("is the input itself"));
  EXPECT_EQ(ReadFile(in), before);
}

long PartFiles() {
  long count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(MediaPath("")))
    count += entry.path().extension() == ".part" ? 1 : 0;
  return count;
}

TEST(Patch, FullDiskLeavesNothingBehind) {
  for (const char* kind : {"ts", "mkv"}) {
    const std::string in = Source(kKinds[0], kind);
    const std::string out = Patched(std::string("full.") + kind);
    std::filesystem::remove(out);
    const CommandResult result = qln::test::Run(std::string("ulimit -f 8; '") + QLNMEDIA_PROGRAM +
                                                "' patch '" + in + "' '" + out + "' --colour bt709");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.output,
                testing::ContainsRegex("patched_full.*: (cannot write|writing failed): File too large"));
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_EQ(PartFiles(), 0);
  }
}

TEST(Patch, OutputThatCannotBeWritten) {
  const CommandResult result =
      Qlnmedia("patch '" + Source(kKinds[0], "mp4") + "' /no/such/folder/x.mp4 --colour bt709");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output,
              HasSubstr("/no/such/folder/x.mp4: cannot be written: No such file or directory"));
}

TEST(Patch, BadValuesSayWhatIsWanted) {
  const std::string files = "patch '" + Source(kKinds[0], "mp4") + "' '" + Patched("bad.mp4") + "'";
  for (const char* bad :
       {"--colour rec709", "--colour 1:1", "--colour 1:1:300", "--hdr p4",
        "--hdr 'G(1,2)B(3,4)R(5,6)WP(7,8)L(1,1)'", "--hdr 'G(50001,2)B(3,4)R(5,6)WP(7,8)L(2,1)'",
        "--light-level 5", "--light-level 70000,1", ""}) {
    const CommandResult result = Qlnmedia(files + " " + bad);
    EXPECT_EQ(result.exitCode, 1) << bad << result.output;
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
  }
  EXPECT_EQ(Qlnmedia(files + " --full-range --limited-range").exitCode, 2);
}

TEST(Patch, OtherCodecsAreRefusedByName) {
  const std::string in = MediaFile("patch_mpeg2.ts", std::string(kPictures) + "-c:v mpeg2video {out}");
  const CommandResult result = Qlnmedia("patch '" + in + "' '" + Patched("mpeg2.ts") + "' --colour bt709");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output, HasSubstr("has no H.264 or HEVC stream"));
}

}  // namespace
}  // namespace qln::test
