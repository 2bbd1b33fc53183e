// Picture timing of HEVC: frame and field information read, put in front of delays, and made.

#include "timing/hevc_timing.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::BitBuilder;
using qln::test::Hex;
using qln::test::Random;
using qln::test::ToHex;

constexpr FrameFieldInfo kTop{11, 0, false};

TEST(HevcTiming, FieldsAndFrames) {
  for (uint32_t picStruct = 0; picStruct < 13; ++picStruct) {
    const bool field = picStruct == 1 || picStruct == 2 || picStruct >= 9;  // ITU-T H.265 table D.2
    EXPECT_EQ(IsFieldPicStruct(picStruct), field) << picStruct;
  }
}

TEST(HevcTiming, ReadsWhatStandsInFront) {
  EXPECT_FALSE(ReadFrameFieldInfo(Bytes{}));
  EXPECT_EQ(ReadFrameFieldInfo(BitBuilder().u(4, 10).u(2, 1).u(1, 1).trailing().bytes()).value(),
            (FrameFieldInfo{10, 1, true}));
}

TEST(HevcTiming, MadeUnitsHaveTheBytesOfTheStandard) {
  for (const uint32_t picStruct : {9u, 10u, 11u, 12u}) {
    const Bytes expected = BitBuilder()
                               .u(16, 0x4E03)
                               .u(8, 1)
                               .u(8, 1)
                               .u(4, picStruct)
                               .u(2, 0)
                               .u(1, 0)
                               .trailing()
                               .trailing()
                               .bytes();
    EXPECT_EQ(ToHex(MakeFieldTimingUnit(picStruct, 3)), ToHex(expected));
  }
}

HevcDelays Delays() {
  HevcDelays delays;
  delays.present = true;
  delays.cpbRemoval = 23;
  delays.dpbOutput = 9;
  return delays;
}

TEST(HevcTiming, InfoTakesThePlaceOfWhatIsThere) {
  const auto payload = [](uint32_t picStruct, uint32_t scan, uint32_t duplicate) {
    return BitBuilder().u(4, picStruct).u(2, scan).u(1, duplicate).u(32, 0x12345678).trailing().bytes();
  };
  EXPECT_EQ(ToHex(WithFrameFieldInfo(payload(1, 2, 1), true, Delays(), {12, 0, false}).value()),
            ToHex(payload(12, 0, 0)));
  EXPECT_FALSE(WithFrameFieldInfo({}, true, Delays(), kTop));
}

TEST(HevcTiming, DelaysMoveUpBehindTheInfo) {
  // 32 bits of delays fill their bytes: no stop bit in the source.
  const Bytes aligned = BitBuilder().u(23, 0x2AAAAA).u(9, 0x155).bytes();
  const Bytes expected = BitBuilder().u(4, 11).u(2, 0).u(1, 0).u(23, 0x2AAAAA).u(9, 0x155).trailing().bytes();
  EXPECT_EQ(ToHex(WithFrameFieldInfo(aligned, false, Delays(), kTop).value()), ToHex(expected));
  // 33 bits: a stop bit in the source, none in the result, which fills 5 bytes.
  HevcDelays longer = Delays();
  longer.dpbOutput = 10;
  const Bytes odd = BitBuilder().u(23, 1).u(10, 0x3FF).trailing().bytes();
  const Bytes full = BitBuilder().u(4, 11).u(2, 0).u(1, 0).u(23, 1).u(10, 0x3FF).bytes();
  EXPECT_EQ(full.size(), 5u);
  EXPECT_EQ(ToHex(WithFrameFieldInfo(odd, false, longer, kTop).value()), ToHex(full));
  // Extension bits behind the delays stay, and then there always is a stop bit.
  const Bytes extended = BitBuilder().u(23, 1).u(10, 2).u(5, 0x15).trailing().bytes();
  const Bytes kept = BitBuilder().u(4, 11).u(3, 0).u(23, 1).u(10, 2).u(5, 0x15).trailing().bytes();
  EXPECT_EQ(ToHex(WithFrameFieldInfo(extended, false, longer, kTop).value()), ToHex(kept));
}

TEST(HevcTiming, DecodingUnitsMoveAlong) {
  HevcDelays delays = Delays();
  delays.subPictures = true;
  delays.dpbOutputDu = 4;
  const auto plain = [](bool info) {
    BitBuilder bits;
    if (info) bits.u(4, 11).u(3, 0);
    return bits.u(23, 5).u(9, 6).u(4, 7);
  };
  EXPECT_EQ(ToHex(WithFrameFieldInfo(plain(false).trailing().bytes(), false, delays, kTop).value()),
            ToHex(plain(true).trailing().bytes()));
  delays.unitsInPictureTiming = true;
  delays.duIncrement = 11;
  const auto units = [&](bool info, bool common) {
    BitBuilder bits = plain(info).ue(2).u(1, common);
    if (common) bits.u(11, 0x7AB);
    for (uint32_t i = 0; i < 3; ++i) {
      bits.ue(i + 1);
      if (!common && i < 2) bits.u(11, 0x700 + i);
    }
    return bits;
  };
  for (const bool common : {false, true}) {
    const Bytes from = units(false, common).bits() % 8 == 0 ? units(false, common).bytes()
                                                            : units(false, common).trailing().bytes();
    const Bytes to = units(true, common).bits() % 8 == 0 ? units(true, common).bytes()
                                                         : units(true, common).trailing().bytes();
    EXPECT_EQ(ToHex(WithFrameFieldInfo(from, false, delays, kTop).value()), ToHex(to)) << common;
  }
}

TEST(HevcTiming, WhatCannotBeReadIsRefused) {
  const Bytes whole = BitBuilder().u(23, 0x2AAAAA).u(9, 0x155).bytes();
  for (size_t size = 0; size < whole.size(); ++size) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_FALSE(WithFrameFieldInfo(cut, false, Delays(), kTop)) << size;
  }
  // No delays by the sets, but something in the message.
  EXPECT_FALSE(WithFrameFieldInfo(whole, false, {}, kTop));
  EXPECT_EQ(ToHex(WithFrameFieldInfo({}, false, {}, kTop).value()), "B1");
  // Zeros without a stop bit behind the delays.
  EXPECT_FALSE(WithFrameFieldInfo(BitBuilder().u(32, 1).u(8, 0).bytes(), false, Delays(), kTop));
}

TEST(HevcTiming, HostileUnitCountsEnd) {
  HevcDelays delays = Delays();
  delays.subPictures = delays.unitsInPictureTiming = true;
  delays.dpbOutputDu = delays.duIncrement = 1;
  const Bytes endless = BitBuilder().u(23, 0).u(9, 0).u(1, 0).ue(0xFFFFFFFEu).u(1, 0).trailing().bytes();
  EXPECT_FALSE(WithFrameFieldInfo(endless, false, delays, kTop));
  Random random(9);
  for (int round = 0; round < 20000; ++round) {
    delays.cpbRemoval = static_cast<uint32_t>(random.below(32)) + 1;
    delays.duIncrement = static_cast<uint32_t>(random.below(32)) + 1;
    const Bytes payload = random.zeroRichBytes(random.below(24));
    const std::optional<Bytes> changed = WithFrameFieldInfo(payload, false, delays, kTop);
    if (!changed) continue;
    ASSERT_EQ(ReadFrameFieldInfo(*changed).value(), kTop);
  }
}

}  // namespace
}  // namespace qlnmedia
