// The SPS reader: short-term reference picture sets and long-term pictures.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hevc/unit_builders.h"

namespace qln::test {
namespace {

using testing::IsEmpty;

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

}  // namespace
}  // namespace qln::test
