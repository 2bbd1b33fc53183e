// Samples of caption tracks, byte by byte.

#include "captions/caption_sample.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qlnmedia::captions {
namespace {

using qln::test::Hex;

std::optional<CaptionSample> Read(const std::string& hex, std::string* reason) {
  const Bytes bytes = Hex(hex);
  const qln::test::ExactCopy data(bytes);
  return ReadCaptionSample(data.bytes(), reason);
}

TEST(CaptionSample, HasThePairsOfBothFields) {
  std::string reason;
  // cdat with two pairs, an atom of another type, cdt2 with one pair.
  const auto sample =
      Read("0000000C 63646174 9420 942C 00000009 66726565 00 0000000A 63647432 15AE", &reason);
  ASSERT_TRUE(sample) << reason;
  EXPECT_TRUE(sample->packets.empty());
  ASSERT_EQ(sample->pictures.size(), 2u);
  EXPECT_EQ(sample->pictures[0],
            (std::vector<Triplet>{{true, CcType::kField1, 0x94, 0x20}, {true, CcType::kField2, 0x15, 0xAE}}));
  EXPECT_EQ(sample->pictures[1], (std::vector<Triplet>{{true, CcType::kField1, 0x94, 0x2C}}));
  EXPECT_TRUE(Read("", &reason)->pictures.empty());
  EXPECT_TRUE(Read("00000008 63646174", &reason)->pictures.empty());
}

TEST(CaptionSample, HasPackets) {
  // cdp_identifier, length 0D + 9, rate 25, flags, counter 1, cc_data with three triplets, footer, checksum.
  Bytes cdp = Hex("9669 16 3F 43 0001 72 E3 FC9420 FD8080 FA0000 74 0001 00");
  uint8_t sum = 0;
  cdp[2] = static_cast<uint8_t>(cdp.size());
  for (const uint8_t byte : cdp) sum = static_cast<uint8_t>(sum + byte);
  cdp.back() = static_cast<uint8_t>(-sum);
  Bytes bytes = Hex("00000000 63636470");
  bytes[3] = static_cast<uint8_t>(cdp.size() + 8);
  bytes.insert(bytes.end(), cdp.begin(), cdp.end());
  std::string reason;
  const auto sample = ReadCaptionSample(bytes, &reason);
  ASSERT_TRUE(sample) << reason;
  ASSERT_EQ(sample->packets.size(), 1u);
  EXPECT_EQ(sample->packets[0].rate, Rate::k25);
  ASSERT_EQ(sample->pictures.size(), 1u);
  EXPECT_EQ(sample->pictures[0].size(), 3u);
  bytes[12] ^= 1;
  EXPECT_FALSE(ReadCaptionSample(bytes, &reason));
  EXPECT_EQ(reason, "the checksum is wrong");
}

TEST(CaptionSample, IsWrittenAtomByAtom) {
  const Triplet first{true, CcType::kField1, 0x94, 0x20}, other{true, CcType::kField1, 0x94, 0x2C};
  const Triplet second{true, CcType::kField2, 0x15, 0xAE}, service{true, CcType::kServiceStart, 0x02, 0x21};
  const Triplet padding{false, CcType::kField1, 0, 0};
  const Bytes both = WriteCaptionSample(std::vector{first, second, other, service, padding});
  EXPECT_EQ(both, Hex("0000000C 63646174 9420 942C 0000000A 63647432 15AE"));
  EXPECT_EQ(FirstFieldBytes(both), 12u);
  EXPECT_EQ(WriteCaptionSample(std::vector{first}), Hex("0000000A 63646174 9420"));
  // Field 1 always says something, if only that there is nothing.
  EXPECT_EQ(WriteCaptionSample(std::vector{second}), Hex("0000000A 63646174 8080 0000000A 63647432 15AE"));
  EXPECT_EQ(WriteCaptionSample({}), Hex("0000000A 63646174 8080"));
}

TEST(CaptionSample, IsRefusedWhereItIsDamaged) {
  const std::pair<const char*, const char*> refused[] = {
      {"0000000C 63646174 9420 94", "an atom's size is not within the sample"},
      {"00000007 63646174 9420", "an atom's size is not within the sample"},
      {"FFFFFFFF 63646174 9420", "an atom's size is not within the sample"},
      {"0000000A 63646174 9420 000000", "bytes behind the last atom"},
      {"0000000B 63646174 9420 94", "a pair of line 21 breaks off"},
      {"00000009 63636470 96", "no cdp_identifier"},
  };
  for (const auto& [hex, what] : refused) {
    std::string reason;
    EXPECT_FALSE(Read(hex, &reason)) << hex;
    EXPECT_EQ(reason, what) << hex;
  }
}

}  // namespace
}  // namespace qlnmedia::captions
