// The HEVC decoder configuration record: head, repair, arrays, refusals, fold, and writing.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>

#include "hevc/unit_builders.h"

namespace qln::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kReserved = "Hevc Reserved bits incorrect" + kLocated;
const std::string kPastEnd = "Hevc read is past end of bitstream" + kLocated;

std::string WrongLength(uint64_t position, uint64_t end) {
  return "Hevc read is not the same length as entry size (" + std::to_string(position) + " <> " +
         std::to_string(end) + ")" + kLocated;
}

struct Array {
  uint32_t type;
  std::vector<Bytes> units;
  uint32_t reserved = 0;
};

// Values of the head that differ from each other; `reserved` as five fields of all ones.
Bytes Box(const std::vector<Array>& arrays, std::array<uint32_t, 5> reserved = {15, 63, 63, 31, 31},
          int arrayCount = -1, const Bytes& header = Hex("00 00 00 00 68 76 63 43")) {
  BitBuilder b;
  b.u(8, 1).u(2, 2).u(1, 1).u(5, 4).u(32, 0x89ABCDEF).u(48, 0xA0B0C0D0E0F1).u(8, 150);
  b.u(4, reserved[0]).u(12, 0x5A5).u(6, reserved[1]).u(2, 3).u(6, reserved[2]).u(2, 2);
  b.u(5, reserved[3]).u(3, 2).u(5, reserved[4]).u(3, 4).u(16, 12800).u(2, 1).u(3, 5).u(1, 1).u(2, 3);
  b.u(8, arrayCount < 0 ? arrays.size() : static_cast<uint64_t>(arrayCount));
  for (const Array& array : arrays) {
    b.u(1, 1).u(1, array.reserved).u(6, array.type).u(16, array.units.size());
    for (const Bytes& unit : array.units) {
      b.u(16, unit.size());
      for (const uint8_t byte : unit) b.u(8, byte);
    }
  }
  return Join({header, b.bytes()});
}

Bytes VpsUnit() { return Escaped(Vps()); }
Bytes SpsUnit() { return Escaped(Sps()); }
Bytes PpsUnit() { return Escaped(Pps()); }

std::vector<Array> FullSet() { return {{32, {VpsUnit()}}, {33, {SpsUnit()}}, {34, {PpsUnit()}}}; }

struct ConfigOutcome {
  uint32_t result = 0;
  uint32_t bitPos = 0;
  HevcConfigRecord config{};
  std::unique_ptr<HevcVpsRecord> vps = std::make_unique<HevcVpsRecord>();
  std::unique_ptr<HevcSpsRecord> sps = std::make_unique<HevcSpsRecord>();
  std::unique_ptr<HevcPpsRecord> pps = std::make_unique<HevcPpsRecord>();
  std::vector<std::string> messages;
};

// Reads a box into the records of `outcome`.
void ReadInto(ConfigOutcome& outcome, const Bytes& box, bool withRecords = true) {
  ExactCopy copy(box);
  QLNBitState state{copy.data(), static_cast<int32_t>(box.size()), static_cast<uint32_t>(box.size() * 8), 0};
  MessageCapture capture;
  outcome.result = qlnutilRead_HEVC_CR(&state, &outcome.config, withRecords ? outcome.vps.get() : nullptr,
                                       withRecords ? outcome.sps.get() : nullptr,
                                       withRecords ? outcome.pps.get() : nullptr);
  outcome.bitPos = state.bitPos;
  outcome.messages = capture.textsWithoutLines();
  EXPECT_EQ(copy.bytes(), box);
}

ConfigOutcome Read(const Bytes& box, bool withRecords = true) {
  ConfigOutcome outcome;
  ReadInto(outcome, box, withRecords);
  return outcome;
}

TEST(HevcConfig, HeadFields) {
  auto read = Read(Box({}));
  EXPECT_EQ(read.result, 0u) << "no array";
  EXPECT_EQ(read.bitPos, 31u * 8);
  EXPECT_THAT(read.messages, IsEmpty());
  const HevcConfigRecord& c = read.config;
  EXPECT_EQ(c.configurationVersion, 1u);
  EXPECT_EQ(c.general_profile_space, 2u);
  EXPECT_EQ(c.general_tier_flag, 1u);
  EXPECT_EQ(c.general_profile_idc, 4u);
  EXPECT_EQ(c.general_profile_compatibility_flags, 0x89ABCDEFu) << "zero-extended";
  EXPECT_EQ(c.general_constraint_indicator_flags, 0xA0B0C0D0E0F1u);
  EXPECT_EQ(c.general_level_idc, 150u);
  EXPECT_EQ(c.min_spatial_segmentation_idc, 0x5A5u);
  EXPECT_EQ(c.parallelismType, 3u);
  EXPECT_EQ(c.chromaFormat, 2u);
  EXPECT_EQ(c.bitDepthLumaMinus8, 2u);
  EXPECT_EQ(c.bitDepthChromaMinus8, 4u);
  EXPECT_EQ(c.avgFrameRate, 12800u);
  EXPECT_EQ(c.constantFrameRate, 1u);
  EXPECT_EQ(c.numTemporalLayers, 5u);
  EXPECT_EQ(c.temporalIdNested, 1u);
  EXPECT_EQ(c.lengthSizeMinusOne, 3u);
  EXPECT_EQ(c.numOfArrays, 0u);
}

TEST(HevcConfig, AnyEightBytesInFront) {
  auto plain = Read(Box(FullSet()));
  auto other = Read(Box(FullSet(), {15, 63, 63, 31, 31}, -1, Hex("FF FF FF FF 00 00 03 00")));
  EXPECT_EQ(plain.result, other.result);
  EXPECT_EQ(std::memcmp(&plain.config, &other.config, sizeof plain.config), 0);
}

TEST(HevcConfig, NothingToRead) {
  HevcConfigRecord config{};
  Bytes box = Box({});
  QLNBitState state{box.data(), 0, 800, 9};
  EXPECT_EQ(qlnutilRead_HEVC_CR(&state, &config, nullptr, nullptr, nullptr), 0u);
  state.size = static_cast<int32_t>(box.size());
  EXPECT_EQ(qlnutilRead_HEVC_CR(&state, nullptr, nullptr, nullptr, nullptr), 0u);
  EXPECT_EQ(qlnutilRead_HEVC_CR(nullptr, &config, nullptr, nullptr, nullptr), 0u);
  state.size = -1;
  EXPECT_EQ(qlnutilRead_HEVC_CR(&state, &config, nullptr, nullptr, nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(state.bitPos, 9u);
  EXPECT_EQ(config.configurationVersion, 0u);
}

TEST(HevcConfig, AReservedFieldThatIsWrongTwice) {
  // Positions behind each of the five fields.
  const uint32_t behind[5] = {64 + 108, 64 + 126, 64 + 134, 64 + 141, 64 + 149};
  for (size_t field = 0; field < 5; ++field) {
    std::array<uint32_t, 5> reserved = {15, 63, 63, 31, 31};
    reserved[field] = field == 4 ? 0 : reserved[field] - 1;
    auto read = Read(Box(FullSet(), reserved));
    EXPECT_EQ(read.result, 0xFFFFFFFFu);
    EXPECT_THAT(read.messages, ElementsAre(kReserved, kReserved));
    EXPECT_EQ(read.bitPos, behind[field]);
    EXPECT_EQ(read.config.general_level_idc, 150u) << "the fields in front stay";
    EXPECT_EQ(read.config.numOfArrays, 0u);
  }
}

// A box with its head and arrays escaped as a whole, behind `front`.
Bytes EscapedBox(const Bytes& front, uint32_t ppsBytesMore = 0) {
  Bytes box = Box(FullSet());
  box[8 + 6] = 0;  // the first constraint bytes
  box[8 + 7] = 0;
  box[box.size() - PpsUnit().size() - 1] += static_cast<uint8_t>(ppsBytesMore);
  Bytes head = Head(box, 31);
  head.insert(head.begin() + 16, 3);
  return Join({front, head, Escaped(Bytes(box.begin() + 31, box.end()))});
}

TEST(HevcConfig, AHeadThatWasEscapedAsAWhole) {
  const Bytes box = Box(FullSet());
  // The escaping step puts a 3 into each escape of the units as well.
  auto read = Read(EscapedBox({}));
  EXPECT_THAT(read.messages, ElementsAre(kReserved));
  EXPECT_EQ(read.result, box.size()) << "an offset in the repaired bytes";
  EXPECT_EQ(read.bitPos, box.size() * 8);
  EXPECT_EQ(read.config.numOfArrays, 3u);
  EXPECT_EQ(Words(*read.sps), Words(ReadSps(SpsUnit()).record()));
  EXPECT_EQ(Words(*read.vps), Words(ReadVps(VpsUnit()).record()));
  EXPECT_EQ(Words(*read.pps), Words(ReadPps(PpsUnit()).record()));
}

// Where the SPS unit of a full set ends in its box.
uint32_t EndOfSps() { return static_cast<uint32_t>(Box(FullSet()).size() - PpsUnit().size() - 5); }

TEST(HevcConfig, TheSecondAttemptBeginsAtTheStatesPosition) {
  Bytes bytes = EscapedBox(Hex("AB"));
  QLNBitState state{bytes.data(), static_cast<int32_t>(bytes.size()), static_cast<uint32_t>(bytes.size() * 8),
                    8};
  HevcConfigRecord config{};
  const auto sps = std::make_unique<HevcSpsRecord>();
  MessageCapture capture;
  EXPECT_EQ(qlnutilRead_HEVC_CR(&state, &config, nullptr, sps.get(), nullptr), EndOfSps() + 1);
  EXPECT_THAT(capture.textsWithoutLines(), ElementsAre(kReserved));
  EXPECT_EQ(Words(*sps), Words(ReadSps(SpsUnit()).record()));
  EXPECT_EQ(config.numOfArrays, 3u);
}

TEST(HevcConfig, TheRepairedBytesEndInCopiesOfTheLastOne) {
  // The PPS unit claims one byte more than the box had before it was escaped: a byte that moving the rest
  // down leaves behind, shown by the message on what stands behind the unit's trailing bits.
  const Bytes bytes = EscapedBox({}, 1);
  auto read = Read(bytes);
  const auto position = static_cast<uint32_t>(PpsUnit().size() * 8);
  char left[40];
  std::snprintf(left, sizeof left, " 0x%08X 0x00000000", unsigned{bytes.back()});
  EXPECT_THAT(
      read.messages,
      ElementsAre(kReserved, LengthMessage("PPS", "1 padding = 0 current bit " + std::to_string(position) +
                                                      " bit length " + std::to_string(position + 8) + left)));
  EXPECT_EQ(read.result, Box(FullSet()).size() + 1);
}

TEST(HevcConfig, AnArrayCountPastTheEndIsBelowOne) {
  const Bytes box = Head(Box(FullSet()), 30);
  auto read = Read(box);
  EXPECT_EQ(read.result, 0u);
  EXPECT_EQ(read.bitPos, 31u * 8);
  EXPECT_EQ(read.config.numOfArrays, 0xFFFFFFFFu);
  EXPECT_THAT(read.messages, IsEmpty());
}

TEST(HevcConfig, AnEscapedHeadWithoutArrays) {
  Bytes box = Box({});
  box[8 + 6] = 0;
  box[8 + 7] = 0;
  Bytes damaged = box;
  damaged.insert(damaged.begin() + 16, 3);
  auto read = Read(damaged);
  EXPECT_THAT(read.messages, ElementsAre(kReserved)) << "one message, then a normal result";
  EXPECT_EQ(read.result, 0u);
  EXPECT_EQ(read.bitPos, 31u * 8);
  EXPECT_EQ(read.config.general_constraint_indicator_flags, 0xC0D0E0F1u);
  EXPECT_EQ(read.config.avgFrameRate, 12800u);
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

Bytes WriteConfig(const HevcConfigRecord* config, const Bytes& vps, const Bytes& sps, const Bytes& pps,
                  uint32_t bitPos = 0, int32_t room = 4096) {
  Bytes out(static_cast<size_t>(room), 0);
  QLNBitState state{out.data(), room, 0, bitPos};
  const uint32_t result = qlnutilWrite_HEVC_CR(
      &state, config, vps.data(), sps.data(), pps.data(), static_cast<int32_t>(vps.size()),
      static_cast<int32_t>(sps.size()), static_cast<int32_t>(pps.size()));
  EXPECT_EQ(result, state.bitPos / 8);
  out.resize((state.bitPos + 7) / 8);
  return out;
}

TEST(HevcConfigWriter, ReadAndWrittenAgain) {
  const Bytes box = Box(FullSet());
  auto read = Read(box, false);
  const Bytes body = WriteConfig(&read.config, VpsUnit(), SpsUnit(), PpsUnit());
  EXPECT_EQ(ToHex(body), ToHex(Bytes(box.begin() + 8, box.end())));
}

TEST(HevcConfigWriter, WithoutAHead) {
  const Bytes body = WriteConfig(nullptr, Hex("40 01 0C"), Hex("42 01"), {});
  EXPECT_EQ(ToHex(body), "A0 00 01 00 03 40 01 0C A1 00 01 00 02 42 01 A2 00 01 00 00");
}

TEST(HevcConfigWriter, FieldsAreCutToTheirWidths) {
  HevcConfigRecord config;
  std::memset(&config, 0xFF, sizeof config);
  const Bytes body = WriteConfig(&config, {}, {}, {});
  EXPECT_EQ(ToHex(Head(body, 23)), ToHex(Bytes(23, 0xFF)));
  std::memset(&config, 0, sizeof config);
  config.numOfArrays = 0x107;
  const Bytes zero = WriteConfig(&config, {}, {}, {});
  EXPECT_EQ(ToHex(Head(zero, 23)), "00 00 00 00 00 00 00 00 00 00 00 00 00 F0 00 FC FC F8 F8 00 00 00 07");
}

TEST(HevcConfigWriter, StartsAtAnyBit) {
  const Bytes plain = WriteConfig(nullptr, Hex("40 01"), Hex("42 01"), Hex("44 01"));
  for (uint32_t bit = 0; bit < 24; ++bit) {
    Bytes out(64, 0xFF);
    QLNBitState state{out.data(), 64, 0, bit};
    const Bytes v = Hex("40 01"), s = Hex("42 01"), p = Hex("44 01");
    EXPECT_EQ(qlnutilWrite_HEVC_CR(&state, nullptr, v.data(), s.data(), p.data(), 2, 2, 2),
              (bit + plain.size() * 8) / 8);
    BitBuilder expected;
    expected.u(static_cast<int>(bit), ~uint64_t{0});
    for (const uint8_t byte : plain) expected.u(8, byte);
    while (expected.bits() < 64 * 8) expected.u(1, 1);
    EXPECT_EQ(ToHex(out), ToHex(expected.bytes()));
  }
}

TEST(HevcConfigWriter, WhatDoesNotFitIsNotWritten) {
  const Bytes v = Hex("40 01"), s = Hex("42 01"), p = Hex("44 01");
  const auto write = [&](int32_t size, uint32_t bit) {
    Bytes out(64, 0xEE);
    QLNBitState state{out.data(), size, 0, bit};
    const uint32_t result = qlnutilWrite_HEVC_CR(&state, nullptr, v.data(), s.data(), p.data(), 2, 2, 2);
    EXPECT_EQ(result, state.bitPos / 8);
    const bool written = state.bitPos != bit;
    if (!written) {
      EXPECT_EQ(out, Bytes(64, 0xEE));
    }
    return written;
  };
  EXPECT_TRUE(write(21, 0));
  EXPECT_FALSE(write(20, 0));
  EXPECT_FALSE(write(21, 1));
  EXPECT_TRUE(write(22, 8));
  EXPECT_FALSE(write(0, 0));
  EXPECT_FALSE(write(-5, 0));
  EXPECT_FALSE(write(21, 0xFFFFFFF0u));
  EXPECT_EQ(qlnutilWrite_HEVC_CR(nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0, 0), 0u);
}

TEST(HevcConfigWriter, NegativeSizesAndNullUnitsHaveNoBytes) {
  Bytes out(64, 0);
  QLNBitState state{out.data(), 64, 0, 0};
  const Bytes v = Hex("40 01");
  EXPECT_EQ(qlnutilWrite_HEVC_CR(&state, nullptr, v.data(), nullptr, v.data(), -2, 0x12345, 2), 17u);
  EXPECT_EQ(ToHex(Head(out, 17)), "A0 00 01 FF FE A1 00 01 23 45 A2 00 01 00 02 40 01");
}

TEST(HevcConfigWriter, LongUnitsKeepTheLowSixteenBitsOfTheirSize) {
  const Bytes unit(70000, 0x55);
  const Bytes body = WriteConfig(nullptr, unit, {}, {}, 0, 80000);
  EXPECT_EQ(body.size(), 15u + 70000);
  EXPECT_EQ(ToHex(Head(body, 6)), "A0 00 01 11 70 55");
}

TEST(HevcConfigStub, HvccIsNotSupported) { EXPECT_EQ(qlnutilGetHvcc(), -1); }

}  // namespace
}  // namespace qln::test
