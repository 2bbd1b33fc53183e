// What is said of the head of a configuration record that its sets contradict.

#include "check/config_head.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::BitBuilder;
using qln::test::Hex;
using testing::ElementsAre;
using testing::IsEmpty;

// An hvcC (ISO/IEC 14496-15 clause 8.3.3.1) of that head with one SPS: Main, 4:2:0 of 8 bits, level 3.1.
ConfigRecord Record(const char* head) {
  BitBuilder bits;
  bits.u(16, 0x4201).u(4, 0).u(3, 0).u(1, 1);
  bits.u(2, 0).u(1, 0).u(5, 1).u(32, 0x60000000).u(48, 0x900000000000).u(8, 93);
  bits.ue(0).ue(1).ue(192).ue(112).u(1, 0).ue(0).ue(0).ue(4);
  bits.u(1, 0).ue(4).ue(2).ue(0).ue(0).ue(3).ue(0).ue(3).ue(0).ue(0);
  bits.u(4, 0).ue(0).u(1, 0).u(2, 3).u(1, 0).u(1, 0);
  const Bytes sps = Escape(bits.trailing().bytes());
  Bytes box = Hex(head);
  for (const uint8_t byte : Hex("01 A1 0001 00")) box.push_back(byte);
  box.push_back(static_cast<uint8_t>(sps.size()));
  box.insert(box.end(), sps.begin(), sps.end());
  return ReadConfigRecord(Codec::kHevc, box);
}

TEST(ConfigHeadFindings, NothingOfARecordThatAgrees) {
  EXPECT_THAT(ConfigHeadFindings(Record("01 01 60000000 900000000000 5D F000 FC FD F8 F8 0000 0F")),
              IsEmpty());
}

TEST(ConfigHeadFindings, EachFieldByItsName) {
  EXPECT_THAT(
      ConfigHeadFindings(Record("01 01 60000000 900000000000 5D F000 FC FE FA F9 0000 0F")),
      ElementsAre("the hvcC says chromaFormat 2, its SPS 1", "the hvcC says bitDepthLumaMinus8 2, its SPS 0",
                  "the hvcC says bitDepthChromaMinus8 1, its SPS 0"));
  EXPECT_THAT(ConfigHeadFindings(Record("01 02 70000000 B00000000000 5A F003 FC FD F8 F8 0000 17")),
              ElementsAre("the hvcC says profile 2, its SPS 1",
                          "the hvcC says general_profile_compatibility_flags 0x70000000, its SPS 0x60000000",
                          "the hvcC says general_constraint_indicator_flags 0xB00000000000, its SPS "
                          "0x900000000000",
                          "the hvcC says level_idc 90, its SPS 93",
                          "the hvcC says min_spatial_segmentation_idc 3, its SPS 0",
                          "the hvcC says numTemporalLayers 2, its SPS 1"));
}

}  // namespace
}  // namespace qlnmedia
