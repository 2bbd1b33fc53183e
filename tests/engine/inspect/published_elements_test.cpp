// Names, arrays and added words of a set's elements in the report, and what is said of the library's record.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/library_messages.h"
#include "inspect/departures.h"
#include "inspect/library_record.h"
#include "inspect/published_elements.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::BitBuilder;

// ITU-T H.264 clause 7.3.2.1.1: High with scaling lists, two HRD schedules.
Bytes HighSps() {
  BitBuilder bits;
  bits.u(8, 0x67).u(8, 100).u(8, 0).u(8, 31).ue(0).ue(1).ue(0).ue(0).u(1, 0).u(1, 1);
  bits.u(1, 0).u(1, 1);      // the second list, of differences
  bits.se(2).se(-3).se(-7);  // 10, 7, and 0: the rest is 7
  bits.u(6, 0);
  bits.ue(0).ue(2).ue(1).u(1, 0).ue(7).ue(5).u(1, 1).u(1, 1).u(1, 0);
  bits.u(1, 1).u(5, 0).u(1, 1).ue(1).u(4, 1).u(4, 2);  // vui, timing absent, NAL HRD of two
  bits.ue(10).ue(20).u(1, 0).ue(11).ue(21).u(1, 1);
  bits.u(5, 23).u(5, 22).u(5, 21).u(5, 24).u(1, 0).u(1, 0).u(1, 0).u(1, 0);
  return bits.trailing().bytes();
}

Json Listed(Codec codec, const Bytes& unit) {
  const PublishedSet set(codec, unit, {});
  EXPECT_TRUE(set.set.whole()) << set.set.endedAt;
  Json json = Json::object();
  for (const Element& element : set.elements) {
    EXPECT_FALSE(json.contains(element.name)) << element.name;
    json[element.name] = element.value;
  }
  return json;
}

TEST(PublishedElements, OfAnH264Sps) {
  const Json json = Listed(Codec::kH264, HighSps());
  EXPECT_EQ(json["seq_scaling_list_present_flag"], (Json{0, 1, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(json["scaling_list[1].delta_scale"], (Json{2, -3, -7}));
  EXPECT_EQ(json["ScalingList4x4[1]"], (Json{10, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7}));
  EXPECT_FALSE(json.contains("ScalingList4x4[0]"));
  EXPECT_EQ(json["nal_hrd.cpb_cnt_minus1"], 1);
  EXPECT_EQ(json["nal_hrd.schedule[1].bit_rate_value_minus1"], 11);
  EXPECT_EQ(json["nal_hrd.schedule[1].cbr_flag"], 1);
  EXPECT_EQ(json["nal_hrd.time_offset_length"], 24);
  EXPECT_FALSE(json.contains("vcl_hrd.cpb_cnt_minus1"));
  EXPECT_EQ(json["rbsp_stop_one_bit"], 1);
}

// ITU-T H.265 clause 7.3.2.1 with a profile of the second of two sub-layers absent, its level there.
Bytes HevcVps() {
  BitBuilder bits;
  bits.u(16, 0x4001).u(4, 3).u(2, 3).u(6, 0).u(3, 1).u(1, 1).u(16, 0xFFFF);
  bits.u(8, 1).u(32, 0x60000000).u(48, 0x900000000000).u(8, 93).u(2, 1).u(14, 0).u(8, 90);
  bits.u(1, 1).ue(4).ue(2).ue(5).ue(3).ue(1).ue(4).u(6, 0).ue(0);
  bits.u(1, 1).u(32, 1001).u(32, 30000).u(1, 1).ue(6).ue(0).u(1, 0);
  return Escape(bits.trailing().bytes());
}

TEST(PublishedElements, OfAnHevcVps) {
  const Json json = Listed(Codec::kHevc, HevcVps());
  EXPECT_EQ(json["vps_base_layer_internal_flag"], 1);
  EXPECT_EQ(json["vps_max_dec_pic_buffering_minus1"], (Json{4, 3}));
  EXPECT_EQ(json["sub_layer_level_present_flag"], Json::array({1}));
  EXPECT_EQ(json["sub_layer_level_idc"], Json::array({90}));
  EXPECT_EQ(json["reserved_zero_2bits"][0], nullptr);
  EXPECT_EQ(json["reserved_zero_2bits"][7], 0);
  EXPECT_EQ(json["general_profile_compatibility_flag"][1], 1);
  EXPECT_EQ(json["general_profile_compatibility_flag"].size(), 32u);
  EXPECT_EQ(json["general_profile_compatibility_flags"], 0x60000000);
  EXPECT_EQ(json["general_constraint_indicator_flags"], 0x900000000000);
  EXPECT_EQ(json["vps_num_ticks_poc_diff_one_minus1"], 6);
  EXPECT_EQ(json["vps_num_ticks_poc_diff_one"], 7);
}

TEST(Departures, OneOfSeveralValuesIsKept) {
  MessageSink messages;
  const Bytes unit = HevcVps();
  const PublishedSet published(Codec::kHevc, unit, {});
  const LibraryRecord record = ReadWithLibrary(Codec::kHevc, unit, messages);
  ASSERT_TRUE(record.read);
  const std::vector<Departure> departures = DeparturesOf(published, record);
  ASSERT_EQ(departures.size(), 3u);
  EXPECT_EQ(departures[0].element, "vps_max_dec_pic_buffering_minus1");
  EXPECT_EQ(departures[0].as, 3);
  EXPECT_EQ(departures[0].stream, (Json{4, 3}));
  EXPECT_TRUE(departures[0].oneOfSeveral);
  const std::optional<FirstChange> change = FirstChangeOf(published, record, departures, {});
  ASSERT_TRUE(change.has_value());
  EXPECT_EQ(change->element, "vps_max_dec_pic_buffering_minus1[0]");
  EXPECT_EQ(change->was, 4);
  EXPECT_EQ(change->why, "sub-layer values, of which one is kept");
}

TEST(Departures, DepthsOfProfilesThatDoNotTellThem) {
  BitBuilder bits;
  bits.u(8, 0x67).u(8, 77).u(8, 0).u(8, 31).ue(0).ue(0).ue(2).ue(1).u(1, 0).ue(7).ue(5).u(1, 1).u(1, 1);
  const Bytes unit = bits.u(2, 0).trailing().bytes();
  MessageSink messages;
  const std::vector<Departure> departures =
      DeparturesOf(PublishedSet(Codec::kH264, unit, {}), ReadWithLibrary(Codec::kH264, unit, messages));
  ASSERT_EQ(departures.size(), 2u);  // the inferred chroma format is what the record has
  EXPECT_EQ(departures[0].element, "bit_depth_luma_minus8");
  EXPECT_EQ(departures[0].as, 8);
  EXPECT_EQ(departures[0].stream, nullptr);
}

}  // namespace
}  // namespace qlnmedia
