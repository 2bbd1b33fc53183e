// Captions out of H.264 SEI units, and what is found in the payload of any.

#include <gtest/gtest.h>

#include "inband/caption_packets.h"
#include "inband/caption_read_support.h"
#include "qlnutil/inband/caption_packet.h"
#include "qlnutil/inband/caption_payload.h"
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
using test::Triplets;
using test::UsedPart;

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

}  // namespace
}  // namespace qln
