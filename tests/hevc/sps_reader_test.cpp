// The SPS reader: head, body, extensions and fold, and each departure from the standard as it is told.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hevc/unit_builders.h"

namespace qln::test {
namespace {

using testing::IsEmpty;

TEST(HevcSps, HeadAndBody) {
  SpsParts parts;
  parts.window = [](BitBuilder& b) { b.u(1, 1).ue(1).ue(2).ue(3).ue(4); };
  parts.lumaMinus8 = 2;
  parts.chromaMinus8 = 4;
  parts.pcm = [](BitBuilder& b) { b.u(1, 1).u(4, 7).u(4, 9).ue(1).ue(2).u(1, 1); };
  auto sps = ReadSps(Sps(parts));
  const HevcSpsRecord& r = sps.record();
  EXPECT_THAT(sps.messages, IsEmpty());
  EXPECT_EQ(r.sps_temporal_id_nesting_flag, 1u);
  EXPECT_EQ(r.chroma_format_idc, 1u);
  EXPECT_EQ(r.pic_width_in_luma_samples, 64u);
  EXPECT_EQ(r.pic_height_in_luma_samples, 48u);
  EXPECT_EQ(r.conf_win_left_offset, 1u);
  EXPECT_EQ(r.conf_win_bottom_offset, 4u);
  EXPECT_EQ(r.bit_depth_luma_minus8, 2u);
  EXPECT_EQ(r.bit_depth_chroma_minus8, 4u);
  EXPECT_EQ(r.log2_max_pic_order_cnt_lsb_minus4, 4u);
  EXPECT_EQ(r.sps_max_dec_pic_buffering_minus1[0], 4u);
  EXPECT_EQ(r.sps_max_num_reorder_pics[0], 2u);
  EXPECT_EQ(r.sps_max_latency_increase_plus1, 0u);
  EXPECT_EQ(r.log2_diff_max_min_luma_coding_block_size, 2u);
  EXPECT_EQ(r.log2_diff_max_min_luma_transform_block_size, 3u);
  EXPECT_EQ(r.max_transform_hierarchy_depth_inter, 1u);
  EXPECT_EQ(r.max_transform_hierarchy_depth_intra, 2u);
  EXPECT_EQ(r.amp_enabled_flag, 1u);
  EXPECT_EQ(r.sample_adaptive_offset_enabled_flag, 0u);
  EXPECT_EQ(r.pcm_sample_bit_depth_luma_minus1, 7u);
  EXPECT_EQ(r.pcm_sample_bit_depth_chroma_minus1, 9u);
  EXPECT_EQ(r.log2_min_pcm_luma_coding_block_size_minus3, 1u);
  EXPECT_EQ(r.log2_diff_max_min_pcm_luma_coding_block_size, 2u);
  EXPECT_EQ(r.pcm_loop_filter_disabled_flag, 1u);
  EXPECT_EQ(r.sps_temporal_mvp_enabled_flag, 1u);
  EXPECT_EQ(r.strong_intra_smoothing_enabled_flag, 0u);
}

TEST(HevcSps, SeparateColourPlaneFlagIsACode) {
  SpsParts parts;
  parts.chroma = [](BitBuilder& b) { b.ue(3).raw("1"); };
  auto zero = ReadSps(Sps(parts));
  EXPECT_EQ(zero.record().separate_colour_plane_flag, 0u);
  EXPECT_EQ(zero.record().pic_width_in_luma_samples, 64u);
  parts.chroma = [](BitBuilder& b) { b.ue(3).raw("010"); };
  auto one = ReadSps(Sps(parts));
  EXPECT_EQ(one.record().separate_colour_plane_flag, 1u);
  EXPECT_EQ(one.record().pic_width_in_luma_samples, 64u);
  auto other = ReadSps(Sps(), nullptr, 0, 0, 0x44);
  EXPECT_EQ(other.record().separate_colour_plane_flag, 0x44444444u) << "with chroma_format_idc 1";
}

TEST(HevcSps, OrderingKeepsTheLastTripleInEntryZero) {
  SpsParts parts;
  parts.maxSubLayersMinus1 = 2;
  parts.subLayers = [](BitBuilder& b) { b.u(16, 0); };
  parts.ordering = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}};
  auto sps = ReadSps(Sps(parts));
  EXPECT_THAT(sps.messages, IsEmpty());
  EXPECT_EQ(sps.record().sps_max_dec_pic_buffering_minus1[0], 7u);
  EXPECT_EQ(sps.record().sps_max_num_reorder_pics[0], 8u);
  EXPECT_EQ(sps.record().sps_max_latency_increase_plus1, 9u);
  for (int i = 1; i < 16; ++i) {
    EXPECT_EQ(sps.record().sps_max_dec_pic_buffering_minus1[i], 0u);
    EXPECT_EQ(sps.record().sps_max_num_reorder_pics[i], 0u);
  }
}

TEST(HevcSps, ScalingListsAreWalkedAndNotKept) {
  SpsParts parts;
  parts.scalingLists = [](BitBuilder& b) {
    b.u(1, 1).u(1, 1);
    for (int sizeId = 0; sizeId < 4; ++sizeId) {
      for (int matrix = 0; matrix < (sizeId == 3 ? 2 : 6); ++matrix) {
        if (matrix % 2 == 0) {
          b.u(1, 0).ue(static_cast<uint32_t>(matrix));
          continue;
        }
        b.u(1, 1);
        if (sizeId > 1) b.se(-5 - sizeId);
        for (int i = 0; i < (sizeId == 0 ? 16 : 64); ++i) b.se(i % 5 - 2);
      }
    }
  };
  auto sps = ReadSps(Sps(parts));
  EXPECT_THAT(sps.messages, IsEmpty()) << "consumed completely";
  EXPECT_EQ(sps.result, Sps(parts).size());
  EXPECT_EQ(sps.record().scaling_list_enabled_flag, 1u);
  EXPECT_EQ(sps.record().sps_scaling_list_data_present_flag, 0u) << "word 249 stays";
  EXPECT_EQ(sps.record().scaling_list_pred_mode_flag, 1u);
  EXPECT_EQ(sps.record().scaling_list_pred_matrix_id_delta, 0u);
  EXPECT_EQ(sps.record().scaling_list_dc_coef_minus8, -8);
  EXPECT_EQ(sps.record().scaling_list_delta_coef, 63 % 5 - 2);
  auto kept = ReadSps(Sps(parts), nullptr, 0, 0, 0x55);
  EXPECT_EQ(kept.record().sps_scaling_list_data_present_flag, 0x55555555u);
}

TEST(HevcSps, FlagsPastTheEndThatCountAsClear) {
  // Over-read from the bit depths on: what guards a block counts as set, but for the scaling list data flag,
  // the VUI's and the extension's.
  BitBuilder head;
  head.u(16, 0x4201).u(8, 1);
  AddProfile(head, {});
  head.ue(0).ue(1).ue(64).ue(48).u(1, 0);
  while (head.bits() % 8 != 0) head.u(1, 0);
  auto sps = ReadSps(head.bytes(), nullptr, 0, 0, 0x55);
  const HevcSpsRecord& r = sps.record();
  EXPECT_EQ(r.pic_height_in_luma_samples, 48u);
  EXPECT_EQ(r.scaling_list_enabled_flag, 0xFFFFFFFFu);
  EXPECT_EQ(r.scaling_list_pred_mode_flag, 0x55555555u) << "no list is walked";
  EXPECT_EQ(r.sps_scaling_list_data_present_flag, 0x55555555u);
  EXPECT_EQ(r.pcm_enabled_flag, 0xFFFFFFFFu);
  EXPECT_EQ(r.pcm_sample_bit_depth_luma_minus1, 0xFFFFFFFFu);
  EXPECT_EQ(r.num_long_term_ref_pics_sps, 0u) << "the long-term block counts as present";
  EXPECT_EQ(r.vui_parameters_present_flag, 0xFFFFFFFFu);
  EXPECT_EQ(r.aspect_ratio_info_present_flag, 0x55555555u) << "no VUI";
  EXPECT_EQ(r.sps_extension_present_flag, 0xFFFFFFFFu);
  EXPECT_EQ(r.sps_range_extension_flag, 0x55555555u) << "no extension";
}

TEST(HevcSps, Extensions) {
  SpsParts parts;
  parts.extension = [](BitBuilder& b) {
    b.u(1, 1).u(8, 0xE0).u(9, 0x155).u(1, 1).u(2, 3).ue(9).u(4, 15).u(3, 7).ue(8).u(5, 31);
  };
  auto sps = ReadSps(Sps(parts));
  const HevcSpsRecord& r = sps.record();
  EXPECT_THAT(sps.messages, IsEmpty());
  EXPECT_EQ(r.sps_range_extension_flag, 1u);
  EXPECT_EQ(r.sps_multilayer_extension_flag, 1u);
  EXPECT_EQ(r.sps_3d_extension_flag, 1u);
  EXPECT_EQ(r.sps_scc_extension_flag, 0u);
  EXPECT_EQ(r.transform_skip_rotation_enabled_flag, 1u);
  EXPECT_EQ(r.transform_skip_context_enabled_flag, 0u);
  EXPECT_EQ(r.implicit_rdpcm_enabled_flag, 1u);
  EXPECT_EQ(r.cabac_bypass_alignment_enabled_flag, 1u);
  EXPECT_EQ(r.inter_view_mv_vert_constraint_flag, 1u);
}

TEST(HevcSps, ScreenContentAndFurtherExtensionsAreLeftUnread) {
  SpsParts parts;
  parts.extension = [](BitBuilder& b) { b.u(1, 1).u(8, 0x1F).u(16, 0x8001); };
  auto sps = ReadSps(Sps(parts));
  EXPECT_EQ(sps.record().sps_scc_extension_flag, 1u);
  ASSERT_EQ(sps.messages.size(), 1u);
  EXPECT_EQ(sps.messages[0].rfind("\nqlnutilRead_HEVC_SPS failed bit length is wrong", 0), 0u);
}

TEST(HevcSps, AnEscapeInFrontOfTheLastByteIsRemoved) {
  // A range extension of zeros that ends the unit in 00 00 80.
  SpsParts parts;
  parts.extension = [](BitBuilder& b) { b.u(1, 1).u(8, 0x80).u(9, 0); };
  Bytes unit;
  for (uint32_t width = 1; width < 300; ++width) {
    parts.width = width;
    parts.pcm = width % 2 == 0 ? Part([](BitBuilder& b) { b.u(1, 0); })
                               : Part([](BitBuilder& b) { b.u(1, 1).u(8, 0).ue(0).ue(0).u(1, 0); });
    parts.shortTerm = width % 3 == 0 ? Part([](BitBuilder& b) { b.ue(0); })
                                     : Part([](BitBuilder& b) { b.ue(2).ue(0).ue(0).u(1, 0).ue(0).ue(0); });
    unit = Sps(parts);
    if (ToHex(Bytes(unit.end() - 3, unit.end())) == "00 00 80") break;
  }
  ASSERT_EQ(ToHex(Bytes(unit.end() - 3, unit.end())), "00 00 80");
  auto sps = ReadSps(Join({Head(unit, unit.size() - 1), Hex("03 80")}));
  EXPECT_THAT(sps.messages, IsEmpty()) << "the 03 goes and the trailing check passes";
  EXPECT_EQ(sps.result, unit.size());
  EXPECT_EQ(Words(sps.record()), Words(ReadSps(unit).record()));
}

}  // namespace
}  // namespace qln::test
