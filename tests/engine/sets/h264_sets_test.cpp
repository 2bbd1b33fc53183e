// Every branch of the syntax of H.264 parameter sets, from sets written by hand.

#include "h264_sets.h"

#include <gtest/gtest.h>

#include "broken_sets.h"

namespace qlnmedia {
namespace {

std::vector<DescribedSet> AllH264Sets() {
  return {H264FullSps(),      H264SvcSps(),      H264MvcSps(),     H264MvcdSps(138),  H264MvcdSps(139),
          H264SpsExtension(), H264Pps(0, false), H264Pps(2, true), H264Pps(4, false), H264Pps(6, true)};
}

// The sets of 4:4:4 among them refer to the SPS of number 3.
ChromaFormats FullChroma() {
  ChromaFormats formats;
  formats.Take(Codec::kH264, H264FullSps().unit());
  return formats;
}

TEST(H264Sets, EveryElementComesOutWithItsNamePlaceAndValue) {
  EXPECT_EQ(FullChroma().Of(3), 3u);
  EXPECT_EQ(FullChroma().Of(2), 1u);
  EXPECT_EQ(FullChroma().Of(4000000000u), 1u);
  for (const DescribedSet& set : {H264FullSps(), H264SvcSps(), H264MvcSps(), H264MvcdSps(138),
                                  H264MvcdSps(139), H264SpsExtension(), H264Pps(2, true), H264Pps(6, true)})
    ExpectWhole(Codec::kH264, set, FullChroma());
  for (const DescribedSet& set : {H264Pps(0, false), H264Pps(4, false)}) ExpectWhole(Codec::kH264, set, {});
}

TEST(H264Sets, APpsMayEndInFrontOfItsTransform) {
  DescribedSet set = H264PpsFront(1);
  PutPpsMiddle(set);
  ExpectWhole(Codec::kH264, set, {});
}

TEST(H264Sets, StructuresTellTheTwoHrdsApart) {
  const SetElements set = ListSetElements(Codec::kH264, H264FullSps().unit());
  std::vector<std::string> paths;
  for (const SetElement& element : set.elements) {
    if (element.name != "cpb_cnt_minus1") continue;
    const SetStructure& own = set.structures[element.structure];
    paths.push_back(std::string(set.structures[own.parent].name) + "/" + std::string(own.name));
  }
  EXPECT_EQ(paths, (std::vector<std::string>{"vui_parameters/nal_hrd_parameters",
                                             "vui_parameters/vcl_hrd_parameters"}));
  EXPECT_EQ(set.Find("bit_rate_value_minus1", {1})->value, 15625);
  EXPECT_EQ(set.Find("bit_rate_value_minus1", {2}), nullptr);
  EXPECT_EQ(set.Find("nothing"), nullptr);
  EXPECT_EQ(set.Behind(set.Find("profile_idc"))->name, "constraint_set0_flag");
  EXPECT_EQ(set.Behind(&set.elements.back()), nullptr);
  for (const ElementGroup& group : GroupElements(set)) {
    if (group.name != "cpb_size_value_minus1") continue;
    EXPECT_TRUE(group.array());
    EXPECT_EQ(group.elements.size(), set.structures[group.structure].name[0] == 'n' ? 2u : 1u);
  }
}

TEST(H264Sets, CutOffAtEachBit) {
  for (const DescribedSet& set : AllH264Sets()) ExpectPrefixes(Codec::kH264, set, FullChroma());
}

TEST(H264Sets, CountsAboveTheLimitEndTheWalk) {
  const std::vector<std::pair<std::string, uint64_t>> kLimits = {
      {"num_ref_frames_in_pic_order_cnt_cycle", 255},
      {"cpb_cnt_minus1", 31},
      {"num_slice_groups_minus1", 7},
      {"pic_size_in_map_units_minus1", 139263},
      {"num_views_minus1", 1023},
      {"num_anchor_refs_l0", 15},
      {"num_non_anchor_refs_l1", 15},
      {"num_level_values_signalled_minus1", 63},
      {"num_applicable_ops_minus1", 1023},
      {"bit_depth_aux_minus8", 4},
      {"vui_ext_num_entries_minus1", 1023},
      {"vui_mvc_num_ops_minus1", 1023},
      {"vui_mvcd_num_ops_minus1", 1023}};
  ExpectLimits(Codec::kH264, AllH264Sets(), kLimits);
}

TEST(H264Sets, FactsOfAFullSps) {
  const SpsFacts facts = ReadSpsFacts(Codec::kH264, H264FullSps().unit()).value();
  EXPECT_EQ(facts.id, 3u);
  EXPECT_EQ(facts.profile, 244u);
  EXPECT_EQ(facts.level, 31u);
  EXPECT_EQ(facts.codedWidth, 128u);
  EXPECT_EQ(facts.codedHeight, 96u);
  EXPECT_EQ(facts.cropping, (Cropping{1, 2, 6, 8}));  // 4:4:4 by single samples, fields by two lines
  EXPECT_EQ(facts.width, 125u);
  EXPECT_EQ(facts.height, 82u);
  EXPECT_EQ(facts.chromaFormat, 3u);
  EXPECT_EQ(facts.bitDepthLuma, 10u);
  EXPECT_EQ(facts.bitDepthChroma, 12u);
  EXPECT_EQ(facts.colour, (ColourCodes{9, 16, 9}));
  EXPECT_TRUE(facts.fullRange && facts.signalType && facts.timing && facts.h264.fixedFrameRate);
  EXPECT_EQ(facts.videoFormat, 2u);
  EXPECT_EQ(facts.chromaLocation, 2u);
  EXPECT_EQ(facts.chromaLocBottom, 3u);
  EXPECT_EQ(facts.sarWidth, 40u);
  EXPECT_EQ(facts.timeScale, 0xFFFFFFFF);
  EXPECT_TRUE(facts.h264.constraintSet3 && facts.h264.hrd && facts.h264.picStruct);
  EXPECT_EQ(facts.h264.cpbRemovalDelayLength, 18u);
  EXPECT_EQ(facts.h264.timeOffsetLength, 24u);
  EXPECT_EQ(facts.h264.log2MaxFrameNum, 9u);
  EXPECT_EQ(facts.h264.pocCycle.offsets, (std::vector<int32_t>{1, -1, 700}));
  EXPECT_EQ(facts.h264.pocCycle.topToBottom, 2147483647);
}

TEST(H264Sets, FactsOfAPps) {
  const PpsFacts facts = ReadPpsFacts(Codec::kH264, H264Pps(6, false).unit()).value();
  EXPECT_EQ(facts, (PpsFacts{7, 0, true, {3, 2}, true, 2, true, false, 0}));
}

}  // namespace
}  // namespace qlnmedia
