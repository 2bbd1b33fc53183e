// profile_tier_level() in both records: flags kept twice, sub-layers, reserved pairs, the fold into a
// configuration record, and writing.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hevc/unit_builders.h"

namespace qln::test {
namespace {

using testing::Each;
using testing::IsEmpty;

const std::string kReserved = "Hevc Reserved bits incorrect" + kLocated;

TEST(HevcProfile, GeneralPart) {
  SpsParts parts;
  parts.profile = {2, 1, 21, 0x89ABCDEF, 0xA123456789AB, 156};
  auto sps = ReadSps(Sps(parts));
  const HevcProfileTierLevel& ptl = sps.record().profile_tier_level;
  EXPECT_EQ(ptl.general_profile_space, 2u);
  EXPECT_EQ(ptl.general_tier_flag, 1u);
  EXPECT_EQ(ptl.general_profile_idc, 21u);
  EXPECT_EQ(ptl.general_profile_compatibility_flags, 0x89ABCDEFu);
  EXPECT_EQ(ptl.general_constraint_indicator_flags, 0xA123456789ABu);
  EXPECT_EQ(ptl.general_progressive_source_flag, 1u);
  EXPECT_EQ(ptl.general_interlaced_source_flag, 0u);
  EXPECT_EQ(ptl.general_non_packed_constraint_flag, 1u);
  EXPECT_EQ(ptl.general_frame_only_constraint_flag, 0u);
  EXPECT_EQ(ptl.general_level_idc, 156u);
  EXPECT_THAT(ptl.sub_layer_level_present_flag, Each(0u)) << "no sub-layer flag is read";
  EXPECT_THAT(sps.messages, IsEmpty());
}

TEST(HevcProfile, TheAlignmentWordIsNotTouched) {
  auto vps = ReadVps(Vps(), nullptr, 0, 0, 0x5A);
  EXPECT_EQ(vps.record().profile_tier_level.alignment_word, 0x5A5A5A5Au);
  EXPECT_EQ(vps.record().profile_tier_level.general_constraint_indicator_flags, 0x900000000000u);
  EXPECT_EQ(vps.record().profile_tier_level.sub_layer_level_idc[0], 0x5A5A5A5Au);
}

// Sub-layers of which only some have a profile or a level.
SpsParts WithSubLayers(uint32_t maxMinus1, const char* reservedPairs) {
  SpsParts parts;
  parts.maxSubLayersMinus1 = maxMinus1;
  parts.orderingFlag = 0;
  parts.subLayers = [=](BitBuilder& b) {
    for (uint32_t i = 0; i < maxMinus1; ++i) b.u(1, i % 2).u(1, i % 3 == 0);
    b.raw(reservedPairs);
    for (uint32_t i = 0; i < maxMinus1; ++i) {
      if (i % 2) b.u(2, 1).u(1, 1).u(5, i).u(32, 0x80000000u + i).u(4, 0xA).u(44, 0xFFF);
      if (i % 3 == 0) b.u(8, 100 + i);
    }
  };
  return parts;
}

TEST(HevcProfile, SubLayers) {
  auto sps = ReadSps(Escaped(Sps(WithSubLayers(4, "00000000"))));
  const HevcProfileTierLevel& ptl = sps.record().profile_tier_level;
  EXPECT_THAT(sps.messages, IsEmpty());
  EXPECT_EQ(ptl.sub_layer_profile_present_flag[1], 1u);
  EXPECT_EQ(ptl.sub_layer_profile_space[1], 1u);
  EXPECT_EQ(ptl.sub_layer_tier_flag[1], 1u);
  EXPECT_EQ(ptl.sub_layer_profile_idc[3], 3u);
  EXPECT_EQ(ptl.sub_layer_profile_compatibility_flags[3], 0x80000003u);
  EXPECT_EQ(ptl.sub_layer_progressive_source_flag[3], 1u);
  EXPECT_EQ(ptl.sub_layer_interlaced_source_flag[3], 0u);
  EXPECT_EQ(ptl.sub_layer_non_packed_constraint_flag[3], 1u);
  EXPECT_EQ(ptl.sub_layer_frame_only_constraint_flag[3], 0u);
  EXPECT_EQ(ptl.sub_layer_level_idc[0], 100u) << "a level without a profile is exactly 8 bits";
  EXPECT_EQ(ptl.sub_layer_level_idc[3], 103u);
  EXPECT_EQ(sps.record().pic_width_in_luma_samples, 64u);
}

TEST(HevcProfile, SevenSubLayersHaveOneReservedPair) {
  auto sps = ReadSps(Escaped(Sps(WithSubLayers(7, "00"))));
  EXPECT_THAT(sps.messages, IsEmpty());
  EXPECT_EQ(sps.record().profile_tier_level.sub_layer_level_idc[6], 106u);
  EXPECT_EQ(sps.record().pic_width_in_luma_samples, 64u);
}

TEST(HevcProfile, EachBadReservedPairIsReportedAndTheParseGoesOn) {
  auto one = ReadSps(Escaped(Sps(WithSubLayers(4, "00 01 00 00"))));
  EXPECT_EQ(one.messages, std::vector<std::string>{kReserved});
  EXPECT_EQ(one.record().profile_tier_level.sub_layer_level_idc[3], 103u);
  EXPECT_EQ(one.record().pic_width_in_luma_samples, 64u);
  auto three = ReadSps(Escaped(Sps(WithSubLayers(4, "10 01 00 11"))));
  EXPECT_EQ(three.messages, (std::vector<std::string>{kReserved, kReserved, kReserved}));
}

TEST(HevcProfile, OverReadReservedPairsAreReportedOneByOne) {
  const Bytes unit = Sps(WithSubLayers(1, "00 00 00 00 00 00 00"));
  // Header, head and general part are 15 bytes; one byte more has the flags and three pairs.
  auto sps = ReadSps(Head(unit, 16));
  ASSERT_EQ(sps.messages.size(), 5u);
  EXPECT_EQ(sps.messages[3], kReserved) << "the bit at the limit is real, so the pair in it is over-read too";
  EXPECT_NE(sps.messages[4], kReserved);
}

TEST(HevcProfile, AnOverReadLayerCountIsZeroToEveryLoop) {
  auto vps = ReadVps(Head(Vps(), 6));  // everything from the profile on is over-read
  EXPECT_EQ(vps.record().vps_max_sub_layers_minus1, 0u);
  auto sps = ReadSps(Hex("42 01"));
  EXPECT_EQ(sps.record().sps_max_sub_layers_minus1, 0xFFFFFFFFu);
  EXPECT_EQ(sps.record().profile_tier_level.sub_layer_profile_present_flag[0], 0u);
}

TEST(HevcProfile, ConstraintFlagsReadPastTheEnd) {
  // The 48 bits begin at bit 64 of the unit; the limit 88 leaves bits 64 to 88 real, 25 of them.
  SpsParts parts;
  parts.profile.constraints = 0x800000000000;
  auto sps = ReadSps(Head(Sps(parts), 11));
  // The first over-read bit has 22 bits still to come: the low 54 bits are set.
  EXPECT_EQ(sps.record().profile_tier_level.general_constraint_indicator_flags, 0x003FFFFFFFFFFFFFu);
  EXPECT_EQ(sps.record().profile_tier_level.general_progressive_source_flag, 1u);
  EXPECT_EQ(sps.record().profile_tier_level.general_frame_only_constraint_flag, 1u);
}

TEST(HevcProfile, FoldKeepsTheGreatestTierProfileAndLevel) {
  for (const bool risingOrder : {true, false}) {
    HevcConfigRecord config{};
    SpsParts low;
    low.profile = {1, 1, 2, 0x20000000, 0x123456789ABC, 93};
    SpsParts high;
    high.profile = {2, 0, 4, 0x88000000, 0x00000000FFFF, 120};
    ReadSps(Sps(risingOrder ? low : high), &config);
    ReadSps(Sps(risingOrder ? high : low), &config);
    EXPECT_EQ(config.general_level_idc, 120u);
    EXPECT_EQ(config.general_tier_flag, 1u);
    EXPECT_EQ(config.general_profile_idc, 4u);
    EXPECT_EQ(config.general_profile_space, risingOrder ? 2u : 1u);
    EXPECT_EQ(config.general_profile_compatibility_flags, risingOrder ? 0xFFFFFFFF88000000u : 0x20000000u)
        << "sign-extended";
    EXPECT_EQ(config.general_constraint_indicator_flags, risingOrder ? 0xFFFFu : 0x123456789ABCu);
  }
}

TEST(HevcProfile, FoldComparesAsSigned) {
  HevcConfigRecord config{};
  config.general_level_idc = 0xFFFFFFFF;  // -1: everything is greater
  ReadVps(Vps(), &config);
  EXPECT_EQ(config.general_level_idc, 93u);
}

TEST(HevcProfile, WriterFoldsTheFourWordsIntoTheField) {
  auto sps = ReadSps(Sps());
  HevcProfileTierLevel& ptl = sps.record().profile_tier_level;
  ptl.general_progressive_source_flag = 0;
  ptl.general_interlaced_source_flag = 0;
  ptl.general_non_packed_constraint_flag = 0;
  ptl.general_frame_only_constraint_flag = 0;
  SpsParts cleared;
  cleared.profile.constraints = 0;
  EXPECT_EQ(ToHex(WriteSps(sps.record())), ToHex(WriterEscaped(Sps(cleared))));
  EXPECT_EQ(ptl.general_constraint_indicator_flags, 0u);
  ptl.general_interlaced_source_flag = 0xFFFFFFFF;
  ptl.general_frame_only_constraint_flag = 4;
  WriteSps(sps.record());
  EXPECT_EQ(ptl.general_constraint_indicator_flags, 0x500000000000u);
}

TEST(HevcProfile, WriterMirrorsSubLayersButForTheFortyFourBits) {
  SpsParts parts = WithSubLayers(4, "00000000");
  auto sps = ReadSps(Escaped(Sps(parts)));
  const Bytes written = WriteSps(sps.record());
  auto again = ReadSps(written);
  EXPECT_EQ(Words(again.record()), Words(sps.record()));
  EXPECT_EQ(again.result, Sps(parts).size()) << "the same length";
  EXPECT_THAT(again.messages, IsEmpty());
}

}  // namespace
}  // namespace qln::test
