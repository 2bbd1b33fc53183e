// The slice header reader and the repair of the CABAC alignment.

#include <cmath>

#include "h264/h264_test_support.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::Escape;
using test::ExactCopy;
using test::Filled;
using test::Hex;
using test::SameWords;

constexpr uint32_t kMinusOne = 0xFFFFFFFFu;

// One header of either operation, and the parameter sets that it is read with.
struct Slice {
  H264SpsRecord sps{};
  H264PpsRecord pps{};
  H264SliceHeaderRecord header{};
  uint32_t result = 0;
  uint32_t bitPos = 0;
  Bytes bytes;

  Slice() {
    sps.frame_mbs_only_flag = 1;
    sps.chroma_format_idc = 1;
    sps.pic_order_cnt_type = 2;
  }

  // Reads a unit from its NAL header byte on.
  void Read(const Bytes& unit, int32_t type, int32_t size = -100) {
    ExactCopy copy(unit);
    QLNBitState state{copy.data(), size == -100 ? static_cast<int32_t>(unit.size()) : size, 17, 23};
    const H264SpsRecord before = sps;
    result = qlnutilRead_SliceHeader(&state, &header, &sps, &pps, type, 3);
    EXPECT_EQ(state.data, copy.data());
    EXPECT_EQ(state.bitLength, 17u);
    EXPECT_EQ(state.bitPos, 23u);
    EXPECT_EQ(copy.bytes(), unit);
    EXPECT_TRUE(SameWords(before, sps));
  }

  // Walks in place from bit `from` on.
  void Fix(const Bytes& data, uint32_t type, int32_t marking, uint32_t from = 0, int64_t limit = -1) {
    ExactCopy copy(data);
    QLNBitState state{copy.data(), static_cast<int32_t>(data.size()),
                      limit < 0 ? static_cast<uint32_t>(data.size() * 8) : static_cast<uint32_t>(limit),
                      from};
    result = qlnutilFix_SliceHeader(&state, &header, &sps, &pps, type, marking);
    EXPECT_EQ(result, 0u);
    bitPos = state.bitPos;
    bytes = copy.bytes();
  }
};

BitBuilder NalHeader(uint32_t type, uint32_t refIdc = 2) {
  BitBuilder bits;
  bits.u(1, 0).u(2, refIdc).u(5, type);
  return bits;
}

TEST(SliceHeaderReader, ReadsAnIdrISlice) {
  Slice slice;
  slice.sps.log2_max_frame_num_minus4 = 4;
  slice.sps.pic_order_cnt_type = 0;
  slice.sps.log2_max_pic_order_cnt_lsb_minus4 = 2;
  slice.pps.bottom_field_pic_order_in_frame_present_flag = 1;
  slice.pps.redundant_pic_cnt_present_flag = 1;
  slice.pps.deblocking_filter_control_present_flag = 1;
  BitBuilder bits = NalHeader(5, 3);
  bits.ue(9).ue(7).ue(2).u(8, 0xA5).ue(4).u(6, 33).se(-2).ue(1);
  bits.u(2, 2);  // marking
  bits.se(-7).ue(0).se(3).se(-1);
  bits.u(1, 1);  // slice data
  bits.u(16, 0xFFFF);
  slice.Read(bits.bytes(), 5);
  EXPECT_EQ(slice.result, 9u);
  EXPECT_EQ(slice.header.nal_ref_idc, 3u);
  EXPECT_EQ(slice.header.nal_unit_type, 5u);
  EXPECT_EQ(slice.header.first_mb_in_slice, 9u);
  EXPECT_EQ(slice.header.slice_type, 7u);
  EXPECT_EQ(slice.header.pic_parameter_set_id, 2u);
  EXPECT_EQ(slice.header.frame_num, 0xA5u);
  EXPECT_EQ(slice.header.idr_pic_id, 4u);
  EXPECT_EQ(slice.header.pic_order_cnt_lsb, 33u);
  EXPECT_EQ(slice.header.delta_pic_order_cnt_bottom, -2);
  EXPECT_EQ(slice.header.redundant_pic_cnt, 1u);
  EXPECT_EQ(slice.header.slice_qp_delta, -7);
  EXPECT_EQ(slice.header.disable_deblocking_filter_idc, 0u);
  EXPECT_EQ(slice.header.slice_alpha_c0_offset_div2, 3);
  EXPECT_EQ(slice.header.slice_beta_offset_div2, -1);
  EXPECT_EQ(slice.header.no_output_of_prior_pics_flag, 0u);
  EXPECT_EQ(slice.pps.rbsp_stop_one_bit, 1u);
}

TEST(SliceHeaderReader, SlicesOfTypeTwoAndSevenAreTheSame) {
  for (const uint32_t type : {2u, 7u}) {
    Slice slice;
    BitBuilder bits = NalHeader(1);
    bits.ue(0).ue(type).ue(0).u(4, 6).u(2, 3).se(-3).u(1, 0).u(8, 0xFF);
    slice.Read(bits.bytes(), 1);
    EXPECT_EQ(slice.header.slice_type, type);
    EXPECT_EQ(slice.header.slice_qp_delta, -3);
    EXPECT_EQ(slice.pps.rbsp_stop_one_bit, 0u);
  }
}

TEST(SliceHeaderReader, SkipsTwoBitsForAnISliceEvenWhereTheStreamHasOne) {
  // nal_ref_idc 2, no IDR: the stream has adaptive_ref_pic_marking_mode_flag 0, then slice_qp_delta -3.
  Slice slice;
  BitBuilder bits = NalHeader(1);
  bits.ue(0).ue(7).ue(0).u(4, 6).u(1, 0).raw("0 0 1 1 1").raw("0000 0001 1111");
  slice.Read(bits.bytes(), 1);
  // One bit late: "0 1 1" is code 2, -1.
  EXPECT_EQ(slice.header.slice_qp_delta, -1);
}

TEST(SliceHeaderReader, ReadsAPSliceWithReorderingAndWeights) {
  Slice slice;
  slice.pps.weighted_pred_flag = 1;
  slice.pps.entropy_coding_mode_flag = 1;
  BitBuilder bits = NalHeader(1, 0);
  bits.ue(0).ue(5).ue(0).u(4, 1).u(1, 1).ue(1);  // override: two references
  bits.u(1, 1).ue(0).ue(7).ue(2).ue(9).ue(1).ue(4).ue(3);
  bits.ue(5).ue(6);
  bits.u(1, 1).se(-20).se(11).u(1, 1).se(1).se(2).se(-3).se(-4);
  bits.u(1, 0).u(1, 0);
  bits.ue(2).se(4);  // cabac_init_idc, slice_qp_delta
  while (bits.bits() % 8 != 0) bits.u(1, 1);
  bits.u(16, 0);
  slice.Read(bits.bytes(), 1);
  const H264SliceHeaderRecord& header = slice.header;
  EXPECT_EQ(header.num_ref_idx_active_override_flag, 1u);
  EXPECT_EQ(header.num_ref_idx_l0_active_minus1, 1u);
  EXPECT_EQ(header.ref_pic_list_reordering_flag_l0, 1u);
  EXPECT_EQ(header.reordering_of_pic_nums_idc, 3u);
  EXPECT_EQ(header.abs_diff_pic_num_minus1, 4u);
  EXPECT_EQ(header.long_term_pic_num, 9u);
  EXPECT_EQ(header.luma_log2_weight_denom, 5u);
  EXPECT_EQ(header.chroma_log2_weight_denom, 6u);
  EXPECT_EQ(header.luma_weight_l0[0], -20);
  EXPECT_EQ(header.luma_offset_l0[0], 11);
  EXPECT_EQ(header.chroma_weight_l0[0][0], 1);
  EXPECT_EQ(header.chroma_offset_l0[0][0], 2);
  EXPECT_EQ(header.chroma_weight_l0[0][1], -3);
  EXPECT_EQ(header.chroma_offset_l0[0][1], -4);
  EXPECT_EQ(header.luma_weight_l0_flag, 0u);  // the last ones read
  EXPECT_EQ(header.chroma_weight_l0_flag, 0u);
  EXPECT_EQ(header.luma_weight_l0[1], 0);
  EXPECT_EQ(header.cabac_init_idc, 2u);
  EXPECT_EQ(header.slice_qp_delta, 4);
}

TEST(SliceHeaderReader, TheWeightTableRunsOnTheRecordsCountNotOnThePpsDefault) {
  Slice slice;
  slice.pps.weighted_pred_flag = 1;
  slice.pps.num_ref_idx_l0_default_active_minus1 = 2;
  slice.sps.chroma_format_idc = 0;
  BitBuilder bits = NalHeader(1, 0);
  bits.ue(0).ue(0).ue(0).u(4, 1).u(1, 0).u(1, 0).ue(3);
  bits.u(1, 1).se(7).se(8);
  bits.se(-9).u(1, 1).u(8, 0xFF);
  slice.Read(bits.bytes(), 1);
  EXPECT_EQ(slice.header.luma_weight_l0[0], 7);
  EXPECT_EQ(slice.header.luma_offset_l0[0], 8);
  EXPECT_EQ(slice.header.chroma_log2_weight_denom, 0u);
  EXPECT_EQ(slice.header.slice_qp_delta, -9);
  EXPECT_EQ(slice.header.num_ref_idx_l0_active_minus1, 0u);
}

TEST(SliceHeaderReader, ABSliceHasBothListsAndNoWeightTable) {
  Slice slice;
  slice.pps.weighted_pred_flag = 1;
  slice.pps.weighted_bipred_idc = 1;
  BitBuilder bits = NalHeader(1, 0);
  bits.ue(0).ue(1).ue(0).u(4, 1).u(1, 1).u(1, 1).ue(2).ue(3);
  bits.u(1, 0).u(1, 1).ue(1).ue(21).ue(3).se(6).u(1, 1).u(8, 0);
  slice.Read(bits.bytes(), 1);
  EXPECT_EQ(slice.header.direct_spatial_mv_pred_flag, 1u);
  EXPECT_EQ(slice.header.num_ref_idx_l0_active_minus1, 2u);
  EXPECT_EQ(slice.header.num_ref_idx_l1_active_minus1, 3u);
  EXPECT_EQ(slice.header.ref_pic_list_reordering_flag_l0, 0u);
  EXPECT_EQ(slice.header.ref_pic_list_reordering_flag_l1, 1u);
  EXPECT_EQ(slice.header.abs_diff_pic_num_minus1, 21u);
  EXPECT_EQ(slice.header.slice_qp_delta, 6);
  EXPECT_EQ(slice.header.luma_log2_weight_denom, 0u);
}

TEST(SliceHeaderReader, ReadsSwitchingSlices) {
  for (const uint32_t type : {3u, 4u, 8u, 9u}) {
    const bool sp = type % 5 == 3;
    Slice slice;
    slice.pps.entropy_coding_mode_flag = 1;
    BitBuilder bits = NalHeader(1, 0);
    bits.ue(0).ue(type).ue(0).u(4, 1);
    if (sp) bits.u(1, 0).u(1, 0).ue(1);  // override, reordering, cabac_init_idc
    bits.se(2);
    if (sp) bits.u(1, 1);
    bits.se(-5);
    while (bits.bits() % 8 != 0) bits.u(1, 1);
    slice.Read(bits.bytes(), 1);
    EXPECT_EQ(slice.header.cabac_init_idc, sp ? 1u : 0u);
    EXPECT_EQ(slice.header.slice_qp_delta, 2);
    EXPECT_EQ(slice.header.sp_for_switch_flag, sp ? 1u : 0u);
    EXPECT_EQ(slice.header.slice_qs_delta, -5);
  }
}

TEST(SliceHeaderReader, TypesFromTenOnAreNoneOfTheNamedOnesButReorder) {
  Slice slice;
  slice.pps.entropy_coding_mode_flag = 1;
  slice.pps.weighted_pred_flag = 1;
  BitBuilder bits = NalHeader(1, 0);
  bits.ue(0).ue(10).ue(0).u(4, 1);
  bits.u(1, 1).ue(3);  // reordering, l0 only
  bits.ue(2).se(-1);   // cabac_init_idc, slice_qp_delta
  while (bits.bits() % 8 != 0) bits.u(1, 1);
  slice.Read(bits.bytes(), 1);
  EXPECT_EQ(slice.header.slice_type, 10u);
  EXPECT_EQ(slice.header.reordering_of_pic_nums_idc, 3u);
  EXPECT_EQ(slice.header.cabac_init_idc, 2u);
  EXPECT_EQ(slice.header.slice_qp_delta, -1);
}

TEST(SliceHeaderReader, FieldsAndPictureOrder) {
  Slice slice;
  slice.sps.frame_mbs_only_flag = 0;
  slice.sps.pic_order_cnt_type = 1;
  slice.pps.bottom_field_pic_order_in_frame_present_flag = 1;
  BitBuilder frame = NalHeader(1, 0);
  frame.ue(0).ue(2).ue(0).u(4, 1).u(1, 0).se(5).se(-6).u(2, 0).se(1).u(1, 1).u(8, 0);
  slice.Read(frame.bytes(), 1);
  EXPECT_EQ(slice.header.field_pic_flag, 0u);
  EXPECT_EQ(slice.header.delta_pic_order_cnt[0], 5);
  EXPECT_EQ(slice.header.delta_pic_order_cnt[1], -6);
  EXPECT_EQ(slice.header.slice_qp_delta, 1);

  BitBuilder field = NalHeader(1, 0);
  field.ue(0).ue(2).ue(0).u(4, 1).u(1, 1).u(1, 1).se(7).u(2, 0).se(2).u(1, 1).u(8, 0);
  slice.Read(field.bytes(), 1);
  EXPECT_EQ(slice.header.field_pic_flag, 1u);
  EXPECT_EQ(slice.header.bottom_field_flag, 1u);
  EXPECT_EQ(slice.header.delta_pic_order_cnt[0], 7);
  EXPECT_EQ(slice.header.delta_pic_order_cnt[1], -6);
  EXPECT_EQ(slice.header.slice_qp_delta, 2);

  // No field_pic_flag in the stream: the record's counts. delta_pic_order_always_zero_flag stops the deltas.
  slice.sps.frame_mbs_only_flag = 1;
  BitBuilder kept = NalHeader(1, 0);
  kept.ue(0).ue(2).ue(0).u(4, 1).se(8).u(2, 0).se(3).u(1, 1).u(8, 0);
  slice.Read(kept.bytes(), 1);
  EXPECT_EQ(slice.header.delta_pic_order_cnt[0], 8);
  EXPECT_EQ(slice.header.slice_qp_delta, 3);
  slice.sps.delta_pic_order_always_zero_flag = 1;
  BitBuilder none = NalHeader(1, 0);
  none.ue(0).ue(2).ue(0).u(4, 1).u(2, 0).se(4).u(1, 1).u(8, 0);
  slice.Read(none.bytes(), 1);
  EXPECT_EQ(slice.header.slice_qp_delta, 4);
}

TEST(SliceHeaderReader, DecidesByTheArgumentAndStoresTheHeaderByte) {
  Slice slice;
  BitBuilder bits = NalHeader(1, 0);
  bits.ue(0).ue(2).ue(0).u(4, 1).ue(6).u(2, 0).se(2).u(1, 1).u(8, 0);
  slice.Read(bits.bytes(), 5);
  EXPECT_EQ(slice.header.nal_unit_type, 1u);
  EXPECT_EQ(slice.header.idr_pic_id, 6u);
  EXPECT_EQ(slice.header.slice_qp_delta, 2);
}

TEST(SliceHeaderReader, LeavesReorderingOutInUnitsOfTypeTwenty) {
  BitBuilder bits = NalHeader(20, 0);
  bits.ue(0).ue(0).ue(0).u(4, 1).u(1, 0).se(-2).u(1, 1).u(8, 0);
  Slice slice;
  slice.header.ref_pic_list_reordering_flag_l0 = 9;
  slice.Read(bits.bytes(), 20);
  EXPECT_EQ(slice.header.ref_pic_list_reordering_flag_l0, 9u);
  EXPECT_EQ(slice.header.slice_qp_delta, -2);
}

TEST(SliceHeaderReader, TheDeblockingOffsetsAreAbsentForIdcOne) {
  Slice slice;
  slice.pps.deblocking_filter_control_present_flag = 1;
  slice.header.slice_alpha_c0_offset_div2 = 44;
  BitBuilder bits = NalHeader(1, 0);
  bits.ue(0).ue(2).ue(0).u(4, 1).u(2, 0).se(2).ue(1).u(1, 1).u(8, 0);
  slice.Read(bits.bytes(), 1);
  EXPECT_EQ(slice.header.disable_deblocking_filter_idc, 1u);
  EXPECT_EQ(slice.header.slice_alpha_c0_offset_div2, 44);
  EXPECT_EQ(slice.pps.rbsp_stop_one_bit, 1u);
}

TEST(SliceHeaderReader, WidthOfTheSliceGroupChangeCycle) {
  // Sum of pic_size_in_map_units_minus1 and slice_group_change_rate_minus1 + 1, and the width.
  struct Case {
    uint32_t picSize, rate, mapType;
    int width;
  };
  for (const Case& c : {Case{99, 0, 3, 6}, Case{99, 0, 4, 6}, Case{0, 99, 5, 6}, Case{7, 0, 3, 2},
                        Case{3, 0, 3, 2}, Case{1, 0, 3, 1}, Case{0, 0, 3, 0}, Case{8, 0, 3, 3},
                        Case{99, 0, 6, 0}, Case{99, 0, 0, 0}, Case{99, 0, 1, 0}, Case{99, 0, 2, 0},
                        Case{0xFFFFFFFF, 0, 3, 32}, Case{0xFFFFFFFF, 0xFFFFFFFE, 3, 32}, Case{15, 0, 3, 4}}) {
    Slice slice;
    slice.pps.num_slice_groups_minus1 = 1;
    slice.pps.slice_group_map_type = c.mapType;
    slice.pps.pic_size_in_map_units_minus1 = c.picSize;
    slice.pps.slice_group_change_rate_minus1 = c.rate;
    slice.header.slice_group_change_cycle = 0;
    BitBuilder bits = NalHeader(1, 0);
    bits.ue(0).ue(2).ue(0).u(4, 1).u(2, 0).se(2).u(64, 0xAAAAAAAAAAAAAAAAu).u(64, ~0ull);
    slice.Read(bits.bytes(), 1);
    const uint64_t pattern = 0xAAAAAAAAAAAAAAAAu;
    const uint32_t expected = c.width == 0 ? 0 : static_cast<uint32_t>(pattern >> (64 - c.width));
    EXPECT_EQ(slice.header.slice_group_change_cycle, expected) << c.picSize << " " << c.rate;
    // The bit behind: even places of the pattern are ones.
    EXPECT_EQ(slice.pps.rbsp_stop_one_bit, c.width % 2 == 0 ? 1u : 0u) << c.picSize;
  }
}

TEST(SliceHeaderReader, LeavesFourteenthsOfItsRecordAlone) {
  Slice slice;
  slice.header = Filled<H264SliceHeaderRecord>(0x33);
  slice.header.num_ref_idx_l0_active_minus1 = 0;
  slice.pps.weighted_pred_flag = 1;
  BitBuilder bits = NalHeader(1, 0);
  bits.ue(0).ue(0).ue(0).u(4, 1).u(1, 0).u(1, 0).ue(1).ue(1).u(1, 1).se(1).se(1).u(1, 0).se(1).u(1, 1).u(8,
                                                                                                         0);
  slice.Read(bits.bytes(), 1);
  EXPECT_EQ(slice.header.luma_weight_l0[0], 1);
  EXPECT_EQ(slice.header.luma_weight_l0[1], 0x33);
  for (const uint32_t word : slice.header.reserved) EXPECT_EQ(word, 0x33u);
  EXPECT_EQ(slice.header.luma_weight_l1_flag, 0x33u);
  EXPECT_EQ(slice.header.chroma_offset_l1[63][1], 0x33);
  EXPECT_EQ(slice.header.adaptive_ref_pic_marking_mode_flag, 0x33u);
  EXPECT_EQ(slice.header.mmco_long_term_pic_num, 0x33u);
}

TEST(SliceHeaderReader, ReadsWeightsBeyondTheArraysWithoutStoringThem) {
  Slice slice;
  slice.pps.weighted_pred_flag = 1;
  slice.sps.chroma_format_idc = 0;
  slice.header.num_ref_idx_l0_active_minus1 = 0;
  BitBuilder bits = NalHeader(1, 0);
  bits.ue(0).ue(0).ue(0).u(4, 1).u(1, 1).ue(69).u(1, 0).ue(1);
  for (int i = 0; i < 70; ++i) bits.u(1, i != 69).raw(i == 69 ? "" : "010 011");
  bits.se(-3).u(1, 1).u(8, 0);
  slice.header = Filled<H264SliceHeaderRecord>(0);
  slice.Read(bits.bytes(), 1);
  EXPECT_EQ(slice.header.luma_weight_l0[63], 1);
  EXPECT_EQ(slice.header.luma_offset_l0[63], -1);
  EXPECT_EQ(slice.header.luma_offset_l0[0], -1);
  EXPECT_EQ(slice.header.luma_weight_l0_flag, 0u);
  EXPECT_EQ(slice.header.chroma_weight_l0_flag, 0u);
  EXPECT_EQ(slice.header.slice_qp_delta, -3);
}

TEST(SliceHeaderReader, ANegativeWeightCountRunsNoRoundAndAHugeOneEndsWithTheData) {
  Slice slice;
  slice.pps.weighted_pred_flag = 1;
  BitBuilder bits = NalHeader(1, 0);
  bits.ue(0).ue(0).ue(0).u(4, 1).u(1, 0).u(1, 0).ue(1).ue(2).se(-3).u(1, 1).u(8, 0);
  slice.header.num_ref_idx_l0_active_minus1 = 0x80000000u;
  slice.header.luma_weight_l0_flag = 5;
  slice.Read(bits.bytes(), 1);
  EXPECT_EQ(slice.header.luma_weight_l0_flag, 5u);
  EXPECT_EQ(slice.header.slice_qp_delta, -3);
  slice.header.num_ref_idx_l0_active_minus1 = 0x7FFFFFFFu;
  slice.Read(bits.bytes(), 1);
  EXPECT_EQ(slice.header.luma_weight_l0_flag, kMinusOne);
  EXPECT_EQ(slice.header.chroma_weight_l0_flag, kMinusOne);
  EXPECT_EQ(slice.header.luma_weight_l0[63], 0);
  EXPECT_EQ(slice.pps.rbsp_stop_one_bit, kMinusOne);
}

TEST(SliceHeaderReader, UnescapesUnitsOfSixBytesAndMore) {
  // first_mb 0, type 2, pps 0, then frame_num of 28 bits across the triple.
  const auto frameNum = [](const Bytes& unit) {
    Slice slice;
    slice.sps.log2_max_frame_num_minus4 = 24;
    slice.Read(unit, 1);
    return slice.header.frame_num;
  };
  // B8 is 1 011 1 and three bits of frame_num; the 28th stands at the front of byte 5.
  EXPECT_EQ(frameNum(Hex("41 B8 80 00 00 03 FF")), 0x01000001u);
  EXPECT_EQ(frameNum(Hex("41 B8 80 00 00 03")), 0x01000000u);  // the stale byte is the 3
  EXPECT_EQ(frameNum(Hex("41 B8 00 00 03 FF")), 0x00000007u);  // at byte 2 it stays
  EXPECT_EQ(frameNum(Hex("41 B8 80 00 00 0C FF")), 0x01000000u);
}

// A header of 2040 bits, so that the bit behind it is the first of the last byte that an escape leaves of the
// 256 that are copied: that byte again where the unit ends there, the zero that stands for the rest where it
// goes on.
TEST(SliceHeaderReader, AZeroMovesInBehindTheCopyOfALongerUnit) {
  BitBuilder bits = NalHeader(1, 0);
  bits.ue(0).ue(0).ue(0).u(32, 0).u(1, 1).ue(0).u(1, 1);
  while (bits.bits() < 2030) bits.ue(1).ue(0);
  bits.ue(0).ue(0).ue(0).ue(0).ue(3).se(0);
  ASSERT_EQ(bits.bits(), 2040u);
  Bytes unit = bits.bytes();
  ASSERT_EQ(unit.back() & 0x80, 0x80);
  ASSERT_EQ(Bytes(unit.begin() + 3, unit.begin() + 5), Hex("00 00"));
  unit.insert(unit.begin() + 5, 3);
  ASSERT_EQ(unit.size(), 256u);
  for (const size_t size : {size_t{256}, size_t{257}, size_t{300}, size_t{5000}}) {
    unit.resize(size, 0xFF);
    Slice slice;
    slice.sps.log2_max_frame_num_minus4 = 28;
    slice.Read(unit, 1);
    EXPECT_EQ(slice.header.frame_num, 0u);
    EXPECT_EQ(slice.header.reordering_of_pic_nums_idc, 3u);
    EXPECT_EQ(slice.pps.rbsp_stop_one_bit, size == 256 ? 1u : 0u) << size;
  }
}

TEST(SliceHeaderReader, CopiesNoMoreThanTheFirst256Bytes) {
  // A reordering loop that runs on "1 1" (idc 0, difference 0) to the end of what is copied.
  const Bytes ones(600, 0xFF);
  BitBuilder bits = NalHeader(1, 0);
  bits.ue(0).ue(0).ue(0).u(4, 1).u(1, 0).u(1, 1);
  Bytes unit = bits.bytes();
  unit.back() = static_cast<uint8_t>(unit.back() | 0x0F);
  unit.insert(unit.end(), ones.begin(), ones.end());
  for (const size_t size : {size_t{200}, size_t{256}, size_t{257}, size_t{300}, unit.size()}) {
    Slice slice;
    slice.Read(Bytes(unit.begin(), unit.begin() + static_cast<std::ptrdiff_t>(size)), 1);
    // Up to 256 bytes all bits are ones up to the limit. Behind 256 bytes zeros: one code takes them all.
    EXPECT_EQ(slice.pps.rbsp_stop_one_bit, kMinusOne) << size;
    const bool longZeros = size > 256;
    const bool sawZeros =
        slice.header.abs_diff_pic_num_minus1 != 0 || (slice.header.reordering_of_pic_nums_idc != 0 &&
                                                      slice.header.reordering_of_pic_nums_idc != kMinusOne);
    EXPECT_EQ(sawZeros, longZeros) << size;
  }
}

TEST(SliceHeaderReader, AlignmentInCabacStreamsMayCallForASecondPass) {
  // Header of 29 bits, then "110" up to the boundary: the second pass gives the same record.
  for (const char* alignment : {"110", "111", "000"}) {
    Slice slice;
    slice.pps.entropy_coding_mode_flag = 1;
    BitBuilder bits = NalHeader(1, 0);
    bits.ue(0).ue(7).ue(0).u(4, 5).u(2, 0).ue(0);
    while (bits.bits() % 8 != 5) bits.u(1, 0);
    bits.raw(alignment).u(16, 0x1234);
    slice.Read(bits.bytes(), 1);
    EXPECT_EQ(slice.result, 0u);
    EXPECT_EQ(slice.header.frame_num, 5u);
    EXPECT_EQ(slice.header.slice_type, 7u);
    EXPECT_EQ(slice.pps.rbsp_stop_one_bit, 0u);
  }
}

// A header whose last element, of 10 bits, begins in the last five bits of the 256 bytes that are copied: the
// first pass takes five zeros behind them, the second one stands on the shorter limit and runs past its end.
TEST(SliceHeaderReader, TheSecondPassHasTheShorterLimit) {
  const auto changeCycle = [](const char* lastBits, uint32_t cabac) {
    Slice slice;
    slice.pps.entropy_coding_mode_flag = cabac;
    slice.pps.num_slice_groups_minus1 = 1;
    slice.pps.slice_group_map_type = 3;
    slice.pps.pic_size_in_map_units_minus1 = 1100;
    BitBuilder bits = NalHeader(1, 0);
    bits.ue(0).ue(7).ue(0);
    const uint32_t frameNum = 2048 - 5 - 3 - static_cast<uint32_t>(bits.bits());
    slice.sps.log2_max_frame_num_minus4 = frameNum - 4;
    for (uint32_t i = 0; i < frameNum; ++i) bits.u(1, 1);
    bits.u(2, 0).se(0).raw(lastBits);
    EXPECT_EQ(bits.bits(), 2048u);
    bits.u(32, 0xFFFFFFFF);  // not copied
    slice.Read(bits.bytes(), 1);
    return slice.header.slice_group_change_cycle;
  };
  EXPECT_EQ(changeCycle("10101", 0), 0b1010100000u);
  EXPECT_EQ(changeCycle("10101", 1), kMinusOne);
}

// Bits past the end of the unit count as alignment: no second pass, which would run past its end earlier.
TEST(SliceHeaderReader, AlignmentPastTheEndCallsForNoSecondPass) {
  for (uint32_t odd = 0; odd < 8; ++odd) {
    Slice slice;
    slice.pps.entropy_coding_mode_flag = 1;
    BitBuilder bits = NalHeader(1, 0);
    bits.ue(0).ue(7).ue(0);
    // Up to some bits behind those that are copied; the code of slice_qp_delta runs over zeros to the end.
    slice.sps.log2_max_frame_num_minus4 = 2080 + odd - static_cast<uint32_t>(bits.bits()) - 4;
    Bytes unit = bits.bytes();
    unit.resize(300, 0);
    slice.Read(unit, 1);
    EXPECT_EQ(slice.header.frame_num & 0xFFFF, 0u) << odd;
  }
}

// Zeros stand in for what is not copied, up to 4096 bytes of the unit.
TEST(SliceHeaderReader, TheFirstPassRunsOverZerosUpTo4096Bytes) {
  const auto lastFlag = [](size_t size, uint32_t entries) {
    Slice slice;
    slice.sps.chroma_format_idc = 0;
    slice.pps.weighted_pred_flag = 1;
    BitBuilder bits = NalHeader(1, 0);
    bits.ue(0).ue(0).ue(0).u(4, 1).u(1, 1).ue(entries - 1).u(1, 0).ue(0);
    Bytes unit = bits.bytes();
    unit.resize(256, 0);
    unit.resize(size, 0xFF);  // not looked at
    slice.Read(unit, 1);
    return slice.header.luma_weight_l0_flag;
  };
  EXPECT_EQ(lastFlag(5000, 32700), 0u);
  EXPECT_EQ(lastFlag(5000, 32800), kMinusOne);
  EXPECT_EQ(lastFlag(4000, 31900), 0u);
  EXPECT_EQ(lastFlag(4000, 32100), kMinusOne);
}

TEST(SliceHeaderReader, EveryTruncationIsSafe) {
  BitBuilder bits = NalHeader(1, 0);
  bits.ue(3).ue(5).ue(0).u(4, 1).u(1, 1).ue(1).u(1, 1).ue(0).ue(7).ue(3).ue(5).ue(6);
  for (int i = 0; i < 2; ++i) bits.u(1, 1).se(-20).se(11).u(1, 1).se(1).se(2).se(-3).se(-4);
  bits.ue(2).se(4).u(8, 0xFF);
  const Bytes whole = bits.bytes();
  for (size_t size = 0; size <= whole.size(); ++size) {
    for (const uint32_t cabac : {0u, 1u}) {
      Slice slice;
      slice.pps.weighted_pred_flag = 1;
      slice.pps.entropy_coding_mode_flag = cabac;
      slice.Read(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)), 1);
      EXPECT_EQ(slice.header.nal_unit_type, size == 0 ? kMinusOne : 1u);
      EXPECT_EQ(slice.result, size < 2 ? slice.result : 3u);
    }
  }
}

TEST(SliceHeaderReader, ASizeOfZeroGoesThroughTheReader) {
  Slice slice;
  slice.Read(Hex("65 88"), 5, 0);
  EXPECT_EQ(slice.header.forbidden_zero_bit, 0u);  // the bit at the limit is real, and zero
  EXPECT_EQ(slice.header.nal_ref_idc, kMinusOne);
  EXPECT_EQ(slice.header.nal_unit_type, kMinusOne);
  EXPECT_EQ(slice.result, 0u);
  slice.Read(Hex("65 88"), 5, -4);
  EXPECT_EQ(slice.header.nal_unit_type, kMinusOne);
}

TEST(SliceHeaderReader, NullRecordsGiveZero) {
  Bytes unit = Hex("65 88 80 40");
  QLNBitState state{unit.data(), 4, 32, 0};
  H264SliceHeaderRecord header{};
  H264SpsRecord sps{};
  H264PpsRecord pps{};
  EXPECT_EQ(qlnutilRead_SliceHeader(&state, nullptr, &sps, &pps, 5, 0), 0u);
  EXPECT_EQ(qlnutilRead_SliceHeader(&state, &header, nullptr, &pps, 5, 0), 0u);
  EXPECT_EQ(qlnutilRead_SliceHeader(&state, &header, &sps, nullptr, 5, 0), 0u);
}

TEST(SliceHeaderWriter, IsNotSupported) {
  Bytes unit = Hex("65 88 80 40");
  QLNBitState state{unit.data(), 4, 32, 0};
  H264SliceHeaderRecord header{};
  H264SpsRecord sps{};
  H264PpsRecord pps{};
  EXPECT_EQ(qlnutilWrite_SliceHeader(&state, &header, &sps, &pps, 5, 0), kMinusOne);
  EXPECT_EQ(qlnutilWrite_SliceHeader(nullptr, nullptr, nullptr, nullptr, 0, 0), kMinusOne);
  EXPECT_EQ(unit, Hex("65 88 80 40"));
  EXPECT_EQ(state.bitPos, 0u);
}

// A header of an I slice that ends at bit `bits` % 8 == 5, without the NAL header byte.
BitBuilder CabacIHeader() {
  BitBuilder bits;
  bits.ue(0).ue(7).ue(0).u(4, 5).se(0);  // 1 + 7 + 1 + 4 + 1 bits
  EXPECT_EQ(bits.bits() % 8, 6u);
  return bits;
}

TEST(SliceHeaderFix, RewritesTheAlignmentAsAOneAndZeros) {
  Slice slice;
  slice.pps.entropy_coding_mode_flag = 1;
  for (const char* before : {"001", "100", "111", "000", "011", "010"}) {
    BitBuilder bits;
    bits.ue(0).ue(7).ue(0).u(4, 5).raw("00100 111");  // slice_qp_delta 2, three deblocking codes of one bit
    ASSERT_EQ(bits.bits() % 8, 5u);
    bits.raw(before).u(16, 0xABCD);
    const Bytes data = bits.bytes();
    slice.pps.deblocking_filter_control_present_flag = 1;
    slice.Fix(data, 1, 0);
    BitBuilder expected;
    expected.ue(0).ue(7).ue(0).u(4, 5).raw("00100 111 100").u(16, 0xABCD);
    EXPECT_EQ(slice.bytes, expected.bytes()) << before;
    EXPECT_EQ(slice.bitPos, 24u);
    EXPECT_EQ(slice.header.slice_qp_delta, 2);
  }
}

TEST(SliceHeaderFix, LeavesAnAlignedHeaderAndCavlcBytesAlone) {
  Slice slice;
  slice.pps.entropy_coding_mode_flag = 1;
  BitBuilder aligned;
  aligned.ue(0).ue(7).ue(0).u(4, 5).raw("011").u(16, 0x0102);
  ASSERT_EQ(aligned.bits(), 32u);
  slice.Fix(aligned.bytes(), 1, 0);
  EXPECT_EQ(slice.bytes, aligned.bytes());
  EXPECT_EQ(slice.bitPos, 16u);

  slice.pps.entropy_coding_mode_flag = 0;
  BitBuilder cavlc;
  cavlc.ue(0).ue(7).ue(0).u(4, 5).raw("1").u(1, 1).raw("0").u(16, 0x0102);
  slice.Fix(cavlc.bytes(), 1, 0);
  EXPECT_EQ(slice.bytes, cavlc.bytes());
  EXPECT_EQ(slice.pps.rbsp_stop_one_bit, 1u);
  EXPECT_EQ(slice.bitPos, 16u);
}

TEST(SliceHeaderFix, LeavesTheNalHeaderWordsAndStartsAtTheCallersPosition) {
  Slice slice;
  slice.pps.entropy_coding_mode_flag = 1;
  slice.header.nal_unit_type = 77;
  BitBuilder bits;
  bits.u(8, 0x65).ue(3).ue(7).ue(0).u(4, 5).ue(1).u(2, 1).se(-1);
  const uint32_t end = static_cast<uint32_t>(bits.bits());
  bits.align().u(8, 0);
  slice.Fix(bits.bytes(), 5, 3, 8);
  EXPECT_EQ(slice.header.nal_unit_type, 77u);
  EXPECT_EQ(slice.header.first_mb_in_slice, 3u);
  EXPECT_EQ(slice.header.idr_pic_id, 1u);
  EXPECT_EQ(slice.header.no_output_of_prior_pics_flag, 0u);
  EXPECT_EQ(slice.header.long_term_reference_flag, 1u);
  EXPECT_EQ(slice.header.slice_qp_delta, -1);
  EXPECT_EQ(slice.bitPos, (end + 7) / 8 * 8);
}

TEST(SliceHeaderFix, ParsesMarkingOperationsWithTheirOwnShapes) {
  Slice slice;
  BitBuilder bits;
  bits.ue(0).ue(7).ue(0).u(4, 5);
  bits.u(1, 1).ue(1).ue(10).ue(5).ue(11).ue(2).ue(12).ue(3).ue(13).ue(6).ue(14).ue(4).ue(15).ue(9).ue(0);
  bits.se(-6).u(1, 1).u(8, 0);
  slice.Fix(bits.bytes(), 1, 1);
  EXPECT_EQ(slice.header.adaptive_ref_pic_marking_mode_flag, 1u);
  EXPECT_EQ(slice.header.memory_management_control_operation, 0u);
  EXPECT_EQ(slice.header.difference_of_pic_nums_minus1, 11u);
  EXPECT_EQ(slice.header.mmco_long_term_pic_num, 12u);
  EXPECT_EQ(slice.header.long_term_frame_idx, 14u);
  EXPECT_EQ(slice.header.max_long_term_frame_idx_plus1, 15u);
  EXPECT_EQ(slice.header.slice_qp_delta, -6);
  EXPECT_EQ(slice.header.long_term_pic_num, 0u);
}

TEST(SliceHeaderFix, HasNoMarkingWithoutTheFlagAndNoSkippedBits) {
  Slice slice;
  BitBuilder bits;
  bits.ue(0).ue(7).ue(0).u(4, 5).se(-6).u(1, 1).u(8, 0);
  slice.Fix(bits.bytes(), 1, 0);
  EXPECT_EQ(slice.header.slice_qp_delta, -6);
}

TEST(SliceHeaderFix, ReordersInUnitsOfTypeTwenty) {
  Slice slice;
  BitBuilder bits;
  bits.ue(0).ue(0).ue(0).u(4, 1).u(1, 0).u(1, 1).ue(3).se(-2).u(1, 1).u(8, 0);
  slice.Fix(bits.bytes(), 20, 0);
  EXPECT_EQ(slice.header.reordering_of_pic_nums_idc, 3u);
  EXPECT_EQ(slice.header.slice_qp_delta, -2);
}

TEST(SliceHeaderFix, DoesNotUnescape) {
  Slice slice;
  slice.sps.log2_max_frame_num_minus4 = 28;
  BitBuilder bits;
  bits.ue(0).ue(7).ue(0).u(32, 0x00000300).se(0).u(1, 1).u(8, 0);
  slice.Fix(bits.bytes(), 1, 0);
  EXPECT_EQ(slice.header.frame_num, 0x300u);
}

TEST(SliceHeaderFix, WritesNothingAtOrBehindTheLimit) {
  Slice slice;
  slice.pps.entropy_coding_mode_flag = 1;
  BitBuilder bits = CabacIHeader();
  const uint32_t end = static_cast<uint32_t>(bits.bits());
  bits.raw("01").u(8, 0);
  const Bytes data = bits.bytes();
  for (uint32_t limit = 0; limit <= end + 2; ++limit) {
    slice.header = {};
    slice.Fix(data, 1, 0, 0, limit);
    Bytes expected = data;
    if (limit > end) expected[end / 8] = static_cast<uint8_t>(expected[end / 8] | 2);
    if (limit > end + 1) expected[end / 8] = static_cast<uint8_t>(expected[end / 8] & ~1);
    EXPECT_EQ(slice.bytes, expected) << limit;
    EXPECT_EQ(slice.bitPos % 8, 0u);
    if (limit >= end) {
      EXPECT_EQ(slice.bitPos, 16u);
    }
  }
}

TEST(SliceHeaderFix, WritesNothingBehindTheSizeWhateverTheLimit) {
  Slice slice;
  slice.pps.entropy_coding_mode_flag = 1;
  slice.pps.num_slice_groups_minus1 = 1;
  slice.pps.slice_group_map_type = 3;
  slice.pps.pic_size_in_map_units_minus1 = 99;
  // Two bytes up to slice_qp_delta and two bits of the 6 of slice_group_change_cycle, which ends at bit 20.
  Bytes data = Hex("88 87 55 55 55");
  QLNBitState state{data.data(), 2, 40, 0};
  EXPECT_EQ(qlnutilFix_SliceHeader(&state, &slice.header, &slice.sps, &slice.pps, 1, 0), 0u);
  EXPECT_EQ(slice.header.slice_group_change_cycle, 0b110000u);
  EXPECT_EQ(data, Hex("88 87 55 55 55"));
  EXPECT_EQ(state.bitPos, 24u);
}

TEST(SliceHeaderFix, AHostileWeightCountEndsWhereRunningItWouldLeaveThePosition) {
  Slice slice;
  slice.pps.weighted_pred_flag = 1;
  slice.pps.entropy_coding_mode_flag = 1;
  slice.header.num_ref_idx_l0_active_minus1 = 999999;
  BitBuilder bits;
  bits.ue(0).ue(0).ue(0).u(4, 1).u(1, 0).u(1, 0).ue(1).ue(2);
  const uint32_t end = static_cast<uint32_t>(bits.bits());
  slice.Fix(bits.bytes(), 1, 0, 0, end - 1);
  // Each round past the end moves by 3 for luma and 5 for chroma; then cabac_init_idc and slice_qp_delta.
  EXPECT_EQ(slice.bitPos, (end + 8 * 1000000 + 2 + 7) / 8 * 8);
}

// A code over zeros up to a limit near 2^32 wraps the position; it counts as past the limit.
TEST(SliceHeaderFix, APositionThatWrapsEndsTheLoops) {
  BitBuilder bits;
  bits.ue(0).ue(0).ue(0).u(4, 1).u(1, 0).u(1, 1);
  for (int64_t limit = 0xFFFFFFFF; limit > 0xFFFFFF00; --limit) {
    Slice slice;
    slice.Fix(bits.bytes(), 1, 0, 0, limit);
    EXPECT_EQ(slice.header.ref_pic_list_reordering_flag_l0, 1u);
    slice.pps.weighted_pred_flag = 1;
    slice.header.num_ref_idx_l0_active_minus1 = 0x7FFFFFFE;
    slice.Fix(bits.bytes(), 1, 1, 0, limit);
    EXPECT_EQ(slice.bytes, bits.bytes());
  }
}

TEST(SliceHeaderFix, NullRecordsDoNothing) {
  Bytes data = Hex("88 80 40");
  QLNBitState state{data.data(), 3, 24, 1};
  H264SliceHeaderRecord header{};
  H264SpsRecord sps{};
  H264PpsRecord pps{};
  EXPECT_EQ(qlnutilFix_SliceHeader(&state, nullptr, &sps, &pps, 5, 0), 0u);
  EXPECT_EQ(qlnutilFix_SliceHeader(&state, &header, nullptr, &pps, 5, 0), 0u);
  EXPECT_EQ(qlnutilFix_SliceHeader(&state, &header, &sps, nullptr, 5, 0), 0u);
  EXPECT_EQ(state.bitPos, 1u);
}

}  // namespace
}  // namespace qln
