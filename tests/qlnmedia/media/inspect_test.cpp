// inspect on real files.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using Json = nlohmann::ordered_json;

std::string Clip(const std::string& name, const std::string& options = "") {
  return MediaFile(name,
                   "ffmpeg -v error -y -f lavfi -i testsrc2=s=192x112:r=25:d=0.4 -f lavfi -i sine=d=0.4 "
                   "-c:v libx264 -threads 1 -pix_fmt yuv420p -c:a aac " +
                       options + " {out}");
}

Json InspectJson(const std::string& file, const std::string& options = "") {
  const CommandResult result = Qlnmedia("inspect --json " + options + " '" + file + "'");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  return Json::parse(result.output, nullptr, false);
}

TEST(Inspect, ContainerAndStreams) {
  const Json report = InspectJson(Clip("plain.mp4"));
  EXPECT_EQ(report["container"]["format"], "mov,mp4,m4a,3gp,3g2,mj2");
  ASSERT_EQ(report["streams"].size(), 2u);
  EXPECT_EQ(report["streams"][0]["codec"], "h264");
  EXPECT_EQ(report["streams"][0]["width"], 192);
  EXPECT_EQ(report["streams"][1]["type"], "audio");
}

TEST(Inspect, CutOffWithoutIndexDoesNotOpen) {
  const Bytes whole = ReadFile(Clip("plain.mp4"));
  const std::string path = MediaPath("cut-index.mp4");
  WriteFile(path, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(whole.size() / 2)));
  const CommandResult result = Qlnmedia("inspect '" + path + "'");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output, HasSubstr("cut off"));
}

TEST(Inspect, CutOffBehindItsIndexIsShownWithANote) {
  const Bytes whole = ReadFile(Clip("front.mp4", "-movflags +faststart"));
  const std::string path = MediaPath("cut-data.mp4");
  WriteFile(path, Bytes(whole.begin(), whole.end() - static_cast<std::ptrdiff_t>(whole.size() / 3)));
  const Json report = InspectJson(path);
  ASSERT_TRUE(report.contains("notes"));
  EXPECT_THAT(report["notes"][0].get<std::string>(), HasSubstr("the file ends early"));
  EXPECT_FALSE(InspectJson(Clip("front.mp4", "-movflags +faststart")).contains("notes"));
}

// What an independent reader finds in the first unit of that heading, against the report's elements.
void ExpectElements(const Json& elements, const std::string& file, const std::string& heading) {
  int compared = 0;
  for (const TracedUnit& unit : TraceHeaders(file)) {
    if (unit.heading != heading) continue;
    for (const TracedElement& element : unit.elements) {
      const std::string name = element.name == "gaps_in_frame_num_allowed_flag"
                                   ? "gaps_in_frame_num_value_allowed_flag"
                                   : element.name;
      if (!elements.contains(name) || !elements[name].is_number()) continue;
      EXPECT_EQ(elements[name].get<int64_t>(), element.value) << name;
      ++compared;
    }
    break;
  }
  EXPECT_GT(compared, 10) << heading;
}

TEST(Inspect, H264ElementsAreThoseOfAnIndependentReader) {
  const std::string file =
      Clip("elements.mp4",
           "-x264-params cqm=jvt:nal-hrd=vbr:pic-struct=1 -b:v 200k -maxrate 200k -bufsize 300k "
           "-color_primaries 9 -color_trc 16 -colorspace 9 -color_range pc -vf crop=190:110");
  const Json report = InspectJson(file);
  const Json& sets = report["streams"][0]["parameter_sets"];
  ASSERT_EQ(sets["sps"].size(), 1u);
  const Json& sps = sets["sps"][0];
  ExpectElements(sps["elements"], file, "Sequence Parameter Set");
  ExpectElements(sets["pps"][0]["elements"], file, "Picture Parameter Set");
  EXPECT_EQ(sps["profile"], "High");
  EXPECT_EQ(sps["coded_size"]["width"], 192);
  EXPECT_EQ(sps["picture_size"]["width"], 190);
  EXPECT_EQ(sps["picture_size"]["height"], 110);
  EXPECT_EQ(sps["frame_rate"]["numerator"].get<int>() / sps["frame_rate"]["denominator"].get<int>(), 25);
  EXPECT_EQ(sps["range"], "full");
  EXPECT_EQ(sps["transfer_characteristics_name"], "PQ (SMPTE ST 2084)");
  EXPECT_TRUE(sps["elements"].contains("nal_hrd.cpb_cnt_minus1"));
  EXPECT_FALSE(sps["elements"].contains("vcl_hrd.cpb_cnt_minus1"));
  EXPECT_FALSE(sps["elements"].contains("sar_width"));
  EXPECT_EQ(report["streams"][0]["configuration"]["form"], "avcC");
  EXPECT_EQ(report["streams"][0]["configuration"]["read_by_library"], true);
}

TEST(Inspect, FramesUnitsAndSlices) {
  const std::string options = "-an -x264-params bframes=2:b-adapt=0:keyint=10:scenecut=0:slices=2:aud=1";
  for (const char* name : {"frames.mp4", "frames.mkv", "frames.ts", "frames.h264"}) {
    const Json report = InspectJson(Clip(name, options), "--units --frames 4");
    const Json& stream = report["streams"][0];
    ASSERT_EQ(stream["frames"].size(), 4u) << name;
    const Json& first = stream["frames"][0];
    EXPECT_EQ(first["slice_types"], "I") << name;
    EXPECT_EQ(first["key"], true);
    EXPECT_EQ(first["units"].back()["name"], "IDR slice");
    EXPECT_EQ(first["units"].back()["slice"]["pic_parameter_set_id"], 0);
    EXPECT_GT(first["units"].back()["slice"]["first_mb_in_slice"].get<int>(), 0);
    EXPECT_EQ(stream["frames"][1]["slice_types"], "P") << name;
    EXPECT_EQ(stream["frames"][2]["slice_types"], "B") << name;
    EXPECT_EQ(stream["frames"][2]["picture"], "frame");
    EXPECT_EQ(stream["parameter_sets"]["sps"].size(), 1u) << name;
  }
}

std::string HevcClip(const std::string& name, const std::string& parameters,
                     const std::string& options = "") {
  return MediaFile(name, "ffmpeg -v error -y -f lavfi -i testsrc2=s=192x112:r=25:d=0.4 -c:v libx265 " +
                             options + " -x265-params " + parameters +
                             ":pools=1:frame-threads=1:log-level=none {out}");
}

TEST(Inspect, HevcElementsAreThoseOfAnIndependentReader) {
  const std::string file =
      HevcClip("hevc.mp4",
               "keyint=5:hdr10=1:colorprim=9:transfer=16:colormatrix=9:range=limited:max-cll=800,200:"
               "'master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,5)'",
               "-pix_fmt yuv420p10le -vf crop=188:108 -tag:v hvc1");
  const Json report = InspectJson(file, "--units");
  const Json& stream = report["streams"][0];
  const Json& sets = stream["parameter_sets"];
  ExpectElements(sets["vps"][0]["elements"], file, "Video Parameter Set");
  ExpectElements(sets["sps"][0]["elements"], file, "Sequence Parameter Set");
  ExpectElements(sets["pps"][0]["elements"], file, "Picture Parameter Set");
  const Json& sps = sets["sps"][0];
  EXPECT_EQ(sps["profile"], "Main 10");
  EXPECT_EQ(sps["in_step"], true);
  EXPECT_EQ(sps["picture_size"]["width"], 188);
  EXPECT_EQ(sps["picture_size"]["height"], 108);
  EXPECT_EQ(sps["bit_depth"]["luma"], 10);
  EXPECT_EQ(sps["range"], "limited");
  EXPECT_EQ(sps["matrix_coefficients_name"], "BT.2020 non-constant luminance");
  EXPECT_EQ(stream["configuration"]["form"], "hvcC");
  EXPECT_EQ(stream["configuration"]["profile"], "Main 10");
  const Json& first = stream["frames"][0];
  EXPECT_EQ(first["slice_types"], "I");
  EXPECT_GE(first["units"].back()["nal_unit_type"].get<int>(), 16);  // an IRAP picture
  const std::string all = report.dump();
  EXPECT_THAT(all, HasSubstr("G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,5)"));
  EXPECT_THAT(all, HasSubstr("\"content_light_level\":{\"max\":800,\"average\":200}"));
}

// An encode whose hvcC holds several SEI units, which the library's walk does not pass: the record is sound.
TEST(Inspect, ConfigurationRecordWithSeveralSeiUnits) {
  const std::string file =
      HevcClip("hdr10.mp4",
               "keyint=5:hdr10=1:colorprim=9:transfer=16:colormatrix=9:range=limited:max-cll=800,200:info=1:"
               "'master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,5)'",
               "-pix_fmt yuv422p10le -tag:v hvc1");
  const Json stream = InspectJson(file)["streams"][0];
  const Json& record = stream["configuration"];
  int units = 0;
  for (const Json& array : record["arrays"])
    units += array["name"] == "prefix SEI" ? array["units"].get<int>() : 0;
  EXPECT_GE(units, 3) << record.dump();
  EXPECT_EQ(record["read_by_library"], true);
  EXPECT_EQ(record["notes"].size(), 1u);
  EXPECT_THAT(record["notes"][0].get<std::string>(), HasSubstr("passed over"));
  EXPECT_EQ(record["bit_depth"], (Json{{"luma", 10}, {"chroma", 10}}));
  EXPECT_EQ(record["chroma_format"], "4:2:2");
  // The head beside the sets, which an independent reader shows.
  const Json& head = record["head"];
  ASSERT_EQ(head.size(), 17u);
  for (const Json& field : head) {
    if (!field["sets"].is_null()) {
      EXPECT_EQ(field["box"], field["sets"]) << field.dump();
    }
  }
  for (const TracedUnit& unit : TraceHeaders(file)) {
    if (unit.heading != "Sequence Parameter Set") continue;
    EXPECT_EQ(head[3]["box"], unit.value("general_profile_idc"));
    EXPECT_EQ(head[6]["box"], unit.value("general_level_idc"));
    EXPECT_EQ(head[9]["box"], unit.value("chroma_format_idc"));
    EXPECT_EQ(head[10]["box"], unit.value("bit_depth_luma_minus8"));
  }
  EXPECT_THAT(Qlnmedia("inspect --details '" + file + "'").output, HasSubstr("10 luma, 10 chroma"));
  EXPECT_EQ(Qlnmedia("check '" + file + "'").exitCode, 0);
}

// Rotation, chapters, tags and language as ffmpeg wrote them.
TEST(Inspect, WhatTheContainerSaysBesideThePictures) {
  WriteFile(MediaPath("chapters.txt"), [] {
    const std::string text =
        ";FFMETADATA1\ntitle=A clip\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=200\ntitle=One\n"
        "[CHAPTER]\nTIMEBASE=1/1000\nSTART=200\nEND=400\ntitle=Two\n";
    return Bytes(text.begin(), text.end());
  }());
  const std::string plain = Clip("plain.mp4");
  const std::string file =
      MediaFile("turned.mp4", "ffmpeg -v error -y -i '" + plain + "' -i '" + MediaPath("chapters.txt") +
                                  "' -map_metadata 1 -map_chapters 1 -c copy -metadata:s:v language=deu "
                                  "-metadata:s:v rotate=90 {out}");
  const Json report = InspectJson(file);
  EXPECT_EQ(report["container"]["tags"]["title"], "A clip");
  ASSERT_EQ(report["container"]["chapters"].size(), 2u);
  EXPECT_EQ(report["container"]["chapters"][1]["start"], 0.2);
  EXPECT_EQ(report["container"]["chapters"][1]["tags"]["title"], "Two");
  const Json& video = report["streams"][0];
  EXPECT_EQ(video["language"], "deu");
  EXPECT_EQ(video["rotation"], 90.0);
  // ISO/IEC 14496-12 clause 8.3.2: cosine and sine of the turn as 16.16, w as 2.30.
  EXPECT_EQ(video["display_matrix"], (Json{0, -65536, 0, 65536, 0, 0, 0, 0, 1073741824}));
  EXPECT_THAT(video["dispositions"].dump(), HasSubstr("default"));
  EXPECT_FALSE(video.contains("encrypted"));
  EXPECT_THAT(video["encoder_settings"].get<std::string>(), HasSubstr("cabac=1"));
  EXPECT_FALSE(report["streams"][1].contains("rotation"));
}

// The container's own description, beside that of the stream: ffmpeg writes it from its options.
TEST(Inspect, ContainerColour) {
  const std::string options = "-an -color_primaries 9 -color_trc 16 -colorspace 9 -color_range tv";
  for (const char* name : {"container-colour.mp4", "container-colour.mov", "container-colour.mkv"}) {
    const Json stream = InspectJson(Clip(name, options))["streams"][0];
    EXPECT_EQ(stream["container_colour"], (Json{{"primaries", 9}, {"transfer", 16}, {"matrix", 9}})) << name;
    // QuickTime's colour parameters have no range.
    if (std::string(name).ends_with("mov"))
      EXPECT_FALSE(stream.contains("container_range"));
    else
      EXPECT_EQ(stream["container_range"], "limited") << name;
  }
  for (const char* name : {"container-colour.ts", "container-colour.h264"}) {
    const Json stream = InspectJson(Clip(name, options))["streams"][0];
    EXPECT_FALSE(stream.contains("container_colour")) << name;
    EXPECT_EQ(stream["parameter_sets"]["sps"][0]["elements"]["colour_primaries"], 9) << name;
  }
}

TEST(Inspect, ContainerHdr) {
  const std::string file = Clip("container-hdr-in.mp4", "-an");
  const std::string patched = MediaPath("container-hdr.mp4");
  ASSERT_EQ(Qlnmedia("patch --hdr p3 --light-level 900,300 '" + file + "' '" + patched + "'").exitCode, 0);
  const Json stream = InspectJson(patched)["streams"][0];
  // DCI-P3 primaries, D65 white (SMPTE ST 2086 and ITU-T H.273): green, blue, red, white.
  EXPECT_EQ(stream["mastering_display"],
            "G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)");
  EXPECT_EQ(stream["content_light_level"], (Json{{"max", 900}, {"average", 300}}));
  EXPECT_FALSE(InspectJson(file)["streams"][0].contains("mastering_display"));
}

TEST(Inspect, HevcThatTheLibraryReadsOutOfStepIsMarkedAndStillTrue) {
  const std::string file = HevcClip("hevc444.mp4", "keyint=5", "-pix_fmt yuv444p -vf crop=190:110");
  const Json report = InspectJson(file);
  const Json& sps = report["streams"][0]["parameter_sets"]["sps"][0];
  EXPECT_EQ(sps["in_step"], false);
  EXPECT_EQ(sps["picture_size"]["width"], 190);
  EXPECT_EQ(sps["picture_size"]["height"], 110);
  EXPECT_THAT(sps["notes"][0].get<std::string>(), HasSubstr("separate_colour_plane_flag"));
  EXPECT_EQ(sps["elements"]["separate_colour_plane_flag"], 0);
  EXPECT_EQ(sps["elements"]["pic_height_in_luma_samples"], 112);
  EXPECT_EQ(sps["coded_size"]["width"], 192);
}

TEST(Inspect, HevcInTransportAndRawStreams) {
  for (const char* name : {"hevc.ts", "hevc.hevc", "hevc.mkv"}) {
    const Json report = InspectJson(HevcClip(name, "keyint=5:repeat-headers=1:aud=1", "-pix_fmt yuv420p"));
    const Json& stream = report["streams"][0];
    EXPECT_EQ(stream["parameter_sets"]["sps"][0]["profile"], "Main") << name;
    EXPECT_EQ(stream["frames"].size(), 3u);
    EXPECT_EQ(stream["frames"][0]["slice_types"], "I") << name;
    EXPECT_EQ(stream["frames"][0]["scan_count"], stream["frames"][0]["unit_count"]) << name;
  }
}

TEST(Inspect, ReadAndWrittenBackIsToldForEachSet) {
  const Json same = InspectJson(Clip("plain.mp4"))["streams"][0]["parameter_sets"];
  EXPECT_EQ(same["sps"][0]["read_write_same"], true);
  EXPECT_EQ(same["pps"][0]["read_write_same"], true);
  const Json lists = InspectJson(Clip(
      "custom_lists.mp4",
      "-x264-params cqm4=6,13,20,28,13,20,28,32,20,28,32,37,28,32,37,41"))["streams"][0]["parameter_sets"];
  EXPECT_EQ(lists["pps"][0]["read_write_same"].get<bool>() && lists["sps"][0]["read_write_same"].get<bool>(),
            false);
}

TEST(Inspect, NoFramesWhenNoneAreAskedFor) {
  const Json report = InspectJson(Clip("plain.mp4"), "--frames 0");
  EXPECT_FALSE(report["streams"][0].contains("frames"));
  EXPECT_EQ(report["streams"][0]["parameter_sets"]["sps"].size(), 1u);
}

TEST(Inspect, SoundAloneHasNoVideo) {
  const std::string path = MediaFile("sound.m4a", "ffmpeg -v error -y -f lavfi -i sine=d=0.2 -c:a aac {out}");
  const CommandResult result = Qlnmedia("inspect '" + path + "'");
  EXPECT_EQ(result.exitCode, 4);
  EXPECT_THAT(result.output, HasSubstr("sound.m4a: has no video stream"));
}

TEST(InspectErrors, AreOneLineAndAFailure) {
  WriteFile(MediaPath("words.txt"), Bytes{'n', 'o', ' ', 'm', 'e', 'd', 'i', 'a', '\n'});
  for (const char* name : {"missing.mp4", "words.txt"}) {
    const CommandResult result = Qlnmedia("inspect '" + MediaPath(name) + "'");
    EXPECT_EQ(result.exitCode, 1) << name;
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
    EXPECT_THAT(result.output, HasSubstr(name));
  }
}

}  // namespace
}  // namespace qln::test
