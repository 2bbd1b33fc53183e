// The SPS reader: each branch of the syntax, and all of them cut at every byte.

#include "h264/h264_test_support.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::Escape;
using test::Filled;
using test::PlainSpsBody;
using test::ReadSpsUnit;
using test::SpsHead;

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

}  // namespace
}  // namespace qln
