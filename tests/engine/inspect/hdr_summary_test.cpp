// The words for high dynamic range, from values alone.

#include "inspect/hdr_summary.h"

#include <gtest/gtest.h>

#include "engine/small_streams.h"
#include "inspect/hdr_section.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;

constexpr uint32_t kBt2020 = 9;
constexpr uint32_t kPq = 16;
constexpr uint32_t kHlg = 18;

Json Summary(const MediaStream& stream, const HdrSeen& seen, uint32_t primaries, uint32_t transfer,
             std::string* line = nullptr) {
  Section section;
  AddHdrSummary(section, stream, seen, primaries, transfer);
  if (line != nullptr && section.nodes().size() > 1) *line = section.nodes()[1]->text;
  return section.ToJson()["hdr"];
}

std::string Line(const MediaStream& stream, const HdrSeen& seen, uint32_t primaries, uint32_t transfer) {
  std::string line;
  Summary(stream, seen, primaries, transfer, &line);
  return line;
}

HdrSeen Mastered() {
  HdrSeen seen;
  seen.values.mastering = ParseMasteringDisplay("p3");
  return seen;
}

TEST(HdrSummary, StandardRangeIsNone) { EXPECT_TRUE(Summary({}, {}, 1, 1).is_null()); }

TEST(HdrSummary, TheKindByTransferPrimariesAndMessages) {
  EXPECT_EQ(Line({}, {}, kBt2020, kHlg), "HLG");
  EXPECT_EQ(Line({}, {}, kBt2020, kPq), "PQ");
  EXPECT_EQ(Summary({}, Mastered(), kBt2020, kPq)["kind"], "HDR10");
  EXPECT_EQ(Summary({}, Mastered(), 1, kPq)["kind"], "PQ");
  EXPECT_TRUE(Summary({}, Mastered(), 1, 1)["kind"].is_null());
}

TEST(HdrSummary, ValuesOfTheStreamAndElseOfTheContainer) {
  MediaStream stream;
  stream.lightLevel = LightLevel{600, 200};
  stream.mastering = ParseMasteringDisplay("bt2020");
  std::string line;
  const Json json = Summary(stream, Mastered(), kBt2020, kPq, &line);
  EXPECT_EQ(json["mastering_display"]["gamut"], "Display P3");
  EXPECT_EQ(json["max_content_light_level"], 600);
  EXPECT_EQ(line, "HDR10, mastered on Display P3, 0.0001 to 1000 cd/m2, light level 600 cd/m2, average 200");
  EXPECT_EQ(Summary(stream, {}, kBt2020, kPq)["mastering_display"]["gamut"], "BT.2020");
  HdrSeen odd = Mastered();
  odd.values.mastering->red.x += 1;
  EXPECT_TRUE(Summary({}, odd, kBt2020, kPq)["mastering_display"]["gamut"].is_null());
  EXPECT_EQ(Line({}, odd, kBt2020, kPq), "HDR10, mastered on 0.0001 to 1000 cd/m2");
}

TEST(HdrSummary, DolbyVisionByItsRecordOrItsMetadata) {
  MediaStream stream;
  stream.dolbyVision =
      DolbyVisionConfiguration{.dv_profile = 8, .dv_level = 6, .dv_bl_signal_compatibility_id = 1};
  EXPECT_EQ(Line(stream, {}, kBt2020, kPq), "PQ, Dolby Vision profile 8.1 level 6");
  stream.dolbyVision->dv_profile = 5;
  EXPECT_EQ(Summary(stream, {}, 2, 2)["dolby_vision"], (Json{{"profile", "5"}, {"level", 6}}));
  HdrSeen seen;
  seen.dolbyVision = true;
  EXPECT_EQ(Line({}, seen, kBt2020, kPq), "PQ, Dolby Vision metadata");
}

TEST(HdrSeen, KeepsTheFirstOfEachKind) {
  const auto level = [](const char* payload) { return MakeSeiUnit(Hex("4E01"), {{144, Hex(payload)}}); };
  HdrSeen seen;
  seen.Take(Codec::kHevc, test::UnitList({level("03E8 0190")}));
  seen.Take(Codec::kHevc, test::UnitList({level("0064 0032"), Hex("7C01 19 80")}));
  EXPECT_EQ(seen.values.lightLevel, (LightLevel{1000, 400}));
  EXPECT_TRUE(seen.dolbyVision);
  EXPECT_FALSE(seen.dynamic);
  seen.Take(Codec::kHevc, test::UnitList({MakeSeiUnit(Hex("4E01"), {{4, Hex("B5 003C 0001 04 01 40")}})}));
  EXPECT_TRUE(seen.dynamic);
}

TEST(HdrSections, WhatThereIsOfTheTwo) {
  Section section;
  AddHdr(section, {});
  EXPECT_TRUE(section.ToJson().empty());
  AddHdr(section, {std::nullopt, LightLevel{1000, 400}});
  EXPECT_EQ(section.ToJson(), (Json{{"content_light_level", {{"max", 1000}, {"average", 400}}}}));
}

}  // namespace
}  // namespace qlnmedia
