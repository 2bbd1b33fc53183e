// Captions out of HEVC SEI units.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "inband/caption_packets.h"
#include "inband/caption_read_support.h"
#include "qlnutil/inband/caption_packet.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

using test::Bytes;
using test::CaptionOf;
using test::CaptionPacket;
using test::ExactCopy;
using test::ExpectUntouchedBeside;
using test::Hex;
using test::Join;
using test::MessageCapture;
using test::Random;
using test::Triplets;
using test::UsedPart;
using testing::ElementsAre;
using testing::IsEmpty;

struct HevcRead {
  DFrameCaptionPart part;
  std::vector<std::string> messages;
};

HevcRead ReadHevc(const Bytes& sei, uint16_t* counter = nullptr) {
  MessageCapture capture;
  HevcRead read{UsedPart(), {}};
  ExactCopy copy(sei);
  EXPECT_EQ(
      qlnUtilReadHevcCaptionsSEI(copy.data(), static_cast<uint32_t>(copy.size()), 5, counter, &read.part), 0);
  read.messages = capture.texts();
  EXPECT_EQ(read.part.timeCodeA, 0xEEEEEEEEu);
  EXPECT_EQ(read.part.timeCodeC, 0xEEEEEEEEu);
  return read;
}

// The ANC packet of a caption packet in a prefix SEI unit.
Bytes HevcSei(const Bytes& packet) {
  return Join({Hex("4E 01 04 50 B5 00 31"), Bytes(packet.begin() + 4, packet.end()), Hex("80")});
}

TEST(ReadHevcCaptions, KeepsThePacketsOwnCounter) {
  const Bytes packet = CaptionPacket(Triplets(20), {.counter = 0x1234});
  const HevcRead read = ReadHevc(HevcSei(packet));
  EXPECT_EQ(read.part.captionFlags, 0x1000u);
  EXPECT_EQ(CaptionOf(read.part), packet);
  EXPECT_THAT(read.messages, IsEmpty());
  ExpectUntouchedBeside(read.part, packet.size());
}

TEST(ReadHevcCaptions, RenewsCounterAndChecksum) {
  Bytes packet = CaptionPacket(Triplets(20), {.counter = 0x1234, .plainSum = true});
  packet[77] ^= 0x55;  // the footer's counter
  uint16_t counter = 0xFFFF;
  const HevcRead read = ReadHevc(HevcSei(packet), &counter);
  EXPECT_EQ(CaptionOf(read.part), CaptionPacket(Triplets(20), {.counter = 0xFFFF}));
  EXPECT_EQ(counter, 0);
  const HevcRead next = ReadHevc(HevcSei(packet), &counter);
  EXPECT_EQ(CaptionOf(next.part), CaptionPacket(Triplets(20), {.counter = 0}));
  EXPECT_EQ(counter, 1);
  EXPECT_EQ(CheckCaptionPacket(next.part.captionData, next.part.captionSize), 0);
}

TEST(ReadHevcCaptions, LeavesOtherUnitsEmpty) {
  const Bytes good = HevcSei(CaptionPacket(Triplets(3)));
  uint16_t counter = 7;
  for (const auto& [at, value] :
       std::vector<std::pair<size_t, uint8_t>>{{0, 0x50}, {0, 0x06}, {2, 5}, {2, 0}}) {
    Bytes sei = good;
    sei[at] = value;
    const HevcRead read = ReadHevc(sei, &counter);
    EXPECT_EQ(read.part.captionSize, 0u);
    EXPECT_EQ(read.part.captionFlags, 0u);
    ExpectUntouchedBeside(read.part, 0);
  }
  EXPECT_EQ(counter, 7);
  // The lowest bit of the first byte belongs to the layer, the highest is forbidden_zero_bit.
  Bytes sei = good;
  sei[0] = 0xCF;
  EXPECT_EQ(ReadHevc(sei).part.captionFlags, 0x1000u);
}

TEST(ReadHevcCaptions, GivesNothingForA53Triplets) {
  uint16_t counter = 7;
  const HevcRead read = ReadHevc(
      Join({Hex("4E 01 04 11 B5 00 31"), {'G', 'A', '9', '4'}, Hex("03 C2 FF"), Triplets(2), Hex("FF 80")}),
      &counter);
  EXPECT_EQ(read.part.captionSize, 0u);
  EXPECT_EQ(read.part.captionFlags, 0u);
  EXPECT_EQ(counter, 7);
  EXPECT_THAT(read.messages, IsEmpty());
}

TEST(ReadHevcCaptions, ReadsLine21Pairs) {
  uint16_t counter = 7;
  const HevcRead one = ReadHevc(Hex("4E 01 04 05 B5 00 31 94 2C"), &counter);
  EXPECT_EQ(one.part.captionFlags, 0x100u);
  EXPECT_EQ(CaptionOf(one.part), Hex("94 2C"));
  const HevcRead two = ReadHevc(Hex("4E 01 04 09 B5 00 31 61 02 04 94 2C 15 2D 80"), &counter);
  EXPECT_EQ(two.part.captionFlags, 0x300u);
  EXPECT_EQ(CaptionOf(two.part), Hex("94 2C 15 2D"));
  EXPECT_EQ(counter, 7);
  EXPECT_THAT(one.messages, IsEmpty());
  EXPECT_THAT(two.messages, IsEmpty());
}

TEST(ReadHevcCaptions, ReportsAPacketWhoseLengthsDiffer) {
  Bytes packet = CaptionPacket(Triplets(3));
  packet[9] ^= 1;
  uint16_t counter = 7;
  const HevcRead read = ReadHevc(HevcSei(packet), &counter);
  EXPECT_THAT(read.messages, ElementsAre("ERROR: mfcc, bad start or size 0x61 0x01 0x16 0x96 0x69 0x17 "));
  EXPECT_EQ(read.part.captionFlags, 0x1000u);
  EXPECT_EQ(CaptionOf(read.part), packet);
  EXPECT_EQ(counter, 7);
}

TEST(ReadHevcCaptions, CountsBytesBehindAShortPacketAsZero) {
  uint16_t counter = 7;
  const auto sei = [](const char* anc) { return Join({Hex("4E 01 04 09 B5 00 31"), Hex(anc)}); };
  const HevcRead none = ReadHevc(sei("61 01 00 96 69 00"), &counter);
  EXPECT_THAT(none.messages, ElementsAre("ERROR: mfcc, bad start or size 0x61 0x01 0x00 0x00 0x00 0x00 "));
  EXPECT_EQ(none.part.captionSize, 7u);
  const HevcRead one = ReadHevc(sei("61 01 01 96 69 01"), &counter);
  EXPECT_THAT(one.messages, ElementsAre("ERROR: mfcc, bad start or size 0x61 0x01 0x01 0x96 0x00 0x00 "));
  EXPECT_EQ(one.part.captionSize, 8u);
  const HevcRead two = ReadHevc(sei("61 01 02 96 69 02"), &counter);
  EXPECT_THAT(two.messages, ElementsAre("ERROR: mfcc, bad start or size 0x61 0x01 0x02 0x96 0x69 0x00 "));
  EXPECT_EQ(counter, 7);
  // Three bytes of body pass: the counter goes over the identifier, and behind the packet.
  counter = 0x0A0B;
  const HevcRead three = ReadHevc(sei("61 01 03 96 69 03"), &counter);
  EXPECT_THAT(three.messages, IsEmpty());
  EXPECT_EQ(CaptionOf(three.part), Hex("80 80 80 80 61 01 03 0A 0B EB"));
  EXPECT_EQ(three.part.captionData[12], 0x0A);
  EXPECT_EQ(three.part.captionData[13], 0x0B);
  EXPECT_EQ(counter, 0x0A0C);
  // Its own counter, which is not there, counts as 0.
  const HevcRead own = ReadHevc(sei("61 01 03 96 69 03"));
  EXPECT_EQ(CaptionOf(own.part), Hex("80 80 80 80 61 01 03 00 00 00"));
}

TEST(ReadHevcCaptions, NeverLooksPastTheSize) {
  const Bytes good = HevcSei(CaptionPacket(Triplets(20)));
  for (size_t size = 0; size < good.size() - 1; ++size) {
    const HevcRead read = ReadHevc(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)));
    // Two bytes behind the head look like a line 21 pair.
    EXPECT_EQ(read.part.captionSize, size == 9 ? 2u : 0u) << size;
  }
}

TEST(ReadHevcCaptions, TakesNullArguments) {
  const Bytes sei = HevcSei(CaptionPacket(Triplets(2)));
  EXPECT_EQ(qlnUtilReadHevcCaptionsSEI(sei.data(), 21, 0, nullptr, nullptr), 0);
  DFrameCaptionPart part = UsedPart();
  EXPECT_EQ(qlnUtilReadHevcCaptionsSEI(nullptr, 21, 0, nullptr, &part), 0);
  EXPECT_EQ(part.captionSize, 0u);
  EXPECT_EQ(part.captionFlags, 0u);
}

TEST(ReadHevcCaptions, StaysInsideForTheLongestCount) {
  Random random(8);
  for (int round = 0; round < 200; ++round) {
    Bytes anc = random.bytes(3 + 255);
    anc[0] = 0x61;
    anc[1] = 1;
    anc[2] = 255;
    anc[3] = 0x96;
    anc[4] = 0x69;
    anc[5] = 255;
    uint16_t counter = static_cast<uint16_t>(random.next());
    const HevcRead read = ReadHevc(Join({Hex("4E 01 04 09 B5 00 31"), anc}), &counter);
    ASSERT_EQ(read.part.captionSize, 262u);
    uint32_t sum = 0;
    for (size_t i = 7; i < 262; ++i) sum += read.part.captionData[i];
    ASSERT_EQ(sum & 0xFF, 0u);
    ExpectUntouchedBeside(read.part, 262);
  }
}

}  // namespace
}  // namespace qln
