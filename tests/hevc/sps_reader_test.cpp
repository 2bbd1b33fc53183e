// The SPS reader: every element, and each departure from the standard as it is told.

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

TEST(HevcSps, SixtyFourSetsAreAcceptedAndSixtyFiveRefused) {
  SpsParts parts;
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(64).ue(0).ue(0);
    for (int i = 1; i < 64; ++i) b.u(1, 0).ue(0).ue(0);
  };
  auto most = ReadSps(Sps(parts));
  EXPECT_THAT(most.messages, IsEmpty());
  EXPECT_EQ(most.record().num_short_term_ref_pic_sets, 64u);

  parts.shortTerm = [](BitBuilder& b) { b.ue(65); };
  HevcConfigRecord config{};
  auto tooMany = ReadSps(Sps(parts), &config);
  EXPECT_EQ(tooMany.result, 0xFFFFFFFFu);
  EXPECT_THAT(tooMany.messages, IsEmpty());
  EXPECT_EQ(tooMany.record().num_short_term_ref_pic_sets, 0u);
  EXPECT_EQ(tooMany.record().pic_width_in_luma_samples, 64u) << "what was stored stays";
  BitBuilder head;
  head.u(16, 0).u(8, 0);
  AddProfile(head, {});
  head.ue(0).ue(1).ue(64).ue(48).u(1, 0).ue(0).ue(0).ue(4).u(1, 1).ue(4).ue(2).ue(0);
  head.ue(0).ue(2).ue(0).ue(3).ue(1).ue(2).u(4, 0).ue(65);
  EXPECT_EQ(tooMany.bitPos, head.bits());
  EXPECT_EQ(config.general_level_idc, 93u) << "the profile was folded";
  EXPECT_EQ(config.numTemporalLayers, 0u) << "the rest was not";
}

TEST(HevcSps, ASetCountWithItsTopBitSetGivesNoSet) {
  SpsParts parts;
  parts.shortTerm = [](BitBuilder& b) { b.ue(0x80000000u); };
  auto sps = ReadSps(Sps(parts));
  EXPECT_THAT(sps.messages, IsEmpty());
  EXPECT_EQ(sps.record().num_short_term_ref_pic_sets, 0x80000000u);
}

TEST(HevcSps, ExplicitSets) {
  SpsParts parts;
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(2);
    b.ue(2).ue(1).ue(0).u(1, 1).ue(3).u(1, 0).ue(1).u(1, 1);
    b.u(1, 0).ue(0).ue(1).ue(6).u(1, 1);
  };
  auto sps = ReadSps(Sps(parts), nullptr, 0, 0, 0x66);
  EXPECT_THAT(sps.messages, IsEmpty());
  const HevcShortTermRps& first = sps.record().st_ref_pic_set[0];
  EXPECT_EQ(first.inter_ref_pic_set_prediction_flag, 0x66666666u) << "not read for set 0";
  EXPECT_EQ(first.num_negative_pics, 2u);
  EXPECT_EQ(first.num_positive_pics, 1u);
  EXPECT_EQ(first.delta_poc_s0_minus1[1], 3u);
  EXPECT_EQ(first.used_by_curr_pic_s0_flag[0], 1u);
  EXPECT_EQ(first.used_by_curr_pic_s0_flag[1], 0u);
  EXPECT_EQ(first.delta_poc_s1_minus1[0], 1u);
  const HevcShortTermRps& second = sps.record().st_ref_pic_set[1];
  EXPECT_EQ(second.inter_ref_pic_set_prediction_flag, 0u);
  EXPECT_EQ(second.delta_poc_s1_minus1[0], 6u);
  EXPECT_EQ(second.used_by_curr_pic_s1_flag[0], 1u);
  EXPECT_EQ(second.delta_poc_s0_minus1[0], 0x66666666u);
}

TEST(HevcSps, APredictedSetReadsDeltaIdxInTheLastPlaceOnly) {
  SpsParts parts;
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(3);
    b.ue(2).ue(0).ue(0).u(1, 1).ue(0).u(1, 1);
    // Set 1 of 3: no delta_idx_minus1; two pictures in set 0, so two pairs, the second with its
    // use_delta_flag.
    b.u(1, 1).u(1, 1).ue(4).u(1, 1).u(1, 0).u(1, 1);
    // Set 2 of 3: delta_idx_minus1 of 1 leads to set 0.
    b.u(1, 1).ue(1).u(1, 0).ue(5).u(1, 0).u(1, 0).u(1, 1);
  };
  auto sps = ReadSps(Sps(parts));
  EXPECT_THAT(sps.messages, IsEmpty());
  const HevcShortTermRps& middle = sps.record().st_ref_pic_set[1];
  EXPECT_EQ(middle.delta_rps_sign, 1u);
  EXPECT_EQ(middle.abs_delta_rps_minus1, 4u);
  EXPECT_EQ(middle.used_by_curr_pic_flag[0], 1u);
  EXPECT_EQ(middle.use_delta_flag[0], 0u) << "not read behind a 1";
  EXPECT_EQ(middle.used_by_curr_pic_flag[1], 0u);
  EXPECT_EQ(middle.use_delta_flag[1], 1u);
  EXPECT_EQ(middle.num_negative_pics, 0u) << "not derived";
  const HevcShortTermRps& last = sps.record().st_ref_pic_set[2];
  EXPECT_EQ(last.delta_rps_sign, 0u);
  EXPECT_EQ(last.abs_delta_rps_minus1, 5u);
  EXPECT_EQ(last.used_by_curr_pic_flag[1], 1u);
}

TEST(HevcSps, AChainOfPredictedSetsReadsNoFlags) {
  SpsParts parts;
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(3);
    b.ue(1).ue(0).ue(0).u(1, 1);
    b.u(1, 1).u(1, 0).ue(0).u(1, 1);
    b.u(1, 1).ue(0).u(1, 0).ue(0);  // predicted from set 1, whose counts stay 0
  };
  auto sps = ReadSps(Sps(parts));
  EXPECT_THAT(sps.messages, IsEmpty());
  // In a record that held counts before, they stand.
  auto stale = std::make_unique<HevcSpsRecord>();
  stale->st_ref_pic_set[1].num_positive_pics = 1;
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(3);
    b.ue(1).ue(0).ue(0).u(1, 1);
    b.u(1, 1).u(1, 0).ue(0).u(1, 1);
    b.u(1, 1).ue(0).u(1, 0).ue(0).u(1, 1);
  };
  Bytes unit = Sps(parts);
  QLNBitState state{unit.data(), static_cast<int32_t>(unit.size()), static_cast<uint32_t>(unit.size() * 8),
                    0};
  MessageCapture capture;
  EXPECT_EQ(qlnutilRead_HEVC_SPS(&state, stale.get(), nullptr, 0), unit.size());
  EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(HevcSps, AReferenceSetOutsideReadsNoFlags) {
  // Set 1 of 2 is the last one: delta_idx_minus1 leads below 0, wraps, and leads to a large number.
  for (const uint32_t deltaIdx : {1u, 2u, 62u, 0x7FFFFFFFu, 0xFFFFFFBFu, 0xFFFFFFC0u, 0xFFFFFFF0u}) {
    const auto reference = static_cast<int32_t>(1u - deltaIdx - 1u);
    SpsParts parts;
    parts.shortTerm = [=](BitBuilder& b) {
      b.ue(2).ue(1).ue(0).ue(0).u(1, 1);
      b.u(1, 1).ue(deltaIdx).u(1, 0).ue(3);
    };
    ASSERT_TRUE(reference < 0 || reference > 1);
    auto sps = ReadSps(Sps(parts));
    EXPECT_THAT(sps.messages, IsEmpty()) << reference;
    EXPECT_EQ(sps.record().st_ref_pic_set[1].abs_delta_rps_minus1, 3u);
  }
  // In a record whose set 63 holds a count, -0xFFFFFFC2 leads there.
  auto record = std::make_unique<HevcSpsRecord>();
  record->st_ref_pic_set[63].num_negative_pics = 0x80000001u;
  record->st_ref_pic_set[63].num_positive_pics = 0x80000001u;  // the sum is 2 modulo 2^32
  SpsParts parts;
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(2).ue(0).ue(0);
    b.u(1, 1).ue(0xFFFFFFC1u).u(1, 0).ue(3).u(1, 1).u(1, 1);
  };
  Bytes unit = Sps(parts);
  QLNBitState state{unit.data(), static_cast<int32_t>(unit.size()), static_cast<uint32_t>(unit.size() * 8),
                    0};
  MessageCapture capture;
  qlnutilRead_HEVC_SPS(&state, record.get(), nullptr, 0);
  EXPECT_THAT(capture.texts(), IsEmpty());
  EXPECT_EQ(record->st_ref_pic_set[1].used_by_curr_pic_flag[1], 1u);
}

TEST(HevcSps, APredictedSetReadsSixteenFlagsAtMost) {
  SpsParts parts;
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(2);
    b.ue(12).ue(12);
    for (int i = 0; i < 24; ++i) b.ue(0).u(1, 1);
    b.u(1, 1).ue(0).u(1, 1).ue(0).u(16, 0xFFFF);
  };
  auto sps = ReadSps(Sps(parts));
  EXPECT_THAT(sps.messages, IsEmpty());
  EXPECT_EQ(sps.record().st_ref_pic_set[1].used_by_curr_pic_flag[15], 1u);
}

TEST(HevcSps, PicturesAboveSixteenAreNotRead) {
  SpsParts parts;
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(1).ue(17).ue(0);
    for (int i = 0; i < 16; ++i) b.ue(static_cast<uint32_t>(i)).u(1, 1);
  };
  auto sps = ReadSps(Sps(parts));
  EXPECT_THAT(sps.messages, IsEmpty()) << "16 entries are all that is read";
  EXPECT_EQ(sps.record().st_ref_pic_set[0].num_negative_pics, 17u) << "the count is kept";
  EXPECT_EQ(sps.record().st_ref_pic_set[0].delta_poc_s0_minus1[15], 15u);
  EXPECT_EQ(sps.record().st_ref_pic_set[0].delta_poc_s1_minus1[0], 0u);
  EXPECT_EQ(sps.record().st_ref_pic_set[0].used_by_curr_pic_s0_flag[15], 1u);
  // A real set of 17 therefore puts everything behind out of step.
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(1).ue(17).ue(0);
    for (int i = 0; i < 17; ++i) b.ue(0).u(1, 1);
  };
  EXPECT_EQ(ReadSps(Sps(parts)).record().long_term_ref_pics_present_flag, 1u) << "the 17th picture's code";
}

TEST(HevcSps, LongTermPictures) {
  SpsParts parts;
  parts.log2PocMinus4 = 4;
  parts.longTerm = [](BitBuilder& b) { b.u(1, 1).ue(2).u(8, 200).u(1, 1).u(8, 13).u(1, 0); };
  auto sps = ReadSps(Sps(parts));
  EXPECT_THAT(sps.messages, IsEmpty());
  EXPECT_EQ(sps.record().num_long_term_ref_pics_sps, 2u);
  EXPECT_EQ(sps.record().long_term_ref_pics[0].lt_ref_pic_poc_lsb_sps, 200u);
  EXPECT_EQ(sps.record().long_term_ref_pics[0].used_by_curr_pic_lt_sps_flag, 1u);
  EXPECT_EQ(sps.record().long_term_ref_pics[1].lt_ref_pic_poc_lsb_sps, 13u);
}

TEST(HevcSps, LongTermPicturesAboveSixtyFourAreReadAndNotStored) {
  SpsParts parts;
  parts.longTerm = [](BitBuilder& b) {
    b.u(1, 1).ue(70);
    for (uint32_t i = 0; i < 70; ++i) b.u(8, i).u(1, 1);
  };
  auto sps = ReadSps(Sps(parts));
  EXPECT_THAT(sps.messages, IsEmpty());
  EXPECT_EQ(sps.record().num_long_term_ref_pics_sps, 70u);
  EXPECT_EQ(sps.record().long_term_ref_pics[63].lt_ref_pic_poc_lsb_sps, 63u);
  EXPECT_EQ(sps.record().sps_temporal_mvp_enabled_flag, 1u)
      << "the word behind the pairs holds its own value";
}

TEST(HevcSps, HostileLongTermCountsAndWidths) {
  for (const uint32_t width : {4u, 28u, 60u, 0xFFFFFFF0u, 0x7FFFFFF0u}) {
    SpsParts parts;
    parts.log2PocMinus4 = width;
    parts.longTerm = [](BitBuilder& b) { b.u(1, 1).ue(0xFFFFFFFEu); };
    const Bytes unit = Escaped(Sps(parts));
    auto sps = ReadSps(unit);
    EXPECT_EQ(sps.record().num_long_term_ref_pics_sps, 0xFFFFFFFEu);
    EXPECT_EQ(sps.bitPos, unit.size() * 8);
    EXPECT_EQ(sps.record().long_term_ref_pics[63].used_by_curr_pic_lt_sps_flag, 0xFFFFFFFFu) << width;
    // Over half a gigabyte of zeros that nobody holds.
    EXPECT_EQ(ReadSps(unit, nullptr, 0xFFFFFFFFu).bitPos, 0xFFFFFFFFu);
  }
}

TEST(HevcSps, WidthsFollowTheReadersRule) {
  // 44 bits: bits 32 places apart are OR-ed into one.
  SpsParts parts;
  parts.log2PocMinus4 = 40;
  parts.longTerm = [](BitBuilder& b) { b.u(1, 1).ue(1).u(12, 0x801).u(32, 0x10).u(1, 1); };
  auto sps = ReadSps(Sps(parts));
  EXPECT_THAT(sps.messages, IsEmpty());
  EXPECT_EQ(sps.record().long_term_ref_pics[0].lt_ref_pic_poc_lsb_sps, 0x811u);
  // Below 1: nothing is read.
  parts.log2PocMinus4 = 0xFFFFFFFCu;
  parts.longTerm = [](BitBuilder& b) { b.u(1, 1).ue(2).u(1, 1).u(1, 1); };
  auto none = ReadSps(Escaped(Sps(parts)));
  EXPECT_THAT(none.messages, IsEmpty());
  EXPECT_EQ(none.record().long_term_ref_pics[1].lt_ref_pic_poc_lsb_sps, 0u);
  EXPECT_EQ(none.record().long_term_ref_pics[1].used_by_curr_pic_lt_sps_flag, 1u);
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
