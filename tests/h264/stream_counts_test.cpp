// Loops whose count comes from the stream, where the position wraps 32 bits inside: it counts as past the end
// until the loop is over.

#include <gtest/gtest.h>

#include "h264/h264_test_support.h"

namespace qln::test {
namespace {

constexpr uint32_t kAll = 0xFFFFFFFFu;

// Reads a unit of which nothing but zero bits follows, under a limit of 2^32 - 1: its first code there counts
// zeros up to the limit, the second one takes the bit at the limit, and then the position is 0.
template <class Record, class Reader>
std::unique_ptr<Record> ReadUnderTheLargestLimit(const BitBuilder& bits, Reader reader) {
  ExactCopy copy(bits.bytes());
  QLNBitState state{copy.data(), static_cast<int32_t>(copy.size()), kAll, 0};
  auto record = std::make_unique<Record>();
  reader(&state, record.get());
  return record;
}

TEST(H264StreamCounts, AWrapInsideRunLengthsLastsForAllOfThem) {
  // The third run would be read from the header, 0x68, as 2.
  BitBuilder bits;
  bits.u(8, 0x68).ue(0).ue(0).u(1, 0).u(1, 0).ue(5).ue(0);
  const auto pps = ReadUnderTheLargestLimit<H264PpsRecord>(bits, qlnutilRead_PPS);
  ASSERT_EQ(pps->num_slice_groups_minus1, 5u);
  for (int i = 1; i < 6; ++i) EXPECT_EQ(pps->run_length_minus1[i], 0u) << i;
}

TEST(H264StreamCounts, AWrapInsideRectanglesLastsForAllOfThem) {
  BitBuilder bits;
  bits.u(8, 0x68).ue(0).ue(0).u(1, 0).u(1, 0).ue(2).ue(2);
  const auto pps = ReadUnderTheLargestLimit<H264PpsRecord>(bits, qlnutilRead_PPS);
  ASSERT_EQ(pps->num_slice_groups_minus1, 2u);
  for (int i = 1; i < 3; ++i) {
    EXPECT_EQ(pps->top_left[i], 0u) << i;
    EXPECT_EQ(pps->bottom_right[i], 0u) << i;
  }
}

TEST(H264StreamCounts, AWrapInsideTheCycleOfOffsetsLastsForAllOfThem) {
  // The third offset would be read from the header, 0x67, as 2.
  BitBuilder bits;
  bits.u(8, 0x67).u(8, 66).u(8, 0).u(8, 30).ue(0).ue(0).ue(1).u(1, 0).ue(0).ue(0).ue(3);
  const auto sps = ReadUnderTheLargestLimit<H264SpsRecord>(bits, qlnutilRead_SPS);
  ASSERT_EQ(sps->num_ref_frames_in_pic_order_cnt_cycle, 3u);
  EXPECT_EQ(sps->offset_for_ref_frame, 0u);
}

TEST(H264StreamCounts, AWrapInsideHrdSchedulesLastsForAllOfThem) {
  BitBuilder bits = SpsHead(66);
  PlainSpsBody(bits).u(1, 1);
  bits.u(1, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 1);  // up to the NAL HRD
  bits.ue(2).u(4, 1).u(4, 1);
  const auto sps = ReadUnderTheLargestLimit<H264SpsRecord>(bits, qlnutilRead_SPS);
  ASSERT_EQ(sps->nal_hrd.cpb_cnt_minus1, 2u);
  EXPECT_EQ(sps->nal_hrd.schedule[0].cbr_flag, kAll);
  for (int i = 1; i < 3; ++i) {
    EXPECT_EQ(sps->nal_hrd.schedule[i].bit_rate_value_minus1, 0u) << i;
    EXPECT_EQ(sps->nal_hrd.schedule[i].cpb_size_value_minus1, 0u) << i;
    EXPECT_EQ(sps->nal_hrd.schedule[i].cbr_flag, kAll) << i;
  }
}

TEST(H264StreamCounts, AWrapInsideWeightsLastsForAllOfThem) {
  H264SpsRecord sps{};
  sps.frame_mbs_only_flag = 1;
  sps.pic_order_cnt_type = 2;
  H264PpsRecord pps{};
  pps.weighted_pred_flag = 1;
  BitBuilder bits;
  bits.ue(0).ue(0).ue(0).u(4, 0).u(1, 1).ue(4).u(1, 0);  // five entries, no reordering
  bits.ue(0).u(1, 1);                                    // the first luma flag
  const auto header = ReadUnderTheLargestLimit<H264SliceHeaderRecord>(
      bits, [&](QLNBitState* state, H264SliceHeaderRecord* record) {
        qlnutilFix_SliceHeader(state, record, &sps, &pps, 1, 0);
      });
  ASSERT_EQ(header->num_ref_idx_l0_active_minus1, 4u);
  EXPECT_EQ(header->luma_weight_l0_flag, kAll);
  for (int i = 1; i < 5; ++i) {
    EXPECT_EQ(header->luma_weight_l0[i], 0) << i;
    EXPECT_EQ(header->luma_offset_l0[i], 0) << i;
  }
}

}  // namespace
}  // namespace qln::test
