// The repair of the CABAC alignment behind a slice header.

#include "h264/h264_test_support.h"
#include "h264/slice_header_support.h"
#include "support/long_memory.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::Hex;
using test::Slice;

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

TEST(SliceHeaderFix, MarkingOperationsEndWithTheData) {
  Slice slice;
  BitBuilder bits;
  bits.ue(0).ue(7).ue(0).u(4, 5).u(1, 1).ue(1).ue(2);
  const uint32_t limit = static_cast<uint32_t>(bits.bits());
  bits.ue(1).ue(3).ue(0).u(32, 0);
  slice.Fix(bits.bytes(), 1, 1, 0, limit);
  EXPECT_EQ(slice.header.memory_management_control_operation, 1u);
  EXPECT_EQ(slice.header.difference_of_pic_nums_minus1, 2u);
}

// The last command ends with the last bit that 32 bits count: the header goes on at the first one, 01111000.
TEST(SliceHeaderFix, CommandsEndWhereThePositionWraps) {
  test::LongMemory data(size_t{1} << 29);
  if (data.data() == nullptr) GTEST_SKIP();
  BitBuilder bits;
  bits.u(1, 0).ue(0).ue(5).ue(0).u(4, 5).u(1, 0).u(1, 1);  // no override, reordering
  while (bits.bits() < 256) bits.u(1, 1);                  // commands of two bits
  const Bytes end = bits.bytes();
  std::copy(end.begin(), end.end(), data.data() + data.size() - end.size());
  Slice slice;
  QLNBitState state{data.data(), static_cast<int32_t>(data.size()), 0xFFFFFFFFu, 0u - 255u};
  EXPECT_EQ(qlnutilFix_SliceHeader(&state, &slice.header, &slice.sps, &slice.pps, 1, 0), 0u);
  EXPECT_EQ(slice.header.ref_pic_list_reordering_flag_l0, 1u);
  EXPECT_EQ(slice.header.reordering_of_pic_nums_idc, 0u);
  EXPECT_EQ(slice.header.slice_qp_delta, -1);
  EXPECT_EQ(state.bitPos, 8u);
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
