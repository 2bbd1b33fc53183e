// Loops whose count comes from the stream: rounds past the end, and positions that wrap 32 bits, which count
// as past the end until the loop is over.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hevc/unit_builders.h"

namespace qln::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kAll = 0xFFFFFFFFu;

void AddTiming(BitBuilder& b) { b.u(1, 1).u(32, 1001).u(32, 60000); }

// A VPS without its extension flag that ends in the timing given, with `odd` bits in its last byte.
BitBuilder VpsUpTo(VpsParts parts, size_t odd) {
  parts.extension = Nothing;
  for (uint32_t value = 0; value < 256; ++value) {
    for (auto& triple : parts.ordering) triple = {value, 0, 0};
    for (parts.ordering.back()[1] = 0; parts.ordering.back()[1] < 16; ++parts.ordering.back()[1]) {
      if (VpsBits(parts).bits() % 8 == odd) return VpsBits(parts);
    }
  }
  ADD_FAILURE() << "no such unit";
  return {};
}

TEST(HevcStreamCounts, TheFirstHrdStructurePastTheEndIsShorterThanTheOthers) {
  // The last bit of the count, a 0, stands at the limit: the first structure begins behind it.
  VpsParts parts;
  parts.timing = [](BitBuilder& b) {
    AddTiming(b);
    b.u(1, 1).ue(0).ue(1001);  // 1002 ends in a 0
  };
  const BitBuilder head = VpsUpTo(parts, 1);
  const auto end = static_cast<uint32_t>(head.bits());
  auto vps = ReadVps(Head(head.bytes(), end / 8));
  EXPECT_EQ(vps.record().vps_num_hrd_parameters, 1001u);
  // An index; three flags, 19 + 8 + 4 + 15 fixed bits; of the one sub-layer its first flag (set, so the
  // second counts as 1), a duration, a CPB count of 1 and two CPBs of four codes and a flag. The others have
  // a flag more. Then the extension flag and the stop bit.
  const uint32_t first = 1 + 3 + 46 + 3 + 2 * 5;
  EXPECT_EQ(vps.result, (end + first + 1000 * (first + 1) + 2 + 7) / 8);
}

TEST(HevcStreamCounts, AWrapInsideAnHrdLastsForAllItsSubLayers) {
  // Two sub-layers with NAL parameters over a limit of 2^32 - 1; the data ends behind the first one's count
  // of four CPBs. The first code counts zeros up to the limit, the second takes the bit at it, and the
  // position wraps to 0. From there on each element takes its fewest bits: a flag and three CPBs of three,
  // then the other sub-layer's flag, duration, count of one and one CPB: 10 + 6 bits.
  VpsParts parts;
  parts.maxSubLayersMinus1 = 1;
  parts.subLayers = [](BitBuilder& b) { b.u(16, 0); };
  parts.ordering = {{0, 0, 0}, {0, 0, 0}};
  parts.timing = [](BitBuilder& b) {
    AddTiming(b);
    b.u(1, 0).ue(1).ue(0).u(1, 1).u(1, 0).u(1, 0).u(8, 0).u(15, 0);
    b.u(1, 0).u(1, 0).u(1, 0).ue(3);
  };
  const BitBuilder head = VpsUpTo(parts, 0);
  auto vps = ReadVps(head.bytes(), nullptr, kAll);
  // Behind the loops the bits are those of the header again: bit 16 is the extension flag, 17 the stop bit,
  // and the padding up to 24 has ones.
  EXPECT_EQ(vps.record().vps_extension_flag, 0u);
  EXPECT_EQ(vps.result, 3u);
  ASSERT_EQ(vps.messages.size(), 1u);
  EXPECT_EQ(vps.messages[0].rfind(LengthMessage("VPS", "1 padding = 1 current bit 24 bit length -1 "), 0), 0u)
      << vps.messages[0];
}

// An SPS without its last bits: zeros stand in for them.
Bytes SpsWithout(const SpsParts& parts, size_t bitsLeftOut) {
  const BitBuilder whole = SpsBits(parts);
  const size_t bits = whole.bits() - bitsLeftOut;
  Bytes unit = Head(whole.bytes(), (bits + 7) / 8);
  if (bits % 8 != 0) unit.back() &= static_cast<uint8_t>(0xFF00 >> bits % 8);
  return unit;
}

TEST(HevcStreamCounts, AWrapInsideOrderingValuesLastsForAllSubLayers) {
  // Nothing stands behind the flag: the first code counts zeros up to the limit, the second takes the bit at
  // it, and seven more take a bit each. What follows is then read from bit 7 on: eight zeros, a 1, and
  // 00000101.
  SpsParts parts;
  parts.maxSubLayersMinus1 = 2;
  parts.subLayers = [](BitBuilder& b) { b.u(4, 0).u(12, 0); };
  parts.ordering = {};
  parts.scalingLists = parts.pcm = parts.shortTerm = parts.longTerm = parts.vui = parts.extension = Nothing;
  // Six codes, amp and SAO flags, and the two in front of the VUI.
  const size_t behind = 1 + 3 + 1 + 5 + 3 + 3 + 2 + 2;
  auto sps = ReadSps(SpsWithout(parts, behind), nullptr, kAll);
  EXPECT_EQ(sps.record().sps_max_dec_pic_buffering_minus1[0], 0u);
  EXPECT_EQ(sps.record().sps_max_num_reorder_pics[0], 0u);
  EXPECT_EQ(sps.record().sps_max_latency_increase_plus1, 0u);
  EXPECT_EQ(sps.record().log2_min_luma_coding_block_size_minus3, 255u + 5);
}

TEST(HevcStreamCounts, AWrapInsideTheHrdOfAVuiLastsForAllSubLayers) {
  SpsParts parts;
  parts.maxSubLayersMinus1 = 2;
  parts.subLayers = [](BitBuilder& b) { b.u(4, 0).u(12, 0); };
  parts.ordering = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}};
  parts.vui = [](BitBuilder& b) {
    b.u(1, 1).u(8, 0);  // nothing up to the timing
    b.u(1, 1).u(32, 0x01010101).u(32, 0x01010101).u(1, 0).u(1, 1);
    b.u(1, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 0);  // no CPB lengths; flags of the first sub-layer
  };
  parts.extension = Nothing;
  auto sps = ReadSps(SpsWithout(parts, 0), nullptr, kAll);
  ASSERT_EQ(sps.record().vui_hrd_parameters_present_flag, 1u);
  EXPECT_EQ(sps.record().fixed_pic_rate_general_flag[0], 0u);
  for (int i = 1; i < 3; ++i) {
    EXPECT_EQ(sps.record().fixed_pic_rate_general_flag[i], kAll) << i;
    EXPECT_EQ(sps.record().fixed_pic_rate_within_cvs_flag[i], kAll) << i;
    EXPECT_EQ(sps.record().low_delay_hrd_flag[i], kAll) << i;
    EXPECT_EQ(sps.record().cpb_cnt_minus1[i], 0u) << i;
  }
  EXPECT_EQ(sps.record().bit_rate_value_minus1, 0u);
  EXPECT_EQ(sps.record().cbr_flag, kAll);
}

TEST(HevcStreamCounts, AWrapInsideShortTermSetsLastsForAllOfThem) {
  SpsParts parts;
  parts.pcm = [](BitBuilder& b) { b.u(1, 1).u(8, 0).ue(0).ue(0).u(1, 0); };
  parts.shortTerm = [](BitBuilder& b) { b.ue(2); };
  parts.longTerm = parts.vui = parts.extension = Nothing;
  // Behind the count there is nothing, so the first code counts zeros up to the limit; their number decides
  // how many pictures it announces.
  Bytes unit;
  for (parts.id = 0; parts.id < 2000; ++parts.id) {
    const BitBuilder whole = SpsBits(parts);
    if ((whole.bits() - 2) % 8 == 0 && (0xFFFFFFFEu - (whole.bits() - 2)) % 32 >= 5) {
      unit = Head(whole.bytes(), (whole.bits() - 2) / 8);  // without the two flags behind the sets
      break;
    }
  }
  ASSERT_FALSE(unit.empty());
  auto sps = ReadSps(unit, nullptr, kAll);
  const HevcShortTermRps& first = sps.record().st_ref_pic_set[0];
  const HevcShortTermRps& second = sps.record().st_ref_pic_set[1];
  ASSERT_EQ(sps.record().num_short_term_ref_pic_sets, 2u);
  ASSERT_GE(first.num_negative_pics, 16u);
  EXPECT_EQ(first.num_positive_pics, 0u) << "the bit at the limit, behind which the position wraps";
  EXPECT_THAT(first.used_by_curr_pic_s0_flag, Each(kAll));
  EXPECT_THAT(first.delta_poc_s0_minus1, Each(0u));
  EXPECT_EQ(second.inter_ref_pic_set_prediction_flag, kAll);
  EXPECT_EQ(second.delta_rps_sign, kAll);
  EXPECT_THAT(second.used_by_curr_pic_flag, Each(kAll));
  EXPECT_EQ(sps.bitPos, kAll);
}

TEST(HevcStreamCounts, AWrapInsideLongTermPicturesLastsForAllOfThem) {
  // Two values of nearly 2^31 bits each take the position around; the header's bits are not read again.
  SpsParts parts;
  parts.log2PocMinus4 = 0x7FFFFFF7;
  parts.longTerm = [](BitBuilder& b) { b.u(1, 1).ue(4); };
  parts.vui = parts.extension = Nothing;
  auto sps = ReadSps(Escaped(Sps(parts)), nullptr, kAll);
  ASSERT_EQ(sps.record().num_long_term_ref_pics_sps, 4u);
  EXPECT_EQ(sps.record().long_term_ref_pics[0].used_by_curr_pic_lt_sps_flag, 0u) << "zeros behind the data";
  for (int i = 1; i < 4; ++i) {
    EXPECT_EQ(sps.record().long_term_ref_pics[i].lt_ref_pic_poc_lsb_sps, kAll) << i;
    EXPECT_EQ(sps.record().long_term_ref_pics[i].used_by_curr_pic_lt_sps_flag, kAll) << i;
  }
}

TEST(HevcStreamCounts, PicturesBeyondTheRecordTakeAFlagEachWhereTheirWidthIsBelowOne) {
  for (const uint32_t log2MaxMinus4 : {0xFFFFFFFCu, 0xFFFFFFFBu, 0xFFFFFFF0u, 0x80000000u}) {
    SpsParts parts;
    parts.log2PocMinus4 = log2MaxMinus4;
    parts.longTerm = [](BitBuilder& b) {
      b.u(1, 1).ue(70);
      for (int i = 0; i < 70; ++i) b.u(1, 1);
    };
    auto sps = ReadSps(Escaped(Sps(parts)));
    EXPECT_THAT(sps.messages, IsEmpty()) << log2MaxMinus4;
    EXPECT_EQ(sps.record().long_term_ref_pics[63].used_by_curr_pic_lt_sps_flag, 1u);
    EXPECT_EQ(sps.result, Sps(parts).size());
  }
}

}  // namespace
}  // namespace qln::test
