// Timecode SEI in H.264 frames: the bytes for every timecode type, the place, and frames that stay as they
// are.

#include <gtest/gtest.h>

#include "inband/sps_bits.h"
#include "inband/test_frame.h"
#include "inband/timecode_support.h"
#include "qlnutil/inband/frame_timecode.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

using test::AvcSps;
using test::BitBuilder;
using test::Bytes;
using test::Count;
using test::Digits;
using test::Escape;
using test::Hex;
using test::Join;
using test::kCounts;
using test::MessageCapture;
using test::N;
using test::TestFrame;
using test::WithStartCode;

Bytes AvcUnit(uint8_t type, const Digits& time) {
  BitBuilder bits;
  bits.u(32, 1).u(8, 6).u(8, 1).u(8, 6).u(4, 0).u(1, 1).u(2, 0).u(1, 0);
  bits.u(5, type == 4 || type == 32 ? 4 : 0).u(1, 1).u(1, 0).u(1, 0).u(8, N(time.frames));
  bits.u(6, N(time.seconds)).u(6, N(time.minutes)).u(5, N(time.hours));
  EXPECT_EQ(bits.bits(), 97u);
  bits.trailing().trailing();
  return Escape(bits.bytes());
}

TEST(FrameTimeCode, TakesTheFirstChoiceThatIsOne) {
  DFrame frame = {};
  frame.timeCodeA = 3;
  frame.timeCodeB = 5;
  frame.timeCodeC = 7;
  EXPECT_EQ(FrameTimeCode(frame), 3u);
  frame.timeCodeA = 0xFFFFFFFFu;
  EXPECT_EQ(FrameTimeCode(frame), 5u);
  frame.timeCodeB = 0xFFFFFFFFu;
  EXPECT_EQ(FrameTimeCode(frame), 7u);
  frame.timeCodeC = 0xFFFFFFFFu;
  EXPECT_EQ(FrameTimeCode(frame), 0xFFFFFFFFu);
  frame.timeCodeA = 0;
  EXPECT_EQ(FrameTimeCode(frame), 0u);
}

const Bytes kAud = WithStartCode(Hex("09 F0"));
const Bytes kPps = WithStartCode(Hex("68 CE 3C 80"));
const Bytes kSlice = WithStartCode(Hex("65 88 84 21 A0 55 AA"));

Bytes AvcHead(const AvcSps& sps = {}) { return Join({kAud, WithStartCode(sps.Unit()), kPps}); }

uint32_t AddAvc(const Bytes& bytes, Bytes* after, uint32_t timeCode = 30, uint8_t type = 2,
                size_t room = 100) {
  TestFrame frame(bytes, bytes.size() + room);
  frame->timeCodeA = timeCode;
  frame->secondFieldOffset = 11;
  MessageCapture capture;
  const uint32_t length = qlnutilAddAVCTimeCode(frame.get(), type);
  EXPECT_TRUE(capture.texts().empty());
  EXPECT_EQ(frame->secondFieldOffset, 11u);
  *after = frame.bytes();
  EXPECT_EQ(after->size(), bytes.size() + length);
  return length;
}

// Adds to a frame that must stay as it is.
void ExpectAvcUntouched(const Bytes& bytes, size_t room = 100) {
  Bytes after;
  EXPECT_EQ(AddAvc(bytes, &after, 30, 2, room), 0u);
  EXPECT_EQ(after, bytes);
}

TEST(AddAvcTimeCode, WritesEveryType) {
  for (const Count& c : kCounts) {
    Bytes after;
    const uint32_t length = AddAvc(Join({AvcHead(), kSlice}), &after, c.count, c.type);
    const Bytes unit = AvcUnit(c.type, c.digits);
    EXPECT_EQ(length, unit.size());
    EXPECT_EQ(after, Join({AvcHead(), unit, kSlice})) << int{c.type} << " " << c.count;
  }
}

TEST(AddAvcTimeCode, HasTheBytesOfTheLayout) {
  Bytes after;
  // 01:02:03:04 at 25.
  EXPECT_EQ(AddAvc(Join({AvcHead(), kSlice}), &after, (3600 + 120 + 3) * 25 + 4, 8), 14u);
  EXPECT_EQ(after, Join({AvcHead(), Hex("00 00 00 01 06 01 06 08 04 04 0C 20 C0 80"), kSlice}));
}

TEST(AddAvcTimeCode, GoesInFrontOfTheFirstSlice) {
  const Bytes sps = WithStartCode(AvcSps().Unit());
  const Bytes sei = WithStartCode(Hex("06 05 01 55 80"));
  const Bytes inter = WithStartCode(Hex("41 9A 21 6C 42 5F FF"), 3);
  Bytes after;
  EXPECT_EQ(AddAvc(Join({sps, kPps, sei, inter, kSlice}), &after), 14u);
  EXPECT_EQ(after, Join({sps, kPps, sei, AvcUnit(2, {0, 0, 1, 0}), inter, kSlice}));
  // An SPS behind a 3-byte code, and ended by one.
  const Bytes shortSps = WithStartCode(AvcSps().Unit(), 3);
  EXPECT_EQ(AddAvc(Join({shortSps, inter}), &after), 14u);
  EXPECT_EQ(after, Join({shortSps, AvcUnit(2, {0, 0, 1, 0}), inter}));
}

TEST(AddAvcTimeCode, LooksBehindEveryStartCode) {
  const Bytes slice = WithStartCode(Hex("65 88 84 21 A0 55 AA"), 3);
  Bytes after;
  // One that follows another without a byte between them.
  EXPECT_EQ(AddAvc(Join({AvcHead(), Hex("00 00 01"), slice}), &after), 14u);
  EXPECT_EQ(after, Join({AvcHead(), Hex("00 00 01"), AvcUnit(2, {0, 0, 1, 0}), slice}));
  // A 1 behind the header of an SPS is its profile, not a payload type.
  Bytes sps = AvcSps().Unit();
  sps[1] = 1;
  EXPECT_EQ(AddAvc(Join({WithStartCode(sps), slice}), &after), 14u);
}

TEST(AddAvcTimeCode, LeavesAFrameWithPictureTiming) {
  const Bytes timing = WithStartCode(Hex("06 01 01 10 80"));
  ExpectAvcUntouched(Join({AvcHead(), timing, kSlice}));
  // Behind the first slice it does not count.
  Bytes after;
  EXPECT_NE(AddAvc(Join({AvcHead(), kSlice, timing}), &after), 0u);
}

TEST(AddAvcTimeCode, NeedsAnSpsThatAllowsIt) {
  ExpectAvcUntouched(Join({kAud, kPps, kSlice}));
  ExpectAvcUntouched(Join({AvcHead({.picStructPresent = false}), kSlice}));
  ExpectAvcUntouched(Join({AvcHead({.nalHrd = true}), kSlice}));
  ExpectAvcUntouched(Join({AvcHead({.vclHrd = true}), kSlice}));
  ExpectAvcUntouched(Join({AvcHead({.vui = false}), kSlice}));
  // The SPS stands behind the slice.
  ExpectAvcUntouched(Join({kAud, kSlice, WithStartCode(AvcSps().Unit())}));
}

TEST(AddAvcTimeCode, ReadsTheFirstSpsOnly) {
  const Bytes good = WithStartCode(AvcSps().Unit());
  const Bytes bad = WithStartCode(AvcSps{.picStructPresent = false}.Unit());
  Bytes after;
  EXPECT_NE(AddAvc(Join({good, bad, kSlice}), &after), 0u);
  ExpectAvcUntouched(Join({bad, good, kSlice}));
  // One too short to be read is the first one all the same.
  ExpectAvcUntouched(Join({WithStartCode(Hex("67 42 00")), good, kSlice}));
}

TEST(AddAvcTimeCode, NeedsAPlaceBehindTheBeginning) {
  ExpectAvcUntouched(Join({kSlice, AvcHead()}));
  ExpectAvcUntouched(AvcHead());
  ExpectAvcUntouched(WithStartCode(AvcSps().Unit()));
  ExpectAvcUntouched(Bytes(40, 0));
  // Fewer than 6 bytes at the slice's start code.
  ExpectAvcUntouched(Join({AvcHead(), WithStartCode(Hex("65"))}));
  Bytes after;
  EXPECT_NE(AddAvc(Join({AvcHead(), WithStartCode(Hex("65 88"))}), &after), 0u);
}

TEST(AddAvcTimeCode, NeedsRoom) {
  const Bytes bytes = Join({AvcHead(), kSlice});
  ExpectAvcUntouched(bytes, 48);
  Bytes after;
  EXPECT_EQ(AddAvc(bytes, &after, 30, 2, 49), 14u);
  ExpectAvcUntouched(Hex("00 00 01 65 88 84 21"));
  EXPECT_EQ(qlnutilAddAVCTimeCode(nullptr, 2), 0u);
  TestFrame frame(bytes, 1000);
  frame->frameData = nullptr;
  EXPECT_EQ(qlnutilAddAVCTimeCode(frame.get(), 2), 0u);
  // Sums are not taken in 32 bits.
  TestFrame huge(bytes, 1000);
  huge->frameSize = 0xFFFFFFF0u;
  EXPECT_EQ(qlnutilAddAVCTimeCode(huge.get(), 2), 0u);
}

}  // namespace
}  // namespace qln
