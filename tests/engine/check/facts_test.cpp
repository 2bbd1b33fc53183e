// A container's facts against an SPS's, one fact at a time, and frame numbers and sets from picture to
// picture.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check/container_facts.h"
#include "check/frame_numbers.h"
#include "check/set_history.h"
#include "check_parts.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::BitBuilder;
using test::Lines;
using test::MakeSps;
using test::MakeStream;
using test::SpsParts;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> Facts(const MediaStream& stream, const SpsParts& parts = {}) {
  FindingList findings;
  CheckContainerFacts(stream, ReadSpsFacts(Codec::kH264, MakeSps(parts)).value(), {"the stream", 4},
                      findings);
  return Lines(findings.findings());
}

TEST(ContainerFacts, NothingWhereBothSaySo) { EXPECT_THAT(Facts(MakeStream({})), IsEmpty()); }

TEST(ContainerFacts, EachCodeOfColourIsNamed) {
  MediaStream stream = MakeStream({});
  stream.container.primaries = 9;
  stream.container.matrix = 9;
  EXPECT_THAT(
      Facts(stream),
      ElementsAre("colour@4: primaries: the container says BT.2020, the stream BT.709",
                  "colour@4: matrix: the container says BT.2020 non-constant luminance, the stream BT.709"));
  // Who says nothing contradicts nobody.
  stream.container.primaries = stream.container.matrix = 2;
  EXPECT_THAT(Facts(stream), IsEmpty());
  stream.container.primaries = 9;
  EXPECT_THAT(Facts(stream, {.primaries = 2}), IsEmpty());
}

TEST(ContainerFacts, HdrThatTheContainerKeepsToItself) {
  MediaStream stream = MakeStream({});
  stream.container.transfer = 2;
  EXPECT_THAT(Facts(stream), IsEmpty());
  for (const int transfer : {16, 18}) {
    FindingList findings;
    CheckContainerFacts(stream, ReadSpsFacts(Codec::kH264, MakeSps({.transfer = transfer})).value(),
                        {"the avcC", -1}, findings);
    ASSERT_EQ(findings.findings().size(), 1u);
    EXPECT_EQ(findings.findings()[0].severity, Severity::kNote);
    EXPECT_EQ(findings.findings()[0].frame, -1);
  }
}

TEST(ContainerFacts, RangeSizeShape) {
  MediaStream stream = MakeStream({});
  stream.container.range = kFullRange;
  EXPECT_THAT(Facts(stream), ElementsAre("range@4: the container says full range, the stream limited"));
  EXPECT_THAT(Facts(stream, {.fullRange = true}), IsEmpty());
  stream.container.range = kRangeUnknown;
  EXPECT_THAT(Facts(stream, {.fullRange = true}), IsEmpty());
  stream.container.width = 130;
  EXPECT_THAT(Facts(stream), ElementsAre("size@4: the container says 130 x 96, the stream 128 x 96"));
  stream.container.width = 0;
  EXPECT_THAT(Facts(stream), IsEmpty());
  stream.container.sampleAspect = {12, 11};
  EXPECT_THAT(Facts(stream), ElementsAre("aspect@4: the container says samples of 12:11, the stream 1:1"));
  EXPECT_THAT(Facts(stream, {.aspect = 2}), IsEmpty());
  EXPECT_THAT(Facts(stream, {.aspect = 0}), IsEmpty());
  // Whole pixels of a display size stand for a ratio.
  stream.container.sampleAspect = {1091, 1000};
  EXPECT_THAT(Facts(stream, {.aspect = 2}), IsEmpty());
}

TEST(ContainerFacts, ARateThatIsNoneIsNotHeldAgainstIt) {
  MediaStream stream = MakeStream({});
  stream.coded.averageRate = stream.coded.baseRate = {30, 1};
  EXPECT_THAT(Facts(stream),
              ElementsAre("rate@4: the container runs at 30 frames a second, the stream says 25"));
  EXPECT_THAT(Facts(stream, {.fixedRate = false}), IsEmpty());
  EXPECT_THAT(Facts(stream, {.timeScale = 0}), IsEmpty());
  // Pictures are left out here and there.
  stream.coded.baseRate = {25, 1};
  EXPECT_THAT(Facts(stream), IsEmpty());
}

TEST(ContainerFacts, FieldsOfAStreamThatCannotHaveThem) {
  MediaStream stream = MakeStream({});
  stream.container.fieldOrder = kTopFirst;
  EXPECT_THAT(Facts(stream),
              ElementsAre("interlace@4: the container says fields, the stream progressive frames"));
  EXPECT_THAT(Facts(stream, {.frameMbsOnly = false}), IsEmpty());
}

TEST(ContainerFacts, AContainerWithoutAPlaceForThemIsHeldToNone) {
  MediaStream stream = MakeStream({});
  stream.container.primaries = 9;
  stream.container.width = 130;
  stream.hasColourDescription = false;
  EXPECT_THAT(Facts(stream), IsEmpty());
}

// Pictures by the set of MakeSps: frame_num of 4 bits, counts of 6.
Unit Slice(int refIdc, int type, uint32_t frameNum, bool resets = false) {
  BitBuilder bits;
  bits.u(1, 0).u(2, static_cast<uint64_t>(refIdc)).u(5, static_cast<uint64_t>(type));
  bits.ue(0).ue(7).ue(0).u(4, frameNum);  // the first macroblock, an I slice
  if (type == 5) bits.ue(0);
  bits.u(6, 0);
  if (type != 5 && refIdc != 0) {
    bits.u(1, resets);
    if (resets) bits.ue(5).ue(0);
  }
  Unit unit;
  unit.bytes = Escape(bits.u(8, 0xFF).trailing().bytes());
  return unit;
}

class Numbers : public testing::Test {
 protected:
  void SetUp() override {
    numbers_.TakeSet(MakeSps());
    // Of id 0, CAVLC, no counts for the bottom field, no weights.
    BitBuilder pps;
    pps.u(8, 0x68).ue(0).ue(0).u(2, 0).ue(0).ue(0).ue(0).u(3, 0).se(0).se(0).se(0).u(3, 0);
    numbers_.TakeSet(pps.trailing().bytes());
  }
  std::vector<std::string> Take(int refIdc, int type, uint32_t frameNum, bool gapsAllowed = false,
                                bool resets = false) {
    return numbers_.Take({Slice(refIdc, type, frameNum, resets)}, gapsAllowed);
  }
  FrameNumbers numbers_;
};

TEST_F(Numbers, GoUpByOneAtAReference) {
  EXPECT_THAT(Take(3, 5, 0), IsEmpty());
  EXPECT_THAT(Take(2, 1, 1), IsEmpty());
  EXPECT_THAT(Take(0, 1, 2), IsEmpty());
  EXPECT_THAT(Take(0, 1, 2), IsEmpty());
  EXPECT_THAT(Take(2, 1, 2), IsEmpty());
  EXPECT_THAT(Take(2, 1, 4),
              ElementsAre("frames are missing: frame_num goes from 2 to 4, and the SPS allows no gaps"));
  EXPECT_THAT(Take(2, 1, 5), IsEmpty());  // told once
  EXPECT_THAT(Take(2, 1, 9, true), IsEmpty());
}

TEST_F(Numbers, WrapAndBeginAnew) {
  EXPECT_THAT(Take(3, 5, 0), IsEmpty());
  EXPECT_THAT(Take(2, 1, 15, true), IsEmpty());
  EXPECT_THAT(Take(2, 1, 0), IsEmpty());
  EXPECT_THAT(Take(2, 1, 1, false, true), IsEmpty());  // counts as 0 from here on
  EXPECT_THAT(Take(2, 1, 1), IsEmpty());
  EXPECT_THAT(Take(3, 5, 0), IsEmpty());
  EXPECT_THAT(Take(2, 1, 1), IsEmpty());
}

TEST_F(Numbers, AStreamMayBeginAnywhere) {
  EXPECT_THAT(Take(2, 1, 7), IsEmpty());
  EXPECT_EQ(Take(2, 1, 9).size(), 1u);
}

TEST(SetHistory, KnowsWhatItMet) {
  SetHistory history;
  const SetKey key{7, 0};
  const Bytes first = {0x67, 1};
  const Bytes second = {0x67, 2};
  int64_t before = -5;
  EXPECT_EQ(history.Take(key, first, -1, &before), SetHistory::News::kNew);
  EXPECT_EQ(before, -5);
  EXPECT_EQ(history.Take(key, first, 3, &before), SetHistory::News::kKnown);
  EXPECT_EQ(history.Take(key, second, 6, &before), SetHistory::News::kChanged);
  EXPECT_EQ(before, -1);
  EXPECT_EQ(history.Take(key, first, 9, &before), SetHistory::News::kChanged);
  EXPECT_EQ(before, 6);
  EXPECT_EQ(history.Take({7, 1}, first, 10), SetHistory::News::kNew);
  EXPECT_EQ(history.Take({8, 0}, first, 10), SetHistory::News::kNew);
}

TEST(SetHistory, KeysOfEachKind) {
  EXPECT_EQ(SetKeyOf(Codec::kH264, MakeSps()), (SetKey{7, 0}));
  EXPECT_EQ(SetKeyOf(Codec::kH264, Bytes{0x68, 0x80}), (SetKey{8, 0}));          // 1
  EXPECT_EQ(SetKeyOf(Codec::kH264, Bytes{0x68, 0x30}), (SetKey{8, 5}));          // 00110
  EXPECT_EQ(SetKeyOf(Codec::kH264, Bytes{0x68, 0x01, 0xFE}), (SetKey{8, 254}));  // 0000000 11111111
  EXPECT_EQ(SetKeyOf(Codec::kHevc, Bytes{0x40, 0x01, 0x3C}), (SetKey{32, 3}));
  EXPECT_EQ(SetKeyOf(Codec::kHevc, Bytes{0x44, 0x01, 0x40}), (SetKey{34, 1}));  // 010
  for (const Bytes& broken : {Bytes{0x68}, Bytes{0x68, 0x00, 0x00}, Bytes{0x67, 0x4D}})
    EXPECT_EQ(SetKeyOf(Codec::kH264, broken), std::nullopt);
}

TEST(SetHistory, LargestIdsAreTheStandards) {
  EXPECT_EQ(LargestSetId(Codec::kH264, 7), 31u);
  EXPECT_EQ(LargestSetId(Codec::kH264, 8), 255u);
  EXPECT_EQ(LargestSetId(Codec::kHevc, 32), 15u);
  EXPECT_EQ(LargestSetId(Codec::kHevc, 33), 15u);
  EXPECT_EQ(LargestSetId(Codec::kHevc, 34), 63u);
}

TEST(SetHistory, ZeroBytesBehindASetSayNothing) {
  const Bytes set = {0x68, 0x00, 0xCE, 0x00, 0x00};
  EXPECT_EQ(WithoutZeros(set).size(), 3u);
  EXPECT_EQ(WithoutZeros(Bytes{0, 0}).size(), 0u);
}

}  // namespace
}  // namespace qlnmedia
