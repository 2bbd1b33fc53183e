// The SPS reader: the VUI and its HRD, and what they bring to the fold.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hevc/unit_builders.h"

namespace qln::test {
namespace {

using testing::IsEmpty;

TEST(HevcSps, VuiGuardsPastTheEndCountAsSet) {
  SpsParts parts;
  parts.vui = [](BitBuilder& b) { b.u(1, 1); };
  parts.extension = Nothing;
  // The VUI flag is the last real bit: all of the VUI is over-read.
  for (uint32_t width = 1; width < 300 && SpsBits(parts).bits() % 8 != 0; ++width) {
    parts.width = width;
    parts.pcm = width % 2 == 0 ? Part([](BitBuilder& b) { b.u(1, 0); })
                               : Part([](BitBuilder& b) { b.u(1, 1).u(8, 0).ue(0).ue(0).u(1, 0); });
    parts.shortTerm = width % 3 == 0 ? Part([](BitBuilder& b) { b.ue(0); })
                                     : Part([](BitBuilder& b) { b.ue(2).ue(0).ue(0).u(1, 0).ue(0).ue(0); });
  }
  ASSERT_EQ(SpsBits(parts).bits() % 8, 0u);
  auto sps = ReadSps(SpsBits(parts).bytes(), nullptr, 0, 0, 0x55);
  const HevcSpsRecord& r = sps.record();
  EXPECT_EQ(r.vui_parameters_present_flag, 1u);
  EXPECT_EQ(r.aspect_ratio_info_present_flag, 0u) << "the bit at the limit is real";
  EXPECT_EQ(r.overscan_info_present_flag, 0xFFFFFFFFu);
  EXPECT_EQ(r.overscan_appropriate_flag, 0xFFFFFFFFu);
  EXPECT_EQ(r.colour_primaries, 0xFFFFFFFFu);
  EXPECT_EQ(r.def_disp_win_bottom_offset, 0u);
  EXPECT_EQ(r.vui_time_scale, 0xFFFFFFFFu);
  EXPECT_EQ(r.nal_hrd_parameters_present_flag, 0xFFFFFFFFu);
  EXPECT_EQ(r.tick_divisor_minus2, 0xFFFFFFFFu);
  EXPECT_EQ(r.cbr_flag, 0xFFFFFFFFu);
  EXPECT_EQ(r.log2_max_mv_length_vertical, 0u);
  EXPECT_EQ(r.sps_extension_present_flag, 0xFFFFFFFFu);
  EXPECT_EQ(r.sps_range_extension_flag, 0x55555555u);
}

// Every block of the VUI, with one single-CPB NAL HRD.
void FullVui(BitBuilder& b) {
  b.u(1, 1);
  b.u(1, 1).u(8, 255).u(16, 40).u(16, 33);
  b.u(1, 1).u(1, 1);
  b.u(1, 1).u(3, 5).u(1, 1).u(1, 1).u(8, 9).u(8, 16).u(8, 10);
  b.u(1, 1).ue(2).ue(3);
  b.u(1, 1).u(1, 0).u(1, 1);
  b.u(1, 1).ue(1).ue(2).ue(3).ue(4);
  b.u(1, 1).u(32, 1001).u(32, 60000).u(1, 1).ue(7);
  b.u(1, 1).u(1, 1).u(1, 0).u(1, 0).u(4, 2).u(4, 3).u(5, 23).u(5, 24).u(5, 25);
  b.u(1, 0).u(1, 0).u(1, 0).ue(0).ue(1000).ue(2000).u(1, 1);
  b.u(1, 1).u(1, 1).u(1, 0).u(1, 1).ue(4).ue(5).ue(6).ue(15).ue(16);
}

TEST(HevcSps, FullVui) {
  SpsParts parts;
  parts.vui = FullVui;
  auto sps = ReadSps(Sps(parts));
  const HevcSpsRecord& r = sps.record();
  EXPECT_THAT(sps.messages, IsEmpty());
  EXPECT_EQ(r.aspect_ratio_idc, 255u);
  EXPECT_EQ(r.sar_width, 40u);
  EXPECT_EQ(r.sar_height, 33u);
  EXPECT_EQ(r.overscan_appropriate_flag, 1u);
  EXPECT_EQ(r.video_format, 5u);
  EXPECT_EQ(r.video_full_range_flag, 1u);
  EXPECT_EQ(r.colour_primaries, 9u);
  EXPECT_EQ(r.transfer_characteristics, 16u);
  EXPECT_EQ(r.matrix_coeffs, 10u);
  EXPECT_EQ(r.chroma_sample_loc_type_top_field, 2u);
  EXPECT_EQ(r.chroma_sample_loc_type_bottom_field, 3u);
  EXPECT_EQ(r.neutral_chroma_indication_flag, 1u);
  EXPECT_EQ(r.field_seq_flag, 0u);
  EXPECT_EQ(r.frame_field_info_present_flag, 1u);
  EXPECT_EQ(r.def_disp_win_left_offset, 1u);
  EXPECT_EQ(r.def_disp_win_bottom_offset, 4u);
  EXPECT_EQ(r.vui_num_units_in_tick, 1001u);
  EXPECT_EQ(r.vui_time_scale, 60000u);
  EXPECT_EQ(r.vui_num_ticks_poc_diff_one_minus1, 7u);
  EXPECT_EQ(r.nal_hrd_parameters_present_flag, 1u);
  EXPECT_EQ(r.bit_rate_scale, 2u);
  EXPECT_EQ(r.cpb_size_scale, 3u);
  EXPECT_EQ(r.initial_cpb_removal_delay_length_minus1, 23u);
  EXPECT_EQ(r.au_cpb_removal_delay_length_minus1, 24u);
  EXPECT_EQ(r.dpb_output_delay_length_minus1, 25u);
  EXPECT_EQ(r.bit_rate_value_minus1, 1000u);
  EXPECT_EQ(r.cpb_size_value_minus1, 2000u);
  EXPECT_EQ(r.cbr_flag, 1u);
  EXPECT_EQ(r.tiles_fixed_structure_flag, 1u);
  EXPECT_EQ(r.restricted_ref_pic_lists_flag, 1u);
  EXPECT_EQ(r.min_spatial_segmentation_idc, 4u);
  EXPECT_EQ(r.max_bytes_per_pic_denom, 5u);
  EXPECT_EQ(r.max_bits_per_min_cu_denom, 6u);
  EXPECT_EQ(r.log2_max_mv_length_horizontal, 15u);
  EXPECT_EQ(r.log2_max_mv_length_vertical, 16u);
}

TEST(HevcSps, ShortHrdWithSubPictureParametersAndSubLayers) {
  SpsParts parts;
  parts.maxSubLayersMinus1 = 1;
  parts.subLayers = [](BitBuilder& b) { b.u(16, 0); };
  parts.orderingFlag = 0;
  parts.vui = [](BitBuilder& b) {
    b.u(1, 1).u(8, 0).u(1, 1).u(32, 1).u(32, 25).u(1, 0);
    b.u(1, 1);                                                      // HRD
    b.u(1, 0).u(1, 1).u(1, 1).u(8, 100).u(5, 11).u(1, 1).u(5, 12);  // VCL only, sub-picture parameters
    b.u(4, 1).u(4, 2).u(4, 3).u(5, 4).u(5, 5).u(5, 6);
    b.u(1, 1).u(1, 1).u(1, 0).ue(3).ue(10).ue(20).u(1, 0);  // the same seven, whatever the flags say
    b.u(1, 0).u(1, 1).u(1, 1).ue(4).ue(30).ue(40).u(1, 1);
    b.u(1, 0);
  };
  auto sps = ReadSps(Sps(parts));
  const HevcSpsRecord& r = sps.record();
  EXPECT_THAT(sps.messages, IsEmpty());
  EXPECT_EQ(r.tick_divisor_minus2, 100u);
  EXPECT_EQ(r.du_cpb_removal_delay_increment_length_minus1, 11u);
  EXPECT_EQ(r.sub_pic_cpb_params_in_pic_timing_sei_flag, 1u);
  EXPECT_EQ(r.dpb_output_delay_du_length_minus1, 12u);
  EXPECT_EQ(r.cpb_size_du_scale, 3u);
  EXPECT_EQ(r.dpb_output_delay_length_minus1, 6u);
  EXPECT_EQ(r.fixed_pic_rate_general_flag[0], 1u);
  EXPECT_EQ(r.fixed_pic_rate_within_cvs_flag[1], 1u);
  EXPECT_EQ(r.low_delay_hrd_flag[1], 1u);
  EXPECT_EQ(r.cpb_cnt_minus1[0], 3u);
  EXPECT_EQ(r.cpb_cnt_minus1[1], 4u);
  EXPECT_EQ(r.bit_rate_value_minus1, 30u);
  EXPECT_EQ(r.cpb_size_value_minus1, 40u);
  // The writer mirrors the form, with the one rate and size for both sub-layers.
  const Bytes written = WriteSps(sps.record());
  auto again = ReadSps(written);
  EXPECT_THAT(again.messages, IsEmpty());
  EXPECT_EQ(Words(again.record()), Words(sps.record()));
}

TEST(HevcSps, HrdWithoutAnyPresentFlagStillHasItsLoop) {
  SpsParts parts;
  parts.vui = [](BitBuilder& b) {
    b.u(1, 1).u(8, 0).u(1, 1).u(32, 1).u(32, 25).u(1, 0).u(1, 1);
    b.u(1, 0).u(1, 0);
    b.u(1, 0).u(1, 0).u(1, 0).ue(0).ue(10).ue(20).u(1, 0);
    b.u(1, 0);
  };
  auto sps = ReadSps(Sps(parts), nullptr, 0, 0, 0x77);
  EXPECT_EQ(sps.record().cpb_size_value_minus1, 20u);
  EXPECT_EQ(sps.record().sub_pic_hrd_params_present_flag, 0x77777777u);
  EXPECT_EQ(sps.record().free_words_6981[0], 0x77777777u);
  EXPECT_EQ(sps.record().free_words_6931[15], 0x77777777u);
  EXPECT_EQ(sps.result, Sps(parts).size());
}

TEST(HevcSps, FoldOfTheRest) {
  HevcConfigRecord config{};
  config.numTemporalLayers = 1;
  config.min_spatial_segmentation_idc = 100;
  config.bitDepthLumaMinus8 = 7;
  SpsParts parts;
  parts.maxSubLayersMinus1 = 2;
  parts.subLayers = [](BitBuilder& b) { b.u(16, 0); };
  parts.orderingFlag = 0;
  parts.lumaMinus8 = 2;
  parts.chromaMinus8 = 3;
  ReadSps(Sps(parts), &config);
  EXPECT_EQ(config.numTemporalLayers, 3u);
  EXPECT_EQ(config.temporalIdNested, 1u);
  EXPECT_EQ(config.chromaFormat, 1u);
  EXPECT_EQ(config.bitDepthLumaMinus8, 2u);
  EXPECT_EQ(config.bitDepthChromaMinus8, 3u);
  EXPECT_EQ(config.min_spatial_segmentation_idc, 100u) << "no restriction block";
  SpsParts single;
  single.vui = FullVui;  // min_spatial_segmentation_idc 4
  ReadSps(Sps(single), &config);
  EXPECT_EQ(config.numTemporalLayers, 3u) << "the greater stays";
  EXPECT_EQ(config.min_spatial_segmentation_idc, 4u);
  config.min_spatial_segmentation_idc = 0;
  ReadSps(Sps(single), &config);
  EXPECT_EQ(config.min_spatial_segmentation_idc, 0u) << "a record at 0 stays there";
}

}  // namespace
}  // namespace qln::test
