// Parameter sets and configuration records in the report: facts of a set beside its elements, titles, what
// the head of a record says, and what breaks off.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "coded_streams.h"
#include "engine/check/check_parts.h"
#include "inspect/configuration.h"
#include "inspect/parameter_sets.h"
#include "inspect/sps_section.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;
using test::HevcPps;
using test::HevcSps;
using test::HevcStream;
using testing::ElementsAre;
using testing::HasSubstr;

Json Sets(const CodedStream& stream) {
  MessageSink messages;
  Section section;
  AddParameterSets(section, stream, messages);
  return section.ToJson()["parameter_sets"];
}

Json Record(const CodedStream& stream) {
  MessageSink messages;
  Section section;
  AddConfiguration(section, stream, messages);
  return section.ToJson()["configuration"];
}

CodedStream H264Stream(const Bytes& privateData) {
  CodedStream stream;
  stream.privateData = privateData;
  stream.config = ReadConfigRecord(Codec::kH264, privateData);
  return stream;
}

TEST(SetSections, AnH264SpsInWords) {
  const Json sps = Sets(
      H264Stream(test::MakeAvcc(test::MakeSps({.primaries = 9, .fullRange = true, .aspect = 2}))))["sps"][0];
  EXPECT_EQ(sps["found_in"], (Json{"avcC"}));
  EXPECT_EQ(sps["profile"], "Main");
  EXPECT_EQ(sps["level"], "3.1");
  EXPECT_EQ(sps["picture_size"], (Json{{"width", 128}, {"height", 96}}));
  EXPECT_EQ(sps["chroma_format"], "4:2:0");
  EXPECT_EQ(sps["bit_depth"], (Json{{"luma", 8}, {"chroma", 8}}));
  EXPECT_EQ(sps["scan"], "frames");
  EXPECT_EQ(sps["sample_aspect_ratio"], (Json{{"width", 12}, {"height", 11}}));
  EXPECT_EQ(sps["frame_rate"], (Json{{"numerator", 25}, {"denominator", 1}}));
  EXPECT_EQ(sps["range"], "full");
  EXPECT_EQ(sps["colour_primaries_name"], "BT.2020");
  EXPECT_EQ(sps["read_write_same"], true);
  EXPECT_EQ(sps["elements"]["level_idc"], 31);
  const Json fields =
      Sets(H264Stream(test::MakeAvcc(test::MakeSps({.frameMbsOnly = false, .fixedRate = false}))))["sps"][0];
  EXPECT_EQ(fields["scan"], "fields or frames");
}

// ITU-T H.265: the general flags of the source, and field_seq_flag.
TEST(SetSections, AnHevcSpsInWords) {
  const auto sps = [](const test::HevcSpsParts& parts) {
    return Sets(HevcStream({HevcSps(parts)}, {}))["sps"][0];
  };
  const Json plain = sps({.transfer = 16});
  EXPECT_EQ(plain["profile"], "Main");
  EXPECT_EQ(plain["tier"], "Main");
  EXPECT_EQ(plain["level"], "3.1");
  EXPECT_EQ(plain["picture_size"], (Json{{"width", 64}, {"height", 64}}));
  EXPECT_EQ(plain["scan"], "frames");
  EXPECT_EQ(plain["source_scan"], "unknown");
  EXPECT_EQ(plain["transfer_characteristics_name"], "PQ (SMPTE ST 2084)");
  EXPECT_EQ(plain["frame_rate"], (Json{{"numerator", 25}, {"denominator", 1}}));
  EXPECT_EQ(sps({.progressive = true})["source_scan"], "progressive");
  EXPECT_EQ(sps({.interlaced = true, .fieldSeq = true})["source_scan"], "interlaced");
  EXPECT_EQ(sps({.interlaced = true, .fieldSeq = true})["scan"], "fields");
  EXPECT_EQ(sps({.progressive = true, .interlaced = true})["source_scan"], "by picture");
}

TEST(SetSections, TitlesNameKindNumberAndLayer) {
  MessageSink messages;
  Section section;
  AddParameterSets(
      section,
      HevcStream({test::HevcVps(), HevcSps({.id = 3}), HevcPps(2), HevcSps({.id = 1, .layer = 1})}, {}),
      messages);
  std::vector<std::string> titles;
  for (const auto& set : section.nodes().at(0)->section.nodes()) titles.push_back(set->section.title());
  EXPECT_THAT(titles, ElementsAre("VPS 0", "SPS 3", "PPS 2", "SPS 1, layer 1"));
}

TEST(SetSections, NoneAtAll) {
  EXPECT_THAT(Sets(HevcStream({}, {{test::HevcSlice(19, 0)}}))["notes"], ElementsAre("none found"));
}

TEST(SetSections, WhatBreaksOff) {
  const Bytes sps = test::MakeSps();
  const auto notes = [](const Bytes& set) {
    CodedStream stream;
    stream.packets.push_back({test::PacketOf({set}), 0, 0, true});
    const Json json = Sets(stream)["sps"][0];
    std::string all;
    for (const Json& note : json.value("notes", Json::array())) all += note.get<std::string>() + "\n";
    return all;
  };
  EXPECT_EQ(notes(sps).find("cut off"), std::string::npos);
  const Bytes cut(sps.begin(), sps.begin() + 6);
  EXPECT_THAT(notes(cut), testing::AnyOf(HasSubstr("the set is cut off: "), HasSubstr("has no stop bit")));
  // A cycle of 256 offsets is one too many (ITU-T H.264 clause 7.4.2.1.1).
  const Bytes high = qln::test::BitBuilder()
                         .u(8, 0x67)
                         .u(24, 0x4D001F)
                         .ue(0)
                         .ue(0)
                         .ue(1)
                         .u(1, 0)
                         .se(0)
                         .se(0)
                         .ue(256)
                         .u(32, 0xFFFF)
                         .trailing()
                         .bytes();
  EXPECT_THAT(notes(high),
              HasSubstr("num_ref_frames_in_pic_order_cnt_cycle is above what the standard allows"));
}

TEST(RecordSections, TheFormOfPrivateData) {
  EXPECT_EQ(Record(CodedStream())["form"], "none");
  EXPECT_EQ(Record(HevcStream({HevcSps()}, {}))["form"], "start codes");
  EXPECT_EQ(Record(HevcStream({HevcSps()}, {})).size(), 1u);
}

// ISO/IEC 14496-15 clause 5.3.3.1: the head of an avcC repeats what its SPS says.
TEST(RecordSections, AnAvccAndItsSets) {
  const Json record = Record(H264Stream(test::MakeAvcc(test::MakeSps())));
  EXPECT_EQ(record["form"], "avcC");
  EXPECT_EQ(record["length_bytes"], 4);
  EXPECT_EQ(record["AVCProfileIndication"], 77);
  EXPECT_EQ(record["AVCLevelIndication"], 31);
  EXPECT_EQ(record["sps_count"], 1);
  EXPECT_EQ(record["pps_count"], 1);
  EXPECT_EQ(record["read_by_library"], true);
  EXPECT_FALSE(record.contains("notes"));
  const Json other = Record(H264Stream(test::MakeAvcc(test::MakeSps(), 100, 40)));
  EXPECT_THAT(other["notes"][0].get<std::string>(), HasSubstr("the head says otherwise than the sets: "));
  Bytes cut = test::MakeAvcc(test::MakeSps());
  cut.resize(cut.size() - 2);
  EXPECT_FALSE(Record(H264Stream(cut))["notes"].empty());
}

// Clause 8.3.3.1.
TEST(RecordSections, AnHvccAndItsArrays) {
  Bytes box = Hex("01 01 40000000 000000000000 5D F000 FC FD F8 F8 0000 0F 02");
  for (const auto& [head, unit] : {std::pair{0xA1, HevcSps()}, std::pair{0x22, HevcPps()}}) {
    for (const size_t byte : {static_cast<size_t>(head), size_t{0}, size_t{1}, size_t{0}, unit.size()})
      box.push_back(static_cast<uint8_t>(byte));
    box.insert(box.end(), unit.begin(), unit.end());
  }
  CodedStream stream;
  stream.codec = Codec::kHevc;
  stream.privateData = box;
  stream.config = ReadConfigRecord(Codec::kHevc, box);
  const Json record = Record(stream);
  EXPECT_EQ(record["form"], "hvcC");
  EXPECT_EQ(record["profile"], "Main");
  EXPECT_EQ(record["level"], "3.1");
  EXPECT_EQ(record["bit_depth"], (Json{{"luma", 8}, {"chroma", 8}}));
  ASSERT_EQ(record["arrays"].size(), 2u);
  EXPECT_EQ(record["arrays"][0],
            (Json{{"nal_unit_type", 33}, {"name", "SPS"}, {"complete", true}, {"units", 1}}));
  EXPECT_EQ(record["arrays"][1]["complete"], false);
  EXPECT_FALSE(record.contains("notes")) << record["notes"];
}

TEST(SetProfiles, ByTheStandardsNames) {
  const SetProfile main = ProfileOf(Codec::kH264, test::MakeSps({.profile = 77, .level = 40}));
  EXPECT_EQ(main.profile + " " + main.level + main.tier, "Main 4");
  const SetProfile baseline = ProfileOf(Codec::kH264, Hex("67 42 C0 0B 80"));
  EXPECT_EQ(baseline.profile, "Constrained Baseline");
  EXPECT_EQ(ProfileOf(Codec::kH264, Hex("67 42 10 0B 80")).level, "1b");  // constraint_set3_flag
  EXPECT_EQ(ProfileOf(Codec::kHevc, test::HevcVps()).profile, "Main");
  EXPECT_EQ(ProfileOf(Codec::kH264, Hex("67")).profile, "");
}

}  // namespace
}  // namespace qlnmedia
