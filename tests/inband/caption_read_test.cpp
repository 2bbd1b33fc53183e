// Captions out of SEI units: the packet built around H.264 triplets, and what is found in HEVC payloads.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "inband/caption_packets.h"
#include "qlnutil/inband/caption_packet.h"
#include "qlnutil/inband/caption_payload.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

using test::Bytes;
using test::CaptionPacket;
using test::ExactCopy;
using test::Hex;
using test::Join;
using test::MessageCapture;
using test::Random;
using test::Triplets;
using testing::ElementsAre;
using testing::IsEmpty;

// A caption part full of 0xEE, to see what is touched.
DFrameCaptionPart UsedPart() {
  DFrameCaptionPart part;
  std::memset(static_cast<void*>(&part), 0xEE, sizeof part);
  return part;
}

Bytes CaptionOf(const DFrameCaptionPart& part) {
  return Bytes(part.captionData, part.captionData + part.captionSize);
}

void ExpectUntouchedBeside(const DFrameCaptionPart& part, size_t used) {
  EXPECT_EQ(part.timeCodeA, 0xEEEEEEEEu);
  EXPECT_EQ(part.timeCodeB, 0xEEEEEEEEu);
  EXPECT_EQ(part.timeCodeC, 0xEEEEEEEEu);
  for (size_t i = used; i < sizeof part.captionData; ++i) ASSERT_EQ(part.captionData[i], 0xEE) << i;
}

// ---- H.264 ----

Bytes AvcSei(const Bytes& triplets, uint8_t count) {
  return Join({Hex("06 04 11 B5 00 31"),
               {'G', 'A', '9', '4'},
               {0x03, static_cast<uint8_t>(0xC0 | count), 0xFF},
               triplets,
               Hex("FF 80")});
}

DFrameCaptionPart ReadAvc(const Bytes& sei, uint32_t rate = 29) {
  DFrameCaptionPart part = UsedPart();
  ExactCopy copy(sei);
  EXPECT_EQ(qlnUtilReadH264CaptionsSEI(copy.data(), static_cast<uint32_t>(copy.size()), rate, 5, &part), 0);
  return part;
}

TEST(ReadH264Captions, BuildsThePacket) {
  const DFrameCaptionPart part = ReadAvc(AvcSei(Hex("FC 94 2C FD 80 80"), 2), 25);
  EXPECT_EQ(part.captionSize, 25u);
  EXPECT_EQ(part.captionFlags, 0x1000u);
  // The first sum runs from offset 7 to the 74, the second from offset 6 to the first sum.
  Bytes packet = Hex("80 80 80 80 61 01 12 96 69 12 3F 43 00 02 72 E2 FC 94 2C FD 80 80 74");
  uint32_t sum = 0;
  for (size_t i = 7; i < packet.size(); ++i) sum += packet[i];
  packet.push_back(static_cast<uint8_t>(sum));
  sum = 0;
  for (size_t i = 6; i < packet.size(); ++i) sum += packet[i];
  packet.push_back(static_cast<uint8_t>(sum));
  EXPECT_EQ(CaptionOf(part), packet);
  ExpectUntouchedBeside(part, 25);
}

TEST(ReadH264Captions, SizesThePacketByTheCount) {
  for (uint8_t count = 0; count < 32; ++count) {
    const DFrameCaptionPart part = ReadAvc(AvcSei(Triplets(count), count));
    EXPECT_EQ(part.captionSize, 19u + 3u * count);
    EXPECT_EQ(part.captionData[6], 12 + 3 * count);
    EXPECT_EQ(part.captionData[9], 12 + 3 * count);
    EXPECT_EQ(part.captionData[15], 0xE0 | count);
    ExpectUntouchedBeside(part, part.captionSize);
  }
}

TEST(ReadH264Captions, TellsTheRate) {
  const std::pair<uint32_t, int> rates[] = {{23, 0x1F}, {24, 0x2F},  {25, 0x3F},         {29, 0x4F},
                                            {30, 0x5F}, {50, 0x6F},  {59, 0x7F},         {60, 0x8F},
                                            {0, 0x4F},  {120, 0x4F}, {0xFFFFFFFFu, 0x4F}};
  for (const auto& [rate, byte] : rates) {
    EXPECT_EQ(ReadAvc(AvcSei(Triplets(2), 2), rate).captionData[10], byte) << rate;
  }
}

TEST(ReadH264Captions, LeavesOtherUnitsEmpty) {
  const Bytes good = AvcSei(Triplets(2), 2);
  for (const size_t at : {0u, 1u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 12u}) {
    Bytes sei = good;
    sei[at] ^= 0x02;
    const DFrameCaptionPart part = ReadAvc(sei);
    EXPECT_EQ(part.captionSize, 0u) << at;
    EXPECT_EQ(part.captionFlags, 0u) << at;
    ExpectUntouchedBeside(part, 0);
  }
  // Size and country are not looked at.
  Bytes sei = good;
  sei[2] = 0;
  sei[3] = 0;
  EXPECT_EQ(ReadAvc(sei).captionSize, 25u);
}

TEST(ReadH264Captions, NeverLooksPastTheSize) {
  const Bytes good = AvcSei(Triplets(31), 31);
  for (size_t size = 0; size <= good.size(); ++size) {
    const DFrameCaptionPart part =
        ReadAvc(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)));
    if (size < 13) {
      EXPECT_EQ(part.captionSize, 0u) << size;
      continue;
    }
    // Triplets behind the size are zero.
    ASSERT_EQ(part.captionSize, 19u + 93u);
    for (size_t i = 0; i < 93; ++i) EXPECT_EQ(part.captionData[16 + i], 13 + i < size ? good[13 + i] : 0);
  }
}

TEST(ReadH264Captions, MakesAPacketThatTheAddersRefuse) {
  MessageCapture capture;
  const DFrameCaptionPart part = ReadAvc(AvcSei(Triplets(20), 20));
  EXPECT_EQ(CheckCaptionPacket(part.captionData, part.captionSize), -2);
}

TEST(ReadH264Captions, TakesNullArguments) {
  const Bytes sei = AvcSei(Triplets(2), 2);
  EXPECT_EQ(qlnUtilReadH264CaptionsSEI(sei.data(), 21, 25, 0, nullptr), 0);
  DFrameCaptionPart part = UsedPart();
  EXPECT_EQ(qlnUtilReadH264CaptionsSEI(nullptr, 21, 25, 0, &part), 0);
  EXPECT_EQ(part.captionSize, 0u);
  EXPECT_EQ(part.captionFlags, 0u);
}

TEST(ReadH264Captions, ReadsIntoAFrame) {
  DFrame frame = {};
  frame.timeCodeA = 77;
  frame.colorFlags = 88;
  const Bytes sei = AvcSei(Triplets(2), 2);
  EXPECT_EQ(
      qlnUtilReadH264CaptionsSEI(sei.data(), static_cast<uint32_t>(sei.size()), 25, 0, DFrameCaption(&frame)),
      0);
  EXPECT_EQ(frame.captionSize, 25u);
  EXPECT_EQ(frame.captionFlags, QLN_CAPTION_ANC);
  EXPECT_EQ(frame.captionData[4], 0x61);
  EXPECT_EQ(frame.timeCodeA, 77u);
  EXPECT_EQ(frame.colorFlags, 88u);
}

// ---- What is found in a payload ----

struct Found {
  int32_t result;
  Bytes bytes;
  uint32_t flags;
};

Found Parse(const Bytes& payload) {
  ExactCopy copy(payload);
  ExactCopy output(Bytes(262, 0xEE));
  uint32_t size = 99;
  uint32_t flags = 99;
  const int32_t result =
      ParseCaptionPayload(copy.data(), static_cast<uint32_t>(copy.size()), 0, output.data(), &size, &flags);
  const Bytes all = output.bytes();
  for (size_t i = std::max<size_t>(size, 4); i < all.size(); ++i) EXPECT_EQ(all[i], 0xEE);
  return {result, Bytes(all.begin(), all.begin() + size), flags};
}

TEST(ParseCaptionPayload, NeedsAllPointers) {
  uint8_t output[262] = {};
  const uint8_t pair[2] = {0x94, 0x2C};
  uint32_t size = 99;
  uint32_t flags = 98;
  EXPECT_EQ(ParseCaptionPayload(nullptr, 2, 0, output, &size, &flags), -1);
  EXPECT_EQ(ParseCaptionPayload(pair, 2, 0, nullptr, &size, &flags), -1);
  EXPECT_EQ(ParseCaptionPayload(pair, 2, 0, output, nullptr, &flags), -1);
  EXPECT_EQ(ParseCaptionPayload(pair, 2, 0, output, &size, nullptr), -1);
  EXPECT_EQ(size, 99u);
  EXPECT_EQ(flags, 98u);
  EXPECT_EQ(output[0], 0);
}

TEST(ParseCaptionPayload, TakesTwoBytesAsAPair) {
  const Found pair = Parse(Hex("94 2C"));
  EXPECT_EQ(pair.result, 0);
  EXPECT_EQ(pair.bytes, Hex("94 2C"));
  EXPECT_EQ(pair.flags, 0x100u);
  EXPECT_EQ(Parse(Hex("00 2C")).bytes, Hex("80 2C"));
  EXPECT_EQ(Parse(Hex("94 00")).bytes, Hex("94 80"));
}

TEST(ParseCaptionPayload, FindsNothingInShortPayloads) {
  for (const char* payload : {"", "94", "61 02 02", "61 02 02 94", "61 02 02 94 2C"}) {
    const Found found = Parse(Hex(payload));
    EXPECT_EQ(found.result, -1) << payload;
    EXPECT_EQ(found.flags, 0u);
    EXPECT_TRUE(found.bytes.empty());
  }
}

TEST(ParseCaptionPayload, FindsAWholePacket) {
  const Bytes packet = CaptionPacket(Triplets(20));
  const Bytes anc(packet.begin() + 4, packet.end() - 0);
  // The data count leads n + 3 bytes on: that is all of them.
  ASSERT_EQ(anc.size(), 3u + 73u);
  const Found found = Parse(Join({Hex("B5 00 31 61 00 FF"), anc, Hex("FF 80")}));
  EXPECT_EQ(found.result, 0);
  EXPECT_EQ(found.bytes, packet);
  EXPECT_EQ(found.flags, 0x1000u);
  // It may end with the payload, and not behind it.
  EXPECT_EQ(Parse(anc).result, 0);
  EXPECT_EQ(Parse(Bytes(anc.begin(), anc.end() - 1)).result, -1);
}

TEST(ParseCaptionPayload, AsksForTheIdentifierInAWholePacket) {
  EXPECT_EQ(Parse(Hex("61 01 03 96 69 03")).flags, 0x1000u);
  EXPECT_EQ(Parse(Hex("61 01 03 97 69 03")).result, -1);
  EXPECT_EQ(Parse(Hex("61 01 03 96 68 03")).result, -1);
  EXPECT_EQ(Parse(Hex("61 03 03 96 69 03")).result, -1);
  EXPECT_EQ(Parse(Hex("61 01 04 96 69 03")).result, -1);
}

TEST(ParseCaptionPayload, FindsLine21Pairs) {
  const Found one = Parse(Hex("61 02 02 94 2C 55"));
  EXPECT_EQ(one.result, 0);
  EXPECT_EQ(one.bytes, Hex("94 2C"));
  EXPECT_EQ(one.flags, 0x100u);
  const Found two = Parse(Hex("AA 61 02 04 94 2C 15 2D"));
  EXPECT_EQ(two.bytes, Hex("94 2C 15 2D"));
  EXPECT_EQ(two.flags, 0x300u);
  // Zero bytes stay here.
  EXPECT_EQ(Parse(Hex("61 02 02 00 00 55")).bytes, Hex("00 00"));
  // A second pair that is not all there is left out.
  EXPECT_EQ(Parse(Hex("61 02 04 94 2C 15")).flags, 0x100u);
  EXPECT_EQ(Parse(Hex("61 02 03 94 2C 15 2D")).flags, 0x100u);
  // A count below 2 is passed over.
  EXPECT_EQ(Parse(Hex("61 02 01 94 2C 15 2D")).result, -1);
}

TEST(ParseCaptionPayload, SearchesUntilFourBytesAreLeft) {
  EXPECT_EQ(Parse(Hex("55 61 02 02 94 2C")).flags, 0x100u);
  EXPECT_EQ(Parse(Hex("55 55 61 02 02 94")).result, -1);
  // The first that fits counts.
  EXPECT_EQ(Parse(Hex("61 01 40 96 69 61 02 02 94 2C")).bytes, Hex("94 2C"));
}

// ---- HEVC ----

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
