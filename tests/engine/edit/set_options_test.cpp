// What parameter sets and configuration records say of pictures, changed on request: in every framing, in the
// private data and in the packets.

#include <gtest/gtest.h>

#include "base/error.h"
#include "edit/set_changes.h"
#include "stream_builder.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::BitBuilder;
using qln::test::ToHex;
using test::Edit;
using test::EditedStream;
using test::MakeStream;
using test::Stream;
using test::UnitsOf;

constexpr Codec kH264 = Codec::kH264;
constexpr Codec kHevc = Codec::kHevc;

std::vector<Bytes> AllUnits(const Stream& stream, int lengthBytes) {
  std::vector<Bytes> units = ConfigOf(stream.description).units();
  for (const AccessUnit& packet : stream.packets) {
    for (const Unit& unit : UnitsOf(packet.data, lengthBytes)) units.push_back(unit.bytes);
  }
  return units;
}

std::vector<SpsFacts> SetsOf(const Stream& stream, int lengthBytes) {
  std::vector<SpsFacts> sets;
  for (const Bytes& unit : AllUnits(stream, lengthBytes)) {
    if (IsSps(kH264, UnitType(kH264, unit))) sets.push_back(ReadSpsFacts(kH264, unit).value());
  }
  return sets;
}

std::string Refusal(const Stream& stream, const StreamChanges& changes) {
  try {
    Edit(stream, changes);
  } catch (const Error& error) {
    return error.what();
  }
  return "none";
}

class SetOptions : public testing::TestWithParam<int> {
 protected:
  Stream stream_ =
      MakeStream({{.place = 0, .idr = true}, {.place = 1}, {.place = 0, .idr = true}}, GetParam());
};

INSTANTIATE_TEST_SUITE_P(StreamEditor, SetOptions, testing::Values(0, 1, 2, 4));

TEST_P(SetOptions, GoIntoEverySetAndNothingElseChanges) {
  const std::vector<SpsFacts> before = SetsOf(stream_, GetParam());
  const auto with = [&](auto change, auto expect) {
    StreamChanges changes;
    change(changes);
    EXPECT_TRUE(changes.beyondCaptions());
    const EditedStream edited = Edit(stream_, changes);
    const std::vector<SpsFacts> after = SetsOf(edited, GetParam());
    ASSERT_EQ(after.size(), before.size());
    for (size_t i = 0; i < after.size(); ++i) {
      SpsFacts expected = before[i];
      expected.vui = true;
      expect(expected);
      EXPECT_TRUE(after[i] == expected);
    }
    EXPECT_EQ(edited.counts.sequenceSets, 2);
    EXPECT_EQ(edited.counts.privateSequenceSets, GetParam() == 0 ? 0 : 1);
    // Every other unit is as it was, and a second run finds nothing to do.
    const std::vector<Bytes> was = AllUnits(stream_, GetParam());
    const std::vector<Bytes> is = AllUnits(edited, GetParam());
    ASSERT_EQ(is.size(), was.size());
    for (size_t i = 0; i < is.size(); ++i) {
      if (IsSps(kH264, UnitType(kH264, was[i]))) continue;
      EXPECT_EQ(is[i], was[i]);
    }
    const EditedStream again = Edit(edited, changes);
    EXPECT_EQ(again.counts.sequenceSets + again.counts.privateSequenceSets, 0);
    EXPECT_EQ(again.description.privateData, edited.description.privateData);
    // The head of an avcC stays but for its level.
    Bytes head = ConfigOf(stream_.description).head;
    if (changes.level && GetParam() != 0) head[3] = static_cast<uint8_t>(*changes.level);
    EXPECT_EQ(ConfigOf(edited.description).head, head);
  };
  with(
      [](StreamChanges& c) {
        c.sampleAspect = SampleAspect{16, 11};
      },
      [](SpsFacts& sps) { sps.aspectRatioIdc = 4; });
  with(
      [](StreamChanges& c) {
        c.sampleAspect = SampleAspect{77, 75};
      },
      [](SpsFacts& sps) {
        sps.aspectRatioIdc = 255;
        sps.sarWidth = 77;
        sps.sarHeight = 75;
      });
  with([](StreamChanges& c) { c.level = 41; }, [](SpsFacts& sps) { sps.level = 41; });
  with(
      [](StreamChanges& c) {
        c.timing = VuiTiming{30000, 1001, true};
      },
      [](SpsFacts& sps) {
        sps.timing = true;
        sps.numUnitsInTick = 1001;
        sps.timeScale = 60000;  // ticks are fields
        sps.h264.fixedFrameRate = true;
      });
  with([](StreamChanges& c) { c.chromaLocation = 2; },
       [](SpsFacts& sps) { sps.chromaLocation = sps.chromaLocBottom = 2; });
  with(
      [](StreamChanges& c) {
        c.cropping = Cropping{2, 4, 4, 8};
      },
      [](SpsFacts& sps) {
        sps.cropping = {2, 4, 4, 8};
        sps.width = 58;
        sps.height = 52;
      });
}

TEST_P(SetOptions, WhatDoesNotFitIsRefused) {
  struct Case {
    StreamChanges changes;
    const char* text;
  };
  std::vector<Case> cases(6);
  cases[0] = {{}, "has no tiers"};
  cases[0].changes.highTier = true;
  cases[1] = {{}, "is H.264, which has no level 4.7"};
  cases[1].changes.level = 47;
  cases[2] = {{}, "is H.264, which has no level 8.5"};
  cases[2].changes.level = 85;
  cases[3] = {{}, "is cropped by steps of 2 columns and 4 lines"};
  cases[3].changes.cropping = Cropping{0, 0, 0, 2};
  cases[4] = {{}, "is cropped by steps of 2 columns and 4 lines"};
  cases[4].changes.cropping = Cropping{1, 1, 0, 0};
  cases[5] = {{}, "has 64 x 64 coded samples, and cropping would leave none"};
  cases[5].changes.cropping = Cropping{32, 32, 0, 0};
  for (const Case& test : cases) {
    const std::string refusal = Refusal(stream_, test.changes);
    EXPECT_EQ(refusal.substr(0, 6), "clip: ") << refusal;
    EXPECT_NE(refusal.find(test.text), std::string::npos) << refusal;
  }
}

// Level 1b of the profiles that were there before it is level 1.1 with a flag, in the head as in the set.
TEST(SetChanges, Level1bIsToldInTheHeadAsInTheSet) {
  Stream stream = MakeStream({{.place = 0, .idr = true}}, 4);
  StreamChanges changes;
  changes.level = 9;
  const ConfigRecord config = ConfigOf(Edit(stream, changes).description);
  const Bytes sps = config.units().front();
  EXPECT_EQ(sps[3], 11);
  EXPECT_EQ(sps[2] & 0x10, 0x10);  // constraint_set3_flag
  EXPECT_EQ(config.head[2] & 0x10, 0x10);
  EXPECT_EQ(config.head[3], 11);
}

TEST(SetChanges, ChromaLocationsAreToldOf420Alone) {
  for (const uint32_t format : {1u, 2u, 3u}) {
    BitBuilder bits;
    bits.u(8, 0x67).u(8, format == 3 ? 244 : 122).u(8, 0).u(8, 31).ue(0).ue(format);
    if (format == 3) bits.u(1, 0);
    bits.ue(0).ue(0).u(1, 0).u(1, 0).ue(0).ue(2).ue(1).u(1, 0).ue(7).ue(5).u(1, 1).u(1, 1).u(1, 0).u(1, 0);
    Bytes sps = Escape(bits.trailing().bytes());
    StreamChanges changes;
    changes.chromaLocation = 1;
    SetChanges sets(kH264, changes, {}, "clip");
    if (format == 1) {
      EXPECT_TRUE(sets.Change(sps));
    } else {
      EXPECT_THROW(sets.Change(sps), Error) << format;
    }
  }
}

// HEVC sets of the Main profile at level 3.1; a VPS with timing, an SPS without a VUI or with field_seq_flag.
Bytes HevcVps() {
  BitBuilder bits;
  bits.u(16, 0x4001).u(4, 0).u(1, 1).u(1, 1).u(6, 0).u(3, 0).u(1, 1).u(16, 0xFFFF);
  bits.u(8, 1).u(32, 0x60000000).u(32, 0x90000000).u(16, 0).u(8, 93);
  bits.u(1, 1).ue(4).ue(2).ue(4).u(6, 0).ue(0).u(1, 1).u(32, 1).u(32, 25).u(1, 0).ue(0).u(1, 0);
  return Escape(bits.trailing().bytes());
}

Bytes HevcSps(bool fieldSeq) {
  BitBuilder bits;
  bits.u(16, 0x4201).u(4, 0).u(3, 0).u(1, 1).u(8, 1).u(32, 0x60000000).u(32, 0x90000000).u(16, 0).u(8, 93);
  bits.ue(0).ue(1).ue(64).ue(64).u(1, 0).ue(0).ue(0).ue(4).u(1, 1).ue(4).ue(2).ue(4);
  bits.ue(0).ue(3).ue(0).ue(3).ue(0).ue(0).u(1, 0).u(1, 0).u(1, 0).u(1, 0).ue(0).u(1, 0).u(1, 0).u(1, 0);
  bits.u(1, fieldSeq);
  if (fieldSeq) bits.u(5, 0).u(1, 1).u(1, 1).u(1, 0).u(1, 0).u(1, 0);
  return Escape(bits.u(1, 0).trailing().bytes());
}

TEST(SetChanges, GoIntoTheSetsAndTheHeadOfHevc) {
  StreamChanges changes;
  changes.level = 51;
  changes.highTier = true;
  changes.timing = VuiTiming{60000, 1001, {}};
  changes.sampleAspect = SampleAspect{4, 3};
  SetChanges sets(kHevc, changes, {HevcVps(), HevcSps(false)}, "clip");
  Bytes vps = HevcVps();
  Bytes sps = HevcSps(false);
  ASSERT_TRUE(sets.Change(vps));
  ASSERT_TRUE(sets.Change(sps));
  const SpsFacts facts = ReadSpsFacts(kHevc, sps).value();
  EXPECT_EQ(facts.level, 153u);
  EXPECT_TRUE(facts.hevc.highTier);
  EXPECT_EQ(facts.numUnitsInTick, 1001u);
  EXPECT_EQ(facts.timeScale, 60000u);
  EXPECT_EQ(facts.aspectRatioIdc, 14u);
  // profile_tier_level() begins behind 32 bits of a VPS: tier in bit 34, level 88 bits behind its begin.
  const Bytes plain = Unescape(vps);
  EXPECT_EQ(plain[6] & 0x20, 0x20);
  EXPECT_EQ(plain[17], 153);
  Bytes same = vps;
  EXPECT_FALSE(sets.Change(same));

  ConfigRecord record;
  record.codec = kHevc;
  record.box = true;
  record.head = Bytes(HvccHead::kBytes, 0);
  record.head[1] = 1;
  record.head[12] = 93;
  ConfigRecord unspecified = record;
  sets.ChangeHead(unspecified);
  EXPECT_EQ(unspecified.head[1], 0x21);
  EXPECT_EQ(unspecified.head[12], 153);
  EXPECT_EQ(unspecified.head[19] << 8 | unspecified.head[20], 0);
  record.head[20] = 25;
  sets.ChangeHead(record);
  EXPECT_EQ(record.head[19] << 8 | record.head[20], 15345);  // 256 * 60000 / 1001
}

TEST(SetChanges, FieldsOfHevcAreTwoTicks) {
  StreamChanges changes;
  changes.timing = VuiTiming{25, 1, {}};
  SetChanges sets(kHevc, changes, {HevcSps(true)}, "clip");
  Bytes sps = HevcSps(true);
  ASSERT_TRUE(sets.Change(sps));
  EXPECT_EQ(ReadSpsFacts(kHevc, sps)->timeScale, 50u);
  Bytes frames = HevcSps(false);
  EXPECT_THROW(sets.Change(frames), Error);
  SetChanges unknown(kHevc, changes, {}, "clip");
  sps = HevcSps(true);
  EXPECT_THROW(unknown.Change(sps), Error);
}

TEST(SetChanges, WhatHevcDoesNotKnowIsRefused) {
  const auto refused = [](auto change) {
    StreamChanges changes;
    change(changes);
    Bytes sps = HevcSps(false);
    try {
      SetChanges(kHevc, changes, {HevcSps(false)}, "clip").Change(sps);
    } catch (const Error& error) {
      return std::string(error.what());
    }
    return std::string("none");
  };
  EXPECT_NE(refused([](StreamChanges& c) { c.level = 11; }).find("HEVC, which has no level 1.1"),
            std::string::npos);
  EXPECT_NE(refused([](StreamChanges& c) { c.level = 9; }).find("no level 1b"), std::string::npos);
  EXPECT_NE(refused([](StreamChanges& c) { c.highTier = true; }).find("of level 3.1"), std::string::npos);
  EXPECT_NE(refused([](StreamChanges& c) {
              c.timing = VuiTiming{25, 1, true};
            }).find(":fixed"),
            std::string::npos);
  EXPECT_EQ(refused([](StreamChanges& c) {
              c.level = 40;
              c.highTier = true;
            }),
            "none");
}

// A run that finds every timecode there already changes nothing, and says so.
TEST(StreamEditor, TimecodesThatAreThereAreNotCounted) {
  for (const int lengthBytes : {0, 4}) {
    const Stream stream =
        MakeStream({{.place = 0, .idr = true}, {.place = 2}, {.place = 1, .reference = false}}, lengthBytes);
    StreamChanges changes;
    changes.timecode = "01:00:00:00";
    const EditedStream edited = Edit(stream, changes);
    EXPECT_EQ(edited.counts.timecodes, 6);
    const EditedStream again = Edit(edited, changes);
    EXPECT_EQ(again.counts.timecodes, 0);
    for (size_t i = 0; i < again.packets.size(); ++i) {
      EXPECT_FALSE(again.changed[i]);
      EXPECT_EQ(again.packets[i].data, edited.packets[i].data);
    }
    changes.timecode = "01:00:00:01";
    EXPECT_EQ(Edit(edited, changes).counts.timecodes, 6);
  }
}

}  // namespace
}  // namespace qlnmedia
