// The PPS writer: exact bytes and the told asymmetries.

#include "h264/h264_test_support.h"
#include "h264/parameter_set_writer_support.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::Escape;
using test::PpsHead;
using test::ReadPpsUnit;
using test::WritePpsUnit;

H264PpsRecord PlainPps() {
  BitBuilder bits = PpsHead();
  return ReadPpsUnit(bits.trailing().bytes()).record;
}

TEST(PpsWriter, WritesAPlainPpsWithTheRecordsStopBit) {
  H264PpsRecord pps = PlainPps();
  BitBuilder bits = PpsHead();
  EXPECT_EQ(WritePpsUnit(pps), BitBuilder(bits).trailing().bytes());
  pps.rbsp_stop_one_bit = 0;
  EXPECT_EQ(WritePpsUnit(pps), BitBuilder(bits).u(1, 0).align().bytes());
  pps.rbsp_stop_one_bit = 0xFFFFFFFF;
  EXPECT_EQ(WritePpsUnit(pps), BitBuilder(bits).trailing().bytes());
}

TEST(PpsWriter, WritesSliceGroupsWithTheStandardsCounts) {
  const auto head = [](uint32_t groups, uint32_t type) {
    BitBuilder bits;
    bits.u(8, 0x68).ue(0).ue(0).u(1, 0).u(1, 0).ue(groups).ue(type);
    return bits;
  };
  const auto tail = [](BitBuilder bits) {
    bits.ue(0).ue(0).u(1, 0).u(2, 0).se(0).se(0).se(0).u(1, 1).u(1, 0).u(1, 0);
    return Escape(bits.trailing().bytes());
  };
  H264PpsRecord pps = PlainPps();
  for (uint32_t i = 0; i < 8; ++i) {
    pps.run_length_minus1[i] = 10 + i;
    pps.top_left[i] = 20 + i;
    pps.bottom_right[i] = 30 + i;
  }
  pps.slice_group_change_direction_flag = 1;
  pps.slice_group_change_rate_minus1 = 6;
  pps.pic_size_in_map_units_minus1 = 98;
  pps.num_slice_groups_minus1 = 2;
  pps.slice_group_map_type = 0;
  EXPECT_EQ(WritePpsUnit(pps), tail(head(2, 0).ue(10).ue(11).ue(12)));
  pps.slice_group_map_type = 2;
  EXPECT_EQ(WritePpsUnit(pps), tail(head(2, 2).ue(20).ue(30).ue(21).ue(31)));
  for (const uint32_t type : {3u, 4u, 5u}) {
    pps.slice_group_map_type = type;
    EXPECT_EQ(WritePpsUnit(pps), tail(head(2, type).u(1, 1).ue(6)));
  }
  pps.slice_group_map_type = 6;
  EXPECT_EQ(WritePpsUnit(pps), tail(head(2, 6).ue(98)));
  for (const uint32_t type : {1u, 7u}) {
    pps.slice_group_map_type = type;
    EXPECT_EQ(WritePpsUnit(pps), tail(head(2, type)));
  }
  // Groups beyond the arrays are zeros.
  pps.num_slice_groups_minus1 = 9;
  pps.slice_group_map_type = 0;
  BitBuilder many = head(9, 0);
  for (uint32_t i = 0; i < 10; ++i) many.ue(i < 8 ? 10 + i : 0);
  EXPECT_EQ(WritePpsUnit(pps), tail(many));
  pps.slice_group_map_type = 2;
  BitBuilder pairs = head(9, 2);
  for (uint32_t i = 0; i < 9; ++i) pairs.ue(i < 8 ? 20 + i : 0).ue(i < 8 ? 30 + i : 0);
  EXPECT_EQ(WritePpsUnit(pps), tail(pairs));
  // A count that cannot fit is refused, and does not run.
  pps.num_slice_groups_minus1 = 0x7FFFFFFF;
  EXPECT_TRUE(WritePpsUnit(pps).empty());
}

TEST(PpsWriter, ScalingListsFollowTheTransformWord) {
  const auto lists = [](uint32_t transform) {
    H264PpsRecord pps = PlainPps();
    pps.more_rbsp_data_present = 1;
    pps.transform_8x8_mode_flag = transform;
    pps.pic_scaling_matrix_present_flag = 1;
    pps.second_chroma_qp_index_offset = -2;
    const Bytes unit = WritePpsUnit(pps);
    for (int count = 0; count <= 12; ++count) {
      BitBuilder bits = PpsHead();
      bits.u(1, transform & 1).u(1, 1).u(count, 0).se(-2).trailing();
      if (unit == Escape(bits.bytes())) return count;
    }
    return -1;
  };
  EXPECT_EQ(lists(0), 6);
  EXPECT_EQ(lists(1), 8);
  EXPECT_EQ(lists(0xFFFFFFFF), 4);
  EXPECT_EQ(lists(3), 12);
  EXPECT_EQ(lists(2), 10);
  EXPECT_EQ(lists(1000), 12);
  // The product does not wrap.
  EXPECT_EQ(lists(0x3FFFFFFD), 12);
  EXPECT_EQ(lists(0x40000000), 12);
  EXPECT_EQ(lists(0x7FFFFFFF), 12);
  EXPECT_EQ(lists(0xFFFFFFFD), 0);
  EXPECT_EQ(lists(0xFFFFFFFC), 0);
  EXPECT_EQ(lists(0x80000001), 0);
  EXPECT_EQ(lists(0x80000000), 0);
}

TEST(PpsWriter, WritesEntriesAsTheyStandAndSignedValuesByThePublishedMapping) {
  H264PpsRecord pps = PlainPps();
  pps.pic_init_qp_minus26 = -13;
  pps.pic_init_qs_minus26 = 9;
  pps.chroma_qp_index_offset = -2;
  pps.more_rbsp_data_present = 1;
  pps.pic_scaling_matrix_present_flag = 1;
  pps.pic_scaling_list_present_flag[1] = 1;
  pps.pic_scaling_list_present_flag[2] = 1;
  pps.UseDefaultScalingMatrix4x4Flag[2] = 1;
  for (int i = 0; i < 16; ++i) pps.ScalingList4x4[1][i] = pps.ScalingList4x4[2][i] = 5 - i;
  pps.second_chroma_qp_index_offset = 4;
  BitBuilder bits;
  bits.u(8, 0x68).ue(0).ue(0).u(1, 0).u(1, 0).ue(0).ue(0).ue(0).u(1, 0).u(2, 0);
  bits.se(-13).se(9).se(-2).u(1, 1).u(1, 0).u(1, 0).u(1, 0).u(1, 1).u(1, 0).u(1, 1);
  for (int i = 0; i < 16; ++i) bits.se(5 - i);
  bits.u(1, 1);
  for (int i = 0; i < 16; ++i) bits.se(0);
  bits.u(3, 0).se(4).trailing();
  EXPECT_EQ(WritePpsUnit(pps), bits.bytes());
}

TEST(PpsWriter, AReadAndAWriteGiveTheSameBytes) {
  BitBuilder bits = PpsHead(1);
  bits.u(1, 1).u(1, 0).se(-4).trailing();
  EXPECT_EQ(WritePpsUnit(ReadPpsUnit(bits.bytes()).record), bits.bytes());
}

}  // namespace
}  // namespace qln
