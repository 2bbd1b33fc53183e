// Without memory: a long packet is not appended.

#include <gtest/gtest.h>

#include "qlnutil/bits/sei_packet.h"
#include "support/no_memory.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

TEST(WriteSeiPacket, WithoutMemoryALongPacketIsNotAppended) {
  constexpr uint32_t kSize = 3000;
  Bytes packet(kSize + 2, 0x55);
  Bytes room(2 * kSize, 0xA5);
  QLNBitState source{packet.data(), static_cast<int32_t>(packet.size()), kSize * 8, kSize * 8};
  QLNBitState destination{room.data(), static_cast<int32_t>(room.size()), 0, 16};
  {
    const NoMemory none;
    WriteSeiPacket(&source, &destination, kNoSizeByte, false);
  }
  EXPECT_EQ(destination.bitPos, 16u);
  EXPECT_EQ(room, Bytes(2 * kSize, 0xA5));
  source.bitPos = kSize * 8;
  WriteSeiPacket(&source, &destination, kNoSizeByte, false);
  EXPECT_EQ(destination.bitPos, 16 + (kSize + 1) * 8);
}

}  // namespace
}  // namespace qln::test
