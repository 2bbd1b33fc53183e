// HDR messages: their bytes by the standards' syntax, and read back.

#include "hdr/stream_hdr.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::BitBuilder;
using qln::test::Random;

MasteringDisplay RandomDisplay(Random& random) {
  const auto point = [&] {
    return MasteringDisplay::Point{static_cast<uint16_t>(random.below(50001)),
                                   static_cast<uint16_t>(random.below(50001))};
  };
  MasteringDisplay display{point(), point(), point(), point(), 0, 0};
  display.maxLuminance = static_cast<uint32_t>(random.below(100000000) + 1);
  display.minLuminance = static_cast<uint32_t>(random.below(display.maxLuminance));
  return display;
}

// mastering_display_colour_volume (ITU-T H.265 clause D.2.28): green, blue, red, white point, luminances.
Bytes Payload(const MasteringDisplay& d) {
  BitBuilder bits;
  for (const MasteringDisplay::Point& point : {d.green, d.blue, d.red, d.white})
    bits.u(16, point.x).u(16, point.y);
  return bits.u(32, d.maxLuminance).u(32, d.minLuminance).bytes();
}

TEST(StreamHdr, MessagesHoldTheValuesAndAreFoundAgain) {
  Random random(3);
  for (const Codec codec : {Codec::kH264, Codec::kHevc}) {
    for (int round = 0; round < 200; ++round) {
      StreamHdr hdr;
      if (round % 3 != 1) hdr.mastering = RandomDisplay(random);
      if (round % 3 != 0)
        hdr.lightLevel = LightLevel{static_cast<uint16_t>(random.below(10000) + 1),
                                    static_cast<uint16_t>(random.below(10000) + 1)};
      Unit unit;
      unit.bytes = MakeHdrUnit(codec, hdr);
      EXPECT_EQ(UnitType(codec, unit.bytes), codec == Codec::kH264 ? 6 : 39);
      for (const SeiMessage& message : ReadSeiMessages(codec, unit.bytes)) {
        if (message.type == 137) {
          EXPECT_EQ(message.payload, Payload(hdr.mastering.value()));
        } else {
          EXPECT_EQ(message.type, 144);
          EXPECT_EQ(message.payload, BitBuilder()
                                         .u(16, hdr.lightLevel.value().maxContent)
                                         .u(16, hdr.lightLevel->maxAverage)
                                         .bytes());
        }
      }
      const StreamHdr found = HdrOf(codec, {unit});
      EXPECT_EQ(found.mastering, hdr.mastering);
      EXPECT_EQ(found.lightLevel, hdr.lightLevel);
    }
    EXPECT_TRUE(MakeHdrUnit(codec, {}).empty());
    EXPECT_FALSE(HdrOf(codec, {}).mastering);
  }
}

}  // namespace
}  // namespace qlnmedia
