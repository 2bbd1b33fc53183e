// The SPS writer: exact bytes, the told asymmetries, escapes and capacity.

#include "h264/h264_test_support.h"
#include "h264/parameter_set_writer_support.h"
#include "qlnutil/h264/parameter_sets.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::Escape;
using test::Hex;
using test::Join;
using test::kGuard;
using test::PlainSps;
using test::PlainSpsBody;
using test::ReadSpsUnit;
using test::SpsHead;
using test::WriteSpsUnit;

// The writers' scan: from one escaped triple straight to the byte behind it.
Bytes EscapeByTriples(const Bytes& raw) {
  Bytes escaped;
  size_t i = 0;
  for (; raw.size() - i > 2;) {
    if (raw[i] == 0 && raw[i + 1] == 0 && raw[i + 2] <= 3) {
      escaped.insert(escaped.end(), {0, 0, 3, raw[i + 2]});
      i += 3;
    } else {
      escaped.push_back(raw[i++]);
    }
  }
  escaped.insert(escaped.end(), raw.begin() + static_cast<std::ptrdiff_t>(i), raw.end());
  return escaped;
}

TEST(SpsWriter, ANullRecordGivesZero) {
  Bytes buffer(16, kGuard);
  QLNBitState state{buffer.data(), 16, 128, 24};
  EXPECT_EQ(qlnutilWrite_SPS(&state, nullptr), 0u);
  EXPECT_EQ(qlnutilWrite_PPS(&state, nullptr), 0u);
  EXPECT_EQ(state.bitPos, 24u);
  EXPECT_EQ(buffer, Bytes(16, kGuard));
}

TEST(SpsWriter, WritesAPlainSpsAndNothingBehindIt) {
  H264SpsRecord sps = PlainSps();
  sps.chroma_format_idc = 3;  // not written for this profile
  sps.bit_depth_luma_minus8 = 8;
  BitBuilder bits = SpsHead(66);
  PlainSpsBody(bits).u(1, 0).trailing();
  EXPECT_EQ(WriteSpsUnit(sps), bits.bytes());
  sps.rbsp_stop_one_bit = 0;
  EXPECT_EQ(WriteSpsUnit(sps), bits.bytes());
}

TEST(SpsWriter, WritesTheHighProfileElementsForItsNineProfilesByTheWholeWord) {
  for (uint32_t profile = 0; profile < 300; ++profile) {
    const bool high = profile == 44 || profile == 83 || profile == 86 || profile == 100 || profile == 110 ||
                      profile == 118 || profile == 122 || profile == 128 || profile == 244;
    H264SpsRecord sps = PlainSps(profile);
    sps.chroma_format_idc = 2;
    sps.bit_depth_chroma_minus8 = 1;
    BitBuilder bits = SpsHead(profile & 0xFF);
    if (high) bits.ue(2).ue(0).ue(1).u(1, 0).u(1, 0);
    PlainSpsBody(bits).u(1, 0).trailing();
    EXPECT_EQ(WriteSpsUnit(sps), bits.bytes()) << profile;
  }
}

TEST(SpsWriter, WritesScalingListEntriesAsTheyStand) {
  BitBuilder in = SpsHead(100);
  in.ue(1).ue(0).ue(0).u(1, 0).u(1, 1).u(1, 1).se(8);
  for (int i = 1; i < 16; ++i) in.se(0);
  for (int i = 1; i < 8; ++i) in.u(1, 0);
  PlainSpsBody(in).u(1, 0).trailing();
  H264SpsRecord sps = ReadSpsUnit(in.bytes()).record;
  EXPECT_EQ(sps.ScalingList4x4[0][2], 16);
  sps = ReadSpsUnit(WriteSpsUnit(sps)).record;
  EXPECT_EQ(sps.ScalingList4x4[0][0], 24);
  EXPECT_EQ(sps.ScalingList4x4[0][1], 40);
  EXPECT_EQ(sps.ScalingList4x4[0][2], 56);
  // With the default flag: deltas of 0, which decode to all 8.
  sps.UseDefaultScalingMatrix4x4Flag[0] = 5;
  EXPECT_EQ(ReadSpsUnit(WriteSpsUnit(sps)).record.ScalingList4x4[0][9], 8);
  // An 8x8 list, and the low bit of a flag word that counts as set.
  sps.seq_scaling_list_present_flag[6] = 2;
  sps.UseDefaultScalingMatrix8x8Flag[0] = 1;
  BitBuilder expected = SpsHead(100);
  expected.ue(1).ue(0).ue(0).u(1, 0).u(1, 1).u(1, 1);
  for (int i = 0; i < 16; ++i) expected.se(0);
  expected.u(5, 0).u(1, 0);
  for (int i = 0; i < 64; ++i) expected.se(0);
  expected.u(1, 0);
  PlainSpsBody(expected).u(1, 0).trailing();
  EXPECT_EQ(WriteSpsUnit(sps), expected.bytes());
}

TEST(SpsWriter, WritesTwelveListsForChromaFormatThree) {
  H264SpsRecord sps = PlainSps(244);
  sps.chroma_format_idc = 3;
  sps.separate_colour_plane_flag = 1;
  sps.seq_scaling_matrix_present_flag = 1;
  sps.seq_scaling_list_present_flag[11] = 1;
  for (int i = 0; i < 64; ++i) sps.ScalingList8x8[5][i] = i - 32;
  BitBuilder bits = SpsHead(244);
  bits.ue(3).u(1, 1).ue(0).ue(0).u(1, 0).u(1, 1).u(11, 0).u(1, 1);
  for (int i = 0; i < 64; ++i) bits.se(i - 32);
  PlainSpsBody(bits).u(1, 0).trailing();
  EXPECT_EQ(WriteSpsUnit(sps), bits.bytes());
}

TEST(SpsWriter, WritesPictureOrderOffsetsAsSignedValues) {
  BitBuilder in = SpsHead(66);
  in.ue(0).ue(1).u(1, 0).se(-1).se(3).ue(3).se(1).se(-7).se(2);
  in.ue(2).u(1, 0).ue(19).ue(11).u(1, 1).u(1, 1).u(1, 0).u(1, 0).trailing();
  const H264SpsRecord sps = ReadSpsUnit(in.bytes()).record;
  BitBuilder out = SpsHead(66);  // the code numbers 2, 5 and 3, as values; the last of the cycle three times
  out.ue(0).ue(1).u(1, 0).se(2).se(5).ue(3).se(3).se(3).se(3);
  out.ue(2).u(1, 0).ue(19).ue(11).u(1, 1).u(1, 1).u(1, 0).u(1, 0).trailing();
  EXPECT_EQ(WriteSpsUnit(sps), out.bytes());
}

// An SPS with all that a read and a write return alike.
Bytes FullSps(uint32_t orderType, uint32_t schedules) {
  BitBuilder bits = SpsHead(122, 3);
  bits.ue(2).ue(2).ue(1).u(1, 1).u(1, 0).ue(4).ue(orderType);
  if (orderType == 0) bits.ue(5);
  bits.ue(4).u(1, 1).ue(119).ue(33).u(1, 0).u(1, 1).u(1, 1).u(1, 1).ue(0).ue(1).ue(2).ue(3);
  bits.u(1, 1).u(1, 1).u(8, 255).u(16, 4).u(16, 3).u(1, 1).u(1, 0);
  bits.u(1, 1).u(3, 5).u(1, 1).u(1, 1).u(8, 9).u(8, 16).u(8, 9);
  bits.u(1, 1).ue(1).ue(2).u(1, 1).u(32, 1001).u(32, 60000).u(1, 1);
  for (int hrd = 0; hrd < 2; ++hrd) {
    bits.u(1, 1).ue(schedules - 1).u(4, 1).u(4, 3);
    for (uint32_t i = 0; i < schedules; ++i) bits.ue(9999 + i).ue(77777).u(1, i % 2);
    bits.u(5, 23).u(5, 15).u(5, 5).u(5, 24);
  }
  bits.u(1, 0).u(1, 1).u(1, 1).u(1, 1).ue(2).ue(1).ue(11).ue(12).ue(2).ue(4).trailing();
  return Escape(bits.bytes());
}

TEST(SpsWriter, AReadAndAWriteGiveTheSameBytes) {
  for (const uint32_t orderType : {0u, 2u}) {
    for (const uint32_t schedules : {1u, 3u, 8u}) {
      const Bytes unit = FullSps(orderType, schedules);
      EXPECT_EQ(WriteSpsUnit(ReadSpsUnit(unit).record), unit);
    }
  }
  // Extension data is dropped.
  BitBuilder bits = SpsHead(66);
  PlainSpsBody(bits).u(1, 0).trailing();
  EXPECT_EQ(WriteSpsUnit(ReadSpsUnit(Join({bits.bytes(), Hex("12 34")})).record), bits.bytes());
}

TEST(SpsWriter, ANineScheduleHrdComesOutWithEight) {
  const H264SpsRecord sps = ReadSpsUnit(FullSps(0, 9)).record;
  EXPECT_EQ(sps.nal_hrd.cpb_cnt_minus1, 7u);
  const H264SpsRecord again = ReadSpsUnit(WriteSpsUnit(sps)).record;
  EXPECT_EQ(again.nal_hrd.cpb_cnt_minus1, 7u);
  EXPECT_EQ(again.nal_hrd.schedule[7].bit_rate_value_minus1, 9999u + 7);
}

TEST(SpsWriter, HostileScheduleCountsStayInsideTheRecord) {
  for (const uint32_t count : {8u, 31u, 0x7FFFFFFEu, 0x80000000u, 0xFFFFFFF0u}) {
    H264SpsRecord sps = PlainSps();
    sps.vui_parameters_present_flag = 1;
    sps.vcl_hrd_parameters_present_flag = 1;
    sps.vcl_hrd.cpb_cnt_minus1 = count;
    BitBuilder bits = SpsHead(66);
    PlainSpsBody(bits).u(1, 1).u(5, 0).u(1, 0).u(1, 1);
    if (count < 0x1000) {
      bits.ue(count);
    } else if (count == 0x7FFFFFFEu) {
      bits.u(77, 0).u(32, 0x7FFFFFFF);  // the long form of 109 bits
    } else {
      bits.ue(0);
    }
    bits.u(8, 0);
    for (int i = 0; i < (count < 0x80000000u ? 8 : 0); ++i) bits.ue(0).ue(0).u(1, 0);
    bits.u(20, 0).u(1, 0).u(1, 0).u(1, 0).trailing();
    EXPECT_EQ(WriteSpsUnit(sps), EscapeByTriples(bits.bytes())) << count;
  }
}

TEST(SpsWriter, FlagsOfMinusOneComeOutAsOneAndWideValuesAreCut) {
  H264SpsRecord sps = PlainSps();
  sps.constraint_set1_flag = 0xFFFFFFFF;
  sps.level_idc = 0x1FF;
  sps.vui_parameters_present_flag = 0xFFFFFFFF;
  sps.aspect_ratio_info_present_flag = 1;
  sps.aspect_ratio_idc = 0x1FF;  // not 255 as a word
  BitBuilder bits;
  bits.u(8, 0x67).u(8, 66).u(8, 0x40).u(8, 0xFF).ue(0);
  PlainSpsBody(bits).u(1, 1).u(1, 1).u(8, 0xFF).u(8, 0).trailing();
  EXPECT_EQ(WriteSpsUnit(sps), Escape(bits.bytes()));
}

TEST(SpsWriter, EscapesByItsOwnScan) {
  // 00 00 02 in the body; zeros in the last two bytes are not escaped.
  H264SpsRecord sps = PlainSps();
  sps.vui_parameters_present_flag = 1;
  sps.timing_info_present_flag = 1;
  sps.time_scale = 0x01000000;
  BitBuilder bits = SpsHead(66);
  PlainSpsBody(bits).u(1, 1).u(4, 0).u(1, 1).u(32, 0).u(32, 0x01000000).u(1, 0);
  bits.u(1, 0).u(1, 0).u(1, 0).u(1, 0).trailing();
  const Bytes expected = EscapeByTriples(bits.bytes());
  EXPECT_GT(expected.size(), bits.bytes().size());
  EXPECT_EQ(WriteSpsUnit(sps), expected);
}

TEST(SpsWriter, AppendsAtAnyBitPosition) {
  const H264SpsRecord sps = PlainSps();
  const Bytes unit = WriteSpsUnit(sps);
  Bytes buffer(64, 0xFF);
  QLNBitState state{buffer.data(), 32, 0, 0};
  EXPECT_EQ(qlnutilWrite_SPS(&state, &sps), unit.size());
  EXPECT_EQ(qlnutilWrite_SPS(&state, &sps), 2 * unit.size());
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(2 * unit.size())),
            Join({unit, unit}));
  EXPECT_EQ(buffer[2 * unit.size()], 0xFF);
  Bytes odd(64, 0xFF);
  QLNBitState oddState{odd.data(), 32, 0, 3};
  EXPECT_EQ(qlnutilWrite_SPS(&oddState, &sps), unit.size());
  EXPECT_EQ(oddState.bitPos, 3 + 8 * unit.size());
  QLNBitState reader{odd.data(), 64, 512, 3};
  for (const uint8_t byte : unit) EXPECT_EQ(ReadBits(&reader, 8), byte);
  EXPECT_EQ(ReadBits(&reader, 5), 0x1Fu);
}

TEST(SpsWriter, AUnitAboveTwiceTheSizeIsRefused) {
  const H264SpsRecord sps = PlainSps();
  const size_t length = WriteSpsUnit(sps).size();  // nothing in it is escaped
  for (int32_t size = -3; size < 12; ++size) {
    const bool fits = size > 0 && 2 * static_cast<size_t>(size) >= length;
    EXPECT_EQ(WriteSpsUnit(sps, size).size(), fits ? length : 0u) << size;
  }
  H264SpsRecord cycle = sps;
  cycle.pic_order_cnt_type = 1;
  cycle.num_ref_frames_in_pic_order_cnt_cycle = 0x7FFFFFFF;
  EXPECT_TRUE(WriteSpsUnit(cycle).empty());
  cycle.num_ref_frames_in_pic_order_cnt_cycle = 0x80000001;  // runs no round
  EXPECT_FALSE(WriteSpsUnit(cycle).empty());
  Bytes small(8, kGuard);
  BitWriter output(small.data(), length - 1);
  EXPECT_FALSE(WriteSps(sps, 512, output));
  EXPECT_EQ(small, Bytes(8, kGuard));
}

}  // namespace
}  // namespace qln
