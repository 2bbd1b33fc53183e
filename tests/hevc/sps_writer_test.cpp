// The SPS writer: the mirror of the reader, its own forms, and its bounds.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hevc/unit_builders.h"

namespace qln::test {
namespace {

using testing::IsEmpty;

TEST(HevcSpsWriter, PlainUnitsComeBackByteForByte) {
  SpsParts parts;
  parts.window = [](BitBuilder& b) { b.u(1, 1).ue(1).ue(2).ue(3).ue(4); };
  parts.pcm = [](BitBuilder& b) { b.u(1, 1).u(4, 7).u(4, 9).ue(1).ue(2).u(1, 1); };
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(2).ue(2).ue(1).ue(0).u(1, 1).ue(3).u(1, 0).ue(1).u(1, 1).u(1, 0).ue(0).ue(1).ue(6).u(1, 1);
  };
  parts.vui = [](BitBuilder& b) {
    b.u(1, 1).u(1, 1).u(8, 255).u(16, 40).u(16, 33).u(1, 1).u(1, 1);
    b.u(1, 1).u(3, 5).u(1, 1).u(1, 1).u(8, 9).u(8, 16).u(8, 10).u(1, 1).ue(2).ue(3).u(3, 5);
    b.u(1, 1).ue(1).ue(2).ue(3).ue(4).u(1, 1).u(32, 1001).u(32, 60000).u(1, 1).ue(7);
    b.u(1, 1).u(1, 1).u(1, 0).u(1, 0).u(4, 2).u(4, 3).u(15, 0x7ABC);
    b.u(3, 0).ue(0).ue(1000).ue(2000).u(1, 1);
    b.u(1, 1).u(3, 5).ue(4).ue(5).ue(6).ue(15).ue(16);
  };
  parts.extension = [](BitBuilder& b) { b.u(1, 1).u(8, 0xC0).u(9, 0x155).u(1, 1); };
  auto sps = ReadSps(Sps(parts));
  EXPECT_THAT(sps.messages, IsEmpty());
  const Bytes written = WriteSps(sps.record());
  EXPECT_EQ(ToHex(written), ToHex(WriterEscaped(Sps(parts))));
  EXPECT_EQ(ToHex(WriteSps(sps.record(), 0)), ToHex(written)) << "the capacity has no influence";
}

TEST(HevcSpsWriter, AZeroedRecord) {
  auto sps = std::make_unique<HevcSpsRecord>();
  BitBuilder b;
  b.u(16, 0x4201).u(8, 0).u(48, 0).u(48, 0).ue(0).ue(0).ue(0).ue(0).u(1, 0).ue(0).ue(0).ue(0).u(1, 0);
  b.ue(0).ue(0).ue(0).ue(0).ue(0).ue(0).ue(0).ue(0).ue(0).u(4, 0).ue(0).u(1, 0).u(3, 0).u(1, 0);
  EXPECT_EQ(ToHex(WriteSps(*sps)), ToHex(WriterEscaped(b.trailing().bytes())));
}

TEST(HevcSpsWriter, AVuiFlagOfMinusOneBringsNoVui) {
  auto sps = ReadSps(Sps());
  sps.record().vui_parameters_present_flag = 0xFFFFFFFF;
  sps.record().aspect_ratio_info_present_flag = 1;
  SpsParts parts;
  parts.vui = [](BitBuilder& b) { b.u(1, 1); };
  EXPECT_EQ(ToHex(WriteSps(sps.record())), ToHex(WriterEscaped(Sps(parts))));
}

TEST(HevcSpsWriter, ScreenContentFlagGoesOutOnce) {
  auto sps = ReadSps(Sps());
  sps.record().sps_extension_present_flag = 1;
  sps.record().sps_scc_extension_flag = 1;
  SpsParts parts;
  parts.extension = [](BitBuilder& b) { b.u(1, 1).u(8, 0x10); };
  EXPECT_EQ(ToHex(WriteSps(sps.record())), ToHex(WriterEscaped(Sps(parts))));
  EXPECT_EQ(sps.record().sps_scc_extension_flag, 0u);
  parts.extension = [](BitBuilder& b) { b.u(1, 1).u(8, 0x00); };
  EXPECT_EQ(ToHex(WriteSps(sps.record())), ToHex(WriterEscaped(Sps(parts))));
}

TEST(HevcSpsWriter, AnExtensionWordThatIsNotOneBringsNoExtension) {
  for (const uint32_t word : {3u, 0xFFFFFFFFu}) {
    auto sps = ReadSps(Sps());
    sps.record().sps_extension_present_flag = word;
    sps.record().sps_range_extension_flag = 1;
    sps.record().sps_scc_extension_flag = 1;
    SpsParts parts;
    parts.extension = [](BitBuilder& b) { b.u(1, 1); };
    EXPECT_EQ(ToHex(WriteSps(sps.record())), ToHex(WriterEscaped(Sps(parts))));
    EXPECT_EQ(sps.record().sps_scc_extension_flag, 1u) << "stays where no extension is written";
  }
}

TEST(HevcSpsWriter, A3dExtensionIsOneOfZeros) {
  SpsParts parts;
  parts.extension = [](BitBuilder& b) { b.u(1, 1).u(8, 0x20).u(2, 3).ue(9).u(4, 15).u(3, 7).ue(8).u(5, 31); };
  auto sps = ReadSps(Sps(parts));
  parts.extension = [](BitBuilder& b) {
    b.u(1, 1).u(8, 0x20).u(2, 0).u(1, 1).u(4, 0).u(3, 0).u(1, 1).u(5, 0);
  };
  EXPECT_EQ(ToHex(WriteSps(sps.record())), ToHex(WriterEscaped(Sps(parts))));
}

TEST(HevcSpsWriter, ScalingListsFromTheSingleWords) {
  auto sps = ReadSps(Sps());
  HevcSpsRecord& r = sps.record();
  r.scaling_list_enabled_flag = 1;
  SpsParts parts;
  parts.scalingLists = [](BitBuilder& b) { b.u(1, 1).u(1, 0); };
  EXPECT_EQ(ToHex(WriteSps(r)), ToHex(WriterEscaped(Sps(parts)))) << "no data where word 249 is 0";

  r.sps_scaling_list_data_present_flag = 1;
  r.scaling_list_pred_matrix_id_delta = 2;
  parts.scalingLists = [](BitBuilder& b) {
    b.u(1, 1).u(1, 1);
    for (int i = 0; i < 20; ++i) b.u(1, 0).ue(2);
  };
  EXPECT_EQ(ToHex(WriteSps(r)), ToHex(WriterEscaped(Sps(parts)))) << "20 matrices of a flag and a code";

  r.scaling_list_pred_mode_flag = 1;
  r.scaling_list_dc_coef_minus8 = 3;  // positive: the code of -4
  r.scaling_list_delta_coef = -1;
  parts.scalingLists = [](BitBuilder& b) {
    b.u(1, 1).u(1, 1);
    for (int sizeId = 0; sizeId < 4; ++sizeId) {
      for (int matrix = 0; matrix < (sizeId == 3 ? 2 : 6); ++matrix) {
        b.u(1, 1);
        if (sizeId > 1) b.se(-4);
        for (int i = 0; i < (sizeId == 0 ? 16 : 64); ++i) b.se(-1);
      }
    }
  };
  EXPECT_EQ(ToHex(WriteSps(r)), ToHex(WriterEscaped(Sps(parts))));
}

TEST(HevcSpsWriter, LongTermValuesGoOutAsCodes) {
  SpsParts parts;
  parts.longTerm = [](BitBuilder& b) { b.u(1, 1).ue(2).u(8, 200).u(1, 1).u(8, 13).u(1, 0); };
  auto sps = ReadSps(Sps(parts));
  parts.longTerm = [](BitBuilder& b) { b.u(1, 1).ue(2).ue(200).u(1, 1).ue(13).u(1, 0); };
  EXPECT_EQ(ToHex(WriteSps(sps.record())), ToHex(WriterEscaped(Sps(parts))));
}

TEST(HevcSpsWriter, PredictedSetsHaveTheirOwnCount) {
  SpsParts parts;
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(2).ue(1).ue(0).ue(0).u(1, 1);
    b.u(1, 1).ue(0).u(1, 1).ue(2).u(1, 1);
  };
  auto sps = ReadSps(Sps(parts));
  EXPECT_THAT(sps.messages, IsEmpty());
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(2).ue(1).ue(0).ue(0).u(1, 1);
    b.u(1, 1).u(1, 1).ue(2).u(2, 2).u(2, 0).u(2, 0);  // three pairs, no delta_idx_minus1
  };
  EXPECT_EQ(ToHex(WriteSps(sps.record())), ToHex(WriterEscaped(Sps(parts))));
  // Pairs beyond the arrays count as 0.
  sps.record().st_ref_pic_set[1].abs_delta_rps_minus1 = 19;
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(2).ue(1).ue(0).ue(0).u(1, 1);
    b.u(1, 1).u(1, 1).ue(19).u(2, 2).u(38, 0);
  };
  EXPECT_EQ(ToHex(WriteSps(sps.record())), ToHex(WriterEscaped(Sps(parts))));
}

TEST(HevcSpsWriter, CountsAboveTheArraysAreWrittenWithZeros) {
  auto sps = ReadSps(Sps());
  HevcSpsRecord& r = sps.record();
  r.num_short_term_ref_pic_sets = 66;
  r.st_ref_pic_set[0].num_negative_pics = 18;
  for (auto& word : r.st_ref_pic_set[0].delta_poc_s0_minus1) word = 1;
  // The words behind the array must not show.
  for (auto& word : r.st_ref_pic_set[0].used_by_curr_pic_s0_flag) word = 1;
  r.long_term_ref_pics_present_flag = 1;
  r.num_long_term_ref_pics_sps = 66;
  r.long_term_ref_pics[63] = {5, 1};
  SpsParts parts;
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(66).ue(18).ue(0);
    for (int i = 0; i < 18; ++i) b.ue(i < 16 ? 1 : 0).u(1, i < 16);
    for (int i = 1; i < 66; ++i) b.u(1, 0).ue(0).ue(0);
  };
  parts.longTerm = [](BitBuilder& b) {
    b.u(1, 1).ue(66);
    for (int i = 0; i < 66; ++i) b.ue(i == 63 ? 5 : 0).u(1, i == 63);
  };
  EXPECT_EQ(ToHex(WriteSps(r)), ToHex(WriterEscaped(Sps(parts))));
}

TEST(HevcSpsWriter, HostileCountsDoNotFit) {
  const auto expectNothing = [](const char* what, auto change) {
    auto sps = ReadSps(Sps());
    change(sps.record());
    sps.record().profile_tier_level.general_progressive_source_flag = 0;
    EXPECT_THAT(WriteSps(sps.record()), IsEmpty()) << what;
    EXPECT_EQ(sps.record().profile_tier_level.general_constraint_indicator_flags, 0x100000000000u)
        << "the fold is done all the same";
  };
  for (const uint32_t count : {100000u, 0x7FFFFFFFu, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
    expectNothing("sets", [=](HevcSpsRecord& r) { r.num_short_term_ref_pic_sets = count; });
    expectNothing("negative pictures", [=](HevcSpsRecord& r) {
      r.num_short_term_ref_pic_sets = 1;
      r.st_ref_pic_set[0].num_negative_pics = count;
    });
    expectNothing("positive pictures", [=](HevcSpsRecord& r) {
      r.num_short_term_ref_pic_sets = 1;
      r.st_ref_pic_set[0].num_positive_pics = count;
    });
    expectNothing("long-term pictures", [=](HevcSpsRecord& r) {
      r.long_term_ref_pics_present_flag = 1;
      r.num_long_term_ref_pics_sps = count;
    });
    expectNothing("sub-layers", [=](HevcSpsRecord& r) { r.sps_max_sub_layers_minus1 = count; });
    expectNothing("sub-layers of an HRD", [=](HevcSpsRecord& r) {
      r.sps_max_sub_layers_minus1 = count;
      r.vui_parameters_present_flag = 1;
      r.vui_timing_info_present_flag = 1;
      r.vui_hrd_parameters_present_flag = 1;
    });
    if (count == 0xFFFFFFFFu) continue;  // plus 1 it is 0 pairs
    expectNothing("flag pairs", [=](HevcSpsRecord& r) {
      r.num_short_term_ref_pic_sets = 2;
      r.st_ref_pic_set[1].inter_ref_pic_set_prediction_flag = 1;
      r.st_ref_pic_set[1].abs_delta_rps_minus1 = count;
    });
  }
}

TEST(HevcSpsWriter, AnAspectRatioWithoutItsFlagStays) {
  auto sps = ReadSps(Sps());
  sps.record().vui_parameters_present_flag = 1;
  sps.record().aspect_ratio_idc = 255;
  sps.record().sar_width = 7;
  SpsParts parts;
  parts.vui = [](BitBuilder& b) { b.u(1, 1).u(10, 0); };
  EXPECT_EQ(ToHex(WriteSps(sps.record())), ToHex(WriterEscaped(Sps(parts))));
}

TEST(HevcSpsWriter, NullArguments) {
  auto sps = std::make_unique<HevcSpsRecord>();
  uint8_t byte = 0;
  EXPECT_EQ(qlnutilWrite_HEVC_SPS(nullptr, &byte, 1), 0u);
  EXPECT_EQ(qlnutilWrite_HEVC_SPS(sps.get(), nullptr, 1), 0u);
}

TEST(HevcSpsWriter, EscapesStopAtTheUnescapedLength) {
  // A profile of zeros gives escapes early; a timing of 25 then leaves a raw 00 00 01 near the end.
  SpsParts parts;
  parts.profile.compatibility = 0;
  parts.profile.constraints = 0;
  parts.profile.level = 0;
  parts.vui = [](BitBuilder& b) {
    b.u(1, 1).u(8, 0);
    b.u(1, 1).u(32, 1).u(32, 25).u(1, 0).u(1, 0).u(1, 0);
  };
  auto sps = ReadSps(Sps(parts));
  const Bytes written = WriteSps(sps.record());
  const Bytes plain = Sps(parts);
  EXPECT_EQ(ToHex(written), ToHex(WriterEscaped(plain)));
  EXPECT_NE(ToHex(written), ToHex(Escaped(plain))) << "the scan must not reach the last pattern here";
}

TEST(HevcSpsWriter, RandomRecordsReadBack) {
  // Records whose forms the reader and the writer share come back word for word.
  Random random(84);
  for (int round = 0; round < 2000; ++round) {
    SpsParts parts;
    parts.profile = {static_cast<uint32_t>(random.below(4)),  static_cast<uint32_t>(random.below(2)),
                     static_cast<uint32_t>(random.below(32)), static_cast<uint32_t>(random.next()),
                     random.next() & 0xFFFFFFFFFFFF,          1 + static_cast<uint32_t>(random.below(255))};
    parts.width = static_cast<uint32_t>(random.below(9000));
    parts.height = static_cast<uint32_t>(random.below(9000));
    const uint32_t sets = static_cast<uint32_t>(random.below(8));
    const uint64_t seed = random.next();
    parts.shortTerm = [=](BitBuilder& b) {
      Random inner(seed);
      b.ue(sets);
      for (uint32_t i = 0; i < sets; ++i) {
        if (i > 0) b.u(1, 0);
        const auto negative = static_cast<uint32_t>(inner.below(17));
        const auto positive = static_cast<uint32_t>(inner.below(17));
        b.ue(negative).ue(positive);
        for (uint32_t j = 0; j < negative + positive; ++j)
          b.ue(static_cast<uint32_t>(inner.below(300))).u(1, inner.below(2));
      }
    };
    auto sps = ReadSps(Escaped(Sps(parts)));
    ASSERT_THAT(sps.messages, IsEmpty());
    const Bytes written = WriteSps(sps.record());
    auto again = ReadSps(written);
    ASSERT_EQ(again.result, sps.result);
    ASSERT_EQ(Words(again.record()), Words(sps.record()));
  }
}

}  // namespace
}  // namespace qln::test
