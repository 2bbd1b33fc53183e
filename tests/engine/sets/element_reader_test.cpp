// The face of the walk through parameter sets that hosts get.

#include <gtest/gtest.h>

#include <algorithm>

#include "qlnmedia/elements.h"
#include "support/test_support.h"
#include "units/units.h"

namespace qlnmedia {
namespace {

using qln::test::BitBuilder;

// ITU-T H.264 clause 7.3.2.1.1: Main profile, 128 x 96, one offset of the picture order cycle.
Bytes Sps() {
  BitBuilder bits;
  bits.u(8, 0x67).u(8, 77).u(8, 0).u(8, 31).ue(0);  // header, profile, constraints, level, id
  bits.ue(0).ue(1).u(1, 0).se(-3).se(1).ue(1).se(2);
  bits.ue(1).u(1, 1).ue(7).ue(5).u(1, 1).u(1, 1).u(1, 0).u(1, 0);
  return bits.trailing().bytes();
}

const SyntaxElement& Find(const ParameterSetElements& set, const std::string& name) {
  static const SyntaxElement kNone{"none", "", 0, 0, -999, false};
  const auto found = std::find_if(set.elements.begin(), set.elements.end(),
                                  [&](const SyntaxElement& element) { return element.name == name; });
  EXPECT_NE(found, set.elements.end()) << name;
  return found == set.elements.end() ? kNone : *found;
}

TEST(ElementReader, NamesPlacesAndValues) {
  ElementReader reader(VideoCodec::kH264);
  const ParameterSetElements set = reader.Read(Sps());
  EXPECT_TRUE(set.whole);
  EXPECT_EQ(Find(set, "profile_idc").value, 77);
  EXPECT_EQ(Find(set, "profile_idc").position, 8u);
  EXPECT_EQ(Find(set, "profile_idc").bits, 8u);
  EXPECT_EQ(Find(set, "offset_for_non_ref_pic").value, -3);
  EXPECT_EQ(Find(set, "offset_for_ref_frame[0]").value, 2);
  EXPECT_EQ(Find(set, "gaps_in_frame_num_value_allowed_flag").value, 1);
  uint32_t end = 0;
  for (const SyntaxElement& element : set.elements) {
    EXPECT_EQ(element.position, end) << element.name;
    EXPECT_TRUE(element.known);
    end = element.position + element.bits;
  }
}

TEST(ElementReader, SetsThatBreakOffSayWhere) {
  const Bytes whole = Sps();
  ElementReader reader(VideoCodec::kH264);
  const ParameterSetElements set = reader.Read(std::span(whole).first(5));
  EXPECT_FALSE(set.whole);
  EXPECT_FALSE(set.endedAt.empty());
}

// ITU-T H.264 clause 7.3.2.2: a slice group map of a picture with more units than 16 bits count.
TEST(ElementReader, IndicesOfLargeMaps) {
  constexpr uint32_t kUnits = 70000;
  BitBuilder bits;
  bits.u(8, 0x68).ue(0).ue(0).u(2, 0).ue(1).ue(6).ue(kUnits - 1);
  for (uint32_t i = 0; i < kUnits; ++i) bits.u(1, i == kUnits - 1 ? 1 : 0);
  bits.ue(0).ue(0).u(3, 0).se(0).se(0).se(0).u(3, 0);
  ElementReader reader(VideoCodec::kH264);
  const ParameterSetElements set = reader.Read(Escape(bits.trailing().bytes()));
  EXPECT_TRUE(set.whole);
  EXPECT_EQ(Find(set, "slice_group_id[69999]").value, 1);
}

TEST(ElementReader, OtherUnitsAndOtherCodecs) {
  ElementReader reader(VideoCodec::kHevc);
  EXPECT_TRUE(reader.Read(qln::test::Hex("2601AF")).elements.empty());
  EXPECT_TRUE(reader.Read({}).elements.empty());
  EXPECT_THROW(ElementReader{VideoCodec::kMpeg2}, Error);
}

}  // namespace
}  // namespace qlnmedia
