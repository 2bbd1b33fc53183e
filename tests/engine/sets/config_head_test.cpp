// The head of a configuration record beside its sets, field by field.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sets/config_head.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::BitBuilder;
using qln::test::Hex;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> Disagreeing(const std::vector<ConfigHeadField>& fields) {
  std::vector<std::string> names;
  for (const ConfigHeadField& field : fields) {
    if (!field.agrees) names.emplace_back(field.name);
  }
  return names;
}

const ConfigHeadField& Find(const std::vector<ConfigHeadField>& fields, std::string_view name) {
  static const ConfigHeadField kNone;
  for (const ConfigHeadField& field : fields) {
    if (field.name == name) return field;
  }
  ADD_FAILURE() << name;
  return kNone;
}

struct HevcSpsValues {
  uint32_t profile = 2, level = 93, tier = 0, chroma = 1, luma = 2, chromaDepth = 2, subLayers = 1;
  bool nested = true;
  uint64_t constraints = 0x900000000000;
};

// ITU-T H.265 clause 7.3.2.2 up to the end of what facts come from; Main 10.
Bytes HevcSps(const HevcSpsValues& v) {
  BitBuilder bits;
  bits.u(16, 0x4201).u(4, 0).u(3, v.subLayers - 1).u(1, v.nested ? 1 : 0);
  bits.u(2, 0).u(1, v.tier).u(5, v.profile).u(32, 0x20000000).u(48, v.constraints).u(8, v.level);
  for (uint32_t i = 1; i < v.subLayers; ++i) bits.u(2, 0);
  if (v.subLayers > 1) bits.u(16 - 2 * (static_cast<int>(v.subLayers) - 1), 0);
  bits.ue(0).ue(v.chroma);
  if (v.chroma == 3) bits.u(1, 0);
  bits.ue(192).ue(112).u(1, 0).ue(v.luma).ue(v.chromaDepth).ue(4);
  bits.u(1, 0).ue(4).ue(2).ue(0).ue(0).ue(3).ue(0).ue(3).ue(0).ue(0);
  bits.u(4, 0).ue(0).u(1, 0).u(2, 3).u(1, 0).u(1, 0);
  return Escape(bits.trailing().bytes());
}

// A head of 22 bytes (ISO/IEC 14496-15 clause 8.3.3.1) for the set above, with an empty list of arrays.
const char* const kHead = "01 02 20000000 900000000000 5D F000 FC FD FA FA 0000 0F 00";

ConfigRecord Record(const char* hex) { return ReadConfigRecord(Codec::kHevc, Hex(hex)); }

TEST(ConfigHead, OfAnHvccThatAgrees) {
  const std::vector<ConfigHeadField> fields = ReadConfigHead(Record(kHead), {HevcSps({})});
  EXPECT_THAT(Disagreeing(fields), IsEmpty());
  EXPECT_EQ(fields.size(), 17u);
  EXPECT_EQ(Find(fields, "general_profile_idc").box, 2u);
  EXPECT_EQ(Find(fields, "general_constraint_indicator_flags").sets, 0x900000000000u);
  EXPECT_EQ(Find(fields, "bitDepthLumaMinus8").sets, 2u);
  EXPECT_EQ(Find(fields, "numTemporalLayers").sets, 1u);
  EXPECT_FALSE(Find(fields, "avgFrameRate").sets.has_value());
  EXPECT_FALSE(Find(ReadConfigHead(Record(kHead), {}), "chromaFormat").sets.has_value());
}

TEST(ConfigHead, EachFieldOfAnHvccThatItsSetsContradict) {
  const auto with = [](auto change) {
    HevcSpsValues values;
    change(values);
    return Disagreeing(ReadConfigHead(Record(kHead), {HevcSps(values)}));
  };
  EXPECT_THAT(with([](HevcSpsValues& v) { v.profile = 1; }), ElementsAre("general_profile_idc"));
  EXPECT_THAT(with([](HevcSpsValues& v) { v.tier = 1; }), ElementsAre("general_tier_flag"));
  EXPECT_THAT(with([](HevcSpsValues& v) { v.level = 120; }), ElementsAre("general_level_idc"));
  EXPECT_THAT(with([](HevcSpsValues& v) { v.level = 90; }), IsEmpty());
  EXPECT_THAT(with([](HevcSpsValues& v) { v.constraints = 0x800000000000; }),
              ElementsAre("general_constraint_indicator_flags"));
  EXPECT_THAT(with([](HevcSpsValues& v) { v.chroma = 2; }), ElementsAre("chromaFormat"));
  EXPECT_THAT(with([](HevcSpsValues& v) { v.luma = 0; }), ElementsAre("bitDepthLumaMinus8"));
  EXPECT_THAT(with([](HevcSpsValues& v) { v.chromaDepth = 0; }), ElementsAre("bitDepthChromaMinus8"));
  EXPECT_THAT(with([](HevcSpsValues& v) { v.nested = false; }), ElementsAre("temporalIdNested"));
  EXPECT_THAT(with([](HevcSpsValues& v) { v.subLayers = 3; }), IsEmpty());
}

TEST(ConfigHead, OfSeveralSetsTheHighestLevelAndTheFlagsThatAllHave) {
  HevcSpsValues high;
  high.level = 153;
  high.constraints = 0x100000000000;
  const std::vector<ConfigHeadField> fields = ReadConfigHead(Record(kHead), {HevcSps({}), HevcSps(high)});
  EXPECT_THAT(Disagreeing(fields), ElementsAre("general_constraint_indicator_flags", "general_level_idc"));
  EXPECT_EQ(Find(fields, "general_level_idc").sets, 153u);
  EXPECT_EQ(Find(fields, "general_constraint_indicator_flags").sets, 0x100000000000u);
}

// ITU-T H.264 clause 7.3.2.1.1: High, 4:2:0 of 8 bits.
Bytes HighSps() {
  BitBuilder bits;
  bits.u(8, 0x67).u(8, 100).u(8, 0x0C).u(8, 31).ue(0).ue(1).ue(0).ue(0).u(1, 0).u(1, 0);
  bits.ue(0).ue(2).ue(1).u(1, 0).ue(7).ue(5).u(1, 1).u(1, 1).u(1, 0).u(1, 0);
  return bits.trailing().bytes();
}

std::vector<std::string> OfAvcc(const char* head, const char* tail) {
  Bytes box = Hex(head);
  for (const uint8_t byte : Hex("00 00")) box.push_back(byte);  // no sets in the lists
  for (const uint8_t byte : Hex(tail)) box.push_back(byte);
  return Disagreeing(ReadConfigHead(ReadConfigRecord(Codec::kH264, box), {HighSps()}));
}

TEST(ConfigHead, OfAnAvcc) {
  EXPECT_THAT(OfAvcc("01 64 0C 1F FF", ""), IsEmpty());
  EXPECT_THAT(OfAvcc("01 64 00 1F FF", "FD F8 F8 00"), IsEmpty());
  EXPECT_THAT(OfAvcc("01 4D 2C 28 FF", "FE FA F9 00"),
              ElementsAre("AVCProfileIndication", "profile_compatibility", "AVCLevelIndication",
                          "chroma_format", "bit_depth_luma_minus8", "bit_depth_chroma_minus8"));
}

}  // namespace
}  // namespace qlnmedia
