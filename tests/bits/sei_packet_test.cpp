// The finisher of SEI packets: stop bit, size byte, trailing bits, emulation prevention, prefix.

#include "qlnutil/bits/sei_packet.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qln {
namespace {

using test::Bytes;
using test::ExactCopy;
using test::Hex;
using test::Join;

// Finishes the first `bits` bits of `packet` into a destination whose first `position` bits are 0xFF bytes.
Bytes Finish(const Bytes& packet, uint32_t bits, uint32_t sizeByte = kNoSizeByte, bool lengthPrefix = false,
             uint32_t position = 0) {
  Bytes room = packet;
  room.resize(packet.size() + 2, 0xFF);
  ExactCopy from(room);
  ExactCopy to(Bytes(position / 8 + 1 + room.size() * 3 / 2 + 1, 0xFF));
  QLNBitState source{from.data(), static_cast<int32_t>(from.size()), static_cast<uint32_t>(from.size() * 8),
                     bits};
  QLNBitState destination{to.data(), 0, 0, position};
  WriteSeiPacket(&source, &destination, sizeByte, lengthPrefix);
  EXPECT_EQ(source.bitPos, (bits + 7) / 8 * 8 + 8) << "behind the trailing byte";
  Bytes all = to.bytes();
  const size_t written = (destination.bitPos + 7) / 8;
  for (size_t i = written; i < all.size(); ++i) EXPECT_EQ(all[i], 0xFF);
  all.resize(written);
  return all;
}

uint32_t BitsOf(const Bytes& bytes) { return static_cast<uint32_t>(bytes.size() * 8); }

TEST(WriteSeiPacket, AddsTrailingBitsBehindAWholeByte) {
  const Bytes packet = Hex("00 00 00 00 06 05 00 AA BB");
  EXPECT_EQ(Finish(packet, BitsOf(packet), 6), Hex("00 00 00 01 06 05 02 AA BB 80"));
}

TEST(WriteSeiPacket, AlignsThePayloadWithAStopBit) {
  // 4 bits of payload in the last byte: stop bit and zeros, counted in the size; then the trailing byte.
  const Bytes packet = Hex("00 00 00 00 06 01 00 12 3F");
  EXPECT_EQ(Finish(packet, BitsOf(packet) - 4, 6), Hex("00 00 00 01 06 01 02 12 38 80"));
  EXPECT_EQ(Finish(packet, BitsOf(packet) - 1, 6), Hex("00 00 00 01 06 01 02 12 3F 80"));
}

TEST(WriteSeiPacket, LeavesTheSizeByteWithoutAPosition) {
  const Bytes packet = Hex("00 00 00 00 06 01 77 12");
  EXPECT_EQ(Finish(packet, BitsOf(packet)), Hex("00 00 00 01 06 01 77 12 80"));
}

TEST(WriteSeiPacket, EscapesTheBody) {
  const Bytes packet = Hex("00 00 00 01 06 04 03 00 00 02");
  EXPECT_EQ(Finish(packet, BitsOf(packet)), Hex("00 00 00 01 06 04 03 00 00 03 02 80"));
  // The prefix is not looked at, and its zeros do not carry over.
  EXPECT_EQ(Finish(Hex("00 00 00 00 00 00 01"), 56), Hex("00 00 00 01 00 00 03 01 80"));
}

TEST(WriteSeiPacket, LeavesTheLastTwoBytesAlone) {
  // A trailing byte below 4 is not made by payloads; what ends in 00 00 80 has nothing to escape.
  const Bytes packet = Hex("00 00 00 01 06 04 02 00 00");
  EXPECT_EQ(Finish(packet, BitsOf(packet)), Hex("00 00 00 01 06 04 02 00 00 80"));
}

TEST(WriteSeiPacket, StoresTheLengthInstead) {
  const Bytes packet = Hex("00 00 00 01 06 04 03 00 00 02");
  EXPECT_EQ(Finish(packet, BitsOf(packet), kNoSizeByte, true), Hex("00 00 00 08 06 04 03 00 00 03 02 80"));
  Bytes longPacket = Join({Hex("00 00 00 01 06"), Bytes(300, 0x55)});
  const Bytes finished = Finish(longPacket, BitsOf(longPacket), kNoSizeByte, true);
  EXPECT_EQ(Bytes(finished.begin(), finished.begin() + 4), Hex("00 00 01 2E"));
}

TEST(WriteSeiPacket, WrapsALongSize) {
  Bytes packet = Join({Hex("00 00 00 01 06 05 00"), Bytes(258, 0x55)});
  EXPECT_EQ(Finish(packet, BitsOf(packet), 6)[6], 2);
}

TEST(WriteSeiPacket, AppendsAtTheDestinationsPosition) {
  const Bytes packet = Hex("00 00 00 01 06 04 01 55");
  EXPECT_EQ(Finish(packet, BitsOf(packet), kNoSizeByte, false, 16), Hex("FF FF 00 00 00 01 06 04 01 55 80"));
  // Off a byte boundary the body goes on bit by bit, and the four bytes of the prefix are stored over the
  // byte that the packet began in.
  const Bytes odd = Finish(packet, BitsOf(packet), kNoSizeByte, false, 12);
  EXPECT_EQ(odd, Hex("FF 00 00 00 01 10 60 40 15 58 0F"));
}

}  // namespace
}  // namespace qln
