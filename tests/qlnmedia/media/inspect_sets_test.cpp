// What inspect says of sets that the library does not write back as they were, and of HEVC in each container.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Json = nlohmann::ordered_json;

Json InspectJson(const std::string& file) {
  const CommandResult result = Qlnmedia("inspect --json --frames 1 '" + file + "'");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  return Json::parse(result.output, nullptr, false);
}

std::string H264Clip(const std::string& name, const std::string& parameters = "keyint=5") {
  return MediaFile(name,
                   "ffmpeg -v error -y -f lavfi -i testsrc2=s=192x112:r=25:d=0.2 -c:v libx264 -threads 1 "
                   "-pix_fmt yuv420p -x264-params " +
                       parameters + " {out}");
}

std::string HevcClip(const std::string& name, const std::string& options = "",
                     const std::string& parameters = "keyint=5:repeat-headers=1") {
  return MediaFile(name,
                   "ffmpeg -v error -y -f lavfi -i testsrc2=s=192x112:r=25:d=0.2 -c:v libx265 -pix_fmt "
                   "yuv420p -x265-params " +
                       parameters + ":pools=1:frame-threads=1:log-level=none " + options + " {out}");
}

// A raw stream with one more unit in front of its first picture.
std::string WithUnit(const std::string& stream, const std::string& name, const Bytes& unit) {
  Bytes bytes = {0, 0, 0, 1};
  bytes.insert(bytes.end(), unit.begin(), unit.end());
  const Bytes rest = ReadFile(stream);
  bytes.insert(bytes.end(), rest.begin(), rest.end());
  const std::string path = MediaPath(name);
  WriteFile(path, bytes);
  return path;
}

// The first change of the set of that kind that stands first in the file, after a look at the text form.
Json FirstChangeOf(const std::string& file, const char* kind) {
  const Json report = InspectJson(file);
  const Json& set = report["streams"][0]["parameter_sets"][kind][0];
  EXPECT_EQ(set["read_write_same"], false) << set.dump();
  const Json change = set.value("first_change", Json());
  const CommandResult text = Qlnmedia("inspect --library --frames 1 '" + file + "'");
  EXPECT_THAT(text.output, HasSubstr("First change"));
  if (change.is_object() && change["element"].is_string()) {
    EXPECT_THAT(text.output, HasSubstr(change["element"].get<std::string>() + " "));
    EXPECT_THAT(text.output, HasSubstr("(" + change["why"].get<std::string>() + ")"));
  }
  return change;
}

// The first unit of that heading as an independent reader prints it.
TracedUnit FirstTraced(const std::string& file, const std::string& heading) {
  for (TracedUnit& unit : TraceHeaders(file)) {
    if (unit.heading == heading) return std::move(unit);
  }
  ADD_FAILURE() << heading;
  return {};
}

BitBuilder H264SpsUpToOrderType() { return BitBuilder().u(8, 0x67).u(8, 66).u(8, 0).u(8, 30).ue(3).ue(0); }

BitBuilder& H264SpsSize(BitBuilder& bits) { return bits.ue(1).u(1, 0).ue(11).ue(6).u(1, 1).u(1, 1).u(1, 0); }

TEST(InspectSets, NothingIsSaidOfSetsThatComeBack) {
  const Json sets = InspectJson(H264Clip("same.h264"))["streams"][0]["parameter_sets"];
  EXPECT_EQ(sets["sps"][0]["read_write_same"], true);
  EXPECT_FALSE(sets["sps"][0].contains("first_change"));
  EXPECT_FALSE(sets["pps"][0].contains("first_change"));
}

TEST(InspectSets, ScalingListsOfAnEncoder) {
  const Json change =
      FirstChangeOf(H264Clip("lists.h264", "cqm4=6,13,20,28,13,20,28,32,20,28,32,37,28,32,37,41"), "pps");
  EXPECT_THAT(change["element"].get<std::string>(), StartsWith("scaling_list[0].delta_scale["));
  EXPECT_THAT(change["why"].get<std::string>(), HasSubstr("values, not as differences"));
}

TEST(InspectSets, PictureOrderType1) {
  BitBuilder bits = H264SpsUpToOrderType();
  bits.ue(1).u(1, 0).se(-2).se(1).ue(1).se(3);
  H264SpsSize(bits).u(1, 0).trailing();
  const Json change = FirstChangeOf(WithUnit(H264Clip("same.h264"), "order1.h264", bits.bytes()), "sps");
  EXPECT_EQ(change["element"], "offset_for_non_ref_pic");
  EXPECT_EQ(change["was"], -2);
  EXPECT_EQ(change["comes_back"], 4);  // the code number of -2 (table 9-3), written as a value
  EXPECT_EQ(change["why"], "picture order offsets are kept as code numbers");
}

TEST(InspectSets, MoreThanEightSchedules) {
  BitBuilder bits = H264SpsUpToOrderType();
  bits.ue(2);
  H264SpsSize(bits).u(1, 1);
  bits.u(1, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 0);  // the VUI in front of its HRD
  bits.u(1, 1).ue(9).u(4, 1).u(4, 2);
  for (uint32_t i = 0; i < 10; ++i) bits.ue(100 + i).ue(200 + i).u(1, 0);
  bits.u(5, 23).u(5, 23).u(5, 23).u(5, 24).u(1, 0).u(1, 0).u(1, 0).u(1, 0).trailing();
  const Json change = FirstChangeOf(WithUnit(H264Clip("same.h264"), "hrd10.h264", bits.bytes()), "sps");
  EXPECT_EQ(change["element"], "nal_hrd.cpb_cnt_minus1");
  EXPECT_EQ(change["was"], 9);
  EXPECT_EQ(change["comes_back"], 7);
  EXPECT_EQ(change["why"], "at most 8 HRD schedules are kept");
}

TEST(InspectSets, SliceGroupsOfMapType6) {
  BitBuilder bits;
  bits.u(8, 0x68).ue(3).ue(0).u(1, 0).u(1, 0).ue(1).ue(6).ue(83);
  for (int i = 0; i < 84; ++i) bits.u(1, i % 2 == 0 ? 1 : 0);
  bits.ue(0).ue(0).u(1, 0).u(2, 0).se(0).se(0).se(0).u(1, 1).u(1, 0).u(1, 0).trailing();
  const Json change = FirstChangeOf(WithUnit(H264Clip("same.h264"), "map6.h264", bits.bytes()), "pps");
  EXPECT_THAT(change["why"].get<std::string>(), HasSubstr("slice group ids"));
}

TEST(InspectSets, HevcPositiveStartQuantizer) {
  BitBuilder bits;
  bits.u(16, 0x4401).ue(5).ue(0).u(7, 0).ue(0).ue(0).se(3).u(3, 0).se(0).se(0);
  bits.u(6, 0).u(1, 1).u(3, 0).ue(0).u(2, 0).trailing();
  const Json change = FirstChangeOf(WithUnit(HevcClip("same.hevc"), "qp.hevc", bits.bytes()), "pps");
  EXPECT_EQ(change["element"], "init_qp_minus26");
  EXPECT_EQ(change["was"], 3);
  EXPECT_NE(change["comes_back"], 3);
  EXPECT_THAT(change["why"].get<std::string>(), HasSubstr("positive signed values"));
}

TEST(InspectSets, HevcSubLayerValues) {
  BitBuilder bits;
  bits.u(16, 0x4001).u(4, 0).u(2, 3).u(6, 0).u(3, 1).u(1, 1).u(16, 0xFFFF);
  bits.u(8, 1).u(32, 0x60000000).u(48, 0x900000000000).u(8, 93).u(2, 0).u(14, 0);
  bits.u(1, 1).ue(4).ue(2).ue(5).ue(3).ue(1).ue(4).u(6, 0).ue(0).u(1, 0).u(1, 0).trailing();
  const Json change = FirstChangeOf(WithUnit(HevcClip("same.hevc"), "layers.hevc", bits.bytes()), "vps");
  EXPECT_THAT(change["element"].get<std::string>(), StartsWith("vps_max_"));
  EXPECT_EQ(change["why"], "sub-layer values, of which one is kept");
}

// Bits behind the last element that is read: none of the elements in front of them has changed.
TEST(InspectSets, H264ExtensionData) {
  BitBuilder sps = H264SpsUpToOrderType();
  sps.ue(2);
  H264SpsSize(sps).u(1, 0).u(20, 0xA5A5A).trailing();
  const Json inSps = FirstChangeOf(WithUnit(H264Clip("same.h264"), "extended-sps.h264", sps.bytes()), "sps");
  EXPECT_EQ(inSps["element"], nullptr);
  EXPECT_THAT(inSps["why"].get<std::string>(), HasSubstr("extension data"));

  // transform_8x8_mode_flag, no scaling lists, second_chroma_qp_index_offset, and bits that no edition has.
  BitBuilder pps;
  pps.u(8, 0x68).ue(3).ue(0).u(1, 0).u(1, 0).ue(0).ue(0).ue(0).u(1, 0).u(2, 0).se(0).se(0).se(0);
  pps.u(1, 1).u(1, 0).u(1, 0).u(1, 1).u(1, 0).se(-2).u(20, 0xA5A5A).trailing();
  const Json inPps = FirstChangeOf(WithUnit(H264Clip("same.h264"), "extended-pps.h264", pps.bytes()), "pps");
  EXPECT_EQ(inPps["element"], nullptr);
  EXPECT_THAT(inPps["why"].get<std::string>(), HasSubstr("extension data"));
}

BitBuilder HevcSpsHead(uint32_t subLayersMinus1) {
  BitBuilder bits;
  bits.u(16, 0x4201).u(4, 0).u(3, subLayersMinus1).u(1, 1);
  bits.u(8, 1).u(32, 0x60000000).u(48, 0x900000000000).u(8, 93);
  for (uint32_t i = 0; i < subLayersMinus1; ++i) bits.u(2, 0);
  if (subLayersMinus1 > 0) bits.u(16 - 2 * static_cast<int>(subLayersMinus1), 0);
  bits.ue(3).ue(1).ue(192).ue(112).u(1, 0).ue(0).ue(0).ue(
      4);  // id, chroma, size, window, depths, order count
  return bits;
}

void HevcSpsSizes(BitBuilder& bits) { bits.ue(0).ue(3).ue(0).ue(3).ue(0).ue(0); }

// From amp_enabled_flag to the end, without VUI.
void HevcSpsTail(BitBuilder& bits) {
  bits.u(1, 0).u(1, 1).u(1, 0).ue(0).u(1, 0).u(1, 1).u(1, 1).u(1, 0).u(1, 0).trailing();
}

TEST(InspectSets, HevcSubLayerValuesOfAnSps) {
  BitBuilder bits = HevcSpsHead(1);
  bits.u(1, 1).ue(4).ue(2).ue(5).ue(3).ue(1).ue(4);  // of two sub-layers
  HevcSpsSizes(bits);
  bits.u(1, 0);
  HevcSpsTail(bits);
  const Json change = FirstChangeOf(WithUnit(HevcClip("same.hevc"), "sps-layers.hevc", bits.bytes()), "sps");
  EXPECT_THAT(change["element"].get<std::string>(), StartsWith("sps_max_"));
  EXPECT_EQ(change["why"], "sub-layer values, of which one is kept");
}

// scaling_list_data() of ITU-T H.265 clause 7.3.4: all lists predicted from a reference but for one with
// values.
void HevcScalingLists(BitBuilder& bits) {
  for (int sizeId = 0; sizeId < 4; ++sizeId) {
    for (int matrix = 0; matrix < (sizeId == 3 ? 2 : 6); ++matrix) {
      const bool values = sizeId == 0 && matrix == 1;
      bits.u(1, values ? 1 : 0);
      if (!values) bits.ue(0);
      for (int i = 0; values && i < 16; ++i) bits.se(i % 3 - 1);
    }
  }
}

TEST(InspectSets, HevcScalingListData) {
  BitBuilder sps = HevcSpsHead(0);
  sps.u(1, 1).ue(4).ue(2).ue(0);
  HevcSpsSizes(sps);
  sps.u(1, 1).u(1, 1);
  HevcScalingLists(sps);
  HevcSpsTail(sps);
  const Json inSps = FirstChangeOf(WithUnit(HevcClip("same.hevc"), "sps-lists.hevc", sps.bytes()), "sps");
  EXPECT_THAT(inSps.dump(), HasSubstr("scaling list"));

  BitBuilder pps;
  pps.u(16, 0x4401).ue(5).ue(0).u(7, 0).ue(0).ue(0).se(0).u(3, 0).se(0).se(0).u(6, 0).u(1, 1).u(1, 0);
  pps.u(1, 1);
  HevcScalingLists(pps);
  pps.u(1, 0).ue(0).u(1, 0).u(1, 0).trailing();
  const Json inPps = FirstChangeOf(WithUnit(HevcClip("same.hevc"), "pps-lists.hevc", pps.bytes()), "pps");
  EXPECT_THAT(inPps["why"].get<std::string>(), HasSubstr("scaling list"));
}

// The library's reading leaves the syntax in HRD parameters, which are shown as the stream has them.
TEST(InspectSets, HevcHrdParameters) {
  const std::string file =
      HevcClip("hrd.hevc", "", "keyint=5:repeat-headers=1:hrd=1:vbv-maxrate=500:vbv-bufsize=500");
  const Json set = InspectJson(file)["streams"][0]["parameter_sets"]["sps"][0];
  ASSERT_EQ(set["read_write_same"], false);
  EXPECT_EQ(set["in_step"], false);
  const TracedUnit traced = FirstTraced(file, "Sequence Parameter Set");
  EXPECT_EQ(set["first_change"]["element"], nullptr);  // what comes back goes on behind the stop bit
  // Each row says what the record has, and what the stream does.
  EXPECT_GT(set["library_reads"].size(), 1u);
  for (const Json& row : set["library_reads"]) EXPECT_NE(row["as"], row["stream"]) << row.dump();
  const Json& elements = set["elements"];
  EXPECT_EQ(elements["nal_sub_layer_hrd_parameters[0].bit_rate_value_minus1"][0],
            traced.value("bit_rate_value_minus1[0]"));
  EXPECT_EQ(elements["nal_sub_layer_hrd_parameters[0].cpb_size_value_minus1"][0],
            traced.value("cpb_size_value_minus1[0]"));
  EXPECT_EQ(elements["bitstream_restriction_flag"], traced.value("bitstream_restriction_flag"));
}

// ITU-T H.264 clause 7.3.2.1.3: a subset SPS of two views (annex H), which the library has no record for, and
// an SPS extension (clause 7.3.2.1.2).
TEST(InspectSets, SubsetSpsAndSpsExtension) {
  BitBuilder bits;
  bits.u(8, 0x6F).u(8, 118).u(8, 0).u(8, 30).ue(5).ue(1).ue(0).ue(0).u(1, 0).u(1, 0).ue(0).ue(2);
  H264SpsSize(bits).u(1, 0);
  bits.u(1, 1).ue(1).ue(0).ue(1);                       // bit_equal_to_one, two views
  bits.ue(1).ue(0).ue(0).ue(1).ue(0).ue(0);             // references of the second: anchor, then the others
  bits.ue(0).u(8, 30).ue(0).u(3, 0).ue(0).ue(0).ue(1);  // one level, for one operation point
  bits.u(1, 0).u(1, 0).trailing();                      // no VUI extension, no further one
  const Json report = InspectJson(WithUnit(H264Clip("same.h264"), "views.h264", bits.bytes()));
  const Json& sets = report["streams"][0]["parameter_sets"];
  ASSERT_EQ(sets["subset_sps"].size(), 1u) << sets.dump();
  const Json& set = sets["subset_sps"][0];
  EXPECT_FALSE(set.contains("read_write_same"));
  EXPECT_EQ(set["profile"], "Multiview High");
  EXPECT_EQ(set["elements"]["seq_parameter_set_id"], 5);
  EXPECT_EQ(set["elements"]["seq_parameter_set_mvc_extension.num_views_minus1"], 1);
  EXPECT_EQ(set["elements"]["seq_parameter_set_mvc_extension.view_id"], (Json{0, 1}));
  EXPECT_EQ(set["elements"]["level_idc"], 30);
  EXPECT_EQ(set["elements"]["seq_parameter_set_mvc_extension.level_idc"], Json::array({30}));

  BitBuilder extension;
  extension.u(8, 0x6D).ue(0).ue(1).ue(0).u(1, 1).u(9, 255).u(9, 16).u(1, 0).trailing();
  const Json other = InspectJson(WithUnit(H264Clip("same.h264"), "alpha.h264", extension.bytes()));
  EXPECT_EQ(other["streams"][0]["parameter_sets"]["sps_extension"][0]["elements"]["alpha_opaque_value"], 255);
}

// A PPS of three columns: the record lacks the last width; and one with scaling lists, which stand in front
// of elements that the library then misreads.
TEST(InspectSets, HevcElementsThatTheRecordLacks) {
  BitBuilder tiles;
  tiles.u(16, 0x4401).ue(5).ue(0).u(7, 0).ue(0).ue(0).se(0).u(3, 0).se(0).se(0).u(4, 0).u(1, 1).u(1, 0);
  tiles.ue(2)
      .ue(0)
      .u(1, 0)
      .ue(3)
      .ue(4)
      .u(1, 1)
      .u(1, 1)
      .u(1, 0)
      .u(1, 0)
      .u(1, 0)
      .ue(0)
      .u(1, 0)
      .u(1, 0)
      .trailing();
  const Json pps = InspectJson(
      WithUnit(HevcClip("same.hevc"), "tiles.hevc", tiles.bytes()))["streams"][0]["parameter_sets"]["pps"][0];
  EXPECT_EQ(pps["elements"]["column_width_minus1"], (Json{3, 4}));
  EXPECT_EQ(pps["elements"]["loop_filter_across_tiles_enabled_flag"], 1);

  BitBuilder lists;
  lists.u(16, 0x4401).ue(5).ue(0).u(7, 0).ue(0).ue(0).se(0).u(3, 0).se(0).se(0).u(6, 0).u(1, 1).u(1, 0);
  lists.u(1, 1);
  HevcScalingLists(lists);
  lists.u(1, 0).ue(2).u(1, 0).u(1, 0).trailing();
  const Json behind = InspectJson(WithUnit(HevcClip("same.hevc"), "behind-lists.hevc",
                                           lists.bytes()))["streams"][0]["parameter_sets"]["pps"][0];
  EXPECT_EQ(behind["elements"]["log2_parallel_merge_level_minus2"], 2);
  EXPECT_EQ(behind["elements"]["slice_segment_header_extension_present_flag"], 0);
  EXPECT_THAT(behind["library_reads"].dump(), HasSubstr("log2_parallel_merge_level_minus2"));
}

TEST(InspectSets, TheLibraryReadsItAs) {
  BitBuilder bits = H264SpsUpToOrderType();
  bits.ue(1).u(1, 0).se(-2).se(1).ue(2).se(3).se(-1);
  H264SpsSize(bits).u(1, 0).trailing();
  const std::string file = WithUnit(H264Clip("same.h264"), "order1-rows.h264", bits.bytes());
  const Json set = InspectJson(file)["streams"][0]["parameter_sets"]["sps"][0];
  EXPECT_EQ(set["elements"]["offset_for_non_ref_pic"], -2);
  EXPECT_EQ(set["elements"]["offset_for_ref_frame"], (Json{3, -1}));
  const Json& rows = set["library_reads"];
  ASSERT_FALSE(rows.empty());
  // Code numbers (table 9-3), and of the cycle the last.
  EXPECT_THAT(rows,
              testing::Contains(Json{{"element", "offset_for_non_ref_pic"}, {"as", 4}, {"stream", -2}}));
  EXPECT_THAT(
      rows, testing::Contains(Json{{"element", "offset_for_ref_frame"}, {"as", 2}, {"stream", Json{3, -1}}}));
  EXPECT_THAT(Qlnmedia("inspect --library --frames 1 '" + file + "'").output, HasSubstr("The library reads"));
}

TEST(InspectHevc, EveryContainerGoesThroughTheLibrary) {
  const struct {
    const char* name;
    const char* options;
    const char* form;
    const char* tag;
  } kFiles[] = {{"boxes1.mp4", "-tag:v hvc1", "hvcC", "hvc1"}, {"boxes2.mp4", "-tag:v hev1", "hvcC", "hev1"},
                {"boxes3.mov", "-tag:v hvc1", "hvcC", "hvc1"}, {"boxes4.mov", "-tag:v hev1", "hvcC", "hev1"},
                {"boxes5.mkv", "", "hvcC", nullptr},           {"boxes6.ts", "", nullptr, nullptr}};
  for (const auto& file : kFiles) {
    SCOPED_TRACE(file.name);
    const Json report = InspectJson(HevcClip(file.name, file.options));
    const Json& stream = report["streams"][0];
    if (file.tag != nullptr) {
      EXPECT_EQ(stream["tag"], file.tag);
    }
    if (file.form != nullptr) {
      EXPECT_EQ(stream["configuration"]["form"], file.form);
      EXPECT_EQ(stream["configuration"]["read_by_library"], true);
      EXPECT_EQ(stream["configuration"]["profile"], "Main");
      EXPECT_EQ(stream["configuration"]["length_bytes"], 4);
    }
    const Json& sets = stream["parameter_sets"];
    EXPECT_EQ(sets["sps"][0]["profile"], "Main");
    EXPECT_EQ(sets["sps"][0]["picture_size"]["width"], 192);
    EXPECT_EQ(sets["vps"].size(), 1u);
    EXPECT_EQ(sets["pps"].size(), 1u);
    EXPECT_EQ(stream["frames"][0]["slice_types"], "I");
    EXPECT_EQ(stream["frames"][0]["scan_count"], stream["frames"][0]["unit_count"]);
  }
}

// A file of which only the first bytes are there.
std::string Cut(const std::string& file, const std::string& name, size_t keep) {
  const Bytes whole = ReadFile(file);
  const std::string path = MediaPath(name);
  WriteFile(path, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(keep)));
  return path;
}

TEST(InspectCut, TransportStreamIsShownWithANote) {
  const std::string whole = H264Clip("whole.ts");
  const size_t packets = ReadFile(whole).size() / 188;
  const Json report = InspectJson(Cut(whole, "cut.ts", packets / 2 * 188 + 100));
  EXPECT_EQ(report["streams"][0]["parameter_sets"]["sps"].size(), 1u);
  ASSERT_TRUE(report.contains("notes"));
  EXPECT_THAT(report["notes"][0].get<std::string>(), HasSubstr("the file ends early"));
}

TEST(InspectCaptions, AreFoundInBothCodecs) {
  const Bytes message = Hex("04 11 B5 00 31 47 41 39 34 03 42 FF FC 94 2C FD 80 80 FF 80");
  Bytes h264 = {0x06};
  Bytes hevc = {0x4E, 0x01};
  h264.insert(h264.end(), message.begin(), message.end());
  hevc.insert(hevc.end(), message.begin(), message.end());
  for (const std::string& file : {WithUnit(H264Clip("same.h264"), "captions.h264", h264),
                                  WithUnit(HevcClip("same.hevc"), "captions.hevc", hevc)}) {
    const Json frame = InspectJson(file)["streams"][0]["frames"][0];
    ASSERT_TRUE(frame.contains("captions")) << frame.dump();
    EXPECT_EQ(frame["captions"]["form"], "GA94");
    EXPECT_EQ(frame["captions"]["cc_count"], 2);
  }
  EXPECT_FALSE(InspectJson(H264Clip("same.h264"))["streams"][0]["frames"][0].contains("captions"));
}

}  // namespace
}  // namespace qln::test
