// How the slice header reader takes its unit: emulation prevention, the copy, the CABAC alignment, and
// units that end early.

#include "h264/h264_test_support.h"
#include "h264/slice_header_support.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::Hex;
using test::kMinusOne;
using test::NalHeader;
using test::Slice;

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

}  // namespace
}  // namespace qln
