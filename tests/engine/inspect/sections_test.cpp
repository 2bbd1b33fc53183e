// Sections of the report, from streams made by hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "inspect/captions.h"
#include "inspect/coded_frames.h"
#include "inspect/dolby_vision.h"
#include "inspect/inspect.h"
#include "inspect/stream.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;
using testing::ElementsAre;

MediaStream Pictures() {
  MediaStream stream;
  stream.index = 1;
  stream.kind = StreamKind::kVideo;
  stream.movingPictures = true;
  stream.codecName = "h264";
  stream.tag = 0x31637661;
  stream.coded.codec = VideoCodec::kH264;
  stream.coded.timeBase = {1, 12800};
  stream.coded.averageRate = {25, 1};
  stream.hasColourDescription = true;
  stream.width = 1920;
  stream.height = 1080;
  stream.duration = 12800 * 90;
  return stream;
}

Json StreamJson(const MediaStream& stream) {
  Section report;
  AddStream(report, stream);
  return report.ToJson()["streams"][0];
}

TEST(StreamSection, PicturesByTheirContainer) {
  const Json json = StreamJson(Pictures());
  EXPECT_EQ(json["index"], 1);
  EXPECT_EQ(json["type"], "video");
  EXPECT_EQ(json["codec"], "h264");
  EXPECT_EQ(json["tag"], "avc1");
  EXPECT_EQ(json["width"], 1920);
  EXPECT_EQ(json["average_frame_rate"], (Json{{"numerator", 25}, {"denominator", 1}}));
  EXPECT_EQ(json["time_base"], (Json{{"numerator", 1}, {"denominator", 12800}}));
  EXPECT_EQ(json["duration"], 90.0);
  for (const char* absent : {"container_colour", "container_range", "dolby_vision", "sample_rate"})
    EXPECT_FALSE(json.contains(absent)) << absent;
}

TEST(StreamSection, TagsThatAreNoTextAreNumbers) {
  MediaStream stream = Pictures();
  stream.tag = 0x1B;  // stream type of H.264 in a transport stream
  EXPECT_EQ(StreamJson(stream)["tag"], 27);
  stream.tag = 0x20637661;  // "avc "
  EXPECT_EQ(StreamJson(stream)["tag"], "avc ");
}

// Descriptors of transport streams may hold anything where a language is expected.
TEST(StreamSection, TextThatIsNoneIsANumber) {
  MediaStream stream = Pictures();
  stream.language = "deu";
  stream.tags = {{"title",
                  "Gr\xC3\xBC\xC3\x9F"
                  "e"},
                 {"service", "\x1B\x01"},
                 {"long", std::string(9, '\xFF')}};
  const Json json = StreamJson(stream);
  EXPECT_EQ(json["language"], "deu");
  EXPECT_EQ(json["tags"]["title"],
            "Gr\xC3\xBC\xC3\x9F"
            "e");
  EXPECT_EQ(json["tags"]["service"], 0x1B01);
  EXPECT_EQ(json["tags"]["long"], "FFFFFFFFFFFFFFFFFF");
  stream.language = "\xFF\xFE";
  EXPECT_EQ(StreamJson(stream)["language"], 0xFFFE);
}

TEST(StreamSection, PicturesThatAreToBeTurnedAndEncryptedOnes) {
  MediaStream stream = Pictures();
  EXPECT_FALSE(StreamJson(stream).contains("rotation"));
  stream.rotation = -90.0;
  stream.displayMatrix = {0, 65536, 0, -65536, 0, 0, 0, 0, 1073741824};
  stream.encrypted = true;
  const Json json = StreamJson(stream);
  EXPECT_EQ(json["rotation"], -90.0);
  EXPECT_EQ(json["display_matrix"][1], 65536);
  EXPECT_EQ(json["encrypted"], true);
}

TEST(StreamSection, ColourOnlyWhereTheContainerHasAPlaceForIt) {
  MediaStream stream = Pictures();
  stream.container.primaries = 9;
  stream.container.range = kFullRange;
  EXPECT_EQ(StreamJson(stream)["container_colour"], (Json{{"primaries", 9}, {"transfer", 2}, {"matrix", 2}}));
  EXPECT_EQ(StreamJson(stream)["container_range"], "full");
  stream.hasColourDescription = false;
  EXPECT_FALSE(StreamJson(stream).contains("container_colour"));
  EXPECT_FALSE(StreamJson(stream).contains("container_range"));
}

TEST(StreamSection, SoundHasNoPictureSize) {
  MediaStream stream;
  stream.kind = StreamKind::kAudio;
  stream.codecName = "aac";
  stream.sampleRate = 48000;
  stream.channels = 6;
  const Json json = StreamJson(stream);
  EXPECT_EQ(json["type"], "audio");
  EXPECT_EQ(json["sample_rate"], 48000);
  EXPECT_EQ(json["channels"], 6);
  EXPECT_FALSE(json.contains("width"));
  EXPECT_FALSE(json.contains("duration"));
  EXPECT_FALSE(json.contains("tag"));
}

TEST(StreamSection, DolbyVisionByItsPublishedNames) {
  MediaStream stream = Pictures();
  stream.dolbyVision = DolbyVisionConfiguration{.dv_version_major = 1,
                                                .dv_profile = 8,
                                                .dv_level = 6,
                                                .rpu_present_flag = 1,
                                                .bl_present_flag = 1,
                                                .dv_bl_signal_compatibility_id = 4};
  const Json json = StreamJson(stream)["dolby_vision"];
  EXPECT_EQ(json["dv_profile"], 8);
  EXPECT_EQ(json["dv_level"], 6);
  EXPECT_EQ(json["el_present_flag"], 0);
  EXPECT_EQ(json["dv_bl_signal_compatibility_id"], 4);
}

TEST(CaptionSection, ServicesAndTheirFirstLines) {
  CaptionService first{"CC1", {}};
  for (int i = 0; i < 7; ++i) first.lines.push_back({i * 1.0, i + 0.5, "line " + std::to_string(i)});
  Section section;
  AddCaptionServices(section, {first, {"service 1", {}}});
  const Json json = section.ToJson();
  EXPECT_EQ(json["captions"], (Json{"CC1", "service 1"}));
  ASSERT_EQ(json["notes"].size(), 5u);
  EXPECT_THAT(json["notes"][4].get<std::string>(), testing::HasSubstr("line 4"));
  Section padding;
  AddCaptionServices(padding, {});
  EXPECT_EQ(padding.ToJson()["captions"], Json::array());
  EXPECT_EQ(padding.nodes()[0]->text, "nothing but padding");
}

TEST(SetCollector, EqualSetsCountOnceWithAllTheirPlaces) {
  MediaStream described = Pictures();
  described.coded.privateData = Hex("01 4D001F FF E1 0004 674D001F 01 0002 6880");
  CodedStream stream = MakeCodedStream(described);
  EXPECT_EQ(stream.configName(), "avcC");
  EXPECT_EQ(stream.config.framing.lengthBytes, 4);
  const Bytes same = Hex("00000004 674D001F 00000002 6588");
  stream.packets.push_back({same, 0, 0, true});
  stream.packets.push_back({Hex("00000003 6880FF 00000002 4188"), 512, 512, false});
  stream.packets.push_back({same, 1024, 1024, true});
  std::vector<std::string> places;
  const SetCollector collector(stream);
  for (const FoundSet& set : collector.sets())
    places.push_back(std::to_string(set.type) + ": " + set.Places());
  EXPECT_THAT(places, ElementsAre("7: avcC, frame 0, frame 2", "8: avcC", "8: frame 1"));
}

TEST(ReportTree, HoldsWhatTheJsonFormHolds) {
  Section report("clip");
  report.Add("size", "Size", 12, "12 bytes", "small");
  Section& first = report.AddToList("streams", "Stream 0");
  first.AddTable("units", "Units", {{"type", "Type", true}, {"bytes", "", true, true}},
                 {{Cell(7, "SPS"), Cell(20)}, {Cell(8), Cell(4)}});
  first.AddElements("sps", "SPS", {{"level_idc", 31, "3.1"}});
  report.AddToList("streams", "Stream 1").AddNote("cut off");
  const ReportItem tree = TreeOf(report);
  EXPECT_EQ(tree.label, "clip");
  ASSERT_EQ(tree.children.size(), 3u);
  const ReportItem& size = tree.children[0];
  EXPECT_EQ(size.kind, ReportItem::Kind::kFact);
  EXPECT_EQ(size.key + size.label + size.value + size.text + size.note, "sizeSize1212 bytessmall");
  const ReportItem& stream = tree.children[1];
  EXPECT_TRUE(stream.inList);
  EXPECT_EQ(stream.key, "streams");
  const ReportItem& table = stream.children[0];
  EXPECT_EQ(table.kind, ReportItem::Kind::kTable);
  ASSERT_EQ(table.columns.size(), 2u);
  EXPECT_EQ(table.columns[0].key + table.columns[0].label, "typeType");
  EXPECT_TRUE(table.columns[0].right);
  EXPECT_EQ(table.columns[1].key + table.columns[1].label, "bytes");  // for programs alone
  ASSERT_EQ(table.children.size(), 2u);
  EXPECT_EQ(table.children[0].children[0].text, "SPS");
  EXPECT_EQ(table.children[1].children[0].text, "8");
  EXPECT_EQ(table.children[1].children[1].label, "");  // for programs alone
  EXPECT_EQ(table.children[1].children[1].value, "4");
  EXPECT_EQ(stream.children[1].kind, ReportItem::Kind::kElements);
  EXPECT_EQ(stream.children[1].children[0].kind, ReportItem::Kind::kElement);
  EXPECT_EQ(stream.children[1].children[0].note, "3.1");
  EXPECT_EQ(tree.children[2].children[0].text, "cut off");
}

TEST(Times, InSecondsOrNotKnown) {
  EXPECT_EQ(TimeText(512, {1, 12800}), "0.040");
  EXPECT_EQ(TimeText(kNoTime, {1, 12800}), "-");
  EXPECT_EQ(TimeJson(512, {1, 12800}), 0.04);
  EXPECT_TRUE(TimeJson(kNoTime, {1, 12800}).is_null());
}

}  // namespace
}  // namespace qlnmedia
