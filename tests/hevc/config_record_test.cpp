// The HEVC decoder configuration record: its head, and the repair of one that was escaped as a whole.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "hevc/config_record_support.h"
#include "hevc/unit_builders.h"

namespace qln::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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
  QLNBitState nowhere{nullptr, 10, 80, 9};
  EXPECT_EQ(qlnutilRead_HEVC_CR(&nowhere, &config, nullptr, nullptr, nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(nowhere.bitPos, 9u);
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

}  // namespace
}  // namespace qln::test
