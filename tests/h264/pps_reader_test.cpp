// The PPS reader: emulation prevention, slice groups, the look-ahead, scaling lists, truncation, hostile
// counts.

#include "h264/h264_test_support.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::Escape;
using test::Filled;
using test::Hex;
using test::ParseWith;
using test::PpsHead;
using test::ReadPpsUnit;
using test::SameWords;

constexpr uint32_t kMinusOne = 0xFFFFFFFFu;

TEST(PpsReader, RefusesANullRecordOnly) {
  Bytes unit = Hex("68 CE 38 80");
  QLNBitState state{unit.data(), 4, 32, 5};
  EXPECT_EQ(qlnutilRead_PPS(&state, nullptr), 0u);
  EXPECT_EQ(state.bitPos, 5u);

  // No byte at all: bit 0 lies at the limit and is a real zero, everything else lies behind it.
  const auto parsed = ParseWith(qlnutilRead_PPS, {}, Filled<H264PpsRecord>(0), 0, 0, 0);
  EXPECT_EQ(parsed.record.forbidden_zero_bit, 0u);
  EXPECT_EQ(parsed.record.nal_ref_idc, kMinusOne);
  EXPECT_EQ(parsed.record.nal_unit_type, kMinusOne);
  EXPECT_EQ(parsed.record.pic_parameter_set_id, 0u);
  EXPECT_EQ(parsed.record.entropy_coding_mode_flag, kMinusOne);
  EXPECT_EQ(parsed.record.more_rbsp_data_present, 0u);
  EXPECT_EQ(parsed.record.rbsp_stop_one_bit, kMinusOne);
  // 8 header bits, three codes and two flags, two codes, 1 + 2 bits, three codes, three flags, the stop
  // bit: 25.
  EXPECT_EQ(parsed.bitPos, 32u);
  EXPECT_EQ(parsed.result, 4u);
}

TEST(PpsReader, ReadsTheElementsThatEveryPpsHas) {
  BitBuilder bits;
  bits.u(1, 0).u(2, 3).u(5, 8).ue(7).ue(3).u(1, 1).u(1, 1).ue(0).ue(2).ue(1).u(1, 1).u(2, 2);
  bits.se(-4).se(5).se(-6).u(1, 1).u(1, 1).u(1, 1).trailing();
  const auto parsed = ReadPpsUnit(bits.bytes());
  EXPECT_EQ(parsed.result, bits.bytes().size());
  const H264PpsRecord& pps = parsed.record;
  EXPECT_EQ(pps.nal_ref_idc, 3u);
  EXPECT_EQ(pps.nal_unit_type, 8u);
  EXPECT_EQ(pps.pic_parameter_set_id, 7u);
  EXPECT_EQ(pps.seq_parameter_set_id, 3u);
  EXPECT_EQ(pps.entropy_coding_mode_flag, 1u);
  EXPECT_EQ(pps.bottom_field_pic_order_in_frame_present_flag, 1u);
  EXPECT_EQ(pps.num_ref_idx_l0_default_active_minus1, 2u);
  EXPECT_EQ(pps.num_ref_idx_l1_default_active_minus1, 1u);
  EXPECT_EQ(pps.weighted_pred_flag, 1u);
  EXPECT_EQ(pps.weighted_bipred_idc, 2u);
  EXPECT_EQ(pps.pic_init_qp_minus26, -4);
  EXPECT_EQ(pps.pic_init_qs_minus26, 5);
  EXPECT_EQ(pps.chroma_qp_index_offset, -6);
  EXPECT_EQ(pps.deblocking_filter_control_present_flag, 1u);
  EXPECT_EQ(pps.constrained_intra_pred_flag, 1u);
  EXPECT_EQ(pps.redundant_pic_cnt_present_flag, 1u);
  EXPECT_EQ(pps.more_rbsp_data_present, 0u);
  EXPECT_EQ(pps.rbsp_stop_one_bit, 1u);
}

TEST(PpsReader, AUnitThatEndsEarlyLeavesItsTailFields) {
  BitBuilder bits = PpsHead();
  bits.trailing();
  H264PpsRecord initial = Filled<H264PpsRecord>(41);
  initial.more_rbsp_data_present = 0;
  const H264PpsRecord pps = ReadPpsUnit(bits.bytes(), initial).record;
  EXPECT_EQ(pps.more_rbsp_data_present, 0u);
  EXPECT_EQ(pps.rbsp_stop_one_bit, 1u);
  EXPECT_EQ(pps.transform_8x8_mode_flag, 41u);
  EXPECT_EQ(pps.pic_scaling_matrix_present_flag, 41u);
  EXPECT_EQ(pps.second_chroma_qp_index_offset, 41);
  EXPECT_EQ(pps.slice_group_map_type, 41u);
}

TEST(PpsReader, SeesMoreDataByTheSevenBitsBehindTheNext) {
  // transform 1, matrix 0, offset 0 is "1 0 1" and the stop bit: the look-ahead skips the first bit.
  BitBuilder bits = PpsHead();
  bits.u(1, 1).u(1, 0).se(0).trailing();
  H264PpsRecord pps = ReadPpsUnit(bits.bytes()).record;
  EXPECT_EQ(pps.more_rbsp_data_present, 1u);
  EXPECT_EQ(pps.transform_8x8_mode_flag, 1u);
  EXPECT_EQ(pps.second_chroma_qp_index_offset, 0);
  EXPECT_EQ(pps.rbsp_stop_one_bit, 1u);
}

TEST(PpsReader, TheWindowOfTheLookAhead) {
  // A one at distance k behind the next bit, k from 0 to 9, and zeros around it, well in front of the limit.
  for (int k = 0; k < 10; ++k) {
    BitBuilder bits = PpsHead();
    for (int i = 0; i < 24; ++i) bits.u(1, i == k);
    const Bytes unit = bits.bytes();
    const H264PpsRecord pps =
        ParseWith(qlnutilRead_PPS, unit, H264PpsRecord{}, static_cast<int32_t>(unit.size()),
                  static_cast<uint32_t>(unit.size() * 8), 0)
            .record;
    EXPECT_EQ(pps.more_rbsp_data_present, k >= 1 && k <= 7 ? 1u : 0u) << k;
  }
  // The limit ends it: a one at distance 3 counts while position + 3 lies in front of the limit.
  for (uint32_t limit = 0; limit < 6; ++limit) {
    BitBuilder bits = PpsHead();
    const uint32_t position = static_cast<uint32_t>(bits.bits());
    bits.u(4, 1).u(8, 0);
    const Bytes unit = bits.bytes();
    const H264PpsRecord pps = ParseWith(qlnutilRead_PPS, unit, H264PpsRecord{},
                                        static_cast<int32_t>(unit.size()), position + limit, 0)
                                  .record;
    EXPECT_EQ(pps.more_rbsp_data_present, limit > 3 ? 1u : 0u) << limit;
  }
}

TEST(PpsReader, MoreDataOnceSeenStaysSeen) {
  BitBuilder longer = PpsHead();
  longer.u(1, 1).u(1, 0).se(2).trailing();
  BitBuilder shorter = PpsHead();
  shorter.trailing();
  H264PpsRecord pps = ReadPpsUnit(longer.bytes()).record;
  pps = ReadPpsUnit(shorter.bytes(), pps).record;
  EXPECT_EQ(pps.more_rbsp_data_present, 1u);
  // The stop bit is read as the transform flag.
  EXPECT_EQ(pps.transform_8x8_mode_flag, 1u);
}

TEST(PpsReader, HasSixOrEightScalingLists) {
  for (const uint32_t transform : {0u, 1u}) {
    BitBuilder bits = PpsHead();
    bits.u(1, transform).u(1, 1);
    const int lists = transform != 0 ? 8 : 6;
    for (int i = 0; i < lists; ++i) {
      bits.u(1, i != 2);
      if (i == 2) continue;
      bits.se(i + 2);
      for (int k = 1; k < (i < 6 ? 16 : 64); ++k) bits.se(0);
    }
    bits.se(-3).trailing();
    H264PpsRecord initial = Filled<H264PpsRecord>(4);
    const H264PpsRecord pps = ReadPpsUnit(bits.bytes(), initial).record;
    for (int i = 0; i < 6; ++i) EXPECT_EQ(pps.ScalingList4x4[i][15], i == 2 ? 4 : 10 + i);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(pps.ScalingList8x8[i][63], i < lists - 6 ? 16 + i : 4);
    EXPECT_EQ(pps.pic_scaling_list_present_flag[2], 0u);
    EXPECT_EQ(pps.pic_scaling_list_present_flag[8], 4u);
    EXPECT_EQ(pps.UseDefaultScalingMatrix4x4Flag[0], 4u);
    EXPECT_EQ(pps.second_chroma_qp_index_offset, -3);
    EXPECT_EQ(pps.rbsp_stop_one_bit, 1u);
  }
}

TEST(PpsReader, AMatrixFlagBeyondTheLimitReadsNoList) {
  BitBuilder bits = PpsHead();
  const uint32_t position = static_cast<uint32_t>(bits.bits());
  H264PpsRecord initial{};
  initial.more_rbsp_data_present = 1;
  const Bytes unit = bits.bytes();
  const auto parsed =
      ParseWith(qlnutilRead_PPS, unit, initial, static_cast<int32_t>(unit.size()), position - 1, 0);
  EXPECT_EQ(parsed.record.transform_8x8_mode_flag, kMinusOne);
  EXPECT_EQ(parsed.record.pic_scaling_matrix_present_flag, kMinusOne);
  EXPECT_EQ(parsed.record.pic_scaling_list_present_flag[0], 0u);
  EXPECT_EQ(parsed.record.rbsp_stop_one_bit, kMinusOne);
  EXPECT_EQ(parsed.bitPos, (position + 4 + 7) / 8 * 8);  // two flags, one code, the stop bit
}

// The head of a PPS with slice groups, up to the map type's own elements.
BitBuilder Groups(uint32_t groupsMinus1, uint32_t mapType) {
  BitBuilder bits;
  // The id keeps long runs of zeros out of the first three bytes, where nothing is unescaped.
  bits.u(1, 0).u(2, 3).u(5, 8).ue(200).ue(0).u(1, 0).u(1, 0).ue(groupsMinus1).ue(mapType);
  return bits;
}

// The rest: recognised by its 5 and 6.
BitBuilder& Rest(BitBuilder& bits) {
  bits.ue(5).ue(6).u(1, 0).u(2, 0).se(0).se(0).se(0).u(1, 1).u(1, 0).u(1, 0);
  return bits.trailing();
}

TEST(PpsReader, ReadsRunLengths) {
  BitBuilder bits = Groups(2, 0);
  bits.ue(10).ue(11).ue(12);
  Rest(bits);
  const H264PpsRecord pps = ReadPpsUnit(bits.bytes(), Filled<H264PpsRecord>(0)).record;
  EXPECT_EQ(pps.run_length_minus1[0], 10u);
  EXPECT_EQ(pps.run_length_minus1[2], 12u);
  EXPECT_EQ(pps.run_length_minus1[3], 0u);
  EXPECT_EQ(pps.num_ref_idx_l0_default_active_minus1, 5u);
  EXPECT_EQ(pps.num_ref_idx_l1_default_active_minus1, 6u);
}

TEST(PpsReader, ReadsOneRectangleTooMany) {
  BitBuilder bits = Groups(1, 2);
  bits.ue(3).ue(9);  // what the standard has for two groups
  Rest(bits);
  const H264PpsRecord pps = ReadPpsUnit(bits.bytes()).record;
  EXPECT_EQ(pps.top_left[0], 3u);
  EXPECT_EQ(pps.bottom_right[0], 9u);
  EXPECT_EQ(pps.top_left[1], 5u);  // the elements behind are taken for the second pair
  EXPECT_EQ(pps.bottom_right[1], 6u);
}

TEST(PpsReader, ReadsChangeRates) {
  for (const uint32_t type : {3u, 4u, 5u}) {
    BitBuilder bits = Groups(1, type);
    bits.u(1, 1).ue(17);
    Rest(bits);
    const H264PpsRecord pps = ReadPpsUnit(bits.bytes()).record;
    EXPECT_EQ(pps.slice_group_change_direction_flag, 1u);
    EXPECT_EQ(pps.slice_group_change_rate_minus1, 17u);
    EXPECT_EQ(pps.num_ref_idx_l1_default_active_minus1, 6u);
  }
}

TEST(PpsReader, ReadsNothingForOtherMapTypes) {
  for (const uint32_t type : {1u, 7u, 200u}) {
    BitBuilder bits = Groups(3, type);
    Rest(bits);
    EXPECT_EQ(ReadPpsUnit(bits.bytes()).record.num_ref_idx_l1_default_active_minus1, 6u) << type;
  }
}

TEST(PpsReader, ReadsGroupIdsOfTheRightWidth) {
  for (const auto& [groups, width] : {std::pair{1u, 1}, {2u, 2}, {3u, 2}, {4u, 3}, {7u, 3}, {8u, 4}}) {
    BitBuilder bits = Groups(groups, 6);
    bits.ue(4);
    for (uint32_t i = 0; i < 5; ++i) bits.u(width, i % 2);
    Rest(bits);
    const H264PpsRecord pps = ReadPpsUnit(Escape(bits.bytes())).record;
    EXPECT_EQ(pps.pic_size_in_map_units_minus1, 4u);
    EXPECT_EQ(pps.slice_group_id[1], 1u) << groups;
    EXPECT_EQ(pps.slice_group_id[4], 0u);
    EXPECT_EQ(pps.num_ref_idx_l1_default_active_minus1, 6u) << groups;
  }
}

TEST(PpsReader, ReadsEntriesBeyondTheArraysWithoutStoringThem) {
  BitBuilder bits = Groups(11, 0);
  for (uint32_t i = 0; i < 12; ++i) bits.ue(100 + i);
  Rest(bits);
  H264PpsRecord pps = ReadPpsUnit(bits.bytes(), Filled<H264PpsRecord>(0)).record;
  EXPECT_EQ(pps.run_length_minus1[7], 107u);
  EXPECT_EQ(pps.top_left[0], 0u);
  EXPECT_EQ(pps.num_ref_idx_l0_default_active_minus1, 5u);

  BitBuilder pairs = Groups(9, 2);
  for (uint32_t i = 0; i < 10; ++i) pairs.ue(i).ue(50 + i);
  Rest(pairs);
  pps = ReadPpsUnit(pairs.bytes(), Filled<H264PpsRecord>(0)).record;
  EXPECT_EQ(pps.top_left[7], 7u);
  EXPECT_EQ(pps.bottom_right[7], 57u);
  EXPECT_EQ(pps.slice_group_change_direction_flag, 0u);
  EXPECT_EQ(pps.num_ref_idx_l0_default_active_minus1, 5u);

  BitBuilder ids = Groups(3, 6);
  ids.ue(299);
  for (uint32_t i = 0; i < 300; ++i) ids.u(2, 1 + i % 3);
  Rest(ids);
  pps = ReadPpsUnit(ids.bytes(), Filled<H264PpsRecord>(0)).record;
  EXPECT_EQ(pps.slice_group_id[255], 1u);
  EXPECT_EQ(pps.slice_group_id[254], 3u);
  EXPECT_EQ(pps.num_ref_idx_l0_default_active_minus1, 5u);
  EXPECT_EQ(pps.num_ref_idx_l1_default_active_minus1, 6u);
}

// The same loops run to a count that the data does not cover, round by round.
TEST(PpsReader, FinishesHostileCountsWithTheResultOfRunningThem) {
  struct Case {
    uint32_t groups, type, picSize;
    uint64_t movedPerRound, rounds;
  };
  for (const Case& c : {Case{0x7FFFFFFF, 0, 0, 1, 0x80000000u}, Case{0x40000000, 2, 0, 2, 0x40000001u},
                        Case{3, 6, 0x7FFFFFFF, 2, 0x80000000u}, Case{7, 6, 1000, 3, 1001}}) {
    BitBuilder bits = Groups(c.groups, c.type);
    if (c.type == 6) bits.ue(c.picSize);
    const uint32_t position = static_cast<uint32_t>(bits.bits());
    const Bytes unit = Escape(bits.bytes());
    // The limit is in front of the last bit, so that every round begins past it.
    const auto parsed = ParseWith(qlnutilRead_PPS, unit, Filled<H264PpsRecord>(0),
                                  static_cast<int32_t>(unit.size()), position - 1, 0);
    // Behind the loop: two codes, 1 + 2 bits, three codes, three flags and the stop bit.
    const uint32_t expected = static_cast<uint32_t>(position + c.rounds * c.movedPerRound + 12);
    const bool wrapped = position + c.rounds * c.movedPerRound > 0xFFFFFF00u;
    if (!wrapped) {
      EXPECT_EQ(parsed.bitPos, (expected + 7) & ~7u) << c.type;
    }
    if (c.type == 6) {
      EXPECT_EQ(parsed.record.slice_group_id[255], kMinusOne);
    }
    if (c.type == 0) {
      EXPECT_EQ(parsed.record.run_length_minus1[7], 0u);
    }
  }
}

TEST(PpsReader, CountsWithTheirTopBitSetRunNoRound) {
  for (const uint32_t type : {0u, 2u}) {
    BitBuilder bits = Groups(0x80000000u, type);
    Rest(bits);
    const H264PpsRecord pps = ReadPpsUnit(Escape(bits.bytes()), Filled<H264PpsRecord>(0)).record;
    EXPECT_EQ(pps.num_slice_groups_minus1, 0x80000000u);
    EXPECT_EQ(pps.num_ref_idx_l0_default_active_minus1, 5u);
  }
  BitBuilder bits = Groups(1, 6);
  bits.ue(0x80000003u);
  Rest(bits);
  const H264PpsRecord pps = ReadPpsUnit(Escape(bits.bytes()), Filled<H264PpsRecord>(0)).record;
  EXPECT_EQ(pps.pic_size_in_map_units_minus1, 0x80000003u);
  EXPECT_EQ(pps.num_ref_idx_l0_default_active_minus1, 5u);
}

// pic_parameter_set_id begins at bit 8; the ids and flags tell what the bytes behind were.
TEST(PpsReader, RemovesTwelveAndTriplesAtTheVeryEnd) {
  // Byte 3 on: 00 00 0C F0 becomes 00 00 F0 and a stale F0.
  const auto twelve = ReadPpsUnit(Hex("68 80 C0 00 00 0C F0"));
  const auto plain = ReadPpsUnit(Hex("68 80 C0 00 00 F0 F0"));
  EXPECT_TRUE(SameWords(twelve.record, plain.record));
  EXPECT_EQ(twelve.bitPos, plain.bitPos);
  // A triple at byte 2 stays.
  const auto atTwo = ReadPpsUnit(Hex("68 80 00 00 0C F0"));
  const auto other = ReadPpsUnit(Hex("68 80 00 00 F0 F0"));
  EXPECT_FALSE(SameWords(atTwo.record, other.record));
  // At the very end nothing lies behind it: the stale byte is the 3 or 12 itself.
  const auto atEnd = ReadPpsUnit(Hex("68 80 C0 00 00 0C"));
  // seq_parameter_set_id takes byte 2; behind two flags 18 zeros and a code that runs past the end.
  EXPECT_EQ(atEnd.record.seq_parameter_set_id, 191u);
  EXPECT_EQ(atEnd.record.num_slice_groups_minus1, kMinusOne - 1 + (1u << 18));
  EXPECT_EQ(atEnd.bitLength, 48u);
}

TEST(PpsReader, UnescapesFromSixBytesOn) {
  // Size 6 is looked at from byte 3 on only: with a first removal behind it, it would show. Sizes up to 5
  // hold no triple at byte 3.
  const auto five = ReadPpsUnit(Hex("68 80 00 00 03"));
  const auto fiveInSix = ReadPpsUnit(Hex("68 80 00 00 03 03"));
  EXPECT_EQ(five.record.pic_parameter_set_id, fiveInSix.record.pic_parameter_set_id);
  // Seven bytes: the triple at byte 3 goes, and the last byte is there twice.
  const auto seven = ReadPpsUnit(Hex("68 81 08 00 00 03 AA"));
  const auto same = ReadPpsUnit(Hex("68 81 08 00 00 AA AA"));
  EXPECT_TRUE(SameWords(seven.record, same.record));
}

TEST(PpsReader, EveryTruncationIsSafe) {
  BitBuilder bits = Groups(7, 6);
  bits.ue(99);
  for (uint32_t i = 0; i < 100; ++i) bits.u(3, i % 8);
  Rest(bits);
  const Bytes whole = Escape(bits.bytes());
  for (size_t size = 1; size < whole.size(); ++size) {
    const auto parsed = ReadPpsUnit(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
    EXPECT_EQ(parsed.record.nal_unit_type, 8u);
    EXPECT_GE(parsed.bitPos, parsed.bitLength) << size;
  }
}

TEST(PpsReader, SizesBelowZeroAndLimitsBeyondTheSizeStayInsideTheCopy) {
  const Bytes unit = Hex("68 CE 38 80");
  auto parsed = ParseWith(qlnutilRead_PPS, unit, H264PpsRecord{}, -1, 32, 0);
  EXPECT_EQ(parsed.record.nal_unit_type, 0u);
  parsed = ParseWith(qlnutilRead_PPS, unit, H264PpsRecord{}, 4, 0x7FFFFFFF, 0);
  EXPECT_EQ(parsed.record.nal_unit_type, 8u);
  parsed = ParseWith(qlnutilRead_PPS, unit, H264PpsRecord{}, 1, 0xFFFFFFFF, 0);
  EXPECT_EQ(parsed.record.nal_unit_type, 8u);
}

}  // namespace
}  // namespace qln
