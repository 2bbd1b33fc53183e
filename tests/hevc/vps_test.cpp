// The VPS reader.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "hevc/unit_builders.h"

namespace qln::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

void AddTiming(BitBuilder& b) { b.u(1, 1).u(32, 1001).u(32, 60000); }

TEST(HevcVps, EveryElement) {
  VpsParts parts;
  parts.maxSubLayersMinus1 = 1;
  parts.subLayers = [](BitBuilder& b) { b.raw("00 00 00 00 00 00 00 00"); };
  parts.ordering = {{1, 2, 3}, {4, 5, 6}};
  parts.timing = [](BitBuilder& b) {
    AddTiming(b);
    b.u(1, 1).ue(8).ue(0);
  };
  auto vps = ReadVps(Vps(parts));
  const HevcVpsRecord& r = vps.record();
  EXPECT_THAT(vps.messages, IsEmpty());
  EXPECT_EQ(r.vps_video_parameter_set_id, 5u);
  EXPECT_EQ(r.vps_max_layers_minus1, 0u);
  EXPECT_EQ(r.vps_max_sub_layers_minus1, 1u);
  EXPECT_EQ(r.vps_temporal_id_nesting_flag, 1u);
  EXPECT_EQ(r.vps_reserved_0xffff_16bits, 65535u);
  EXPECT_EQ(r.vps_sub_layer_ordering_info_present_flag, 1u);
  EXPECT_EQ(r.vps_max_dec_pic_buffering_minus1, 4u);
  EXPECT_EQ(r.vps_max_num_reorder_pics, 5u);
  EXPECT_EQ(r.vps_max_latency_increase_plus1, 6u);
  EXPECT_EQ(r.vps_timing_info_present_flag, 1u);
  EXPECT_EQ(r.vps_num_units_in_tick, 1001u);
  EXPECT_EQ(r.vps_time_scale, 60000u);
  EXPECT_EQ(r.vps_poc_proportional_to_timing_flag, 1u);
  EXPECT_EQ(r.vps_num_ticks_poc_diff_one, 9u) << "the element plus 1";
  EXPECT_EQ(r.vps_num_hrd_parameters, 0u);
  EXPECT_EQ(r.vps_extension_flag, 0u);
  parts.ordering = {{4, 5, 6}, {4, 5, 6}};  // the one triple for each sub-layer; all else byte for byte
  EXPECT_EQ(ToHex(WriteVps(vps.record())), ToHex(WriterEscaped(Vps(parts))));
}

TEST(HevcVps, UnreachedMembersKeepTheirValues) {
  auto vps = ReadVps(Vps(), nullptr, 0, 0, 0x11);
  EXPECT_EQ(vps.record().vps_num_units_in_tick, 0x11111111u);
  EXPECT_EQ(vps.record().vps_num_hrd_parameters, 0x11111111u);
  EXPECT_EQ(vps.record().free_word_207, 0x11111111u);
  EXPECT_EQ(vps.record().free_word_209, 0x11111111u);
}

TEST(HevcVps, BaseLayerFromOutsideIsRefused) {
  for (const uint32_t bits : {0u, 1u, 2u}) {
    VpsParts parts;
    parts.baseLayerBits = bits;
    auto vps = ReadVps(Vps(parts));
    EXPECT_EQ(vps.result, 0xFFFFFFFFu);
    EXPECT_EQ(vps.bitPos, 22u);
    EXPECT_THAT(vps.messages, ElementsAre("Vps Reserved bits incorrect" + kLocated));
    std::vector<uint32_t> expected(210);
    expected[0] = 5;
    EXPECT_EQ(Words(vps.record()), expected);
  }
  auto overRead = ReadVps(Hex("40 01"));
  EXPECT_EQ(overRead.bitPos, 22u);
  EXPECT_EQ(overRead.record().vps_video_parameter_set_id, 0xFFFFFFFFu);
}

TEST(HevcVps, ReservedBitsAreRefused) {
  for (const uint32_t reserved : {0u, 0xFFFEu, 0x7FFFu}) {
    VpsParts parts;
    parts.reserved = reserved;
    auto vps = ReadVps(Vps(parts), nullptr, 0, 0, 0x22);
    EXPECT_EQ(vps.result, 0xFFFFFFFFu);
    EXPECT_EQ(vps.bitPos, 48u);
    EXPECT_THAT(vps.messages, ElementsAre("Vps Reserved bits incorrect" + kLocated));
    EXPECT_EQ(vps.record().vps_reserved_0xffff_16bits, reserved) << "five words are stored";
    EXPECT_EQ(vps.record().vps_temporal_id_nesting_flag, 1u);
    EXPECT_EQ(vps.record().profile_tier_level.general_profile_space, 0x22222222u);
  }
}

TEST(HevcVps, OrderingTriples) {
  VpsParts parts;
  parts.maxSubLayersMinus1 = 2;
  parts.subLayers = [](BitBuilder& b) { b.u(16, 0); };
  parts.orderingFlag = 0;
  parts.ordering = {{1, 2, 3}};
  auto one = ReadVps(Vps(parts));
  EXPECT_THAT(one.messages, IsEmpty());
  EXPECT_EQ(one.record().vps_max_dec_pic_buffering_minus1, 1u);
  EXPECT_EQ(ToHex(WriteVps(one.record())), ToHex(WriterEscaped(Vps(parts))));
  parts.orderingFlag = 1;
  parts.ordering = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}};
  auto three = ReadVps(Vps(parts));
  EXPECT_EQ(three.record().vps_max_dec_pic_buffering_minus1, 7u);
  parts.ordering = {{7, 8, 9}, {7, 8, 9}, {7, 8, 9}};
  EXPECT_EQ(ToHex(WriteVps(three.record())), ToHex(WriterEscaped(Vps(parts))))
      << "the last triple three times";
}

TEST(HevcVps, LayerSetsAreSkippedAndWrittenAsOnes) {
  VpsParts parts;
  parts.maxLayerId = 3;
  parts.layerSetsMinus1 = 2;
  parts.layerSets = [](BitBuilder& b) { b.raw("0101 0010"); };
  auto vps = ReadVps(Vps(parts));
  EXPECT_THAT(vps.messages, IsEmpty());
  EXPECT_EQ(vps.record().vps_num_layer_sets_minus1, 2u);
  parts.layerSets = [](BitBuilder& b) { b.raw("1111 1111"); };
  EXPECT_EQ(ToHex(WriteVps(vps.record())), ToHex(WriterEscaped(Vps(parts))));
}

TEST(HevcVps, TheLayerSetSkipWrapsAsOneAddition) {
  VpsParts parts;
  parts.maxLayerId = 63;
  parts.layerSetsMinus1 = 0x10000000;  // times 64 is 2^34, which adds nothing
  auto vps = ReadVps(Vps(parts));
  EXPECT_THAT(vps.messages, IsEmpty());
  EXPECT_EQ(vps.result, Vps(parts).size());
}

// One hrd_parameters() of the fullest kind.
void AddFullHrd(BitBuilder& b, bool common, uint32_t cpbs, uint32_t subLayers) {
  if (common) b.u(1, 1).u(1, 1).u(1, 1).u(19, 0x7FFFF).u(8, 0xFF).u(4, 3).u(15, 0x7FFF);
  for (uint32_t s = 0; s < subLayers; ++s) {
    b.u(1, 0).u(1, 0).u(1, 0).ue(cpbs - 1);  // no fixed rate: low delay flag, then the CPB count
    for (uint32_t i = 0; i < (common ? 2 * cpbs : 0u); ++i) b.ue(100).ue(200).ue(1).ue(7).u(1, 1);
  }
}

TEST(HevcVps, HrdStructuresAreReadPast) {
  VpsParts parts;
  parts.timing = [](BitBuilder& b) {
    AddTiming(b);
    b.u(1, 0).ue(3);
    b.ue(1);
    AddFullHrd(b, true, 3, 1);
    b.ue(2).u(1, 0);  // no common information: all three flags count as 0, so no CPB is described
    AddFullHrd(b, false, 2, 1);
    b.ue(3).u(1, 1);
    AddFullHrd(b, true, 1, 1);
  };
  auto vps = ReadVps(Vps(parts));
  EXPECT_THAT(vps.messages, IsEmpty());
  EXPECT_EQ(vps.record().vps_num_hrd_parameters, 3u);
  EXPECT_EQ(vps.record().hrd_layer_set_idx, 3u);
  EXPECT_EQ(vps.record().cprms_present_flag, 1u);
  EXPECT_EQ(vps.record().vps_extension_flag, 0u);
  // The writer drops them, and the record's count with them.
  const Bytes written = WriteVps(vps.record());
  EXPECT_EQ(vps.record().vps_num_hrd_parameters, 0u);
  VpsParts plain = parts;
  plain.timing = [](BitBuilder& b) {
    AddTiming(b);
    b.u(1, 0).ue(0);
  };
  EXPECT_EQ(ToHex(written), ToHex(WriterEscaped(Vps(plain))));
}

TEST(HevcVps, HrdBranchesPerSubLayer) {
  for (const uint32_t nal : {1u, 0u}) {
    VpsParts parts;
    parts.maxSubLayersMinus1 = 2;
    parts.subLayers = [](BitBuilder& b) { b.u(16, 0); };
    parts.orderingFlag = 0;
    parts.timing = [nal](BitBuilder& b) {
      AddTiming(b);
      b.u(1, 0).ue(1).ue(0);
      b.u(1, nal).u(1, 1 - nal).u(1, 0).u(8, 0).u(15, 0);  // NAL or VCL only, no sub-picture parameters
      b.u(1, 1).ue(0).ue(1);                               // fixed rate: duration, two CPBs
      for (int i = 0; i < 2; ++i) b.ue(5).ue(6).u(1, 0);
      b.u(1, 0).u(1, 1).ue(4).ue(0);  // fixed within the sequence: duration, one CPB
      b.ue(5).ue(6).u(1, 1);
      b.u(1, 0).u(1, 0).u(1, 1);  // low delay: no count is read, one CPB
      b.ue(5).ue(6).u(1, 1);
    };
    auto vps = ReadVps(Vps(parts));
    EXPECT_THAT(vps.messages, IsEmpty()) << nal;
    EXPECT_EQ(vps.result, Vps(parts).size()) << nal;
  }
}

TEST(HevcVps, HostileHrdCountsEndWithTheData) {
  VpsParts parts;
  parts.timing = [](BitBuilder& b) {
    AddTiming(b);
    b.u(1, 0).ue(0xFFFFFFFEu);
  };
  const Bytes unit = Vps(parts);
  auto vps = ReadVps(unit);
  EXPECT_EQ(vps.record().vps_num_hrd_parameters, 0xFFFFFFFEu);
  EXPECT_EQ(vps.record().cprms_present_flag, 0xFFFFFFFFu) << "the last round's flag is over-read";
  EXPECT_EQ(vps.record().hrd_layer_set_idx, 0u);
  EXPECT_EQ(vps.bitPos, unit.size() * 8);
  // A CPB count of 2^32 - 1 in the same way.
  parts.timing = [](BitBuilder& b) {
    AddTiming(b);
    b.u(1, 0).ue(1).ue(0).u(1, 1).u(1, 1).u(1, 0).u(8, 0).u(15, 0);
    b.u(1, 0).u(1, 0).u(1, 0).ue(0xFFFFFFFDu);
  };
  EXPECT_EQ(ReadVps(Vps(parts)).bitPos, Vps(parts).size() * 8);
}

// Changes the ordering values until the unit in front of its extension has `odd` bits in its last byte.
VpsParts AlignedTo(VpsParts parts, size_t odd) {
  parts.extension = Nothing;
  for (uint32_t subLayers = 0; subLayers < 3; ++subLayers) {
    parts.maxSubLayersMinus1 = subLayers;
    parts.subLayers = subLayers == 0 ? Part(Nothing) : Part([](BitBuilder& b) { b.u(16, 0); });
    for (uint32_t value = 0; value < 256; ++value) {
      parts.ordering.assign(subLayers + 1, {0, 0, 0});
      parts.ordering[0][0] = value;
      if (VpsBits(parts).bits() % 8 == odd) return parts;
    }
  }
  ADD_FAILURE() << "no such unit";
  return parts;
}

TEST(HevcVps, RoundsPastTheEndLeaveThePositionThatRunningThemWould) {
  // A thousand HRD structures announced, the data ends behind the count.
  VpsParts parts;
  parts.timing = [](BitBuilder& b) {
    AddTiming(b);
    b.u(1, 0).ue(1000);
  };
  parts = AlignedTo(parts, 0);
  const Bytes unit = VpsBits(parts).bytes();
  const auto end = static_cast<uint32_t>(unit.size() * 8);
  const uint32_t subLayers = parts.maxSubLayersMinus1 + 1;
  auto vps = ReadVps(unit);
  EXPECT_EQ(vps.record().vps_num_hrd_parameters, 1000u);
  // The first index begins at the limit, where counting stops at once: one bit. All behind is over-read:
  // three flags, 19 + 8 + 4 + 15 fixed bits; a sub-layer has its first flag (set, so the second counts as 1),
  // a duration, a CPB count of 1 and two CPBs of four codes and a flag. Later rounds have one flag more.
  const uint32_t roundBits = 1 + 3 + 46 + subLayers * (3 + 2 * 5);
  const uint32_t behind = end + roundBits + 999 * (roundBits + 1) + 1 /* extension flag */ + 1 /* stop bit */;
  EXPECT_EQ(vps.result, (behind + 7) / 8);
  EXPECT_EQ(vps.record().vps_extension_flag, 0xFFFFFFFFu);
}

TEST(HevcVps, TimingFlagPastTheEndCountsAsClear) {
  VpsParts parts;
  parts.timing = Nothing;
  parts = AlignedTo(parts, 1);  // the flag is the second bit behind the data: the first is at the limit
  const Bytes unit = Head(VpsBits(parts).bytes(), VpsBits(parts).bits() / 8);
  const auto at = static_cast<uint32_t>(VpsBits(parts).bits());
  auto vps = ReadVps(unit);
  EXPECT_EQ(vps.record().vps_timing_info_present_flag, 0xFFFFFFFFu);
  EXPECT_EQ(vps.record().vps_num_units_in_tick, 0u);
  EXPECT_EQ(vps.record().vps_extension_flag, 0xFFFFFFFFu) << "stored, and nothing is skipped";
  EXPECT_EQ(vps.result, (at + 2 + 1 + 7) / 8);
  // -1 goes out as a 1 bit without the block.
  const Bytes written = WriteVps(vps.record());
  VpsParts expected = parts;
  std::fill(expected.ordering.begin(), expected.ordering.end(), expected.ordering.back());
  expected.timing = [](BitBuilder& b) { b.u(1, 1); };
  expected.extension = [](BitBuilder& b) { b.u(1, 0); };
  EXPECT_EQ(ToHex(written), ToHex(WriterEscaped(Vps(expected))));
}

TEST(HevcVps, ExtensionFlagPastTheEndSkipsNothing) {
  VpsParts parts;
  parts = AlignedTo(parts, 1);
  auto vps = ReadVps(Head(VpsBits(parts).bytes(), VpsBits(parts).bits() / 8));
  EXPECT_EQ(vps.record().vps_timing_info_present_flag, 0u);
  EXPECT_EQ(vps.record().vps_extension_flag, 0xFFFFFFFFu);
  EXPECT_EQ(vps.result, (VpsBits(parts).bits() + 2 + 7) / 8);
}

TEST(HevcVps, AnExtensionIsPassedByWholeBytesAndReported) {
  VpsParts parts;
  parts.extension = [](BitBuilder& b) { b.u(1, 1); };
  const Bytes unit = Join({VpsBits(parts).align().bytes(), Hex("12 34 56 80")});
  auto vps = ReadVps(unit);
  EXPECT_EQ(vps.record().vps_extension_flag, 1u);
  const std::string bits = std::to_string(unit.size() * 8);
  // The stop bit is looked for behind the data: the bit at the limit is real and 0, the padding over-read.
  ASSERT_EQ(vps.messages.size(), 1u);
  EXPECT_EQ(vps.messages[0],
            LengthMessage("VPS", "0 padding = -1 current bit " + std::to_string(unit.size() * 8 + 8) +
                                     " bit length " + bits + " 0xFFFFFFFF 0xFFFFFFFF"));
  EXPECT_EQ(vps.result, unit.size() + 1);
  EXPECT_EQ(vps.bitPos, unit.size() * 8);
  WriteVps(vps.record());
  EXPECT_EQ(vps.record().vps_extension_flag, 0u);
}

TEST(HevcVps, AnExtensionIsPassedUpToTheLengthBeforeUnescaping) {
  VpsParts parts;
  parts.extension = [](BitBuilder& b) { b.u(1, 1); };
  const Bytes unit = Join({VpsBits(parts).align().bytes(), Hex("12 00 00 03 01 80")});
  auto vps = ReadVps(unit);
  // The end of the data is a byte in front of where the skip leads: the stop bit is over-read.
  const std::string bits = std::to_string(unit.size() * 8);
  EXPECT_THAT(vps.messages, ElementsAre(LengthMessage(
                                "VPS", "-1 padding = -1 current bit " + std::to_string(unit.size() * 8 + 8) +
                                           " bit length " + bits + " 0xFFFFFFFF 0xFFFFFFFF")));
  EXPECT_EQ(vps.result, unit.size() + 1);
}

TEST(HevcVps, APocFlagPastTheEndCountsAsSet) {
  VpsParts parts;
  parts.timing = AddTiming;  // its last bit, a 0, stands at the limit
  parts = AlignedTo(parts, 1);
  auto vps = ReadVps(Head(VpsBits(parts).bytes(), VpsBits(parts).bits() / 8));
  EXPECT_EQ(vps.record().vps_time_scale, 60000u);
  EXPECT_EQ(vps.record().vps_poc_proportional_to_timing_flag, 0xFFFFFFFFu);
  EXPECT_EQ(vps.record().vps_num_ticks_poc_diff_one, 1u) << "a code past the end is 0; kept plus 1";
}

TEST(HevcVps, AFixedRateFlagPastTheEndIsNotOne) {
  // Two sub-layers; the first one's general flag, a 0, stands at the limit. The second flag is over-read and
  // is not 1, so a low delay flag follows, which is over-read too and leaves out the count: two bits. The
  // other sub-layer has its three; then come the extension flag and the stop bit, which ends a byte.
  VpsParts parts;
  parts.maxSubLayersMinus1 = 1;
  parts.subLayers = [](BitBuilder& b) { b.u(16, 0); };
  parts.timing = [](BitBuilder& b) {
    AddTiming(b);
    b.u(1, 0).ue(1).ue(0).u(1, 0).u(1, 0).u(1, 0);
  };
  parts.extension = Nothing;
  for (uint32_t value = 0; value < 256 && VpsBits(parts).bits() % 8 != 1; ++value) {
    parts.ordering = {{value, 0, 0}, {0, value % 16, 0}};
  }
  const size_t bits = VpsBits(parts).bits();
  ASSERT_EQ(bits % 8, 1u);
  auto vps = ReadVps(Head(VpsBits(parts).bytes(), bits / 8));
  EXPECT_EQ(vps.record().cprms_present_flag, 1u);
  EXPECT_EQ(vps.result, (bits + 2 + 3 + 1 + 1) / 8);
}

}  // namespace
}  // namespace qln::test
