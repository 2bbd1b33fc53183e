// Single elements of parameter sets changed, every other bit as it was.

#include "sets/set_edit.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::BitBuilder;
using qln::test::Hex;
using qln::test::Random;
using qln::test::ToHex;

// A Main profile SPS of H.264 up to vui_parameters_present_flag.
BitBuilder H264Front() {
  BitBuilder bits;
  bits.u(8, 0x67).u(8, 77).u(8, 0).u(8, 31).ue(0);  // header, profile, constraints, level, id
  bits.ue(0).ue(0).ue(2).ue(1).u(1, 0);             // frame_num, POC type 0 and lsb, references, gaps
  bits.ue(7).ue(5).u(1, 1).u(1, 1).u(1, 0);         // 128 x 96, frames only, direct inference, no cropping
  return bits;
}

Bytes Unit(const BitBuilder& bits) { return Escape(BitBuilder(bits).trailing().bytes()); }

TEST(SetEdit, AddsAWholeVuiWhereThereIsNone) {
  const Bytes sps = Unit(H264Front().u(1, 0));
  SpsEdit edit;
  edit.colour = ColourCodes{9, 16, 9};
  const Bytes expected = Unit(H264Front()
                                  .u(1, 1)
                                  .u(2, 0)  // aspect ratio, overscan
                                  .u(1, 1)
                                  .u(3, 5)
                                  .u(1, 0)
                                  .u(1, 1)
                                  .u(8, 9)
                                  .u(8, 16)
                                  .u(8, 9)
                                  .u(1, 0)
                                  .u(1, 0)
                                  .u(2, 0)
                                  .u(1, 0)
                                  .u(1, 0));  // the rest says nothing
  EXPECT_EQ(ToHex(EditSps(Codec::kH264, sps, edit).value()), ToHex(expected));
}

TEST(SetEdit, KeepsTheBitsAroundWhatChanges) {
  // VUI with sample aspect 255, video format 2, range 0, no colour; timing, NAL HRD, pic_struct 0,
  // restrictions.
  const auto vui = [](bool range, bool colour, bool picStruct) {
    BitBuilder bits = H264Front().u(1, 1).u(1, 1).u(8, 255).u(16, 40).u(16, 33).u(1, 1).u(1, 1);
    bits.u(1, 1).u(3, 2).u(1, range).u(1, colour);
    if (colour) bits.u(8, 1).u(8, 1).u(8, 1);
    bits.u(1, 1).ue(2).ue(2).u(1, 1).u(32, 1001).u(32, 60000).u(1, 1);
    bits.u(1, 1).ue(1).u(4, 0).u(4, 0).ue(100).ue(200).u(1, 0).ue(300).ue(400).u(1, 1);
    bits.u(5, 23).u(5, 17).u(5, 9).u(5, 24).u(1, 0).u(1, 0).u(1, picStruct);
    return bits.u(1, 1).u(1, 1).ue(0).ue(0).ue(11).ue(11).ue(2).ue(4);
  };
  const Bytes sps = Unit(vui(false, false, false));
  const SpsFacts summary = ReadSpsFacts(Codec::kH264, sps).value();
  EXPECT_TRUE(summary.vui && summary.h264.hrd && summary.signalType);
  EXPECT_EQ(summary.width, 128u);
  EXPECT_EQ(summary.height, 96u);
  EXPECT_EQ(summary.h264.cpbRemovalDelayLength, 18u);
  EXPECT_EQ(summary.h264.dpbOutputDelayLength, 10u);
  EXPECT_EQ(summary.h264.timeOffsetLength, 24u);
  EXPECT_EQ(summary.timeScale, 60000u);
  SpsEdit edit;
  edit.colour = ColourCodes{1, 1, 1};
  edit.fullRange = true;
  edit.picStruct = true;
  EXPECT_EQ(ToHex(EditSps(Codec::kH264, sps, edit).value()), ToHex(Unit(vui(true, true, true))));
  // And each alone.
  SpsEdit range;
  range.fullRange = true;
  EXPECT_EQ(ToHex(EditSps(Codec::kH264, sps, range).value()), ToHex(Unit(vui(true, false, false))));
  SpsEdit timing;
  timing.picStruct = true;
  EXPECT_EQ(ToHex(EditSps(Codec::kH264, sps, timing).value()), ToHex(Unit(vui(false, false, true))));
}

TEST(SetEdit, NothingToChangeGivesTheSameBytes) {
  // Escaped where no rule asks for it, with bytes behind the stop bit: as it came, since nothing changes.
  Bytes sps = Unit(H264Front().u(1, 0));
  sps.push_back(0);
  EXPECT_EQ(EditSps(Codec::kH264, sps, SpsEdit{}).value(), sps);
  SpsEdit limited;
  limited.fullRange = false;  // what an absent flag means
  EXPECT_EQ(EditSps(Codec::kH264, sps, limited).value(), sps);
}

TEST(SetEdit, ReadsPastScalingListsAndOrderCycles) {
  BitBuilder bits;
  bits.u(8, 0x67).u(8, 100).u(8, 0).u(8, 31).ue(3).ue(1).ue(0).ue(0).u(1, 0).u(1, 1);
  bits.u(1, 1).se(-8);  // list 0: default
  bits.u(1, 1);
  for (int i = 0; i < 16; ++i) bits.se(i % 2 == 0 ? 4 : -3);
  bits.u(1, 1).se(3).se(-11);  // list 2: 11, then the rest alike
  bits.u(5, 0);
  bits.ue(0).ue(1).u(1, 0).se(-5).se(6).ue(2).se(1).se(-1).ue(1).u(1, 0);
  bits.ue(7).ue(5).u(1, 1).u(1, 1).u(1, 1).ue(0).ue(4).ue(0).ue(3).u(1, 0);
  const SpsFacts summary = ReadSpsFacts(Codec::kH264, Unit(bits)).value();
  EXPECT_EQ(summary.id, 3u);
  EXPECT_EQ(summary.width, 120u);
  EXPECT_EQ(summary.height, 90u);
  EXPECT_FALSE(summary.vui);
}

// An HEVC SPS up to vui_parameters_present_flag: sub-layers, lists, predicted sets, long-term pictures.
BitBuilder HevcFront(bool interlacedSource) {
  BitBuilder bits;
  bits.u(16, 0x4201).u(4, 0).u(3, 1).u(1, 1);
  bits.u(2, 0)
      .u(1, 0)
      .u(5, 1)
      .u(32, 0x60000000)
      .u(1, interlacedSource ? 0 : 1)
      .u(1, interlacedSource)
      .u(46, 0x3000);
  bits.u(8, 93);
  bits.u(1, 1).u(1, 1).u(14, 0).u(32, 0x01600000).u(32, 7).u(24, 9).u(8, 90);  // one sub-layer, both kinds
  bits.ue(2).ue(1).ue(128).ue(96).u(1, 1).ue(0).ue(4).ue(0).ue(3).ue(0).ue(0).ue(4);
  bits.u(1, 1).ue(4).ue(2).ue(0).ue(4).ue(2).ue(0);
  bits.ue(0).ue(3).ue(0).ue(3).ue(0).ue(0);
  bits.u(1, 1).u(1, 1);  // scaling list data
  for (int size = 0; size < 4; ++size) {
    for (int matrix = 0; matrix < 6; matrix += size == 3 ? 3 : 1) {
      if (matrix % 2 == 0) {
        bits.u(1, 0).ue(0);
      } else {
        bits.u(1, 1);
        if (size > 1) bits.se(-3);
        for (int i = 0; i < (size == 0 ? 16 : 64); ++i) bits.se(i % 3 - 1);
      }
    }
  }
  bits.u(2, 3).u(1, 1).u(4, 7).u(4, 7).ue(0).ue(0).u(1, 1);  // amp, sao, pcm
  bits.ue(3);
  bits.ue(2).ue(1).ue(0).u(1, 1).ue(1).u(1, 1).ue(0).u(1, 1);  // set 0: -1, -3, +1
  bits.u(1, 1).u(1, 1).ue(0);                                  // set 1 from set 0, delta -1
  bits.u(1, 1).u(1, 1).u(1, 0).u(1, 1).u(1, 0).u(1, 0);  // -2, -4, 0 dropped by use flag 1 at 0, last out
  bits.u(1, 1).u(1, 0).ue(0);                            // set 2 from set 1, delta +1
  bits.u(1, 1).u(1, 1).u(1, 1);                          // two differences and the reference itself
  bits.u(1, 1).ue(1).u(8, 0xA5).u(1, 1).u(2, 3);         // long-term picture; mvp, smoothing
  return bits;
}

TEST(SetEdit, HevcWalksEverythingInFrontOfTheVui) {
  const auto whole = [](bool interlacedSource, bool fieldSeq, bool colour) {
    BitBuilder bits = HevcFront(interlacedSource).u(1, 1).u(1, 1).u(8, 1).u(1, 0);
    bits.u(1, colour);
    if (colour) bits.u(3, 5).u(1, 0).u(1, 1).u(8, 9).u(8, 16).u(8, 9);
    bits.u(1, 0).u(1, 0).u(1, fieldSeq).u(1, 0).u(1, 0);
    return bits.u(1, 1).u(32, 1).u(32, 50).u(1, 0).u(1, 0).u(1, 0).u(1, 0);
  };
  const Bytes sps = Unit(whole(false, false, false));
  const SpsFacts summary = ReadSpsFacts(Codec::kHevc, sps).value();
  EXPECT_EQ(summary.id, 2u);
  EXPECT_EQ(summary.width, 120u);
  EXPECT_EQ(summary.height, 90u);
  EXPECT_EQ(summary.timeScale, 50u);
  EXPECT_EQ(summary.numUnitsInTick, 1u);
  EXPECT_TRUE(summary.hevc.interlace[0]);
  SpsEdit edit;
  edit.colour = ColourCodes{9, 16, 9};
  edit.interlace = {false, true, true};
  EXPECT_EQ(ToHex(EditSps(Codec::kHevc, sps, edit).value()), ToHex(Unit(whole(true, true, true))));
}

// profile_tier_level() of Main profile with one sub-layer that has a profile and one that has a level only.
BitBuilder& PutProfiles(BitBuilder& bits, uint32_t general, uint32_t subLayer) {
  bits.u(8, 1).u(32, 0x60000000).u(4, general).u(44, 0x123).u(8, 93);
  bits.u(2, 3).u(2, 1).u(12, 0);
  bits.u(8, 1).u(32, 0x60000000).u(4, subLayer).u(44, 0x456).u(8, 60);
  return bits.u(8, 90);
}

TEST(SetEdit, HevcProfilesChangeInBothSetsAndTheirSubLayers) {
  const auto sps = [](uint32_t general, uint32_t subLayer, uint32_t fieldSeq, uint32_t fieldInfo) {
    BitBuilder bits;
    bits.u(16, 0x4201).u(4, 0).u(3, 2).u(1, 1);
    PutProfiles(bits, general, subLayer);
    bits.ue(0).ue(1).ue(720).ue(288).u(1, 0).ue(0).ue(0).ue(4).u(1, 0).ue(4).ue(2).ue(0);
    bits.ue(0).ue(3).ue(0).ue(3).ue(0).ue(0).u(1, 0).u(2, 0).u(1, 0).ue(0).u(1, 0).u(2, 0);
    bits.u(1, 1).u(1, 1).u(8, 255).u(16, 32).u(16, 64).u(1, 0).u(1, 0).u(1, 0).u(1, 0);
    bits.u(1, fieldSeq).u(1, fieldInfo).u(1, 0);
    // Timing with sub-picture HRD: lengths of 12, 7, 24 and 9 bits.
    bits.u(1, 1).u(32, 1).u(32, 50).u(1, 1).ue(0).u(1, 1).u(1, 0).u(1, 1).u(1, 1);
    return bits.u(8, 0).u(5, 11).u(1, 1).u(5, 6).u(8, 0).u(4, 0).u(5, 22).u(5, 23).u(5, 8).u(9, 0x155);
  };
  const auto vps = [](uint32_t general, uint32_t subLayer) {
    BitBuilder bits;
    bits.u(16, 0x4001).u(4, 0).u(2, 3).u(6, 0).u(3, 2).u(1, 1).u(16, 0xFFFF);
    return PutProfiles(bits, general, subLayer).u(9, 0x0AB);
  };
  const SpsFacts summary = ReadSpsFacts(Codec::kHevc, Unit(sps(9, 5, 0, 0))).value();
  EXPECT_TRUE(summary.hevc.interlace[0] && summary.hevc.frameOnly);
  EXPECT_EQ(summary.sarWidth, 32u);
  EXPECT_EQ(summary.sarHeight, 64u);
  EXPECT_TRUE(summary.hevc.delays.present && summary.hevc.delays.subPictures &&
              summary.hevc.delays.unitsInPictureTiming);
  EXPECT_EQ(summary.hevc.delays.duIncrement, 12u);
  EXPECT_EQ(summary.hevc.delays.dpbOutputDu, 7u);
  EXPECT_EQ(summary.hevc.delays.cpbRemoval, 24u);
  EXPECT_EQ(summary.hevc.delays.dpbOutput, 9u);

  // progressive, interlaced, non-packed, frame-only: the third stays as it is.
  SpsEdit edit;
  edit.interlace = {false, true, true};
  edit.frameOnly = false;
  edit.frameFieldInfo = true;
  EXPECT_EQ(ToHex(EditSps(Codec::kHevc, Unit(sps(9, 2, 0, 0)), edit).value()), ToHex(Unit(sps(4, 2, 1, 1))));
  EXPECT_EQ(ToHex(EditVps(Unit(vps(11, 2)), edit).value()), ToHex(Unit(vps(6, 2))));
  edit.subLayers = true;
  EXPECT_EQ(ToHex(EditSps(Codec::kHevc, Unit(sps(9, 11, 0, 0)), edit).value()), ToHex(Unit(sps(4, 6, 1, 1))));
  EXPECT_EQ(ToHex(EditVps(Unit(vps(4, 9)), edit).value()), ToHex(Unit(vps(4, 4))));
  // Nothing to change, and sets that break off.
  EXPECT_EQ(ToHex(EditVps(Unit(vps(4, 4)), edit).value()), ToHex(Unit(vps(4, 4))));
  const Bytes whole = Unit(vps(9, 9));
  for (size_t size = 0; size + 2 < whole.size(); ++size)
    EXPECT_FALSE(EditVps(ByteSpan(whole).first(size), edit)) << size;
}

TEST(SetEdit, HevcFieldInfoWithoutAVui) {
  SpsEdit edit;
  edit.interlace = {false, true, true};
  edit.frameFieldInfo = true;
  // present; no aspect ratio, overscan, signal type, chroma location, neutral chroma; the two; the rest says
  // nothing
  const Bytes expected =
      Unit(HevcFront(true).u(1, 1).u(2, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 1).u(1, 1).u(3, 0).u(1, 0));
  EXPECT_EQ(ToHex(EditSps(Codec::kHevc, Unit(HevcFront(true).u(1, 0).u(1, 0)), edit).value()),
            ToHex(expected));
}

TEST(SetEdit, HevcAddsAWholeVuiWhereThereIsNone) {
  const Bytes sps = Unit(HevcFront(false).u(1, 0).u(1, 0));
  SpsEdit edit;
  edit.colour = ColourCodes{1, 1, 1};
  edit.fullRange = true;
  const Bytes expected = Unit(HevcFront(false)
                                  .u(1, 1)
                                  .u(2, 0)
                                  .u(1, 1)
                                  .u(3, 5)
                                  .u(1, 1)
                                  .u(1, 1)
                                  .u(8, 1)
                                  .u(8, 1)
                                  .u(8, 1)
                                  .u(1, 0)
                                  .u(1, 0)
                                  .u(1, 0)
                                  .u(4, 0)
                                  .u(1, 0));
  EXPECT_EQ(ToHex(EditSps(Codec::kHevc, sps, edit).value()), ToHex(expected));
}

TEST(SetEdit, CutOffSetsAreRefusedAtEveryLength) {
  const Bytes sps = Unit(HevcFront(false).u(1, 0).u(1, 0));
  SpsEdit edit;
  edit.fullRange = true;
  int refused = 0;
  for (size_t size = 0; size + 1 < sps.size(); ++size) {
    if (!EditSps(Codec::kHevc, ByteSpan(sps).first(size), edit)) ++refused;
  }
  EXPECT_GT(refused, static_cast<int>(sps.size()) - 4);
}

TEST(SetEdit, RandomBytesDoNoHarm) {
  Random random(17);
  SpsEdit edit;
  edit.colour = ColourCodes{9, 16, 9};
  edit.picStruct = true;
  edit.interlace = {true, true, true};
  for (int round = 0; round < 20000; ++round) {
    Bytes bytes = round % 2 == 0 ? random.bytes(random.below(80)) : random.zeroRichBytes(random.below(200));
    for (const Codec codec : {Codec::kH264, Codec::kHevc}) {
      const std::optional<Bytes> edited = EditSps(codec, bytes, edit);
      if (!edited) continue;
      const std::optional<SpsFacts> read = ReadSpsFacts(codec, *edited);
      ASSERT_TRUE(read.has_value()) << ToHex(bytes);
      ASSERT_EQ(read->colour, edit.colour);
    }
  }
}

}  // namespace
}  // namespace qlnmedia
