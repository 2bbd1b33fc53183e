// HDR metadata judged by the transfer, by each other, and by Dolby Vision's record.

#include "check/hdr.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check_parts.h"

namespace qlnmedia {
namespace {

using test::MakeStream;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kBt709 = 1;
constexpr int kPq = 16;
constexpr int kHlg = 18;
const MasteringDisplay kDisplay = {{35400, 14600}, {8500, 39850}, {6550, 2300}, {15635, 16450}, 10000000, 1};

// "severity: text" of what is found about a stream of that transfer whose first picture says `hdr`.
std::vector<std::string> Judge(int transfer, const StreamHdr& hdr, int baseLayer = -1,
                               const std::vector<Unit>& more = {}) {
  MediaStream stream = MakeStream({});
  stream.container.transfer = 2;
  if (baseLayer >= 0)
    stream.dolbyVision = DolbyVisionConfiguration{1, 0, 8, 6, 1, 0, 1, static_cast<uint8_t>(baseLayer)};
  FindingList findings;
  HdrChecker checker(stream, findings);
  SpsFacts sps;
  sps.colour = ColourCodes{9, static_cast<uint8_t>(transfer), 9};
  checker.TakeSps(sps);
  std::vector<Unit> units = more;
  const Bytes unit = MakeHdrUnit(Codec::kHevc, hdr);
  if (!unit.empty()) units.push_back({unit, 4, 0});
  checker.Take(Codec::kHevc, units, 0);
  checker.Finish();
  std::vector<std::string> lines;
  for (const Finding& finding : findings.findings()) {
    EXPECT_EQ(finding.kind, FindingKind::kHdr);
    lines.push_back(std::string(SeverityWord(finding.severity)) + ": " + finding.text);
  }
  return lines;
}

TEST(HdrCheck, WhatFitsIsQuiet) {
  EXPECT_THAT(Judge(kPq, {kDisplay, LightLevel{1000, 400}}), IsEmpty());
  EXPECT_THAT(Judge(kHlg, {kDisplay, {}}), IsEmpty());
  EXPECT_THAT(Judge(kHlg, {}), IsEmpty());
  EXPECT_THAT(Judge(kBt709, {}), IsEmpty());
  // Zeros are what is written where nobody knows.
  EXPECT_THAT(Judge(kBt709, {MasteringDisplay{}, LightLevel{}}), IsEmpty());
  MasteringDisplay noPeak = kDisplay;
  noPeak.maxLuminance = 0;
  EXPECT_THAT(Judge(kPq, {noPeak, LightLevel{4000, 400}}), IsEmpty());
}

TEST(HdrCheck, MetadataWithoutATransferOfHdr) {
  EXPECT_THAT(
      Judge(kBt709, {kDisplay, {}}),
      ElementsAre("warning: there is a mastering display, and the transfer is BT.709: players take it for "
                  "no HDR"));
  EXPECT_THAT(
      Judge(kBt709, {{}, LightLevel{1000, 400}}),
      ElementsAre("warning: there is a content light level, and the transfer is BT.709: players take it "
                  "for no HDR"));
  EXPECT_THAT(
      Judge(2, {kDisplay, {}}),
      ElementsAre("note: there is a mastering display, and nothing says the transfer: players take it for "
                  "no HDR"));
  // An alternative_transfer_characteristics message (147) names the one that is meant.
  const Unit other = {qln::test::Hex("4E01930112"
                                     "80"),
                      4, 0};
  EXPECT_THAT(Judge(14, {kDisplay, {}}, -1, {other}), IsEmpty());
}

TEST(HdrCheck, PqWithoutAMasteringDisplay) {
  EXPECT_THAT(Judge(kPq, {}),
              ElementsAre("note: the transfer is PQ, and there is no mastering display: players "
                          "guess how bright it is"));
}

TEST(HdrCheck, LightLevelsAgainstEachOtherAndThePeak) {
  EXPECT_THAT(
      Judge(kPq, {kDisplay, LightLevel{1001, 400}}),
      ElementsAre("warning: content light level: its maximum, 1001 cd/m2, is above the mastering display's "
                  "peak of 1000 cd/m2"));
  EXPECT_THAT(Judge(kPq, {kDisplay, LightLevel{400, 401}}),
              ElementsAre("warning: content light level: its average, 401 cd/m2, is above its maximum of 400 "
                          "cd/m2"));
}

TEST(HdrCheck, DisplaysThatCannotBe) {
  MasteringDisplay display = kDisplay;
  display.red = {45000, 45000};
  display.minLuminance = display.maxLuminance;
  EXPECT_THAT(
      Judge(kPq, {display, {}}),
      ElementsAre("warning: mastering display: red at (0.9, 0.9) is outside of the chart",
                  "warning: mastering display: its least luminance, 1000 cd/m2, is not below its peak of "
                  "1000 cd/m2"));
}

TEST(HdrCheck, DolbyVisionAgainstItsBaseLayer) {
  EXPECT_THAT(Judge(kPq, {}, 1), IsEmpty());
  EXPECT_THAT(Judge(kHlg, {}, 4), IsEmpty());
  EXPECT_THAT(Judge(kBt709, {}, 2), IsEmpty());
  EXPECT_THAT(Judge(2, {}, 1), IsEmpty());
  EXPECT_THAT(Judge(kPq, {}, 0), IsEmpty());
  EXPECT_THAT(
      Judge(kBt709, {}, 1),
      ElementsAre("warning: Dolby Vision profile 8: the record says that the base layer is HDR10, the "
                  "transfer is BT.709"));
  EXPECT_THAT(Judge(kPq, {}, 4),
              ElementsAre("warning: Dolby Vision profile 8: the record says that the base layer is HLG, the "
                          "transfer is PQ (SMPTE ST 2084)"));
}

}  // namespace
}  // namespace qlnmedia
