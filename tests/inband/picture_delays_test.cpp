// The delays of picture timing messages: which messages are read, what is passed over, where the walk ends.

#include "qlnutil/inband/picture_delays.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qln {
namespace {

using test::BitBuilder;

// Delays of 24 and 16 bits, behind pic_struct and the flags of fields.
HevcSpsRecord HrdHost() {
  HevcSpsRecord sps = {};
  sps.frame_field_info_present_flag = 1;
  sps.nal_hrd_parameters_present_flag = 1;
  sps.au_cpb_removal_delay_length_minus1 = 23;
  sps.dpb_output_delay_length_minus1 = 15;
  return sps;
}

PictureDelays DelaysOf(const BitBuilder& bits, const HevcSpsRecord& sps) {
  PictureDelays delays{1, 2};
  test::ExactCopy unit(bits.bytes());
  ReadPictureDelays(unit.data(), static_cast<uint32_t>(unit.size()), sps, &delays);
  return delays;
}

TEST(PictureDelays, PassOtherMessagesOver) {
  BitBuilder bits;
  bits.u(16, 0x4E01).u(8, 5).u(8, 2).u(16, 0x5555).u(8, 255).u(8, 3).u(8, 0);
  bits.u(8, 5).u(8, 255).u(8, 1);
  for (int i = 0; i < 256; ++i) bits.u(8, 0x11);
  bits.u(8, 1).u(8, 6).u(7, 0).u(24, 0xABCDEF).u(16, 0x1357).trailing().trailing();
  const PictureDelays delays = DelaysOf(bits, HrdHost());
  EXPECT_EQ(delays.auCpbRemovalDelay, 0xABCDEFu);
  EXPECT_EQ(delays.picDpbOutputDelay, 0x1357u);
}

TEST(PictureDelays, StayWithoutAMessage) {
  BitBuilder bits;
  bits.u(16, 0x4E01).u(8, 5).u(8, 2).u(16, 0x5555).trailing();
  EXPECT_EQ(DelaysOf(bits, HrdHost()).auCpbRemovalDelay, 1u);
  // A size past the unit ends the walk; so do fewer than 17 bits.
  BitBuilder past;
  past.u(16, 0x4E01).u(8, 5).u(8, 200).u(8, 1).u(8, 6).u(47, 0).trailing();
  EXPECT_EQ(DelaysOf(past, HrdHost()).auCpbRemovalDelay, 1u);
  BitBuilder shortUnit;
  shortUnit.u(16, 0x4E01).u(8, 1).u(8, 6);
  EXPECT_EQ(DelaysOf(shortUnit, HrdHost()).auCpbRemovalDelay, 1u);
  EXPECT_EQ(DelaysOf(BitBuilder().u(8, 0x4E), HrdHost()).auCpbRemovalDelay, 1u);
}

TEST(PictureDelays, SkipFourBitsInAnyCase) {
  HevcSpsRecord sps = HrdHost();
  sps.frame_field_info_present_flag = 0;
  BitBuilder bits;
  bits.u(16, 0x4E01).u(8, 1).u(8, 6).u(4, 0).u(24, 0xABCDEF).u(16, 0x1357).trailing().trailing();
  EXPECT_EQ(DelaysOf(bits, sps).auCpbRemovalDelay, 0xABCDEFu);
}

TEST(PictureDelays, EndWithFewerThan17Bits) {
  // The second message's type and size fill the unit, but for the one bit that makes them 17: what lies
  // behind the end is read as ones.
  HevcSpsRecord sps = HrdHost();
  sps.au_cpb_removal_delay_length_minus1 = 0;
  for (const uint32_t left : {16u, 17u}) {
    const uint32_t outputDelayBits = 24 - left;
    sps.dpb_output_delay_length_minus1 = outputDelayBits - 1;
    BitBuilder bits;
    bits.u(16, 0x4E01).u(8, 1).u(8, 2).u(7, 0).u(1, 1).u(static_cast<int>(outputDelayBits), 0);
    bits.u(8, 1).u(static_cast<int>(left) - 8, 0);
    ASSERT_EQ(bits.bits(), 64u);
    EXPECT_EQ(DelaysOf(bits, sps).auCpbRemovalDelay, left == 16 ? 1u : 0xFFFFFFFFu);
  }
}

TEST(PictureDelays, LeaveTheDecodingUnitsOutWithoutTheirFlag) {
  HevcSpsRecord sps = HrdHost();
  sps.dpb_output_delay_du_length_minus1 = 4;
  sps.sub_pic_cpb_params_in_pic_timing_sei_flag = 1;
  BitBuilder bits;
  bits.u(16, 0x4E01).u(8, 1).u(8, 6).u(7, 0).u(24, 1).u(16, 2);
  bits.u(8, 1).u(8, 6).u(7, 0).u(24, 0x777777).u(16, 0x8888).trailing();
  EXPECT_EQ(DelaysOf(bits, sps).auCpbRemovalDelay, 0x777777u);
}

TEST(PictureDelays, OfAWidthThatNoFieldHasAreNotRead) {
  HevcSpsRecord sps = HrdHost();
  BitBuilder bits;
  bits.u(16, 0x4E01).u(8, 1).u(8, 6).u(7, 0).u(16, 0x1357).u(24, 0).trailing();
  for (const uint32_t width : {64u, 0xFFFFFFFEu}) {
    sps.au_cpb_removal_delay_length_minus1 = width;
    const PictureDelays delays = DelaysOf(bits, sps);
    EXPECT_EQ(delays.auCpbRemovalDelay, 0u) << width;
    EXPECT_EQ(delays.picDpbOutputDelay, 0x1357u) << width;
  }
}

TEST(PictureDelays, WalkDecodingUnits) {
  HevcSpsRecord sps = HrdHost();
  sps.sub_pic_hrd_params_present_flag = 1;
  sps.dpb_output_delay_du_length_minus1 = 4;
  sps.du_cpb_removal_delay_increment_length_minus1 = 7;
  // The message's own end does not count: a second picture timing that begins at the very next bit is read.
  const auto bits = [](bool inSei, bool common) {
    BitBuilder b;
    b.u(16, 0x4E01).u(8, 1).u(8, 9).u(7, 0).u(24, 1).u(16, 2).u(5, 0x1F);
    if (inSei) {
      b.ue(2).u(1, common ? 1 : 0);
      if (common) b.u(8, 0x55);
      b.ue(0);
      if (!common) b.u(8, 0x55);
      b.ue(3);
      if (!common) b.u(8, 0x55);
      b.ue(1);
    }
    b.u(8, 1).u(8, 9).u(7, 0).u(24, 0x777777).u(16, 0x8888).u(5, 0);
    return b.trailing();
  };
  EXPECT_EQ(DelaysOf(bits(false, false), sps).auCpbRemovalDelay, 0x777777u);
  sps.sub_pic_cpb_params_in_pic_timing_sei_flag = 1;
  EXPECT_EQ(DelaysOf(bits(true, true), sps).auCpbRemovalDelay, 0x777777u);
  EXPECT_EQ(DelaysOf(bits(true, false), sps).auCpbRemovalDelay, 0x777777u);
  // A count that the data does not hold ends with it.
  BitBuilder endless;
  endless.u(16, 0x4E01).u(8, 1).u(8, 9).u(7, 0).u(24, 9).u(16, 2).u(5, 0).ue(0xFFFFFFF0u).u(1, 0).trailing();
  EXPECT_EQ(DelaysOf(endless, sps).auCpbRemovalDelay, 9u);
}

}  // namespace
}  // namespace qln
