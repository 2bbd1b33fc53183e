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
