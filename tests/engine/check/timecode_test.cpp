// The timecode of a container against the first picture's.

#include "check/timecode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check_parts.h"
#include "engine/small_streams.h"
#include "timecode/timecode_types.h"

namespace qlnmedia {
namespace {

using test::HevcSlice;
using test::Lines;
using testing::ElementsAre;
using testing::IsEmpty;

// HEVC pictures with the timecode of so many frames at 25 a second, and their times.
struct Coded {
  int64_t time;
  std::optional<uint32_t> count;
};

std::vector<std::string> Check(const std::string& said, const std::vector<Coded>& pictures,
                               const char* tag = "timecode", uint8_t type = qln::kTcPal) {
  MediaStream stream;
  stream.index = 2;
  stream.tags = {{"title", "10:00:00:00"}, {tag, said}};
  FindingList findings;
  TimecodeChecker checker(stream, Codec::kHevc, {test::HevcSps(), test::HevcPps()}, findings);
  for (size_t i = 0; i < pictures.size(); ++i) {
    std::vector<Bytes> units;
    if (pictures[i].count) units.push_back(MakeHevcTimecodeUnit(*pictures[i].count, type));
    units.push_back(i == 0 ? HevcSlice(19, 0) : HevcSlice(1, static_cast<uint32_t>(i), 1));
    PacketView view;
    view.pts = pictures[i].time;
    checker.Take(test::UnitList(units), view);
  }
  checker.Finish();
  return Lines(findings.findings());
}

constexpr uint32_t kTenHours = 900000;

TEST(TimecodeCheck, TheFirstPictureThatIsShownCounts) {
  EXPECT_THAT(Check("10:00:00:00", {{0, kTenHours}, {3, kTenHours + 3}}), IsEmpty());
  EXPECT_THAT(Check("10:00:00:00", {{3, kTenHours + 3}, {0, kTenHours}}), IsEmpty());
  EXPECT_THAT(
      Check("10:00:00:00", {{0, kTenHours + 1}}),
      ElementsAre("timecode: the container begins with timecode 10:00:00:00, the stream with 10:00:00:01"));
}

TEST(TimecodeCheck, WhatAnEditLeavesOutIsNotShown) {
  EXPECT_THAT(Check("10:00:00:00", {{-1, kTenHours - 1}, {0, kTenHours}}), IsEmpty());
  EXPECT_THAT(Check("10:00:00:00", {{kNoTime, kTenHours + 9}, {0, kTenHours}}), IsEmpty());
}

TEST(TimecodeCheck, WhoSaysNothingContradictsNobody) {
  EXPECT_THAT(Check("10:00:00:00", {{0, std::nullopt}, {1, kTenHours + 9}}), IsEmpty());
  EXPECT_THAT(Check("about ten", {{0, kTenHours + 1}}), IsEmpty());
  EXPECT_THAT(Check("10:00:00:00", {{0, kTenHours + 1}}, "comment"), IsEmpty());
  EXPECT_THAT(Check("11:00:00:00", {{0, kTenHours}}, "TimeCode"), testing::SizeIs(1));
}

// Every separator of drop-frame is the same.
TEST(TimecodeCheck, DropFrameHowEverItIsWritten) {
  for (const char* said : {"00:00:00;05", "00:00:00.05", "00:00:00,05"})
    EXPECT_THAT(Check(said, {{0, 5}}, "timecode", qln::kTcDropFrame), IsEmpty()) << said;
  EXPECT_THAT(Check("00:00:00:05", {{0, 5}}, "timecode", qln::kTcDropFrame), testing::SizeIs(1));
}

// The first picture is among the first packets, or not found.
TEST(TimecodeCheck, LaterPacketsAreNotLookedAt) {
  std::vector<Coded> pictures;
  for (int64_t i = 0; i < 64; ++i) pictures.push_back({100 - i, kTenHours + static_cast<uint32_t>(100 - i)});
  pictures.push_back({0, kTenHours});
  EXPECT_THAT(Check("10:00:01:12", pictures), IsEmpty());
}

TEST(FindingLists, EqualFindingsCountUp) {
  FindingList findings;
  findings.Add(0, FindingKind::kDamage, "gone", 3);
  findings.Add(0, FindingKind::kDamage, "gone", 9);
  findings.Add(1, FindingKind::kDamage, "gone", 9);
  findings.Add(0, FindingKind::kSets, "gone", 9);
  findings.Add({0, FindingKind::kSets, "gone", 9, 5, Severity::kNote});
  EXPECT_THAT(Lines(findings.findings()),
              ElementsAre("damage@3x2: gone", "damage@9: gone", "sets@9x6: gone"));
  EXPECT_EQ(findings.findings()[2].severity, Severity::kWarning);
  EXPECT_EQ(findings.Take().size(), 3u);
}

TEST(FindingLists, SeveritiesOfTheirKinds) {
  EXPECT_EQ(UsualSeverity(FindingKind::kDamage), Severity::kError);
  EXPECT_EQ(UsualSeverity(FindingKind::kOrder), Severity::kError);
  EXPECT_EQ(UsualSeverity(FindingKind::kEncryption), Severity::kNote);
  for (const FindingKind kind : {FindingKind::kColour, FindingKind::kSets, FindingKind::kTimecode})
    EXPECT_EQ(UsualSeverity(kind), Severity::kWarning);
}

}  // namespace
}  // namespace qlnmedia
