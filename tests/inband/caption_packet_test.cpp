// Which caption packets are taken.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "inband/caption_packets.h"
#include "qlnutil/inband/caption_packet.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

using test::Bytes;
using test::CaptionPacket;
using test::ExactCopy;
using test::Join;
using test::MessageCapture;
using test::Triplets;
using testing::ElementsAre;
using testing::IsEmpty;

int32_t Check(const Bytes& packet) {
  ExactCopy copy(packet);
  return CheckCaptionPacket(copy.data(), static_cast<uint32_t>(copy.size()));
}

TEST(CheckCaptionPacket, TakesBothChecksumConventions) {
  MessageCapture capture;
  EXPECT_EQ(Check(CaptionPacket(Triplets(20))), 0);
  EXPECT_EQ(Check(CaptionPacket(Triplets(20), {.plainSum = true})), 0);
  EXPECT_EQ(Check(CaptionPacket({})), 0);
  EXPECT_EQ(Check(CaptionPacket(Triplets(31), {.timeCode = true})), 0);
  EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(CheckCaptionPacket, RefusesWhatIsNoPacketSilently) {
  MessageCapture capture;
  EXPECT_EQ(CheckCaptionPacket(nullptr, 80), -1);
  const Bytes good = CaptionPacket(Triplets(20));
  for (std::ptrdiff_t size = 0; size < 14; ++size) {
    EXPECT_EQ(Check(Bytes(good.begin(), good.begin() + size)), -1);
  }
  for (const size_t at : {4u, 5u, 6u, 7u, 8u, 9u}) {
    Bytes bad = good;
    bad[at] ^= 1;
    EXPECT_EQ(Check(bad), -1) << at;
  }
  EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(CheckCaptionPacket, ComparesTheLengthWithTheSize) {
  const Bytes good = CaptionPacket(Triplets(20));  // length 73, size 80
  ASSERT_EQ(good[6], 73);
  ASSERT_EQ(good.size(), 80u);
  MessageCapture capture;
  EXPECT_EQ(Check(Bytes(good.begin(), good.end() - 2)), -1);
  EXPECT_THAT(capture.texts(), ElementsAre("ERROR: mfcc, declared size 73 exceeds packet size 78 "));
  capture.clear();
  EXPECT_EQ(Check(Bytes(good.begin(), good.end() - 1)), -1);
  EXPECT_THAT(capture.texts(), ElementsAre("ERROR: mfcc, expectsize 79, calculated size 80 "));
}

TEST(CheckCaptionPacket, ReportsEveryTruncation) {
  const Bytes good = CaptionPacket(Triplets(20));
  for (size_t size = 14; size < good.size(); ++size) {
    MessageCapture capture;
    EXPECT_EQ(Check(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size))), -1);
    EXPECT_EQ(capture.texts().size(), 1u) << size;
  }
}

TEST(CheckCaptionPacket, ComparesTheCounters) {
  Bytes packet = CaptionPacket(Triplets(2), {.counter = 0x00FE});
  packet[12] = 0x0A;
  MessageCapture capture;
  EXPECT_EQ(Check(packet), -2);
  EXPECT_THAT(capture.texts(), ElementsAre("ERROR: mfcc, counts don't match 0x0A 0xFE != 0x00 0xFE  "));
  capture.clear();
  Bytes low = CaptionPacket(Triplets(2), {.counter = 0x00FE});
  low[13] = 0x0A;
  EXPECT_EQ(Check(low), -2);
  EXPECT_THAT(capture.texts(), ElementsAre("ERROR: mfcc, counts don't match 0x00 0x0A != 0x00 0xFE  "));
  capture.clear();
  // A packet that is short as well says both and is no packet.
  packet.pop_back();
  EXPECT_EQ(Check(packet), -1);
  EXPECT_THAT(capture.texts(), ElementsAre("ERROR: mfcc, counts don't match 0x0A 0xFE != 0x00 0xFE  ",
                                           "ERROR: mfcc, expectsize 25, calculated size 26 "));
}

TEST(CheckCaptionPacket, RefusesABadChecksum) {
  Bytes packet = CaptionPacket(Triplets(2));
  packet[17] ^= 0x10;
  MessageCapture capture;
  EXPECT_EQ(Check(packet), -3);
  EXPECT_THAT(capture.texts(), ElementsAre("ERROR: mfcc, bad CC 708 Checksum "));
}

TEST(CheckCaptionPacket, TakesTheChecksumFromTheLastByteOfTheSize) {
  // One byte behind the packet: the sum so far is 0, so the checksum there must be 0.
  EXPECT_EQ(Check(Join({CaptionPacket(Triplets(2)), {0x00}})), 0);
  EXPECT_EQ(Check(Join({CaptionPacket(Triplets(2)), {0x01}})), -3);
}

}  // namespace
}  // namespace qln
