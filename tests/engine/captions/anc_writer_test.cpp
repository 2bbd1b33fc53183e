// Ancillary data packets that are written, bit by bit from the tables of ST 291 and ST 2038.

#include "captions/anc_writer.h"

#include <gtest/gtest.h>

#include "captions/sequencer.h"
#include "support/test_support.h"

namespace qlnmedia::captions {
namespace {

TEST(WrittenAncPackets, AreTheirBits) {
  // Six zeros, luma, line 9, offset 0; DID 161, SDID 101, count 101, 296, and the sum 5F9 as 1F9.
  EXPECT_EQ(WriteSt2038(AncOfCdp({0x96})), qln::test::Hex("0002 4001 6140 501A 59F9"));
  // Up to a whole byte with ones: 90 bits.
  EXPECT_EQ(WriteSt2038(AncOfCdp({0x96, 0x69})).size(), 12u);
  EXPECT_EQ(WriteSt2038(AncOfCdp({0x96, 0x69})).back() & 0x3F, 0x3F);
}

TEST(WrittenAncPackets, AreReadAgain) {
  std::vector<std::string> damage;
  for (size_t count = 0; count < 256; ++count) {
    Bytes words;
    for (size_t i = 0; i < count; ++i) words.push_back(static_cast<uint8_t>(i * 37 + count));
    const AncPacket packet{
        count % 2 != 0, static_cast<int>(count * 8), 0xFFF - static_cast<int>(count), 0x61, 0x01, words};
    const auto read = ReadSt2038(WriteSt2038(packet), &damage);
    ASSERT_EQ(read, std::vector{packet}) << count;
  }
  EXPECT_TRUE(damage.empty());
  Sequencer sequencer(Rate::k25);
  const CaptionPacket cdp = sequencer.NextPacket();
  const auto packets = ReadSt2038(WriteSt2038(AncOfCdp(WriteCdp(cdp))), &damage);
  std::optional<Rate> rate;
  std::string reason;
  EXPECT_EQ(CaptionsOfAnc(packets.at(0), &rate, &reason), cdp.triplets);
  EXPECT_EQ(rate, Rate::k25);
}

}  // namespace
}  // namespace qlnmedia::captions
