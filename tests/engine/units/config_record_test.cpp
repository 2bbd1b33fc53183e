// avcC and hvcC bodies: walked, and written back byte for byte.

#include "units/config_record.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;
using qln::test::Random;
using qln::test::ToHex;

// version, profile, compatibility, level, 2-byte lengths; one SPS of 3 bytes, two PPS; high-profile tail.
const char* const kAvcc = "01 64001F FD E1 0003 674201 02 0001 68 0002 68CE FDF8F800";

TEST(ConfigRecord, AvccInParts) {
  const ConfigRecord record = ReadConfigRecord(Codec::kH264, Hex(kAvcc));
  EXPECT_TRUE(record.box);
  EXPECT_EQ(record.framing.lengthBytes, 2);
  ASSERT_EQ(record.lists.size(), 2u);
  ASSERT_EQ(record.lists[1].units.size(), 2u);
  EXPECT_EQ(ToHex(record.lists[0].units[0]), "67 42 01");
  EXPECT_EQ(ToHex(record.tail), "FD F8 F8 00");
  EXPECT_EQ(record.units().size(), 3u);
  EXPECT_TRUE(record.problem.empty());
  EXPECT_EQ(WriteConfigRecord(record), Hex(kAvcc));
}

TEST(ConfigRecord, HvccInParts) {
  // 21 bytes of head, length size byte, 2 arrays: VPS (complete) of 2 bytes, SEI with no unit.
  const Bytes body =
      Hex("01 01 60000000 900000000000 5D F000 FC FD F8 F8 0000 0F 02 A0 0001 0002 4001 27 0000");
  const ConfigRecord record = ReadConfigRecord(Codec::kHevc, body);
  EXPECT_EQ(record.framing.lengthBytes, 4);
  ASSERT_EQ(record.lists.size(), 2u);
  EXPECT_EQ(record.lists[0].head, 0xA0);
  EXPECT_EQ(ToHex(record.lists[0].units[0]), "40 01");
  EXPECT_EQ(WriteConfigRecord(record), body);
}

// ISO/IEC 14496-15 clauses 5.3.3.1 and 8.3.3.1.
TEST(ConfigRecord, HeadsByName) {
  const AvccHead avcc = ReadConfigRecord(Codec::kH264, Hex(kAvcc)).avccHead().value();
  EXPECT_EQ(avcc.configurationVersion, 1);
  EXPECT_EQ(avcc.AVCProfileIndication, 100);
  EXPECT_EQ(avcc.profile_compatibility, 0);
  EXPECT_EQ(avcc.AVCLevelIndication, 31);
  EXPECT_EQ(avcc.lengthSizeMinusOne, 1);
  const Bytes body = Hex("01 62 60000000 900000000001 5D F003 FE FD FA FC 0BB8 57 00");
  const HvccHead hvcc = ReadConfigRecord(Codec::kHevc, body).hvccHead().value();
  EXPECT_EQ(hvcc.general_profile_space, 1);
  EXPECT_EQ(hvcc.general_tier_flag, 1);
  EXPECT_EQ(hvcc.general_profile_idc, 2);
  EXPECT_EQ(hvcc.general_profile_compatibility_flags, 0x60000000u);
  EXPECT_EQ(hvcc.general_constraint_indicator_flags, 0x900000000001u);
  EXPECT_EQ(hvcc.general_level_idc, 93);
  EXPECT_EQ(hvcc.min_spatial_segmentation_idc, 3);
  EXPECT_EQ(hvcc.parallelismType, 2);
  EXPECT_EQ(hvcc.chromaFormat, 1);
  EXPECT_EQ(hvcc.bitDepthLumaMinus8, 2);
  EXPECT_EQ(hvcc.bitDepthChromaMinus8, 4);
  EXPECT_EQ(hvcc.avgFrameRate, 3000);
  EXPECT_EQ(hvcc.constantFrameRate, 1);
  EXPECT_EQ(hvcc.numTemporalLayers, 2);
  EXPECT_EQ(hvcc.temporalIdNested, 1);
  EXPECT_EQ(hvcc.lengthSizeMinusOne, 3);
  EXPECT_FALSE(ReadAvccHead(ByteSpan(body).first(4)).has_value());
  EXPECT_FALSE(ReadHvccHead(ByteSpan(body).first(21)).has_value());
  EXPECT_FALSE(ReadConfigRecord(Codec::kH264, Hex("00000001 6742")).avccHead().has_value());
}

TEST(ConfigRecord, UnitsAreVisitedInPlace) {
  for (const char* const text :
       {kAvcc, "00000001 6742 000001 68CE", "01 64001F FD E1 0003 674201 02 0009 68"}) {
    const Bytes data = Hex(text);
    std::vector<Bytes> visited;
    VisitConfigUnits(Codec::kH264, data, [&](ByteSpan unit) {
      EXPECT_TRUE(unit.data() >= data.data() && unit.data() + unit.size() <= data.data() + data.size());
      visited.emplace_back(unit.begin(), unit.end());
    });
    EXPECT_EQ(visited, ReadConfigRecord(Codec::kH264, data).units()) << text;
  }
}

TEST(ConfigRecord, StartCodesAreNoBox) {
  const Bytes data = Hex("00000001 6742 000001 68CE");
  const ConfigRecord record = ReadConfigRecord(Codec::kH264, data);
  EXPECT_FALSE(record.box);
  EXPECT_TRUE(record.framing.startCodes());
  EXPECT_EQ(record.units().size(), 2u);
  EXPECT_EQ(WriteConfigRecord(record), data);
  EXPECT_TRUE(ReadConfigRecord(Codec::kH264, {}).empty());
}

TEST(ConfigRecord, CutOffAnywhereSaysSo) {
  const Bytes whole = Hex(kAvcc);
  for (size_t size = 3; size < whole.size() - 4; ++size) {
    const ConfigRecord record = ReadConfigRecord(Codec::kH264, ByteSpan(whole).first(size));
    EXPECT_FALSE(record.problem.empty()) << size;
    EXPECT_LE(record.units().size(), 3u);
  }
}

TEST(ConfigRecord, RandomBodiesThatCanBeWalkedComeBack) {
  Random random(11);
  int walked = 0;
  for (int round = 0; round < 5000; ++round) {
    Bytes body = random.zeroRichBytes(5 + random.below(60));
    body[0] = 1;
    for (const Codec codec : {Codec::kH264, Codec::kHevc}) {
      const ConfigRecord record = ReadConfigRecord(codec, body);
      if (!record.problem.empty()) continue;
      ++walked;
      ASSERT_EQ(WriteConfigRecord(record), body) << ToHex(body);
    }
  }
  EXPECT_GT(walked, 100);
}

TEST(ConfigRecord, BoxHeaderIsPutBack) {
  EXPECT_EQ(ToHex(WithBoxHeader(Hex("01"), "avcC")), "00 00 00 09 61 76 63 43 01");
}

}  // namespace
}  // namespace qlnmedia
