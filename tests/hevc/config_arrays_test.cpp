// The arrays of an HEVC decoder configuration record: the records that they fill, refusals, and boxes that
// end early.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "hevc/config_record_support.h"
#include "hevc/unit_builders.h"

namespace qln::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kPastEnd = "Hevc read is past end of bitstream" + kLocated;

std::string WrongLength(uint64_t position, uint64_t end) {
  return "Hevc read is not the same length as entry size (" + std::to_string(position) + " <> " +
         std::to_string(end) + ")" + kLocated;
}

TEST(HevcConfig, FullSetsFillAllThreeRecords) {
  const Bytes box = Box(FullSet());
  auto read = Read(box);
  EXPECT_THAT(read.messages, IsEmpty());
  EXPECT_EQ(read.result, box.size()) << "the end of the PPS unit";
  EXPECT_EQ(read.bitPos, box.size() * 8);
  EXPECT_EQ(Words(*read.vps), Words(ReadVps(VpsUnit()).record()));
  EXPECT_EQ(Words(*read.sps), Words(ReadSps(SpsUnit()).record()));
  EXPECT_EQ(Words(*read.pps), Words(ReadPps(PpsUnit()).record()));
  // The fold over the head's values.
  EXPECT_EQ(read.config.bitDepthLumaMinus8, 0u) << "replaced";
  EXPECT_EQ(read.config.chromaFormat, 1u);
  EXPECT_EQ(read.config.general_level_idc, 150u) << "the head's was greater";
  EXPECT_EQ(read.config.general_profile_space, 0u);
  EXPECT_EQ(read.config.general_profile_compatibility_flags, 0x60000000u);
  EXPECT_EQ(read.config.numTemporalLayers, 5u);
  EXPECT_EQ(read.config.parallelismType, 1u);
  EXPECT_EQ(read.config.min_spatial_segmentation_idc, 0x5A5u);
}

TEST(HevcConfig, BitDepthOfTheSetReplacesTheHeads) {
  SpsParts parts;
  parts.lumaMinus8 = 6;
  auto read = Read(Box({{33, {Escaped(Sps(parts))}}}));
  EXPECT_EQ(read.config.bitDepthLumaMinus8, 6u);
}

TEST(HevcConfig, NullRecordsAreSkippedByLengthAndMarked) {
  const Bytes box = Box(FullSet());
  auto read = Read(box, false);
  EXPECT_THAT(read.messages, IsEmpty());
  EXPECT_EQ(read.result, 0u) << "no unit was parsed";
  EXPECT_EQ(read.bitPos, box.size() * 8);
  EXPECT_EQ(read.config.bitDepthLumaMinus8, 2u) << "the head's values stay";
  // The marks are set: an SEI array behind them is not passed.
  auto arrays = FullSet();
  arrays.push_back({39, {Hex("4E 01 05 00 80")}});
  auto marked = Read(Box(arrays), false);
  ASSERT_EQ(marked.messages.size(), 1u);
  const uint64_t at = (box.size() + 5) * 8;
  EXPECT_EQ(marked.messages[0], WrongLength(at, at + 40));
}

TEST(HevcConfig, LaterVpsAndSpsAreSkippedAndLaterPpsRead) {
  SpsParts wide;
  wide.width = 640;
  PpsParts second;
  second.initQp = -20;
  const Bytes box = Box({{33, {SpsUnit(), Escaped(Sps(wide))}}, {34, {PpsUnit(), Escaped(Pps(second))}}});
  auto read = Read(box);
  EXPECT_THAT(read.messages, IsEmpty());
  EXPECT_EQ(read.sps->pic_width_in_luma_samples, 64u);
  EXPECT_EQ(read.pps->init_qp_minus26, -20);
  EXPECT_EQ(read.result, box.size());
}

TEST(HevcConfig, ALaterVpsIsSkipped) {
  VpsParts two;
  two.maxSubLayersMinus1 = 1;
  two.subLayers = [](BitBuilder& b) { b.u(16, 0); };
  auto read = Read(Box({{32, {VpsUnit(), Escaped(Vps(two))}}}));
  EXPECT_THAT(read.messages, IsEmpty());
  EXPECT_EQ(read.vps->vps_max_sub_layers_minus1, 0u);
}

TEST(HevcConfig, ASkippedSetDoesNotMoveTheEnd) {
  const Bytes one = Box({{33, {SpsUnit()}}});
  auto read = Read(Box({{33, {SpsUnit(), SpsUnit()}}}));
  EXPECT_EQ(read.result, one.size());
}

TEST(HevcConfig, ASetOfLevelZeroGivesWay) {
  SpsParts none;
  none.profile.level = 0;
  none.width = 16;
  auto read = Read(Box({{33, {Escaped(Sps(none)), SpsUnit(), Escaped(Sps(none))}}}));
  EXPECT_EQ(read.sps->pic_width_in_luma_samples, 64u);
}

TEST(HevcConfig, APpsWithTileColumnsStays) {
  PpsParts tiles;
  tiles.tiles = 1;
  tiles.tileSizes = [](BitBuilder& b) { b.ue(1).ue(0).u(1, 1).u(1, 1); };
  auto read = Read(Box({{34, {Escaped(Pps(tiles)), PpsUnit()}}}));
  EXPECT_EQ(read.pps->num_tile_columns_minus1, 1u);
  EXPECT_EQ(read.config.parallelismType, 2u);
  ConfigOutcome filled;
  filled.sps->profile_tier_level.general_level_idc = 1;
  ReadInto(filled, Box(FullSet()));
  EXPECT_EQ(filled.sps->pic_width_in_luma_samples, 0u) << "filled before this call";
}

TEST(HevcConfig, OtherUnitsArePassedUntilAllThreeWereSeen) {
  const Bytes sei = Hex("4E 01 05 01 AA 80");
  std::vector<Array> arrays = {{39, {sei, sei}}};
  for (const Array& array : FullSet()) arrays.push_back(array);
  const Bytes box = Box(arrays);
  auto read = Read(box);
  EXPECT_THAT(read.messages, IsEmpty());
  EXPECT_EQ(read.result, box.size());
  EXPECT_EQ(Read(Box({{39, {sei}}})).result, 31u + 5 + 6) << "passed for its type: the end moves";
  for (size_t missing = 0; missing < 3; ++missing) {
    std::vector<Array> two = FullSet();
    two.erase(two.begin() + static_cast<long>(missing));
    two.push_back({39, {sei}});
    auto behind = Read(Box(two));
    EXPECT_THAT(behind.messages, IsEmpty()) << missing;
    EXPECT_EQ(behind.result, Box(two).size()) << missing;
  }
}

TEST(HevcConfig, AnArrayBehindAFullSetKeepsThePosition) {
  auto arrays = FullSet();
  const Bytes sets = Box(arrays);
  arrays.push_back({39, {Hex("4E 01 05 01 AA 80")}});
  auto read = Read(Box(arrays));
  const uint64_t at = (sets.size() + 5) * 8;
  EXPECT_THAT(read.messages, ElementsAre(WrongLength(at, at + 48)));
  EXPECT_EQ(read.bitPos, at) << "on the unit's first byte";
  EXPECT_EQ(read.result, sets.size());
  // With a second unit its length is read from the first one's bytes: 4E 01 is past the end.
  arrays.back().units.push_back(Hex("4E 01 80"));
  auto two = Read(Box(arrays));
  EXPECT_THAT(two.messages, ElementsAre(WrongLength(at, at + 48), kPastEnd));
  EXPECT_EQ(two.result, 0xFFFFFFFFu);
  EXPECT_EQ(two.bitPos, at + 16);
}

TEST(HevcConfig, EmptyUnitsDoNothing) {
  auto arrays = FullSet();
  arrays[2].units = {Bytes{}};
  arrays.push_back({39, {Hex("4E 01 05 01 AA 80")}});
  const Bytes box = Box(arrays);
  auto read = Read(box);
  EXPECT_THAT(read.messages, IsEmpty()) << "no mark for the PPS, so the SEI is passed";
  EXPECT_EQ(read.result, box.size());
  EXPECT_EQ(read.pps->num_extra_slice_header_bits, 0u);
  // An array without units is done at once; an empty unit of another type moves the end.
  EXPECT_EQ(Read(Box({{33, {}}, {33, {SpsUnit()}}})).sps->pic_width_in_luma_samples, 64u);
  EXPECT_EQ(Read(Box({{39, {Bytes{}}}})).result, 31u + 5);
}

TEST(HevcConfig, AUnitOneByteTooLong) {
  const Bytes box = Box(FullSet());
  auto read = Read(Head(box, box.size() - 1));
  EXPECT_THAT(read.messages, ElementsAre(kPastEnd));
  EXPECT_EQ(read.result, 0xFFFFFFFFu);
  EXPECT_EQ(read.bitPos, (box.size() - PpsUnit().size()) * 8) << "behind the length field";
  EXPECT_EQ(read.sps->pic_width_in_luma_samples, 64u) << "what was read stays";
}

TEST(HevcConfig, AReservedBitOfAnArrayEndsTheRunQuietly) {
  auto arrays = FullSet();
  arrays[2].reserved = 1;
  auto read = Read(Box(arrays));
  const Bytes two = Box({arrays[0], arrays[1]});
  EXPECT_THAT(read.messages, ElementsAre(kReserved));
  EXPECT_EQ(read.result, two.size());
  EXPECT_EQ(read.bitPos, two.size() * 8 + 2);
  // Past the limit it counts in the same way: more arrays announced than there are.
  auto missing = Read(Box(FullSet(), {15, 63, 63, 31, 31}, 5));
  EXPECT_THAT(missing.messages, ElementsAre(kReserved));
  EXPECT_EQ(missing.result, Box(FullSet()).size());
  EXPECT_EQ(missing.bitPos, Box(FullSet()).size() * 8 + 2);
}

TEST(HevcConfig, ARefusedUnitSendsTheWalkBack) {
  // A PPS array that holds an SPS: refused at bit 7, then the length is read from the box's header.
  auto read = Read(Box({{34, {SpsUnit()}}}));
  const uint64_t end = (31 + 5 + SpsUnit().size()) * 8;
  EXPECT_THAT(read.messages, ElementsAre("Not a pps NAL (33)" + kLocated, WrongLength(7, end)));
  EXPECT_EQ(read.result, end / 8) << "it still sets the end";
  EXPECT_EQ(read.bitPos, 7u);
}

TEST(HevcConfig, EveryTruncation) {
  auto arrays = FullSet();
  arrays.push_back({39, {Hex("4E 01 05 01 AA 80")}});
  const Bytes box = Box(arrays);
  for (size_t n = 1; n < box.size(); ++n) {
    auto read = Read(Head(box, n));
    if (n > 26 && n < 31) {
      EXPECT_EQ(read.result, 0u) << "an over-read count of arrays is below 1";
      EXPECT_EQ(read.config.numOfArrays, 0xFFFFFFFFu);
      continue;
    }
    EXPECT_FALSE(read.messages.empty()) << n;
    EXPECT_TRUE(read.result <= n || read.result == 0xFFFFFFFFu);
  }
}

TEST(HevcConfig, PeriodsOfTheWalkAreLeftOutWithTheSameOutcome) {
  // A PPS array of 65535 units whose first is refused at bit 7 and so sends the walk into the box's header,
  // where every next length leads to a refusal again: bits 7 to 22 are the length.
  for (const uint32_t count : {60u, 64u, 65u, 66u, 67u, 100u, 65534u, 65535u}) {
    // Header so that the length at bit 7 is 2 and the unit behind it, at byte 2 (bit 23 / 8), is no PPS.
    Bytes box = Box({{34, {Hex("42 01")}}}, {15, 63, 63, 31, 31}, 1, Hex("00 00 04 00 00 00 00 00"));
    box[31 + 1] = static_cast<uint8_t>(count >> 8);
    box[31 + 2] = static_cast<uint8_t>(count);
    const auto before = std::chrono::steady_clock::now();
    auto read = Read(box);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5));
    EXPECT_EQ(read.bitPos, 7u) << count;
    EXPECT_EQ(read.result, (23u + 16) / 8) << "the end of the last round's unit";
    // Each round has two messages; those of the first 64 rounds are all there.
    EXPECT_GE(read.messages.size(), 2 * std::min(count, 64u));
    EXPECT_LE(read.messages.size(), 2 * std::min(count, 70u));
  }
}

TEST(HevcConfig, ManyHostileArraysEndSoon) {
  Bytes box = Box({{34, {Hex("42 01")}}}, {15, 63, 63, 31, 31}, 255, Hex("00 00 04 00 00 00 00 00"));
  Random random(86);
  const auto before = std::chrono::steady_clock::now();
  for (int round = 0; round < 300; ++round) {
    Bytes hostile = Join({box, random.zeroRichBytes(100)});
    for (size_t i = 0; i < 8; ++i) hostile[i] = random.zeroRichBytes(1)[0];
    for (size_t i = 31; i < 34; ++i)
      hostile[i] = static_cast<uint8_t>(random.below(2) ? 0x22 : random.next());
    Read(hostile);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(60));
}

}  // namespace
}  // namespace qln::test
