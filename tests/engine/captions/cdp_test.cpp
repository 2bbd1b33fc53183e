// Caption packets: the bytes of every section, what reading gives back, and what is refused.

#include "captions/cdp.h"

#include <gtest/gtest.h>

#include <span>

#include "captions/service_block.h"
#include "qlnmedia/caption_packet.h"
#include "qlnutil/inband/caption_packet.h"
#include "support/test_support.h"

namespace qlnmedia::captions {
namespace {

using qln::test::Hex;
using qln::test::Join;
using qln::test::ToHex;

CaptionPacket Sample() {
  CaptionPacket packet;
  packet.counter = 0x0102;
  packet.triplets = {{true, CcType::kField1, 0x94, 0x2C}, {true, CcType::kField2, 0x80, 0x80}, {}};
  return packet;
}

TEST(Cdp, HasTheBytesOfTheStandard) {
  // identifier, length, 29.97, flags (ccdata, active, reserved), counter, ccdata section, footer
  Bytes expected = Hex("96 69 16 4F 43 01 02 72 E3 FC 94 2C FD 80 80 FA 00 00 74 01 02 00");
  uint32_t sum = 0;
  for (const uint8_t byte : expected) sum += byte;
  expected.back() = static_cast<uint8_t>(256 - sum % 256);
  EXPECT_EQ(ToHex(WriteCdp(Sample())), ToHex(expected));
}

TEST(Cdp, WritesTimecodeAndServiceInformation) {
  CaptionPacket packet = Sample();
  packet.timecode = Timecode{12, 34, 56, 29};
  packet.dropFrame = true;
  packet.serviceInfo = Hex("73 F1 E1 65 6E 67 C1 3F FF");
  packet.serviceActive = false;
  Bytes cdp = WriteCdp(packet);
  cdp.back() = 0;
  EXPECT_EQ(ToHex(cdp), ToHex(Hex("96 69 24 4F FD 01 02 71 D2 B4 56 A9 72 E3 FC 94 2C FD 80 80 FA 00 00"
                                  "73 F1 E1 65 6E 67 C1 3F FF 74 01 02 00")));
}

TEST(Cdp, CountsTwoPicturesAFrameAbove30) {
  CaptionPacket packet = Sample();
  packet.rate = Rate::k59_94;
  packet.timecode = Timecode{0, 0, 1, 59};
  const Bytes cdp = WriteCdp(packet);
  EXPECT_EQ(cdp[3], 0x7F);
  EXPECT_EQ(ToHex(cdp.data() + 7, 5), "71 C0 80 81 29");
}

TEST(Cdp, ReadsWhatItWrites) {
  for (int rate = 0; rate < kRateCount; ++rate) {
    for (const bool timecode : {false, true}) {
      CaptionPacket packet = Sample();
      packet.rate = static_cast<Rate>(rate);
      EXPECT_EQ(WriteCdp(packet)[3], static_cast<uint8_t>((rate + 1) << 4 | 0x0F));
      if (timecode) {
        packet.timecode = Timecode{23, 59, 58, InfoOf(packet.rate).nominal - 1};
        packet.dropFrame = InfoOf(packet.rate).dropFrameAllowed;
        packet.serviceInfo = Hex("73 F1 E1 65 6E 67 C1 3F FF");
      }
      packet.triplets.resize(timecode ? 31 : 0, Triplet{true, CcType::kServiceStart, 1, 2});
      std::string reason;
      const std::optional<CaptionPacket> read = ReadCdp(WriteCdp(packet), &reason);
      ASSERT_TRUE(read) << reason;
      EXPECT_EQ(*read, packet);
    }
  }
}

TEST(Cdp, LeavesOutATimecodeWhoseDigitsAreNone) {
  CaptionPacket packet = Sample();
  packet.timecode = Timecode{12, 34, 56, 29};
  packet.dropFrame = true;
  const Bytes good = WriteCdp(packet);
  for (const size_t at : {8u, 9u, 10u, 11u}) {  // hours, minutes, seconds, frames
    Bytes cdp = good;
    const uint8_t wrong = static_cast<uint8_t>((cdp[at] & 0xF0) | 0x0A);
    cdp.back() = static_cast<uint8_t>(cdp.back() + cdp[at] - wrong);
    cdp[at] = wrong;
    std::string reason;
    const std::optional<CaptionPacket> read = ReadCdp(cdp, &reason);
    ASSERT_TRUE(read) << reason;
    EXPECT_EQ(*read, Sample()) << at;
  }
}

TEST(Cdp, PassesOverSectionsOfLaterEditions) {
  // In front of the footer, with their length behind their identifier.
  const auto withSection = [](const Bytes& section) {
    Bytes cdp = WriteCdp(Sample());
    cdp.insert(cdp.end() - 4, section.begin(), section.end());
    cdp[2] = static_cast<uint8_t>(cdp.size());
    cdp.back() = 0;
    uint8_t sum = 0;
    for (const uint8_t byte : cdp) sum = static_cast<uint8_t>(sum + byte);
    cdp.back() = static_cast<uint8_t>(-sum);
    return cdp;
  };
  std::string reason;
  for (const char* section : {"75 00", "EF 03 74 01 02", "75 01 74 80 02 AA BB"})
    EXPECT_EQ(ReadCdp(withSection(Hex(section)), &reason), Sample()) << section << reason;
  for (const char* section : {"F0 00", "75 09 00", "70 00"})
    EXPECT_EQ(ReadCdp(withSection(Hex(section)), &reason), std::nullopt) << section;
}

TEST(Cdp, RefusesWhatIsNoPacket) {
  const Bytes good = WriteCdp(Sample());
  std::string reason;
  for (size_t size = 0; size < good.size(); ++size) {
    EXPECT_FALSE(ReadCdp(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)), &reason))
        << size;
  }
  for (size_t at = 0; at < good.size(); ++at) {
    Bytes bad = good;
    bad[at] ^= 0x10;
    EXPECT_FALSE(ReadCdp(bad, &reason)) << at;
    EXPECT_FALSE(reason.empty());
  }
  EXPECT_FALSE(ReadCdp(Join({good, {0}}), &reason));
}

TEST(Anc, WrapsAndUnwraps) {
  const Bytes cdp = WriteCdp(Sample());
  Bytes anc = WrapInAnc(cdp);
  EXPECT_EQ(ToHex(anc), "61 01 16 " + ToHex(cdp));
  std::string reason;
  EXPECT_EQ(UnwrapAnc(anc, &reason).value_or(Bytes{}), cdp);
  anc.push_back(AncChecksum(anc));
  EXPECT_EQ(anc.back(), 0x78);  // 61 + 01 + 16, and the rest sums to 0
  EXPECT_EQ(UnwrapAnc(anc, &reason).value_or(Bytes{}), cdp);
  anc.back() ^= 1;
  EXPECT_FALSE(UnwrapAnc(anc, &reason));
  EXPECT_EQ(reason, "the ANC checksum is wrong");
  EXPECT_FALSE(UnwrapAnc(Hex("61 01"), &reason));
  EXPECT_FALSE(UnwrapAnc(Hex("61 02 00"), &reason));
  EXPECT_FALSE(UnwrapAnc(Hex("61 01 05 96"), &reason));
  EXPECT_TRUE(WrapInAnc(Bytes(256)).empty());
  EXPECT_EQ(WrapInAnc(Bytes(255)).size(), 258u);
}

TEST(Anc, MakesPacketsThatFramesTake) {
  for (int rate = 0; rate < kRateCount; ++rate) {
    CaptionPacket packet = Sample();
    packet.rate = static_cast<Rate>(rate);
    packet.triplets.resize(static_cast<size_t>(InfoOf(packet.rate).triplets));
    Bytes anc = WrapInAnc(WriteCdp(packet));
    const Bytes frame = FramePacket(anc);
    EXPECT_EQ(qln::CheckCaptionPacket(frame.data(), static_cast<uint32_t>(frame.size())), 0);
    // The same with the ANC checksum that files have.
    anc.push_back(AncChecksum(anc));
    EXPECT_EQ(FramePacket(anc), frame);
  }
}

TEST(ChannelPacket, LaysBlocksOut) {
  EXPECT_EQ(ToHex(MakeChannelPacket(2, {{1, Hex("41 42 03")}})), "83 23 41 42 03 00");
  EXPECT_EQ(ToHex(MakeChannelPacket(1, {{1, Hex("41")}, {7, Hex("42")}})), "43 21 41 E1 07 42");
  EXPECT_TRUE(MakeChannelPacket(0, {{64, {}}}).empty());
  EXPECT_TRUE(MakeChannelPacket(0, {{1, Bytes(32)}}).empty());
  // 127 bytes behind the header are the most, and their size is coded 0.
  const ServiceBlock full{1, Bytes(31, 0x41)};
  const Bytes longest = MakeChannelPacket(3, {full, full, full, {1, Bytes(30, 0x41)}});
  EXPECT_EQ(longest.size(), 128u);
  EXPECT_EQ(longest[0], 0xC0);
  EXPECT_TRUE(MakeChannelPacket(3, {full, full, full, full}).empty());
}

TEST(ChannelPacket, BecomesTriplets) {
  const std::vector<Triplet> triplets = TripletsOf(Hex("83 23 41 42 03 00"));
  ASSERT_EQ(triplets.size(), 3u);
  EXPECT_EQ(triplets[0], (Triplet{true, CcType::kServiceStart, 0x83, 0x23}));
  EXPECT_EQ(triplets[1], (Triplet{true, CcType::kServiceData, 0x41, 0x42}));
  EXPECT_EQ(triplets[2], (Triplet{true, CcType::kServiceData, 0x03, 0x00}));
}

TEST(ChannelPacket, ShowsAText) {
  const std::vector<ServiceBlock> blocks = ShowText("HI\nYOU", 2);
  ASSERT_EQ(blocks.size(), 1u);
  EXPECT_EQ(blocks[0].service, 2);
  EXPECT_EQ(ToHex(blocks[0].data), "8C FF 98 20 DA 32 71 1F 09 48 49 0D 59 4F 55 03");
  EXPECT_EQ(ShowText(std::string(60, 'A')).size(), 3u);
}

TEST(TripletsOfPacket, GivesThoseOfAWholePacketAndNoOther) {
  CaptionPacket packet;
  packet.triplets = {{true, CcType::kField1, 0x94, 0x2C}, {true, CcType::kServiceStart, 0x02, 0x21}};
  Bytes cdp = WriteCdp(packet);
  EXPECT_EQ(TripletsOfPacket(cdp), packet.triplets);
  for (size_t size = 0; size < cdp.size(); ++size)
    EXPECT_FALSE(TripletsOfPacket(std::span(cdp).first(size))) << size;
  cdp.back() ^= 1;
  std::string reason;
  EXPECT_FALSE(TripletsOfPacket(cdp, &reason));
  EXPECT_NE(reason, "");
}

}  // namespace
}  // namespace qlnmedia::captions
