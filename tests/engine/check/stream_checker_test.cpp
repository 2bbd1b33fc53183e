// One stream checked from a description and packets made by hand.

#include "check/stream_checker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check_parts.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;
using test::Lines;
using test::MakeAvcc;
using test::MakeSps;
using test::MakeStream;
using test::SpsParts;
using testing::ElementsAre;
using testing::IsEmpty;

const char* const kIdr = "65888040";
const char* const kP = "41D880";

// A packet of units in length form.
Bytes Packet(const std::vector<Bytes>& bytes) {
  std::vector<Unit> units;
  for (const Bytes& unit : bytes) units.push_back({unit, 4, 0});
  return ToLengthForm(units);
}

std::vector<std::string> Check(const MediaStream& stream, const std::vector<Bytes>& packets) {
  FindingList findings;
  StreamChecker checker(stream, findings);
  for (const Bytes& packet : packets) checker.Take({.data = packet});
  checker.Finish();
  for (const Finding& finding : findings.findings()) EXPECT_EQ(finding.stream, stream.index);
  return Lines(findings.findings());
}

TEST(StreamChecker, SoundStreamsAreQuiet) {
  EXPECT_THAT(Check(MakeStream(MakeAvcc(MakeSps())), {Packet({Hex(kIdr)}), Packet({Hex(kP)})}), IsEmpty());
  // The same set again, also with zero bytes behind it.
  Bytes padded = MakeSps();
  padded.insert(padded.end(), 3, uint8_t{0});
  EXPECT_THAT(
      Check(MakeStream(MakeAvcc(MakeSps())), {Packet({MakeSps(), Hex(kIdr)}), Packet({padded, Hex(kIdr)})}),
      IsEmpty());
}

TEST(StreamChecker, TheContainerAgainstTheRecordsSps) {
  MediaStream stream =
      MakeStream(MakeAvcc(MakeSps({.primaries = 9, .transfer = 16, .matrix = 9, .fullRange = true})));
  stream.container.width = 130;
  stream.coded.averageRate = stream.coded.baseRate = {30, 1};
  stream.container.fieldOrder = kTopFirst;
  EXPECT_THAT(
      Check(stream, {Packet({Hex(kIdr)})}),
      ElementsAre("colour: primaries: the container says BT.709, the avcC BT.2020",
                  "colour: transfer: the container says BT.709, the avcC PQ (SMPTE ST 2084)",
                  "colour: matrix: the container says BT.709, the avcC BT.2020 non-constant luminance",
                  "range: the container says limited range, the avcC full",
                  "size: the container says 130 x 96, the avcC 128 x 96",
                  "rate: the container runs at 30 frames a second, the avcC says 25",
                  "interlace: the container says fields, the avcC progressive frames"));
  // A container that has no place for such things is held to none of them.
  stream.hasColourDescription = false;
  EXPECT_THAT(Check(stream, {Packet({Hex(kIdr)})}), IsEmpty());
}

TEST(StreamChecker, UnspecifiedAndUnknownSayNothing) {
  MediaStream stream = MakeStream(MakeAvcc(MakeSps({.primaries = 2, .transfer = 2, .matrix = 2})));
  EXPECT_THAT(Check(stream, {}), IsEmpty());
  stream = MakeStream(MakeAvcc(MakeSps({.primaries = 9, .fullRange = true})));
  stream.container = {};
  EXPECT_THAT(Check(stream, {}), IsEmpty());
}

TEST(StreamChecker, ARateMayShowInTheAverageOrInTheTimes) {
  MediaStream stream = MakeStream(MakeAvcc(MakeSps()));
  stream.coded.averageRate = {2447, 100};  // some pictures left out
  EXPECT_THAT(Check(stream, {}), IsEmpty());
  stream.coded.baseRate = {24, 1};
  EXPECT_THAT(Check(stream, {}),
              ElementsAre("rate: the container runs at 24.47 frames a second, the avcC says 25"));
  stream.coded.averageRate = {};
  EXPECT_THAT(Check(stream, {}), IsEmpty());
}

TEST(StreamChecker, SetsThatChangeOrBreakOff) {
  const MediaStream stream = MakeStream(MakeAvcc(MakeSps()));
  const Bytes other = MakeSps({.level = 40});
  const Bytes cut(other.begin(), other.begin() + 5);
  EXPECT_THAT(
      Check(stream, {Packet({other, Hex(kIdr)}), Packet({MakeSps(), Hex(kIdr)}), Packet({cut, Hex(kIdr)})}),
      ElementsAre("sets@0: SPS 0 of the stream differs from the one in the avcC",
                  "sets@1: SPS 0 of the stream differs from the one before it", "damage@2: SPS breaks off"));
  // seq_parameter_set_id 32.
  qln::test::BitBuilder bits;
  bits.u(8, 0x67).u(8, 77).u(8, 0).u(8, 31).ue(32).ue(0).ue(0).ue(2).ue(1).u(1, 0).ue(7).ue(5);
  const Bytes impossible = bits.u(1, 1).u(1, 1).u(1, 0).u(1, 0).trailing().bytes();
  EXPECT_THAT(Check(stream, {Packet({impossible, Hex(kIdr)})}),
              ElementsAre("damage@0: SPS has an id that does not exist"));
}

TEST(StreamChecker, TheRecordsHeadAgainstItsSps) {
  EXPECT_THAT(Check(MakeStream(MakeAvcc(MakeSps(), 100, 40)), {}),
              ElementsAre("sets: the avcC says profile 100, its SPS 77",
                          "sets: the avcC says level_idc 40, its SPS 31"));
}

TEST(StreamChecker, BytesThatAreMissing) {
  Bytes record = MakeAvcc(MakeSps());
  record.pop_back();
  EXPECT_THAT(Check(MakeStream(record), {}),
              ElementsAre(testing::StartsWith("damage: the configuration record breaks off at byte ")));
  Bytes packet = Packet({Hex(kIdr), Hex(kIdr)});
  packet.pop_back();
  EXPECT_THAT(Check(MakeStream(MakeAvcc(MakeSps())), {Packet({Hex(kIdr)}), packet}),
              ElementsAre("damage@1: a length leads past the end of its frame"));
}

TEST(StreamChecker, UnitsOutOfOrderCountUp) {
  const MediaStream stream = MakeStream(MakeAvcc(MakeSps()));
  const Bytes wrong = Packet({Hex(kIdr), Hex("09F0")});
  EXPECT_THAT(Check(stream, {Packet({Hex(kIdr)}), wrong, wrong}),
              ElementsAre("order@1x2: an access unit delimiter is not the first unit of its frame"));
}

TEST(StreamChecker, StaticHdrOnBothSides) {
  MediaStream stream = MakeStream(MakeAvcc(MakeSps()));
  stream.lightLevel = LightLevel{1000, 400};
  stream.mastering =
      MasteringDisplay{{8500, 39850}, {6550, 2300}, {35400, 14600}, {15635, 16450}, 10000000, 50};
  // Content light level (type 144) of 1000 and 200.
  const Bytes light = Hex("06 90 04 03E8 00C8 80");
  EXPECT_THAT(Check(stream, {Packet({light, Hex(kIdr)}), Packet({Hex(kP)})}),
              ElementsAre("hdr@0: content light level: the container says 1000,400, the stream 1000,200",
                          "hdr: the container has a mastering display, the stream has none"));
  stream.lightLevel = LightLevel{1000, 200};
  stream.mastering.reset();
  EXPECT_THAT(Check(stream, {Packet({light, Hex(kIdr)})}), IsEmpty());
  EXPECT_THAT(Check(stream, {}),
              ElementsAre("hdr: the container has a content light level, the stream has none"));
}

TEST(FindingList, TellsStreamsKindsAndTextsApart) {
  FindingList list;
  list.Add({0, FindingKind::kSets, "a", 4, 1});
  list.Add({0, FindingKind::kSets, "a", 5, 1});
  list.Add({1, FindingKind::kSets, "a", 6, 1});
  list.Add({0, FindingKind::kOrder, "a", 7, 1});
  EXPECT_THAT(Lines(list.findings()), ElementsAre("sets@4x2: a", "sets@6: a", "order@7: a"));
}

TEST(SetKey, IdsOfPictureParameterSets) {
  EXPECT_EQ(SetKeyOf(Codec::kH264, Hex("6880"))->id, 0u);
  EXPECT_EQ(SetKeyOf(Codec::kH264, Hex("68 00 80 80"))->id, 256u);  // eight zeros, a one, then 0000 0001
  EXPECT_FALSE(SetKeyOf(Codec::kH264, Hex("68 00 00")).has_value());
  EXPECT_FALSE(SetKeyOf(Codec::kH264, Hex("68")).has_value());
  EXPECT_EQ(SetKeyOf(Codec::kHevc, Hex("4401 60"))->id, 2u);
  EXPECT_EQ(SetKeyOf(Codec::kHevc, Hex("4001 30"))->id, 3u);  // VPS: four bits
}

}  // namespace
}  // namespace qlnmedia
