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
      MakeStream(MakeAvcc(MakeSps({.primaries = 9, .transfer = 18, .matrix = 9, .fullRange = true})));
  stream.container.width = 130;
  stream.coded.averageRate = stream.coded.baseRate = {30, 1};
  stream.container.fieldOrder = kTopFirst;
  EXPECT_THAT(
      Check(stream, {Packet({Hex(kIdr)})}),
      ElementsAre("colour: primaries: the container says BT.709, the avcC BT.2020",
                  "colour: transfer: the container says BT.709, the avcC HLG (ARIB STD-B67)",
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

// Start codes, and sets in front of pictures alone.
TEST(StreamChecker, SetsMayChangeWhereASequenceBegins) {
  const MediaStream stream = MakeStream({});
  const auto check = [&stream](const std::vector<std::vector<Bytes>>& packets) {
    FindingList findings;
    StreamChecker checker(stream, findings);
    for (const std::vector<Bytes>& packet : packets) {
      std::vector<Unit> units;
      for (const Bytes& unit : packet) units.push_back({unit, 4, 0});
      const Bytes data = ToMarkerForm(units);
      checker.Take({.data = data});
    }
    std::vector<std::string> lines;
    for (const Finding& finding : findings.findings())
      lines.push_back(std::string(SeverityWord(finding.severity)) + ": " + finding.text);
    return lines;
  };
  const Bytes other = MakeSps({.level = 40});
  const Bytes pps = Hex("68CE3880");
  const Bytes otherPps = Hex("68CE3C80");
  EXPECT_THAT(
      check({{MakeSps(), pps, Hex(kIdr)}, {other, pps, Hex(kIdr)}}),
      ElementsAre("note: SPS 0 of the stream differs from the one before it, where a sequence begins"));
  EXPECT_THAT(check({{MakeSps(), pps, Hex(kIdr)}, {other, Hex(kP)}}),
              ElementsAre("warning: SPS 0 of the stream differs from the one before it"));
  EXPECT_THAT(
      check({{MakeSps(), pps, Hex(kIdr)}, {otherPps, Hex(kP)}}),
      ElementsAre("note: PPS 0 of the stream differs from the one before it, as it may at a picture"));
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
  MediaStream stream = MakeStream(MakeAvcc(MakeSps({.transfer = 18})));
  stream.container.transfer = 18;
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

TEST(StreamChecker, WithoutAFixedRateTheTimingIsNoRate) {
  MediaStream stream = MakeStream(MakeAvcc(MakeSps({.timeScale = 180000, .fixedRate = false})));
  EXPECT_THAT(Check(stream, {}), IsEmpty());
  stream = MakeStream(MakeAvcc(MakeSps({.timeScale = 180000})));
  EXPECT_THAT(Check(stream, {}),
              ElementsAre("rate: the container runs at 25 frames a second, the avcC says 90000"));
}

TEST(StreamChecker, TheShapeOfSamples) {
  MediaStream stream = MakeStream(MakeAvcc(MakeSps({.aspect = 14})));  // 4:3
  EXPECT_THAT(Check(stream, {}), ElementsAre("aspect: the container says samples of 1:1, the avcC 4:3"));
  stream.container.sampleAspect = {171, 128};  // 171 pixels for 170 2/3
  EXPECT_THAT(Check(stream, {}), IsEmpty());
  stream.container.sampleAspect = {0, 1};
  EXPECT_THAT(Check(stream, {}), IsEmpty());
  EXPECT_THAT(Check(MakeStream(MakeAvcc(MakeSps({.aspect = 0}))), {}), IsEmpty());
}

TEST(StreamChecker, HdrThatTheContainerKeepsToItselfIsANote) {
  MediaStream stream = MakeStream(MakeAvcc(MakeSps({.primaries = 9, .transfer = 18, .matrix = 9})));
  stream.container.primaries = stream.container.transfer = stream.container.matrix = 2;
  FindingList findings;
  StreamChecker checker(stream, findings);
  ASSERT_EQ(findings.findings().size(), 1u);
  EXPECT_EQ(findings.findings()[0].severity, Severity::kNote);
  EXPECT_THAT(findings.findings()[0].text, testing::HasSubstr("the container says nothing, the avcC"));
}

TEST(StreamChecker, EncryptedSamplesAreNamedAndNotJudged) {
  MediaStream stream = MakeStream(MakeAvcc(MakeSps()));
  stream.encrypted = true;
  EXPECT_THAT(Check(stream, {Hex("FFFFFFFF 00"), Packet({Hex("09F0")})}),
              ElementsAre("encryption: the samples are encrypted: what is in them is not judged"));
}

TEST(StreamChecker, WhatLengthsTell) {
  const MediaStream stream = MakeStream(MakeAvcc(MakeSps()));
  EXPECT_THAT(Check(stream, {Packet({Hex(kIdr), {}})}), ElementsAre("damage@0: a unit of length 0"));
  EXPECT_THAT(Check(stream, {Hex("1234567890")}),
              ElementsAre("damage@0: a frame holds no NAL units: its first length leads past its end"));
  // A delimiter, an SEI and a slice under one length: the units are read.
  EXPECT_THAT(Check(stream, {Packet({Hex("09F0 00000001 06050080 000001 65888040")}), Packet({Hex(kP)})}),
              ElementsAre("damage@0: one length covers several units with start codes between them"));
  EXPECT_THAT(Check(stream, {Packet({Hex("00000001 09F0 00000001 06050080")})}),
              ElementsAre("damage@0: one length covers several units with start codes between them",
                          "order@0: a frame has no slice"));
}

TEST(StreamChecker, EndsBelongToTheFrameInFront) {
  const MediaStream stream = MakeStream(MakeAvcc(MakeSps()));
  EXPECT_THAT(
      Check(stream, {Packet({Hex(kIdr)}), Packet({Hex("0A"), Hex("09F0"), Hex(kIdr)}), Packet({Hex("0B")})}),
      IsEmpty());
  // What stands wrong behind them has the number of a frame that there is.
  EXPECT_THAT(Check(stream, {Packet({Hex("0A"), Hex("06050080"), Hex("09F0"), Hex(kIdr)})}),
              ElementsAre("order@0: an access unit delimiter is not the first unit of its frame"));
}

// first_mb_in_slice 0, slice_type 5, pic_parameter_set_id 0, frame_num of 4 bits, pic_order_cnt_lsb of 4.
Bytes PSlice(uint32_t frameNumber, bool reference) {
  qln::test::BitBuilder bits;
  bits.u(8, reference ? 0x41 : 0x01).ue(0).ue(5).ue(0).u(4, frameNumber).u(4, 2).u(1, 0).u(1, 0);
  if (reference) bits.u(1, 0);
  return Escape(bits.se(0).trailing().bytes());
}

Bytes IdrSlice() {
  qln::test::BitBuilder bits;
  bits.u(8, 0x65).ue(0).ue(7).ue(0).u(4, 0).ue(0).u(4, 0).u(2, 0).se(0);
  return Escape(bits.trailing().bytes());
}

TEST(StreamChecker, FramesThatAreMissing) {
  const auto check = [](bool gapsAllowed, const std::vector<Bytes>& slices) {
    std::vector<Bytes> packets;
    for (const Bytes& slice : slices) packets.push_back(Packet({slice}));
    return Check(MakeStream(MakeAvcc(MakeSps({.gapsAllowed = gapsAllowed}))), packets);
  };
  // frame_num counts reference pictures, modulo 16.
  std::vector<Bytes> sound = {IdrSlice()};
  for (uint32_t n = 1; n < 20; ++n) {
    sound.push_back(PSlice(n % 16, true));
    sound.push_back(PSlice((n + 1) % 16, false));
  }
  EXPECT_THAT(check(false, sound), IsEmpty());
  EXPECT_THAT(check(false, {PSlice(9, true), PSlice(10, true)}),
              IsEmpty());  // what was in front is not known
  const std::vector<Bytes> gap = {IdrSlice(), PSlice(1, true), PSlice(4, true), PSlice(5, true), IdrSlice()};
  EXPECT_THAT(
      check(false, gap),
      ElementsAre("damage@2: frames are missing: frame_num goes from 1 to 4, and the SPS allows no gaps"));
  EXPECT_THAT(check(true, gap), IsEmpty());
}

TEST(FindingList, WeighsByKind) {
  FindingList list;
  list.Add(0, FindingKind::kOrder, "a", 0);
  list.Add(0, FindingKind::kColour, "a", 0);
  list.Add(0, FindingKind::kEncryption, "a", 0);
  list.Add(0, FindingKind::kColour, "b", 0, Severity::kNote);
  std::vector<std::string> words;
  for (const Finding& finding : list.findings()) words.emplace_back(SeverityWord(finding.severity));
  EXPECT_THAT(words, ElementsAre("error", "warning", "note", "note"));
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
