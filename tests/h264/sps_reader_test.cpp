// The SPS reader: refusals, emulation prevention, each branch of the syntax, truncation and hostile counts.

#include "h264/h264_test_support.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::Escape;
using test::Filled;
using test::Hex;
using test::Parsed;
using test::ParseWith;
using test::PlainSpsBody;
using test::ReadSpsUnit;
using test::SameWords;
using test::SpsHead;

constexpr uint32_t kMinusOne = 0xFFFFFFFFu;

TEST(SpsRecord, FieldNamesFollowTheLayout) {
  EXPECT_STREQ(kH264SpsFields[0].name, "forbidden_zero_bit");
  uint32_t words = 0;
  for (const RecordField& field : kH264SpsFields) words += field.count;
  EXPECT_EQ(words, 639u);
  words = 0;
  for (const RecordField& field : kH264PpsFields) words += field.count;
  EXPECT_EQ(words, 811u);
  words = 0;
  for (const RecordField& field : kH264SliceHeaderFields) words += field.count;
  EXPECT_EQ(words, 819u);
}

TEST(SpsReader, RefusesANullRecordAndASizeOfZero) {
  Bytes unit = Hex("67 42 00 1E F4");
  QLNBitState state{unit.data(), 5, 40, 3};
  EXPECT_EQ(qlnutilRead_SPS(&state, nullptr), 0u);
  EXPECT_EQ(state.bitPos, 3u);
  const auto filled = Filled<H264SpsRecord>(0x5A5A5A5A);
  H264SpsRecord record = filled;
  state.size = 0;
  EXPECT_EQ(qlnutilRead_SPS(&state, &record), 0u);
  EXPECT_EQ(state.bitPos, 3u);
  EXPECT_TRUE(SameWords(record, filled));
}

TEST(SpsReader, ReadsAPlainBaselineSps) {
  BitBuilder bits = SpsHead(66, 5);
  PlainSpsBody(bits).u(1, 0).trailing();
  const auto parsed = ReadSpsUnit(bits.bytes());
  EXPECT_EQ(parsed.result, bits.bytes().size());
  EXPECT_EQ(parsed.bitPos, bits.bits());
  const H264SpsRecord& sps = parsed.record;
  EXPECT_EQ(sps.forbidden_zero_bit, 0u);
  EXPECT_EQ(sps.nal_ref_idc, 3u);
  EXPECT_EQ(sps.nal_unit_type, 7u);
  EXPECT_EQ(sps.profile_idc, 66u);
  EXPECT_EQ(sps.level_idc, 30u);
  EXPECT_EQ(sps.seq_parameter_set_id, 5u);
  EXPECT_EQ(sps.chroma_format_idc, 1u);
  EXPECT_EQ(sps.bit_depth_luma_minus8, 8u);
  EXPECT_EQ(sps.bit_depth_chroma_minus8, 8u);
  EXPECT_EQ(sps.pic_order_cnt_type, 2u);
  EXPECT_EQ(sps.max_num_ref_frames, 1u);
  EXPECT_EQ(sps.pic_width_in_mbs_minus1, 19u);
  EXPECT_EQ(sps.pic_height_in_map_units_minus1, 11u);
  EXPECT_EQ(sps.frame_mbs_only_flag, 1u);
  EXPECT_EQ(sps.direct_8x8_inference_flag, 1u);
  EXPECT_EQ(sps.rbsp_stop_one_bit, 1u);
}

TEST(SpsReader, KeepsWhatTheStreamDoesNotHave) {
  BitBuilder bits = SpsHead(66);
  PlainSpsBody(bits).u(1, 0).trailing();
  const auto parsed = ReadSpsUnit(bits.bytes(), Filled<H264SpsRecord>(77));
  EXPECT_EQ(parsed.record.sar_width, 77u);
  EXPECT_EQ(parsed.record.mb_adaptive_frame_field_flag, 77u);
  EXPECT_EQ(parsed.record.log2_max_pic_order_cnt_lsb_minus4, 77u);
  EXPECT_EQ(parsed.record.frame_crop_left_offset, 77u);
  EXPECT_EQ(parsed.record.vcl_hrd.schedule[7].cbr_flag, 77u);
  EXPECT_EQ(parsed.record.ScalingList8x8[5][63], 77);
  EXPECT_EQ(parsed.record.chroma_format_idc, 1u);
}

TEST(SpsReader, StoresConstraintFlagsAndReservedBitsAsTheyStand) {
  BitBuilder bits;
  bits.u(8, 0xFF).u(8, 77).u(6, 0b101011).u(2, 2).u(8, 0xC3).ue(31);
  PlainSpsBody(bits).u(1, 0).trailing();
  const H264SpsRecord sps = ReadSpsUnit(bits.bytes()).record;
  EXPECT_EQ(sps.forbidden_zero_bit, 1u);
  EXPECT_EQ(sps.nal_ref_idc, 3u);
  EXPECT_EQ(sps.nal_unit_type, 31u);
  EXPECT_EQ(sps.constraint_set0_flag, 1u);
  EXPECT_EQ(sps.constraint_set1_flag, 0u);
  EXPECT_EQ(sps.constraint_set2_flag, 1u);
  EXPECT_EQ(sps.constraint_set3_flag, 0u);
  EXPECT_EQ(sps.constraint_set4_flag, 1u);
  EXPECT_EQ(sps.constraint_set5_flag, 1u);
  EXPECT_EQ(sps.reserved_zero_2bits, 2u);
  EXPECT_EQ(sps.level_idc, 0xC3u);
  EXPECT_EQ(sps.seq_parameter_set_id, 31u);
}

TEST(SpsReader, StartsAtTheCallersPosition) {
  BitBuilder bits;
  bits.u(8, 0xAB);
  bits.u(1, 0).u(2, 1).u(5, 7).u(8, 66).u(8, 0).u(8, 10).ue(2);
  PlainSpsBody(bits).u(1, 0).trailing();
  const Bytes unit = bits.bytes();
  const auto parsed = ParseWith(qlnutilRead_SPS, unit, H264SpsRecord{}, static_cast<int32_t>(unit.size()),
                                static_cast<uint32_t>(unit.size() * 8), 8);
  EXPECT_EQ(parsed.record.nal_ref_idc, 1u);
  EXPECT_EQ(parsed.record.seq_parameter_set_id, 2u);
  EXPECT_EQ(parsed.result, unit.size());
}

// Units of small sizes: seq_parameter_set_id, log2_max_frame_num_minus4 and so on tell which bytes were read.
TEST(SpsReader, LeavesUnitsOfUpToSixBytesEscaped) {
  // 00 00 03 from byte 3 on; the level is 0, the id code begins with 8 zeros and 6 more.
  const auto six = ReadSpsUnit(Hex("67 42 80 00 00 03"));
  // With the 3: the id is the code of 14 zeros, a one and "1" and thirteen bits beyond the end.
  const auto seven = ReadSpsUnit(Hex("67 42 80 00 00 03 40"));
  // Without: 8 zeros, "01 000000", then stale 40.
  BitBuilder unescaped;
  unescaped.u(24, 0x674280).u(8, 0).u(8, 0).u(8, 0x40).u(8, 0x40);
  Bytes plain = unescaped.bytes();
  const auto same = ReadSpsUnit(plain);
  EXPECT_EQ(seven.record.seq_parameter_set_id, same.record.seq_parameter_set_id);
  EXPECT_EQ(seven.bitPos, same.bitPos);
  EXPECT_NE(six.record.seq_parameter_set_id, same.record.seq_parameter_set_id);
  EXPECT_EQ(six.record.level_idc, 0u);
}

TEST(SpsReader, KeepsTriplesInTheFirstThreeBytesAndAtTheVeryEnd) {
  // At byte 1: profile 0, flags 0, level 3.
  const auto atOne = ReadSpsUnit(Hex("67 00 00 03 80 80 80 80"));
  EXPECT_EQ(atOne.record.profile_idc, 0u);
  EXPECT_EQ(atOne.record.level_idc, 3u);
  // At byte 2: level 0, and the 3 begins the id: six zeros, then "11 11111".
  const auto atTwo = ReadSpsUnit(Hex("67 42 00 00 03 F8 80 80"));
  EXPECT_EQ(atTwo.record.level_idc, 0u);
  EXPECT_EQ(atTwo.record.seq_parameter_set_id, 0b1111111u - 1);
  // At byte 3 the 3 goes: level 0, id from 00 and F8.
  const auto atThree = ReadSpsUnit(Hex("67 42 01 00 00 03 F8 80 80"));
  EXPECT_EQ(atThree.record.level_idc, 0u);
  EXPECT_EQ(atThree.record.seq_parameter_set_id, 0b111110001u - 1);
}

TEST(SpsReader, TripleInTheLastByteStays) {
  // level 30, id "1", then 29 zeros up to the 3, whose first one ends them; the suffix runs past the end.
  const auto parsed = ReadSpsUnit(Hex("67 42 01 1E 80 00 00 03"));
  EXPECT_EQ(parsed.record.log2_max_frame_num_minus4, kMinusOne - 1 + (1u << 29));
}

TEST(SpsReader, RemovesBothOfTwoTriplesInARowAndLeavesStaleBytes) {
  const auto parsed = ReadSpsUnit(Hex("67 42 01 00 00 03 00 00 03 01 FF FF"));
  // 00 | 00 00 00 01 FF FF, and two stale FF: the id has 31 zeros, a one and 31 ones.
  EXPECT_EQ(parsed.record.level_idc, 0u);
  EXPECT_EQ(parsed.record.seq_parameter_set_id, 0xFFFFFFFEu);
}

TEST(SpsReader, LeavesTwelveInPlace) {
  // level 0, id from 00 0C: 12 zeros, then "1100" and nine bits of FF FF.
  const auto parsed = ReadSpsUnit(Hex("67 42 01 00 00 0C FF FF FF"));
  EXPECT_EQ(parsed.record.seq_parameter_set_id, (0b11ull << 11 | 0b00111111111u) - 1);
}

TEST(SpsReader, ReadsTheHighProfileElementsForItsNineProfilesOnly) {
  for (uint32_t profile = 0; profile < 256; ++profile) {
    const bool high = profile == 44 || profile == 83 || profile == 86 || profile == 100 || profile == 110 ||
                      profile == 118 || profile == 122 || profile == 128 || profile == 244;
    BitBuilder bits = SpsHead(profile);
    if (high) bits.ue(2).ue(1).ue(2).u(1, 1).u(1, 0);
    PlainSpsBody(bits).u(1, 0).trailing();
    const H264SpsRecord sps = ReadSpsUnit(bits.bytes(), Filled<H264SpsRecord>(99)).record;
    EXPECT_EQ(sps.chroma_format_idc, high ? 2u : 1u) << profile;
    EXPECT_EQ(sps.bit_depth_luma_minus8, high ? 1u : 8u) << profile;
    EXPECT_EQ(sps.bit_depth_chroma_minus8, high ? 2u : 8u) << profile;
    EXPECT_EQ(sps.qpprime_y_zero_transform_bypass_flag, high ? 1u : 99u) << profile;
    EXPECT_EQ(sps.separate_colour_plane_flag, 99u) << profile;
    EXPECT_EQ(sps.pic_width_in_mbs_minus1, 19u) << profile;
  }
}

TEST(SpsReader, ReadsProfile138AsIfItHadNoHighProfileElements) {
  BitBuilder bits = SpsHead(138);
  bits.ue(3).u(1, 1).ue(4);  // of a high-profile body: chroma_format_idc, separate planes, luma depth
  bits.u(32, 0x12345678).trailing();
  const H264SpsRecord sps = ReadSpsUnit(bits.bytes()).record;
  EXPECT_EQ(sps.log2_max_frame_num_minus4, 3u);
  EXPECT_EQ(sps.pic_order_cnt_type, 0u);  // the 1 bit
  EXPECT_EQ(sps.log2_max_pic_order_cnt_lsb_minus4, 4u);
  EXPECT_EQ(sps.chroma_format_idc, 1u);
  EXPECT_EQ(sps.bit_depth_luma_minus8, 8u);
  EXPECT_EQ(sps.bit_depth_chroma_minus8, 8u);
}

TEST(SpsReader, ReadsScalingListsWithoutFallBackOrDefault) {
  BitBuilder bits = SpsHead(100);
  bits.ue(1).ue(0).ue(0).u(1, 0).u(1, 1);
  bits.u(1, 1);  // list 0: 10, 11, and the rest 11 by a next scale of 0
  bits.se(2).se(1).se(-11);
  bits.u(1, 1).se(-8);  // list 1: asks for the default
  bits.u(1, 0).u(1, 0).u(1, 0).u(1, 0);
  bits.u(1, 1);  // list 6: 64 entries
  for (int i = 0; i < 64; ++i) bits.se(i == 0 ? 8 : (i % 2 == 0 ? 3 : -3));
  bits.u(1, 0);
  PlainSpsBody(bits).u(1, 0).trailing();
  H264SpsRecord initial = Filled<H264SpsRecord>(7);
  const H264SpsRecord sps = ReadSpsUnit(bits.bytes(), initial).record;
  EXPECT_EQ(sps.ScalingList4x4[0][0], 10);
  for (int i = 1; i < 16; ++i) EXPECT_EQ(sps.ScalingList4x4[0][i], 11);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(sps.ScalingList4x4[1][i], 8);
  for (int list = 2; list < 6; ++list) EXPECT_EQ(sps.ScalingList4x4[list][9], 7);
  EXPECT_EQ(sps.seq_scaling_list_present_flag[3], 0u);
  EXPECT_EQ(sps.ScalingList8x8[0][0], 16);
  EXPECT_EQ(sps.ScalingList8x8[0][1], 13);
  EXPECT_EQ(sps.ScalingList8x8[0][63], 13);
  EXPECT_EQ(sps.ScalingList8x8[1][0], 7);
  EXPECT_EQ(sps.seq_scaling_list_present_flag[8], 7u);
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(sps.UseDefaultScalingMatrix4x4Flag[i], 7u);
    EXPECT_EQ(sps.UseDefaultScalingMatrix8x8Flag[i], 7u);
  }
  EXPECT_EQ(sps.pic_width_in_mbs_minus1, 19u);
}

TEST(SpsReader, NextScaleWrapsWithTheSignOfATruncatingRemainder) {
  BitBuilder bits = SpsHead(100);
  bits.ue(1).ue(0).ue(0).u(1, 0).u(1, 1);
  bits.u(1, 1).se(250).se(-700).se(0);  // 258 mod 256 = 2; -442 mod 256 = -186; 70
  bits.se(-70);                         // 256 mod 256 = 0: the rest repeats 70
  for (int i = 1; i < 8; ++i) bits.u(1, 0);
  PlainSpsBody(bits).u(1, 0).trailing();
  const H264SpsRecord sps = ReadSpsUnit(bits.bytes()).record;
  EXPECT_EQ(sps.ScalingList4x4[0][0], 2);
  EXPECT_EQ(sps.ScalingList4x4[0][1], -186);
  EXPECT_EQ(sps.ScalingList4x4[0][2], 70);
  EXPECT_EQ(sps.ScalingList4x4[0][3], 70);
  EXPECT_EQ(sps.ScalingList4x4[0][15], 70);
  EXPECT_EQ(sps.pic_width_in_mbs_minus1, 19u);
}

TEST(SpsReader, HasTwelveListsAndSeparatePlanesForChromaFormatThree) {
  BitBuilder bits = SpsHead(244);
  bits.ue(3).u(1, 1).ue(0).ue(0).u(1, 0).u(1, 1);
  for (int i = 0; i < 12; ++i) {
    bits.u(1, 1).se(i + 1);
    for (int k = 1; k < (i < 6 ? 16 : 64); ++k) bits.se(0);
  }
  PlainSpsBody(bits).u(1, 0).trailing();
  const H264SpsRecord sps = ReadSpsUnit(bits.bytes()).record;
  EXPECT_EQ(sps.separate_colour_plane_flag, 1u);
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(sps.ScalingList4x4[i][15], 9 + i);
    EXPECT_EQ(sps.ScalingList8x8[i][63], 15 + i);
    EXPECT_EQ(sps.seq_scaling_list_present_flag[6 + i], 1u);
  }
  EXPECT_EQ(sps.pic_height_in_map_units_minus1, 11u);
}

TEST(SpsReader, StoresPictureOrderOffsetsAsCodeNumbers) {
  BitBuilder bits = SpsHead(66);
  bits.ue(3).ue(1).u(1, 1).se(-1).se(3).ue(3).se(1).se(-7).se(4);
  bits.ue(2).u(1, 1).ue(9).ue(8).u(1, 0).u(1, 1).u(1, 1);  // interlaced, adaptive
  bits.u(1, 1).ue(1).ue(2).ue(3).ue(4).u(1, 0).trailing();
  const H264SpsRecord sps = ReadSpsUnit(bits.bytes()).record;
  EXPECT_EQ(sps.delta_pic_order_always_zero_flag, 1u);
  EXPECT_EQ(sps.offset_for_non_ref_pic, 2u);
  EXPECT_EQ(sps.offset_for_top_to_bottom_field, 5u);
  EXPECT_EQ(sps.num_ref_frames_in_pic_order_cnt_cycle, 3u);
  EXPECT_EQ(sps.offset_for_ref_frame, 7u);
  EXPECT_EQ(sps.max_num_ref_frames, 2u);
  EXPECT_EQ(sps.gaps_in_frame_num_value_allowed_flag, 1u);
  EXPECT_EQ(sps.mb_adaptive_frame_field_flag, 1u);
  EXPECT_EQ(sps.frame_crop_left_offset, 1u);
  EXPECT_EQ(sps.frame_crop_right_offset, 2u);
  EXPECT_EQ(sps.frame_crop_top_offset, 3u);
  EXPECT_EQ(sps.frame_crop_bottom_offset, 4u);
}

BitBuilder& Hrd(BitBuilder& bits, uint32_t cpbCntMinus1, uint32_t schedules) {
  bits.ue(cpbCntMinus1).u(4, 3).u(4, 9);
  for (uint32_t i = 0; i < schedules; ++i) bits.ue(100 + i).ue(200 + i).u(1, i & 1);
  return bits.u(5, 23).u(5, 24).u(5, 25).u(5, 26);
}

TEST(SpsReader, ReadsTheWholeVui) {
  BitBuilder bits = SpsHead(66);
  PlainSpsBody(bits).u(1, 1);
  bits.u(1, 1).u(8, 255).u(16, 4000).u(16, 3999);
  bits.u(1, 1).u(1, 1);
  bits.u(1, 1).u(3, 5).u(1, 1).u(1, 1).u(8, 9).u(8, 16).u(8, 10);
  bits.u(1, 1).ue(2).ue(3);
  bits.u(1, 1).u(32, 1001).u(32, 0xFFFFFFFF).u(1, 1);
  bits.u(1, 1);
  Hrd(bits, 1, 2).u(1, 1);
  Hrd(bits, 7, 8);
  bits.u(1, 1).u(1, 1).u(1, 1).u(1, 1).ue(1).ue(2).ue(3).ue(4).ue(5).ue(6).trailing();
  const auto parsed = ReadSpsUnit(Escape(bits.bytes()));
  EXPECT_EQ(parsed.result, bits.bytes().size());
  const H264SpsRecord& sps = parsed.record;
  EXPECT_EQ(sps.aspect_ratio_idc, 255u);
  EXPECT_EQ(sps.sar_width, 4000u);
  EXPECT_EQ(sps.sar_height, 3999u);
  EXPECT_EQ(sps.overscan_appropriate_flag, 1u);
  EXPECT_EQ(sps.video_format, 5u);
  EXPECT_EQ(sps.video_full_range_flag, 1u);
  EXPECT_EQ(sps.colour_primaries, 9u);
  EXPECT_EQ(sps.transfer_characteristics, 16u);
  EXPECT_EQ(sps.matrix_coefficients, 10u);
  EXPECT_EQ(sps.chroma_sample_loc_type_top_field, 2u);
  EXPECT_EQ(sps.chroma_sample_loc_type_bottom_field, 3u);
  EXPECT_EQ(sps.num_units_in_tick, 1001u);
  EXPECT_EQ(sps.time_scale, 0xFFFFFFFFu);
  EXPECT_EQ(sps.fixed_frame_rate_flag, 1u);
  EXPECT_EQ(sps.nal_hrd.cpb_cnt_minus1, 1u);
  EXPECT_EQ(sps.nal_hrd.bit_rate_scale, 3u);
  EXPECT_EQ(sps.nal_hrd.cpb_size_scale, 9u);
  EXPECT_EQ(sps.nal_hrd.schedule[1].bit_rate_value_minus1, 101u);
  EXPECT_EQ(sps.nal_hrd.schedule[1].cpb_size_value_minus1, 201u);
  EXPECT_EQ(sps.nal_hrd.schedule[1].cbr_flag, 1u);
  EXPECT_EQ(sps.nal_hrd.schedule[2].bit_rate_value_minus1, 0u);
  EXPECT_EQ(sps.nal_hrd.initial_cpb_removal_delay_length_minus1, 23u);
  EXPECT_EQ(sps.nal_hrd.cpb_removal_delay_length_minus1, 24u);
  EXPECT_EQ(sps.nal_hrd.dpb_output_delay_length_minus1, 25u);
  EXPECT_EQ(sps.nal_hrd.time_offset_length, 26u);
  EXPECT_EQ(sps.vcl_hrd.cpb_cnt_minus1, 7u);
  EXPECT_EQ(sps.vcl_hrd.schedule[7].cpb_size_value_minus1, 207u);
  EXPECT_EQ(sps.vcl_hrd.time_offset_length, 26u);
  EXPECT_EQ(sps.low_delay_hrd_flag, 1u);
  EXPECT_EQ(sps.pic_struct_present_flag, 1u);
  EXPECT_EQ(sps.motion_vectors_over_pic_boundaries_flag, 1u);
  EXPECT_EQ(sps.max_bytes_per_pic_denom, 1u);
  EXPECT_EQ(sps.max_bits_per_mb_denom, 2u);
  EXPECT_EQ(sps.log2_max_mv_length_horizontal, 3u);
  EXPECT_EQ(sps.log2_max_mv_length_vertical, 4u);
  EXPECT_EQ(sps.max_num_reorder_frames, 5u);
  EXPECT_EQ(sps.max_dec_frame_buffering, 6u);
  EXPECT_EQ(sps.rbsp_stop_one_bit, 1u);
}

TEST(SpsReader, ReadsTheSampleSizeForExtendedSarOnlyAndLowDelayForAnHrdOnly) {
  BitBuilder bits = SpsHead(66);
  PlainSpsBody(bits).u(1, 1);
  bits.u(1, 1).u(8, 254).u(1, 0).u(1, 1).u(3, 2).u(1, 0).u(1, 0).u(1, 0).u(1, 0);
  bits.u(1, 0).u(1, 0).u(1, 1).u(1, 0).trailing();
  const H264SpsRecord sps = ReadSpsUnit(bits.bytes(), Filled<H264SpsRecord>(3)).record;
  EXPECT_EQ(sps.aspect_ratio_idc, 254u);
  EXPECT_EQ(sps.sar_width, 3u);
  EXPECT_EQ(sps.video_format, 2u);
  EXPECT_EQ(sps.colour_primaries, 3u);
  EXPECT_EQ(sps.low_delay_hrd_flag, 3u);
  EXPECT_EQ(sps.pic_struct_present_flag, 1u);
  EXPECT_EQ(sps.bitstream_restriction_flag, 0u);
  EXPECT_EQ(sps.rbsp_stop_one_bit, 1u);
}

TEST(SpsReader, ReadsEightSchedulesAtMost) {
  BitBuilder bits = SpsHead(66);
  PlainSpsBody(bits).u(1, 1).u(1, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 1);
  Hrd(bits, 9, 10).trailing();
  const H264SpsRecord sps = ReadSpsUnit(bits.bytes(), Filled<H264SpsRecord>(55)).record;
  EXPECT_EQ(sps.nal_hrd.cpb_cnt_minus1, 7u);
  EXPECT_EQ(sps.nal_hrd.schedule[7].bit_rate_value_minus1, 107u);
  EXPECT_EQ(sps.nal_hrd.schedule[7].cpb_size_value_minus1, 207u);
  // The ninth schedule is read as the widths: ue(108) is 0000001 101101.
  EXPECT_EQ(sps.nal_hrd.initial_cpb_removal_delay_length_minus1, 0u);
  EXPECT_EQ(sps.nal_hrd.cpb_removal_delay_length_minus1, 0b01101u);
}

TEST(SpsReader, ReadsNoScheduleForANegativeCount) {
  BitBuilder bits = SpsHead(66);
  PlainSpsBody(bits).u(1, 1).u(1, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 1);
  bits.u(31, 0).u(1, 1).u(31, 5);  // 0x80000004
  bits.u(4, 1).u(4, 2).u(5, 3).u(5, 4).u(5, 5).u(5, 6).trailing();
  const H264SpsRecord sps = ReadSpsUnit(Escape(bits.bytes()), Filled<H264SpsRecord>(55)).record;
  EXPECT_EQ(sps.nal_hrd.cpb_cnt_minus1, 0x80000004u);
  EXPECT_EQ(sps.nal_hrd.schedule[0].bit_rate_value_minus1, 55u);
  EXPECT_EQ(sps.nal_hrd.cpb_size_scale, 2u);
  EXPECT_EQ(sps.nal_hrd.time_offset_length, 6u);
}

TEST(SpsReader, ParsesACutUnitToItsEnd) {
  BitBuilder bits = SpsHead(66);
  PlainSpsBody(bits).u(1, 1).u(1, 1).u(8, 1);
  Bytes unit = bits.bytes();
  const auto parsed = ParseWith(qlnutilRead_SPS, unit, H264SpsRecord{}, static_cast<int32_t>(unit.size()),
                                static_cast<uint32_t>(bits.bits()) - 1, 0);
  EXPECT_NE(parsed.result, 0u);
  EXPECT_GT(parsed.bitPos, parsed.bitLength);
  EXPECT_EQ(parsed.record.aspect_ratio_idc, 1u);  // its last bit lies at the limit and is real
  EXPECT_EQ(parsed.record.overscan_info_present_flag, kMinusOne);
  EXPECT_EQ(parsed.record.overscan_appropriate_flag, kMinusOne);
  EXPECT_EQ(parsed.record.num_units_in_tick, kMinusOne);
  EXPECT_EQ(parsed.record.nal_hrd_parameters_present_flag, kMinusOne);
  EXPECT_EQ(parsed.record.nal_hrd.cpb_cnt_minus1, 0u);
  EXPECT_EQ(parsed.record.nal_hrd.schedule[0].cbr_flag, kMinusOne);
  EXPECT_EQ(parsed.record.rbsp_stop_one_bit, kMinusOne);
}

TEST(SpsReader, TheAlignmentReadThatFailsMovesThePosition) {
  BitBuilder bits = SpsHead(66);
  PlainSpsBody(bits).u(1, 0);  // ends without a stop bit
  const Bytes unit = bits.bytes();
  ASSERT_NE(bits.bits() % 8, 0u);
  // With the limit on the stop bit, that is real; the first bit behind it fails and moves.
  const auto parsed = ParseWith(qlnutilRead_SPS, unit, H264SpsRecord{}, static_cast<int32_t>(unit.size()),
                                static_cast<uint32_t>(bits.bits()), 0);
  EXPECT_EQ(parsed.record.rbsp_stop_one_bit, 0u);
  const uint32_t expected = (bits.bits() + 1) % 8 == 0 ? 1u : 2u;
  EXPECT_EQ(parsed.bitPos, bits.bits() + expected);
  EXPECT_EQ(parsed.result, parsed.bitPos / 8);
}

TEST(SpsReader, EveryTruncationIsSafeAndFindsTheElementsInFrontOfIt) {
  BitBuilder bits = SpsHead(100);
  bits.ue(1).ue(2).ue(2).u(1, 0).u(1, 0);
  PlainSpsBody(bits).u(1, 1);
  bits.u(1, 1).u(8, 255).u(16, 40).u(16, 33).u(1, 0).u(1, 0).u(1, 0);
  bits.u(1, 1).u(32, 1).u(32, 50).u(1, 1).u(1, 1);
  Hrd(bits, 7, 8).u(1, 0).u(1, 0).u(1, 0).u(1, 0).trailing();
  const Bytes whole = Escape(bits.bytes());
  for (size_t size = 1; size < whole.size(); ++size) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    const auto parsed = ReadSpsUnit(cut);
    EXPECT_GT(parsed.bitPos, parsed.bitLength) << size;
    EXPECT_EQ(parsed.record.profile_idc, size >= 3 ? 100u : parsed.record.profile_idc);
    EXPECT_EQ(parsed.record.time_scale, size >= 40 ? 50u : parsed.record.time_scale);
  }
}

TEST(SpsReader, SizesBelowZeroAndLimitsBeyondTheSizeStayInsideTheCopy) {
  const Bytes unit = Hex("67 42 00 1E F4 05 07 EC 80");
  auto parsed = ParseWith(qlnutilRead_SPS, unit, H264SpsRecord{}, -5, 72, 0);
  EXPECT_EQ(parsed.record.nal_unit_type, 0u);
  EXPECT_EQ(parsed.record.profile_idc, 0u);
  EXPECT_NE(parsed.result, 0u);
  parsed = ParseWith(qlnutilRead_SPS, unit, H264SpsRecord{}, 3, 0x7FFFFFFF, 0);
  EXPECT_EQ(parsed.record.profile_idc, 66u);
  EXPECT_EQ(parsed.record.level_idc, 0u);
  parsed = ParseWith(qlnutilRead_SPS, unit, H264SpsRecord{}, 9, 0xFFFFFFFF, 0);
  EXPECT_EQ(parsed.record.profile_idc, 66u);
  EXPECT_EQ(parsed.record.level_idc, 30u);
}

// A count of 2^31 - 2 rounds over the end of the data: one step, with the result of running every round.
TEST(SpsReader, FinishesAHostileCycleInOneStep) {
  for (const uint32_t count : {0x7FFFFFFEu, 0x7FFFFFFFu}) {
    BitBuilder bits = SpsHead(66);
    bits.ue(0).ue(1).u(1, 0).ue(0).ue(0);
    bits.ue(count).ue(6);
    const Bytes unit = Escape(bits.bytes());
    const uint32_t limit = static_cast<uint32_t>(bits.bits()) - 1;
    const auto parsed =
        ParseWith(qlnutilRead_SPS, unit, H264SpsRecord{}, static_cast<int32_t>(unit.size()), limit, 0);
    EXPECT_EQ(parsed.record.num_ref_frames_in_pic_order_cnt_cycle, count);
    EXPECT_EQ(parsed.record.offset_for_ref_frame, 0u);
    // One round reads the 6; each further one moves by 1. Behind the cycle: max_num_ref_frames 1, gaps 1,
    // width 1, height 1, frame_mbs_only 1, direct 1, cropping 1 with four offsets, VUI flag 1, and so on.
    EXPECT_EQ(parsed.record.frame_cropping_flag, kMinusOne);
    BitBuilder none = SpsHead(66);
    none.ue(0).ue(1).u(1, 0).ue(0).ue(0).ue(1).ue(6);
    const Bytes shortUnit = none.bytes();
    const auto one =
        ParseWith(qlnutilRead_SPS, shortUnit, H264SpsRecord{}, static_cast<int32_t>(shortUnit.size()),
                  static_cast<uint32_t>(none.bits()) - 1, 0);
    const uint32_t behindOne = one.bitPos - static_cast<uint32_t>(none.bits());
    EXPECT_EQ(parsed.bitPos, static_cast<uint32_t>(bits.bits()) + (count - 1) + behindOne);
  }
}

TEST(SpsReader, ACycleCountWithItsTopBitSetRunsNoRound) {
  BitBuilder bits = SpsHead(66);
  bits.ue(0).ue(1).u(1, 0).ue(0).ue(0);
  bits.u(31, 0).u(1, 1).u(31, 1);  // 0x80000000
  bits.ue(4).u(1, 0).ue(19).ue(11).u(1, 1).u(1, 1).u(1, 0).u(1, 0).trailing();
  const H264SpsRecord sps = ReadSpsUnit(Escape(bits.bytes()), Filled<H264SpsRecord>(12)).record;
  EXPECT_EQ(sps.num_ref_frames_in_pic_order_cnt_cycle, 0x80000000u);
  EXPECT_EQ(sps.offset_for_ref_frame, 12u);
  EXPECT_EQ(sps.max_num_ref_frames, 4u);
  EXPECT_EQ(sps.pic_width_in_mbs_minus1, 19u);
}

}  // namespace
}  // namespace qln
