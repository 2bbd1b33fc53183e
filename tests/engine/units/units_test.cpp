// Packets taken apart and put together again: every byte comes back, whatever it is.

#include "units/units.h"

#include <gtest/gtest.h>

#include "support/test_support.h"
#include "units/packet_units.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;
using qln::test::Random;
using qln::test::ToHex;

constexpr Framing kStartCodes{0};

TEST(Units, StartCodesOfBothLengthsAndTrailingZeros) {
  const Bytes data = Hex("000001 65AA 00 000001 6742 0000 00000001 68CE 0000");
  const UnitRun run = TakeApart(data, kStartCodes);
  ASSERT_EQ(run.units.size(), 3u);
  EXPECT_TRUE(run.lead.empty());
  EXPECT_EQ(ToHex(run.units[0].bytes), "65 AA");
  EXPECT_EQ(run.units[0].startCodeBytes, 3);
  EXPECT_EQ(run.units[0].trailingZeros, 0);
  EXPECT_EQ(ToHex(run.units[1].bytes), "67 42");
  EXPECT_EQ(run.units[1].startCodeBytes, 4);
  EXPECT_EQ(run.units[1].trailingZeros, 2);
  EXPECT_EQ(run.units[2].startCodeBytes, 4);
  EXPECT_EQ(run.units[2].trailingZeros, 2);
  EXPECT_EQ(PutTogether(run, kStartCodes), data);
}

TEST(Units, BytesInFrontOfTheFirstStartCodeAreKept) {
  for (const char* text : {"0000 00000001 67", "11 22 000001 67", "00", "0000", "000000", "112233", ""}) {
    const Bytes data = Hex(text);
    EXPECT_EQ(PutTogether(TakeApart(data, kStartCodes), kStartCodes), data) << text;
  }
  EXPECT_EQ(TakeApart(Hex("0000 00000001 67"), kStartCodes).lead.size(), 2u);
}

TEST(Units, EmptyUnitsBetweenStartCodes) {
  for (const char* text : {"000001 000001 67", "000001", "67 000001", "000001 00000001", "00000001 000000"}) {
    const Bytes data = Hex(text);
    EXPECT_EQ(PutTogether(TakeApart(data, kStartCodes), kStartCodes), data) << text;
  }
  EXPECT_EQ(TakeApart(Hex("000001 000001 67"), kStartCodes).units.size(), 2u);
}

TEST(Units, RandomBytesComeBackInEveryFraming) {
  Random random(3);
  for (int round = 0; round < 3000; ++round) {
    const Bytes data = random.zeroRichBytes(random.below(40));
    for (const int lengthBytes : {0, 1, 2, 4}) {
      const Framing framing{lengthBytes};
      const UnitRun run = TakeApart(data, framing);
      ASSERT_EQ(PutTogether(run, framing), data) << ToHex(data) << " " << lengthBytes;
      if (lengthBytes == 0) {
        for (const Unit& unit : run.units) {
          ASSERT_TRUE(unit.bytes.empty() || unit.bytes.back() != 0);
          for (size_t i = 0; i + 2 < unit.bytes.size(); ++i)
            ASSERT_FALSE(unit.bytes[i] == 0 && unit.bytes[i + 1] == 0 && unit.bytes[i + 2] == 1)
                << ToHex(data);
        }
      }
    }
  }
}

// Who only looks at a stream copies no more of its slices than their heads.
TEST(Units, HeadsOfSlicesAlone) {
  Random random(4);
  Bytes slice = random.bytes(3000);
  for (uint8_t& byte : slice) byte |= 4;  // no start code
  slice[0] = 0x65;
  Bytes sei = slice;
  sei[0] = 6;
  Bytes brief(slice.begin(), slice.begin() + kSliceHeadBytes);
  for (const Framing framing : {Framing{0}, Framing{2}, Framing{4}}) {
    UnitRun made;
    made.units = {{sei, 4}, {slice, 3, framing.startCodes() ? 2 : 0}, {brief, 3}};
    const Bytes packet = PutTogether(made, framing);
    const UnitRun whole = TakeApart(packet, framing);
    const UnitRun heads = TakeApartHeads(Codec::kH264, packet, framing);
    ASSERT_EQ(heads.units.size(), whole.units.size());
    EXPECT_EQ(heads.units[0].bytes, sei);
    EXPECT_EQ(heads.units[1].bytes, brief);
    EXPECT_EQ(heads.units[2].bytes, brief);
    for (size_t i = 0; i < whole.units.size(); ++i) {
      EXPECT_EQ(heads.units[i].startCodeBytes, whole.units[i].startCodeBytes);
      EXPECT_EQ(heads.units[i].trailingZeros, whole.units[i].trailingZeros);
    }
    PacketUnits apart(packet);
    EXPECT_EQ(apart.In(Codec::kH264, framing).units[1].bytes, brief);
    EXPECT_EQ(&apart.In(Codec::kH264, framing), &apart.In(Codec::kH264, framing));
    // By another framing, or as another codec, the same bytes are other units: 0x65 is a VPS extension there.
    EXPECT_EQ(apart.In(Codec::kHevc, framing).units[1].bytes, slice);
    EXPECT_NE(apart.In(Codec::kH264, Framing{framing.startCodes() ? 4 : 0}).units.size(), 3u);
  }
}

// The same units as by looking at three bytes at a time.
TEST(Units, EachStartCodeIsFoundWhateverStandsInFrontOfIt) {
  Random random(5);
  for (int round = 0; round < 3000; ++round) {
    const Bytes data = random.zeroRichBytes(random.below(24));
    size_t count = 0;
    for (size_t i = 0; i + 3 <= data.size(); ++i)
      count += data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1;
    ASSERT_EQ(TakeApart(data, kStartCodes).units.size(), count) << ToHex(data);
    ASSERT_EQ(HoldsStartCode(data), count != 0) << ToHex(data);
  }
}

// As some phones write frames: one length in front of all units, start codes between them.
TEST(Units, SeveralUnderOneLength) {
  const Framing lengths{4};
  const Bytes data = Hex("0000000E 0605 00000001 65AA 00 000001 65BB 00000002 41CC");
  const UnitRun run = TakeApart(data, lengths);
  ASSERT_EQ(run.units.size(), 4u);
  EXPECT_EQ(ToHex(run.units[0].bytes), "06 05");
  EXPECT_EQ(run.units[0].join, Join::kNone);
  EXPECT_EQ(ToHex(run.units[1].bytes), "65 AA");
  EXPECT_EQ(run.units[1].join, Join::kContinues);
  EXPECT_EQ(ToHex(run.units[2].bytes), "65 BB");
  EXPECT_EQ(run.units[2].startCodeBytes, 4);
  EXPECT_EQ(ToHex(run.units[3].bytes), "41 CC");
  EXPECT_EQ(run.units[3].join, Join::kNone);
  EXPECT_EQ(PutTogether(run, lengths), data);
  std::vector<std::string> visited;
  VisitUnits(data, lengths,
             [&visited](ByteSpan unit) { visited.push_back(ToHex(Bytes(unit.begin(), unit.end()))); });
  EXPECT_EQ(visited, (std::vector<std::string>{"06 05", "65 AA", "65 BB", "41 CC"}));

  // What is put in has a length, and what goes takes no other with it.
  UnitRun more = run;
  more.units.insert(more.units.begin() + 1, Unit{.bytes = Hex("0680")});
  EXPECT_EQ(ToHex(PutTogether(more, lengths)),
            ToHex(Hex("00000002 0605 0000000E 0680 00000001 65AA 00 000001 65BB 00000002 41CC")));
  UnitRun fewer = run;
  fewer.units.erase(fewer.units.begin());
  EXPECT_EQ(ToHex(PutTogether(fewer, lengths)), ToHex(Hex("00000008 65AA 00 000001 65BB 00000002 41CC")));
}

TEST(Units, StartCodesDirectlyBehindALength) {
  for (const char* text : {"00000006 00000001 65AA", "00000005 000001 65AA", "00000007 00 00000001 65AA",
                           "00000003 000001", "0000000C 00000001 65AA 00000001 65BB 00000005 000001 41CC",
                           "00000006 6500 000001 00 00000001 65", "00000004 00000000"}) {
    const Bytes data = Hex(text);
    EXPECT_EQ(ToHex(PutTogether(TakeApart(data, Framing{4}), Framing{4})), ToHex(data)) << text;
  }
  const UnitRun run = TakeApart(Hex("00000006 00000001 65AA"), Framing{4});
  ASSERT_EQ(run.units.size(), 1u);
  EXPECT_EQ(ToHex(run.units[0].bytes), "65 AA");
  EXPECT_EQ(run.units[0].join, Join::kBegins);
}

TEST(Units, LengthsThatLeadPastTheEndAreDamage) {
  const UnitRun run = TakeApart(Hex("02 6742 05 68CE"), Framing{1});
  ASSERT_EQ(run.units.size(), 1u);
  EXPECT_EQ(ToHex(run.rest), "05 68 CE");
  EXPECT_TRUE(run.damaged());
  EXPECT_TRUE(TakeApart(Hex("0000"), Framing{4}).damaged());
  EXPECT_FALSE(TakeApart(Hex("0002 6742"), Framing{2}).damaged());
}

TEST(Units, LibraryForms) {
  const UnitRun run = TakeApart(Hex("000001 6742 0000 000001 68"), kStartCodes);
  EXPECT_EQ(ToHex(ToLengthForm(run.units)), "00 00 00 02 67 42 00 00 00 01 68");
  EXPECT_EQ(ToHex(ToMarkerForm(run.units)), "00 00 00 01 67 42 00 00 00 01 68");
}

TEST(Units, TypesAndNames) {
  EXPECT_EQ(UnitType(Codec::kH264, Hex("67")), 7);
  EXPECT_EQ(UnitType(Codec::kH264, {}), -1);
  EXPECT_EQ(UnitType(Codec::kHevc, Hex("4001")), 32);
  EXPECT_EQ(UnitType(Codec::kHevc, Hex("40")), -1);
  EXPECT_EQ(UnitTypeName(Codec::kH264, 7), "SPS");
  EXPECT_EQ(UnitTypeName(Codec::kH264, 5), "IDR slice");
  EXPECT_EQ(UnitTypeName(Codec::kH264, 19), "auxiliary slice");
  EXPECT_EQ(UnitTypeName(Codec::kHevc, 1), "TRAIL_R slice");
  EXPECT_EQ(UnitTypeName(Codec::kHevc, 19), "IDR_W_RADL slice");
  EXPECT_EQ(UnitTypeName(Codec::kHevc, 21), "CRA slice");
  EXPECT_EQ(UnitTypeName(Codec::kHevc, 32), "VPS");
  EXPECT_EQ(UnitTypeName(Codec::kHevc, 40), "suffix SEI");
  EXPECT_EQ(UnitTypeName(Codec::kHevc, 62), "Dolby Vision RPU");
  EXPECT_TRUE(IsSlice(Codec::kH264, 1) && IsSlice(Codec::kH264, 5) && !IsSlice(Codec::kH264, 6));
  EXPECT_TRUE(IsSlice(Codec::kHevc, 0) && IsSlice(Codec::kHevc, 21) && !IsSlice(Codec::kHevc, 32));
}

TEST(Units, EscapingFollowsTheFullRule) {
  EXPECT_EQ(ToHex(Escape(Hex("00000000 0001"))), "00 00 03 00 00 03 00 01");
  EXPECT_EQ(ToHex(Escape(Hex("06 0000"))), "06 00 00 03");
  EXPECT_EQ(ToHex(Escape(Hex("0000 04"))), "00 00 04");
  EXPECT_EQ(ToHex(Unescape(Hex("000003 000003 01"))), "00 00 00 00 01");
  Random random(5);
  for (int round = 0; round < 2000; ++round) {
    const Bytes data = random.zeroRichBytes(random.below(60));
    const Bytes escaped = Escape(data);
    for (size_t i = 0; i + 2 < escaped.size(); ++i)
      ASSERT_FALSE(escaped[i] == 0 && escaped[i + 1] == 0 && escaped[i + 2] < 3) << ToHex(data);
    ASSERT_EQ(Unescape(escaped), data);
  }
}

TEST(Units, SeiMessagesOfSeveralInOneUnit) {
  // 06, then type 1 of 2 bytes, type 255 + 5 of 0 bytes, stop bit.
  bool whole = false;
  const auto messages = ReadSeiMessages(Codec::kH264, Hex("06 01 02 AABB FF05 00 80"), &whole);
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_TRUE(whole);
  EXPECT_EQ(messages[0].type, 1);
  EXPECT_EQ(ToHex(messages[0].payload), "AA BB");
  EXPECT_EQ(messages[1].type, 260);
  EXPECT_TRUE(messages[1].payload.empty());
}

TEST(Units, SeiMessagesThatRunPastTheirUnit) {
  bool whole = true;
  EXPECT_TRUE(ReadSeiMessages(Codec::kH264, Hex("06 01 09 AABB 80"), &whole).empty());
  EXPECT_FALSE(whole);
  EXPECT_TRUE(ReadSeiMessages(Codec::kHevc, Hex("4E"), &whole).empty());
  EXPECT_FALSE(whole);
  EXPECT_TRUE(ReadSeiMessages(Codec::kH264, Hex("06 FF FF"), &whole).empty());
  EXPECT_FALSE(whole);
}

TEST(Units, SeiUnitsAreMadeAndReadBack) {
  Random random(9);
  for (const size_t size : {0u, 1u, 254u, 255u, 256u, 510u, 700u}) {
    const std::vector<SeiMessage> messages = {{4, random.zeroRichBytes(size)}, {300, random.bytes(3)}};
    for (const Codec codec : {Codec::kH264, Codec::kHevc}) {
      const Bytes unit = MakeSeiUnit(codec == Codec::kH264 ? Hex("06") : Hex("4E01"), messages);
      bool whole = false;
      const auto read = ReadSeiMessages(codec, unit, &whole);
      ASSERT_EQ(read.size(), 2u);
      EXPECT_TRUE(whole);
      for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(read[i].type, messages[i].type);
        EXPECT_EQ(read[i].payload, messages[i].payload);
      }
    }
  }
}

}  // namespace
}  // namespace qlnmedia
