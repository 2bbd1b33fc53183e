// Timecode SEI in HEVC frames: the bytes for every timecode type, the place, and frames that stay as they
// are.

#include <gtest/gtest.h>

#include "inband/test_frame.h"
#include "inband/timecode_support.h"
#include "qlnutil/inband/hevc_timing_sei.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

using test::Bytes;
using test::Count;
using test::CountingType;
using test::HevcUnit;
using test::Hex;
using test::Join;
using test::kCounts;
using test::TestFrame;
using test::WithStartCode;

const Bytes kHevcAud = WithStartCode(Hex("46 01 50"));
const Bytes kHevcVps = WithStartCode(Hex("40 01 0C 01 FF FF 80"));
const Bytes kHevcSlice = WithStartCode(Hex("26 01 AF 09 40 F3 28"));
const Bytes kHevcSei = WithStartCode(Hex("4E 01 05 01 55 80"));

// Adds a timecode of 0:0:1:0 and returns where it went; -1 for a frame as it was, -2 for anything else.
int HevcPlace(const Bytes& bytes, uint32_t secondFieldOffset = 77) {
  const Bytes unit = HevcUnit(0, {0, 0, 1, 0});
  TestFrame frame(bytes, bytes.size() + unit.size());
  frame->timeCodeA = 30;
  frame->secondFieldOffset = secondFieldOffset;
  EXPECT_EQ(qlnutilAddHEVCTimeCode(frame.get(), 2), 0u);
  const Bytes after = frame.bytes();
  if (after == bytes) {
    EXPECT_EQ(frame->secondFieldOffset, secondFieldOffset);
    return -1;
  }
  EXPECT_EQ(frame->secondFieldOffset, secondFieldOffset + unit.size());
  for (size_t at = 0; at <= bytes.size(); ++at) {
    const auto cut = bytes.begin() + static_cast<std::ptrdiff_t>(at);
    if (after == Join({Bytes(bytes.begin(), cut), unit, Bytes(cut, bytes.end())}))
      return static_cast<int>(at);
  }
  return -2;
}

TEST(AddHevcTimeCode, WritesEveryType) {
  for (const Count& c : kCounts) {
    TestFrame frame(Join({kHevcAud, kHevcSlice}), 60);
    frame->timeCodeA = c.count;
    EXPECT_EQ(qlnutilAddHEVCTimeCode(frame.get(), c.type), 0u);
    EXPECT_EQ(frame.bytes(), Join({kHevcAud, HevcUnit(CountingType(c.type), c.digits), kHevcSlice}))
        << int{c.type} << " " << c.count;
  }
}

TEST(AddHevcTimeCode, HasTheBytesOfTheLayout) {
  TestFrame frame(Join({kHevcAud, kHevcSlice}), 60);
  frame->timeCodeA = 1800;  // 00:01:00;02, drop-frame
  EXPECT_EQ(qlnutilAddHEVCTimeCode(frame.get(), 4), 0u);
  // 01 1 0 0010 | 0 1 0 0 0 000 | 00010 000 | 000 00000 | 1 00000 00 | 000 then stop and trailing bits
  EXPECT_EQ(frame.bytes(), Join({kHevcAud, Hex("00 00 00 01 4E 01 88 06 62 40 10 00 80 10 80"), kHevcSlice}));
}

TEST(AddHevcTimeCode, DoesNotMarkOrdinaryDrops) {
  // The first frame of a dropping minute has seconds 0, so the flag stays clear; as it does at count 0.
  for (const uint32_t count : {0u, 1799u, 1800u, 1801u, 3598u}) {
    uint8_t unit[kTimingSeiRoom] = {};
    ASSERT_GE(WriteTimeCodeUnit(unit, count, 4, false), 15u);
    EXPECT_EQ(unit[9] & 0x10, 0) << count;
  }
}

TEST(AddHevcTimeCode, GoesInFrontOfTheFirstSliceOrSei) {
  EXPECT_EQ(HevcPlace(Join({kHevcAud, kHevcVps, kHevcSlice, kHevcSlice})), 7 + 11);
  EXPECT_EQ(HevcPlace(Join({kHevcAud, kHevcSei, kHevcVps, kHevcSlice})), 7);
  for (int type = 0; type < 64; ++type) {
    const Bytes unit = WithStartCode({static_cast<uint8_t>(type << 1), 0x01, 0xAF, 0x11});
    const bool taken = type <= 9 || (type >= 16 && type <= 21) || type == 39;
    EXPECT_EQ(HevcPlace(Join({kHevcVps, unit, kHevcSlice})), taken ? 11 : 11 + 8) << type;
    // With forbidden_zero_bit it is no type.
    Bytes forbidden = unit;
    forbidden[4] |= 0x80;
    EXPECT_EQ(HevcPlace(Join({kHevcVps, forbidden, kHevcSlice})), 11 + 8) << type;
  }
}

TEST(AddHevcTimeCode, LeavesAFrameThatHasOne) {
  const Bytes timeCode = WithStartCode(Hex("4E 01 88 06 62 40 10 00 80 10 80"));
  EXPECT_EQ(HevcPlace(Join({kHevcAud, timeCode, kHevcSlice})), -1);
  EXPECT_EQ(HevcPlace(Join({timeCode, kHevcSlice})), -1);
  EXPECT_EQ(HevcPlace(Join({kHevcAud, kHevcSei, timeCode, kHevcSlice})), -1);
  // The type may be the frame's last byte; without it the unit is any SEI.
  EXPECT_EQ(HevcPlace(Join({kHevcAud, WithStartCode(Hex("4E 01 88"))})), -1);
  EXPECT_EQ(HevcPlace(Join({kHevcAud, WithStartCode(Hex("4E 01"))})), 7);
  // Not behind the first slice, and not as a second message.
  EXPECT_EQ(HevcPlace(Join({kHevcAud, kHevcSlice, timeCode})), 7);
  EXPECT_EQ(HevcPlace(Join({kHevcAud, WithStartCode(Hex("4E 01 05 01 55 88 80")), kHevcSlice})), 7);
}

TEST(AddHevcTimeCode, TakesOffsetZeroForNone) {
  EXPECT_EQ(HevcPlace(kHevcSlice), 0);
  EXPECT_EQ(HevcPlace(Join({kHevcSlice, kHevcSlice})), 0);
  // A SEI at the very beginning does not count; a slice behind it does.
  EXPECT_EQ(HevcPlace(Join({kHevcSei, kHevcSlice})), static_cast<int>(kHevcSei.size()));
}

TEST(AddHevcTimeCode, GoesBehindTheDelimiterWithoutASlice) {
  EXPECT_EQ(HevcPlace(Join({kHevcAud, kHevcVps})), 7);
  EXPECT_EQ(HevcPlace(kHevcAud), 7);
  EXPECT_EQ(HevcPlace(kHevcVps), 0);
  EXPECT_EQ(HevcPlace({}), 0);
  // A frame shorter than that gets nothing.
  EXPECT_EQ(HevcPlace(Hex("00 00 00 01 46")), -1);
  EXPECT_EQ(HevcPlace(Hex("00 00 00 01 46 01")), -1);
  // Codes of 3 bytes are not seen.
  EXPECT_EQ(HevcPlace(Join({kHevcAud, WithStartCode(Hex("26 01 AF 09"), 3)})), 7);
  EXPECT_EQ(HevcPlace(WithStartCode(Hex("26 01 AF 09"), 3)), 0);
}

TEST(AddHevcTimeCode, LooksAtTheFirst4096Bytes) {
  const auto frame = [](size_t sliceAt) {
    Bytes filler(sliceAt - kHevcAud.size(), 0x55);
    return Join({kHevcAud, filler, kHevcSlice});
  };
  EXPECT_EQ(HevcPlace(frame(4091)), 4091);  // the type byte is the last one
  EXPECT_EQ(HevcPlace(frame(4092)), 7);
  EXPECT_EQ(HevcPlace(frame(5000)), 7);
  // A SEI whose third byte lies behind is not one with a timecode.
  Bytes bytes = frame(4091);
  bytes[4095] = 0x4E;
  bytes[4097] = 136;
  EXPECT_EQ(HevcPlace(bytes), 4091);
  bytes = frame(4090);
  bytes[4094] = 0x4E;
  bytes[4096] = 136;
  EXPECT_EQ(HevcPlace(bytes), 4090);
  // So is one that the frame's end cuts off.
  EXPECT_EQ(HevcPlace(Join({kHevcAud, Hex("00 00 00 01 4E 01")})), 7);
  EXPECT_EQ(HevcPlace(Join({kHevcAud, Hex("00 00 00 01 4E")})), 7);
  EXPECT_EQ(HevcPlace(Join({kHevcVps, Hex("00 00 00 01")})), 0);
}

TEST(AddHevcTimeCode, TakesNullArguments) {
  EXPECT_EQ(qlnutilAddHEVCTimeCode(nullptr, 2), 0u);
  TestFrame frame(kHevcSlice, 100);
  frame->frameData = nullptr;
  EXPECT_EQ(qlnutilAddHEVCTimeCode(frame.get(), 2), 0u);
  EXPECT_EQ(frame->frameSize, kHevcSlice.size());
}

}  // namespace
}  // namespace qln
