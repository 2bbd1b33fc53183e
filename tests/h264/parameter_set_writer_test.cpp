// The SPS and PPS writers: exact bytes, the told asymmetries, capacity, and reading back what was written.

#include "h264/h264_test_support.h"
#include "qlnutil/h264/parameter_sets.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::Differences;
using test::Escape;
using test::Filled;
using test::Hex;
using test::Join;
using test::PlainSpsBody;
using test::PpsHead;
using test::Random;
using test::ReadPpsUnit;
using test::ReadSpsUnit;
using test::SpsHead;

constexpr uint8_t kGuard = 0xA5;

// Writes into a guarded buffer of `room` bytes; `size` is what the state tells.
template <class Function, class Record>
Bytes WriteUnit(Function function, const Record& record, int32_t size = 4096, size_t room = 16384) {
  Bytes buffer(room, kGuard);
  QLNBitState state{buffer.data(), size, 0, 0};
  const Record before = record;
  const uint64_t result = function(&state, &record);
  EXPECT_TRUE(test::SameWords(before, record));
  EXPECT_EQ(state.bitPos, result * 8);
  EXPECT_EQ(Bytes(buffer.begin() + static_cast<std::ptrdiff_t>(result), buffer.end()),
            Bytes(room - result, kGuard));
  buffer.resize(result);
  return buffer;
}

Bytes WriteSpsUnit(const H264SpsRecord& sps, int32_t size = 4096) {
  return WriteUnit(qlnutilWrite_SPS, sps, size);
}
Bytes WritePpsUnit(const H264PpsRecord& pps, int32_t size = 4096) {
  return WriteUnit(qlnutilWrite_PPS, pps, size);
}

H264SpsRecord PlainSps(uint32_t profile = 66) {
  H264SpsRecord sps{};
  sps.nal_ref_idc = 3;
  sps.nal_unit_type = 7;
  sps.profile_idc = profile;
  sps.level_idc = 30;
  sps.pic_order_cnt_type = 2;
  sps.max_num_ref_frames = 1;
  sps.pic_width_in_mbs_minus1 = 19;
  sps.pic_height_in_map_units_minus1 = 11;
  sps.frame_mbs_only_flag = 1;
  sps.direct_8x8_inference_flag = 1;
  sps.rbsp_stop_one_bit = 1;
  return sps;
}

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

// Whether the readers take all emulation prevention out of a written unit again, and nothing else: none in
// the first three bytes or at the very end, no zero run from one triple into the next, no 00 00 0C.
bool EscapesComeBack(const Bytes& unit) {
  for (size_t i = 0; i + 2 < unit.size(); ++i) {
    if (unit[i] != 0 || unit[i + 1] != 0) continue;
    if (unit[i + 2] == 12) return false;
    if (unit[i + 2] == 3 && (i < 3 || i + 4 >= unit.size() || unit[i + 3] == 0)) return false;
  }
  return true;
}

// Bytes of a unit without its emulation prevention.
size_t Unescaped(const Bytes& unit) {
  size_t size = unit.size();
  for (size_t i = 0; i + 2 < unit.size(); ++i) size -= unit[i] == 0 && unit[i + 1] == 0 && unit[i + 2] == 3;
  return size;
}

// Random records within their fields' widths read back as they were, but for the told words.
TEST(ParameterSetWriters, RandomRecordsReadBack) {
  Random random(17);
  int compared = 0;
  for (int round = 0; round < 3000; ++round) {
    const auto flag = [&] { return static_cast<uint32_t>(random.below(2)); };
    const auto code = [&] {
      return static_cast<uint32_t>(random.next() >> (40 + random.below(24))) % 0xFFFFFF;
    };
    H264SpsRecord sps = PlainSps(random.below(2) == 0 ? 77 : 100);
    sps.seq_parameter_set_id = code();
    sps.chroma_format_idc = sps.profile_idc == 77 ? 1 : static_cast<uint32_t>(random.below(4));
    sps.bit_depth_luma_minus8 = sps.bit_depth_chroma_minus8 = sps.profile_idc == 77 ? 8 : code();
    if (sps.profile_idc == 100 && sps.chroma_format_idc == 3) sps.separate_colour_plane_flag = flag();
    sps.pic_order_cnt_type = flag() * 2;
    if (sps.pic_order_cnt_type == 0) sps.log2_max_pic_order_cnt_lsb_minus4 = code();
    sps.frame_mbs_only_flag = flag();
    if (sps.frame_mbs_only_flag == 0) sps.mb_adaptive_frame_field_flag = flag();
    sps.pic_width_in_mbs_minus1 = code();
    sps.vui_parameters_present_flag = flag();
    if (sps.vui_parameters_present_flag != 0) {
      sps.timing_info_present_flag = 1;
      sps.num_units_in_tick = static_cast<uint32_t>(random.next());
      sps.time_scale = 0x55555555;
      sps.vcl_hrd_parameters_present_flag = flag();
      if (sps.vcl_hrd_parameters_present_flag != 0) {
        sps.vcl_hrd.cpb_cnt_minus1 = static_cast<uint32_t>(random.below(8));
        for (uint32_t i = 0; i <= sps.vcl_hrd.cpb_cnt_minus1; ++i) {
          sps.vcl_hrd.schedule[i] = {code(), code(), flag()};
        }
        sps.vcl_hrd.time_offset_length = static_cast<uint32_t>(random.below(32));
        sps.low_delay_hrd_flag = flag();
      }
      sps.bitstream_restriction_flag = 1;
      sps.max_dec_frame_buffering = code();
    }
    const Bytes unit = WriteSpsUnit(sps);
    if (!EscapesComeBack(unit)) continue;
    const H264SpsRecord again = ReadSpsUnit(unit).record;
    ASSERT_EQ(Differences(sps, again, kH264SpsFields), std::vector<std::string>{}) << test::ToHex(unit);
    ++compared;
  }
  EXPECT_GT(compared, 2500);
}

// Whether the long form of ue(v) does not come into play: fields of fixed width aside, values that read back.
template <class Record>
bool ValuesComeBack(const Record& record, std::span<const RecordField> fields) {
  uint32_t words[sizeof(Record) / 4];
  std::memcpy(words, &record, sizeof record);
  for (const RecordField& field : fields) {
    const std::string name = field.name;
    if (name == "num_units_in_tick" || name == "time_scale") continue;
    for (uint32_t i = 0; i < field.count; ++i) {
      const int64_t value = field.isSigned ? int64_t{static_cast<int32_t>(words[field.word + i])} * 2
                                           : int64_t{words[field.word + i]};
      if (value >= 0xFFFFFF || value <= -0xFFFFFF) return false;
    }
  }
  return true;
}

// What the reader makes of an offset's code number that the writer put as a value: 2v - 1.
uint32_t RewrittenOffset(uint32_t code) { return code == 0 ? 0 : 2 * code - 1; }

TEST(ParameterSetWriters, AnySpsReadComesBackButForTheToldWords) {
  Random random(31);
  int compared = 0;
  int cycles = 0;
  for (int round = 0; round < 20000; ++round) {
    Bytes unit = random.bytes(40 + random.below(80));
    const uint8_t profiles[] = {66, 100, 122, 244};
    if (round % 2 == 0) unit[1] = profiles[random.below(4)];
    const auto first = ReadSpsUnit(unit);
    H264SpsRecord sps = first.record;
    if (first.bitPos > first.bitLength || sps.seq_scaling_matrix_present_flag != 0) continue;
    if (!ValuesComeBack(sps, kH264SpsFields)) continue;
    const Bytes written = WriteSpsUnit(sps);
    if (!EscapesComeBack(written)) continue;
    sps.rbsp_stop_one_bit = 1;
    if (sps.pic_order_cnt_type == 1) {
      sps.offset_for_non_ref_pic = RewrittenOffset(sps.offset_for_non_ref_pic);
      sps.offset_for_top_to_bottom_field = RewrittenOffset(sps.offset_for_top_to_bottom_field);
      sps.offset_for_ref_frame = RewrittenOffset(sps.offset_for_ref_frame);
      if (!ValuesComeBack(sps, kH264SpsFields)) continue;
      ++cycles;
    }
    const auto again = ReadSpsUnit(written);
    ASSERT_EQ(Differences(sps, again.record, kH264SpsFields), std::vector<std::string>{})
        << test::ToHex(unit) << " became " << test::ToHex(written);
    ASSERT_EQ(again.result, again.bitLength / 8 - (written.size() - Unescaped(written)));
    ++compared;
  }
  EXPECT_GT(compared, 10000);
  EXPECT_GT(cycles, 500);
}

TEST(ParameterSetWriters, AnyPpsReadComesBackButForTheToldWords) {
  Random random(37);
  int compared = 0;
  int withMore = 0;
  int withGroups = 0;
  for (int round = 0; round < 40000; ++round) {
    const auto first = ReadPpsUnit(random.bytes(24 + random.below(40)));
    const H264PpsRecord& pps = first.record;
    if (first.bitPos > first.bitLength || pps.pic_scaling_matrix_present_flag != 0) continue;
    // Rectangles and group ids do not come back, nor do groups that the record does not hold.
    const bool groups = pps.num_slice_groups_minus1 != 0;
    if (groups && (pps.slice_group_map_type == 2 || pps.slice_group_map_type == 6)) continue;
    if (groups && pps.slice_group_map_type == 0 && pps.num_slice_groups_minus1 > 7) continue;
    if (!ValuesComeBack(pps, kH264PpsFields)) continue;
    const Bytes written = WritePpsUnit(pps);
    if (!EscapesComeBack(written)) continue;
    const auto again = ReadPpsUnit(written);
    ASSERT_EQ(Differences(pps, again.record, kH264PpsFields), std::vector<std::string>{})
        << test::ToHex(written);
    withMore += pps.more_rbsp_data_present != 0;
    withGroups += groups;
    ++compared;
  }
  EXPECT_GT(compared, 10000);
  EXPECT_GT(withMore, 3000);
  EXPECT_GT(withGroups, 1000);
}

TEST(ParameterSetWriters, RecordsOfAnyWordsAreSafe) {
  Random random(23);
  for (int round = 0; round < 400; ++round) {
    for (const int32_t size : {0, 1, 5, 64, 700}) {
      H264SpsRecord sps;
      H264PpsRecord pps;
      const auto fill = [&](auto& record) {
        uint32_t words[sizeof record / 4];
        for (uint32_t& word : words) {
          const uint64_t bits = random.next();
          word = static_cast<uint32_t>(bits >> 32) >> (bits % 33 == 32 ? 31 : bits % 33);
        }
        std::memcpy(&record, words, sizeof record);
      };
      fill(sps);
      fill(pps);
      if (round % 3 == 0) sps.profile_idc = 100;
      if (round % 2 == 0) pps.num_slice_groups_minus1 = 0;
      const size_t room = 3 * static_cast<size_t>(size) + 2;  // one and a half times the scratch
      EXPECT_LE(WriteUnit(qlnutilWrite_SPS, sps, size, room).size(), room);
      EXPECT_LE(WriteUnit(qlnutilWrite_PPS, pps, size, room).size(), room);
    }
  }
}

}  // namespace
}  // namespace qln
