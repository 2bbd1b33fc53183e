// Captions into HEVC frames: the unit, its place, room, fields, and packets that do not hold what they say.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "inband/caption_packets.h"
#include "inband/test_frame.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

using test::Bytes;
using test::CaptionPacket;
using test::Hex;
using test::Join;
using test::MessageCapture;
using test::Random;
using test::TestFrame;
using test::Triplets;
using test::WithStartCode;
using testing::ElementsAre;
using testing::IsEmpty;

const Bytes kHevcSlice = Hex("26 01 AF 09 40 F3 28");  // type 19
const Bytes kHevcVps = Hex("40 01 0C 01 FF FF 80");

// The SEI unit of `triplets`, when nothing in it needs escaping.
Bytes HevcUnit(const Bytes& triplets) {
  const auto n = static_cast<uint8_t>(triplets.size() / 3);
  return Join({Hex("00 00 00 01 4E 01 04"),
               {static_cast<uint8_t>(11 + 3 * n)},
               Hex("B5 00 31"),
               {'G', 'A', '9', '4'},
               {0x03, static_cast<uint8_t>(0xC0 | n), 0xFF},
               triplets,
               Hex("FF 80")});
}

struct HevcResult {
  uint32_t length;
  Bytes bytes;  // of the frame, the length added to its size
  std::vector<std::string> messages;
  uint32_t secondFieldOffset;
};

HevcResult AddHevc(const Bytes& frameBytes, const Bytes& packet, size_t capacity, uint32_t fieldFlags = 0,
                   uint32_t secondFieldOffset = 0) {
  MessageCapture capture;
  TestFrame frame(frameBytes, capacity);
  frame.SetCaption(packet);
  frame->fieldFlags = fieldFlags;
  frame->secondFieldOffset = secondFieldOffset;
  const uint32_t length = qlnUtilAddHevcCaptions(frame.get(), 77);
  EXPECT_EQ(frame->frameSize, frameBytes.size());
  frame->frameSize += length;
  const Bytes after = frame.bytes();
  const Bytes block = frame.block();
  EXPECT_EQ(Bytes(block.begin() + static_cast<std::ptrdiff_t>(after.size()), block.end()),
            Bytes(block.size() - after.size(), 0xA5));
  return {length, after, capture.textsWithoutLines(), frame->secondFieldOffset};
}

TEST(AddHevcCaptions, PutsAllTripletsInFrontOfTheFirstSlice) {
  const Bytes head = Join({WithStartCode(kHevcVps), WithStartCode(Hex("46 01 50"))});
  const Bytes slice = WithStartCode(kHevcSlice);
  const HevcResult result = AddHevc(Join({head, slice}), CaptionPacket(Triplets(20)), 1000);
  EXPECT_EQ(result.length, 19u + 60u + 1u);
  EXPECT_EQ(result.bytes, Join({head, HevcUnit(Triplets(20)), slice}));
  EXPECT_THAT(result.messages, IsEmpty());
}

TEST(AddHevcCaptions, TakesTripletsBehindATimeCodeSection) {
  const Bytes slice = WithStartCode(kHevcSlice);
  const HevcResult result = AddHevc(slice, CaptionPacket(Triplets(31), {.timeCode = true}), 1000);
  EXPECT_EQ(result.bytes, Join({HevcUnit(Triplets(31)), slice}));
}

TEST(AddHevcCaptions, InsertsEmulationPrevention) {
  const Bytes slice = WithStartCode(kHevcSlice);
  const HevcResult result = AddHevc(slice, CaptionPacket(Hex("00 00 00 00 00 02")), 1000);
  EXPECT_EQ(result.bytes, Join({Hex("00 00 00 01 4E 01 04 11 B5 00 31"),
                                {'G', 'A', '9', '4'},
                                Hex("03 C2 FF 00 00 03 00 00 03 00 02 FF 80"),
                                slice}));
}

TEST(AddHevcCaptions, GoesInFrontOfTheToldTypesOnly) {
  for (uint32_t type = 0; type < 64; ++type) {
    const Bytes other = WithStartCode({static_cast<uint8_t>(type << 1), 0x01, 0xAF});
    const Bytes slice = WithStartCode(kHevcSlice);
    const HevcResult result = AddHevc(Join({other, slice}), CaptionPacket(Triplets(3)), 1000);
    const bool taken = type <= 9 || (type >= 16 && type <= 21) || type == 39;
    EXPECT_EQ(result.bytes, taken ? Join({HevcUnit(Triplets(3)), other, slice})
                                  : Join({other, HevcUnit(Triplets(3)), slice}))
        << type;
  }
}

TEST(AddHevcCaptions, GoesInFrontOfTheStartCode) {
  const Bytes vps = WithStartCode(kHevcVps);
  const Bytes threeByteSlice = WithStartCode(kHevcSlice, 3);
  EXPECT_EQ(AddHevc(Join({vps, threeByteSlice}), CaptionPacket(Triplets(3)), 1000).bytes,
            Join({vps, HevcUnit(Triplets(3)), threeByteSlice}));
  EXPECT_EQ(AddHevc(threeByteSlice, CaptionPacket(Triplets(3)), 1000).bytes,
            Join({HevcUnit(Triplets(3)), threeByteSlice}));
  // Zero bytes in front of the start code stay in front of the unit.
  EXPECT_EQ(
      AddHevc(Join({vps, Hex("00 00"), WithStartCode(kHevcSlice)}), CaptionPacket(Triplets(3)), 1000).bytes,
      Join({vps, Hex("00 00"), HevcUnit(Triplets(3)), WithStartCode(kHevcSlice)}));
  // Bytes that belong to no unit do so as well.
  EXPECT_EQ(AddHevc(Join({Hex("AA BB"), threeByteSlice}), CaptionPacket(Triplets(3)), 1000).bytes,
            Join({Hex("AA BB"), HevcUnit(Triplets(3)), threeByteSlice}));
}

TEST(AddHevcCaptions, NeedsMoreRoomThanItsLength) {
  const Bytes slice = WithStartCode(kHevcSlice);
  const Bytes packet = CaptionPacket(Triplets(20));
  EXPECT_EQ(AddHevc(slice, packet, slice.size() + 80).length, 0u);
  EXPECT_EQ(AddHevc(slice, packet, slice.size() + 80).bytes, slice);
  EXPECT_EQ(AddHevc(slice, packet, slice.size() + 81).length, 80u);
}

TEST(AddHevcCaptions, FindsNoPlaceWithoutAUnit) {
  const Bytes packet = CaptionPacket(Triplets(3));
  EXPECT_EQ(AddHevc({}, packet, 1000).length, 0u);
  EXPECT_EQ(AddHevc(Hex("26 01 AF"), packet, 1000).length, 0u);           // too short to search
  EXPECT_EQ(AddHevc(Hex("02 01 AF 11 22 33"), packet, 1000).length, 0u);  // no start code
  EXPECT_EQ(AddHevc(WithStartCode(kHevcVps), packet, 1000).length, 0u);
  EXPECT_EQ(AddHevc(Join({WithStartCode({}), WithStartCode(kHevcSlice)}), packet, 1000).length,
            0u);  // empty unit
  EXPECT_EQ(qlnUtilAddHevcCaptions(nullptr, 0), 0u);
  TestFrame frame(WithStartCode(kHevcSlice), 1000);
  frame.SetCaption(packet);
  frame->frameData = nullptr;
  EXPECT_EQ(qlnUtilAddHevcCaptions(frame.get(), 0), 0u);
}

TEST(AddHevcCaptions, FindsAUnitOfOneByteAtTheEnd) {
  const Bytes packet = CaptionPacket(Triplets(3));
  const Bytes frame = Join({WithStartCode(kHevcVps), Hex("00 00 01 02")});
  const HevcResult result = AddHevc(frame, packet, 1000);
  EXPECT_EQ(result.length, 29u);
  EXPECT_EQ(result.bytes, Join({WithStartCode(kHevcVps), HevcUnit(Triplets(3)), Hex("00 00 01 02")}));
}

TEST(AddHevcCaptions, MovesTheSecondField) {
  const Bytes first = Join({WithStartCode(kHevcVps), WithStartCode(kHevcSlice)});
  const Bytes frame = Join({first, WithStartCode(kHevcSlice)});
  const Bytes packet = CaptionPacket(Triplets(3));
  const auto second = static_cast<uint32_t>(first.size());
  EXPECT_EQ(AddHevc(frame, packet, 1000, 0x60000, second).secondFieldOffset, second + 29);
  EXPECT_EQ(AddHevc(frame, packet, 1000, 0x20000, second).secondFieldOffset, second);
  EXPECT_EQ(AddHevc(frame, packet, 1000, 0x40000, second).secondFieldOffset, second);
  // The unit goes in at 11: not in front of a second field that begins there.
  EXPECT_EQ(AddHevc(frame, packet, 1000, 0x60000, 11).secondFieldOffset, 11u);
  EXPECT_EQ(AddHevc(frame, packet, 1000, 0x60000, 12).secondFieldOffset, 12u + 29u);
}

TEST(AddHevcCaptions, ReportsWhatItCannotTake) {
  const Bytes slice = WithStartCode(kHevcSlice);
  const std::string notAdded = "Sei cc not added Length 0 support/qlnutil/qlnvidutil LINE";
  for (const uint32_t size : {0u, 3u, 0xFFFFFFFFu}) {
    MessageCapture capture;
    TestFrame frame(slice, 1000);
    frame->captionSize = size;
    EXPECT_EQ(qlnUtilAddHevcCaptions(frame.get(), 0), 0u);
    EXPECT_THAT(
        capture.textsWithoutLines(),
        ElementsAre("No SEI CC data size is " + std::to_string(static_cast<int32_t>(size)), notAdded));
    EXPECT_EQ(frame.bytes(), slice);
  }
  Bytes bad = CaptionPacket(Triplets(3));
  bad.back() ^= 1;
  EXPECT_THAT(AddHevc(slice, bad, 1000).messages, ElementsAre("ERROR: mfcc, bad CC 708 Checksum ", notAdded));
  bad = CaptionPacket(Triplets(3));
  bad[4] = 0;
  EXPECT_THAT(AddHevc(slice, bad, 1000).messages, ElementsAre(notAdded));
  bad.resize(4);  // a size that is looked at
  EXPECT_THAT(AddHevc(slice, bad, 1000).messages, ElementsAre(notAdded));
  MessageCapture capture;
  TestFrame frame(slice, 1000);
  frame.SetCaption(CaptionPacket(Triplets(3)));
  frame->captionSize = 513;
  EXPECT_EQ(qlnUtilAddHevcCaptions(frame.get(), 0), 0u);
  EXPECT_THAT(capture.textsWithoutLines(), ElementsAre(notAdded));
}

TEST(AddHevcCaptions, CutsACountThatThePacketDoesNotHold) {
  const Bytes slice = WithStartCode(kHevcSlice);
  // Two triplets and a count of 31: the footer's four bytes make one more.
  const Bytes packet = CaptionPacket(Triplets(2), {.counter = 0x0102, .ccCount = 31});
  const HevcResult result = AddHevc(slice, packet, 1000);
  EXPECT_THAT(result.messages, ElementsAre("\nCC count is wrong 31 actual 3"));
  EXPECT_EQ(result.bytes, Join({HevcUnit(Join({Triplets(2), Hex("74 01 02")})), slice}));
  // A count that just fits is no error.
  EXPECT_THAT(AddHevc(slice, CaptionPacket(Triplets(2), {.ccCount = 3}), 1000).messages, IsEmpty());
}

TEST(AddHevcCaptions, ReadsACountBehindThePacketAsNone) {
  const Bytes slice = WithStartCode(kHevcSlice);
  // Data count 8, 15 bytes; header and footer counter coincide. The count would stand at offset 15.
  Bytes packet = Hex("80 80 80 80 61 01 08 96 69 08 4F 43 00 01 00");
  uint32_t sum = 0;
  for (size_t i = 7; i < packet.size() - 1; ++i) sum += packet[i];
  packet.back() = static_cast<uint8_t>(0u - sum);
  const HevcResult result = AddHevc(slice, packet, 1000);
  EXPECT_THAT(result.messages, ElementsAre("\nCC count is wrong -1 actual 0"));
  EXPECT_EQ(result.bytes, Join({HevcUnit({}), slice}));
}

TEST(AddHevcCaptions, EqualsAPlainFormOnRandomPackets) {
  Random random(6);
  for (int round = 0; round < 2000; ++round) {
    const size_t count = random.below(32);
    Bytes triplets = random.zeroRichBytes(count * 3);
    const bool timeCode = random.below(2) != 0;
    const Bytes packet = CaptionPacket(triplets, {.timeCode = timeCode});
    Bytes plain = HevcUnit(triplets);
    // Escapes as the standard has it, but for the last two bytes, which are FF 80 here in any case.
    Bytes unit(plain.begin(), plain.begin() + 4);
    int zeros = 0;
    for (size_t i = 4; i < plain.size(); ++i) {
      if (zeros >= 2 && plain[i] <= 3) {
        unit.push_back(3);
        zeros = 0;
      }
      unit.push_back(plain[i]);
      zeros = plain[i] == 0 ? zeros + 1 : 0;
    }
    const Bytes slice = WithStartCode(kHevcSlice);
    ASSERT_EQ(AddHevc(slice, packet, 1000).bytes, Join({unit, slice}));
  }
}

}  // namespace
}  // namespace qln
