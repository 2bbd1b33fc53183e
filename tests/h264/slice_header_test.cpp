// The slice header reader: each element of the syntax, by the kind of slice.

#include "h264/h264_test_support.h"
#include "h264/slice_header_support.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Filled;
using test::kMinusOne;
using test::NalHeader;
using test::Slice;

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

// Clause 7.3.3: a table also for SP slices where weighted_pred_flag is set.
TEST(SliceHeaderReader, AnSpSliceHasAWeightTable) {
  Slice slice;
  slice.pps.weighted_pred_flag = 1;
  slice.pps.entropy_coding_mode_flag = 1;
  BitBuilder bits = NalHeader(1, 0);
  bits.ue(0).ue(3).ue(0).u(4, 1).u(1, 0).u(1, 0);  // no override, no reordering
  bits.ue(5).ue(6).u(1, 1).se(-20).se(11).u(1, 0);
  bits.ue(1).se(4).u(1, 1).se(-5);
  while (bits.bits() % 8 != 0) bits.u(1, 1);
  slice.Read(bits.bytes(), 1);
  EXPECT_EQ(slice.header.luma_log2_weight_denom, 5u);
  EXPECT_EQ(slice.header.chroma_log2_weight_denom, 6u);
  EXPECT_EQ(slice.header.luma_weight_l0[0], -20);
  EXPECT_EQ(slice.header.luma_offset_l0[0], 11);
  EXPECT_EQ(slice.header.cabac_init_idc, 1u);
  EXPECT_EQ(slice.header.slice_qp_delta, 4);
  EXPECT_EQ(slice.header.slice_qs_delta, -5);
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

}  // namespace
}  // namespace qln
