// Every branch of the syntax of HEVC parameter sets, from sets written by hand.

#include "hevc_sets.h"

#include <gtest/gtest.h>

#include "broken_sets.h"
#include "hevc_layer_sets.h"

namespace qlnmedia {
namespace {

std::vector<DescribedSet> AllHevcSets() {
  return {HevcFullSps(), HevcLayerSps(), HevcFullPps(), HevcVps(), HevcLayersVps()};
}

TEST(HevcSets, EveryElementComesOutWithItsNamePlaceAndValue) {
  for (const DescribedSet& set : AllHevcSets()) ExpectWhole(Codec::kHevc, set, {});
}

TEST(HevcSets, EveryProfileHasItsReservedBits) {
  for (uint64_t idc = 0; idc < 13; ++idc) {
    const DescribedSet set = HevcFullSps(idc == 0 ? 31 : idc, (idc + 5) % 13);
    ExpectWhole(Codec::kHevc, set, {});
  }
}

TEST(HevcSets, CutOffAtEachBit) {
  for (const DescribedSet& set : AllHevcSets()) ExpectPrefixes(Codec::kHevc, set, {});
}

TEST(HevcSets, CountsAboveTheLimitEndTheWalk) {
  ExpectLimits(Codec::kHevc, AllHevcSets(),
               {{"log2_max_pic_order_cnt_lsb_minus4", 12},
                {"num_short_term_ref_pic_sets", 64},
                {"num_negative_pics", 16},
                {"num_positive_pics", 16},
                {"num_long_term_ref_pics_sps", 32},
                {"cpb_cnt_minus1", 31},
                {"sps_num_palette_predictor_initializers_minus1", 127},
                {"num_tile_columns_minus1", 1054},
                {"num_tile_rows_minus1", 1054},
                {"chroma_qp_offset_list_len_minus1", 5},
                {"num_ref_loc_offsets", 62},
                {"num_cm_ref_layers_minus1", 61},
                {"luma_bit_depth_cm_input_minus8", 8},
                {"pps_num_palette_predictor_initializers", 128},
                {"luma_bit_depth_entry_minus8", 8},
                {"chroma_bit_depth_entry_minus8", 8},
                {"vps_num_layer_sets_minus1", 1023},
                {"vps_num_hrd_parameters", 1024},
                {"vps_num_profile_tier_level_minus1", 63},
                {"num_add_olss", 1023},
                {"vps_num_rep_formats_minus1", 255},
                {"direct_dep_type_len_minus2", 30},
                {"vps_non_vui_extension_length", 4096},
                {"vps_num_add_hrd_params", 1024},
                {"num_signalled_partitioning_schemes", 16},
                {"num_partitions_in_scheme_minus1", 62},
                {"num_bsp_schedules_minus1", 31}});
}

TEST(HevcSets, FactsOfAFullSps) {
  const SpsFacts facts = ReadSpsFacts(Codec::kHevc, HevcFullSps().unit()).value();
  EXPECT_EQ(facts.id, 2u);
  EXPECT_EQ(facts.profile, 4u);
  EXPECT_EQ(facts.level, 123u);
  EXPECT_EQ(facts.cropping, (Cropping{1, 2, 3, 4}));
  EXPECT_EQ(facts.width, 125u);
  EXPECT_EQ(facts.height, 89u);
  EXPECT_EQ(facts.bitDepthLuma, 10u);
  EXPECT_EQ(facts.bitDepthChroma, 9u);
  EXPECT_EQ(facts.log2MaxPocLsb, 16u);
  EXPECT_EQ(facts.colour, (ColourCodes{9, 18, 9}));
  EXPECT_EQ(facts.numUnitsInTick, 1001u);
  EXPECT_EQ(facts.hevc.interlace, (std::array<bool, 3>{true, false, true}));
  EXPECT_TRUE(facts.hevc.frameOnly && facts.hevc.frameFieldInfo && facts.hevc.highTier);
  EXPECT_EQ(facts.hevc.delays, (HevcDelays{true, 24, 9, true, 7, true, 12}));
  EXPECT_FALSE(ReadSpsFacts(Codec::kHevc, HevcLayerSps().unit()));
  EXPECT_EQ(ReadPpsFacts(Codec::kHevc, HevcFullPps().unit()),
            (PpsFacts{5, 2, false, {}, false, 0, false, true, 6}));
}

TEST(HevcSets, NothingIsListedOfOtherUnits) {
  EXPECT_TRUE(ListSetElements(Codec::kHevc, Bytes{}).elements.empty());
  EXPECT_TRUE(ListSetElements(Codec::kHevc, Bytes{0x26, 0x01, 0xFF}).elements.empty());
  EXPECT_EQ(ListSetElements(Codec::kHevc, Bytes{0x42, 0x01, 0, 0}).end, WalkEnd::kCutOff);
}

}  // namespace
}  // namespace qlnmedia
