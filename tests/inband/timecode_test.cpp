// Timecode SEI: the bytes for every timecode type, the place, and frames that stay as they are.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "inband/sps_bits.h"
#include "inband/test_frame.h"
#include "qlnutil/inband/frame_timecode.h"
#include "qlnutil/inband/hevc_timing_sei.h"
#include "qlnutil/qlninband.h"
#include "timecode/kxtimecode.h"

namespace qln {
namespace {

using test::AvcSps;
using test::BitBuilder;
using test::Bytes;
using test::Hex;
using test::Join;
using test::MessageCapture;
using test::TestFrame;
using test::WithStartCode;

struct Digits {
  int hours, minutes, seconds, frames;
};

// Frame counts with what they read as: seconds, minutes, hours, the drop-frame minutes.
struct Count {
  uint8_t type;
  uint32_t count;
  Digits digits;
};

const Count kCounts[] = {
    {1, 0, {0, 0, 0, 0}},
    {1, 24 * 60 - 1, {0, 0, 59, 23}},
    {1, 24 * 60, {0, 1, 0, 0}},
    {1, 24 * 3600 * 24 - 1, {23, 59, 59, 23}},
    {1, 24 * 3600 * 24, {0, 0, 0, 0}},
    {2, 30 * 3600, {1, 0, 0, 0}},
    {2, 30 * 3600 - 1, {0, 59, 59, 29}},
    {4, 1799, {0, 0, 59, 29}},
    {4, 1800, {0, 1, 0, 2}},
    {4, 17981, {0, 9, 59, 29}},
    {4, 17982, {0, 10, 0, 0}},
    {4, 107892, {1, 0, 0, 0}},
    {8, 25 * 3600 * 10 + 7, {10, 0, 0, 7}},
    {16, 50 * 61 + 49, {0, 1, 1, 49}},
    {32, 3599, {0, 0, 59, 59}},
    {32, 3600, {0, 1, 0, 4}},
    {32, 35964, {0, 10, 0, 0}},
    {64, 60 * 3600 * 2 + 59, {2, 0, 0, 59}},
    {0, 31, {0, 0, 1, 1}},
    {128, 25, {0, 0, 1, 1}},
    {132, 25, {0, 0, 1, 1}},
    {99, 31, {0, 0, 1, 1}},
};

// Emulation prevention as the standards have it.
Bytes Escape(const Bytes& packet) {
  Bytes out(packet.begin(), packet.begin() + 4);
  int zeros = 0;
  for (size_t i = 4; i < packet.size(); ++i) {
    if (zeros == 2 && packet[i] <= 3) {
      out.push_back(3);
      zeros = 0;
    }
    out.push_back(packet[i]);
    zeros = packet[i] == 0 ? zeros + 1 : 0;
  }
  return out;
}

uint64_t N(int value) { return static_cast<uint64_t>(value); }

Bytes AvcUnit(uint8_t type, const Digits& time) {
  BitBuilder bits;
  bits.u(32, 1).u(8, 6).u(8, 1).u(8, 6).u(4, 0).u(1, 1).u(2, 0).u(1, 0);
  bits.u(5, type == 4 || type == 32 ? 4 : 0).u(1, 1).u(1, 0).u(1, 0).u(8, N(time.frames));
  bits.u(6, N(time.seconds)).u(6, N(time.minutes)).u(5, N(time.hours));
  EXPECT_EQ(bits.bits(), 97u);
  bits.trailing().trailing();
  return Escape(bits.bytes());
}

Bytes HevcUnit(int countingType, const Digits& time, bool fieldUnits = false) {
  BitBuilder bits;
  bits.u(32, 1).u(16, 0x4E01).u(8, 136).u(8, 6).u(2, 1).u(1, 1).u(1, fieldUnits ? 1 : 0);
  bits.u(5, N(countingType)).u(1, 1).u(1, 0).u(1, 0).u(9, N(time.frames));
  bits.u(6, N(time.seconds)).u(6, N(time.minutes)).u(5, N(time.hours)).u(5, 0);
  EXPECT_EQ(bits.bits(), 107u);
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

// ---- H.264 ----

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

// ---- HEVC ----

const Bytes kHevcAud = WithStartCode(Hex("46 01 50"));
const Bytes kHevcVps = WithStartCode(Hex("40 01 0C 01 FF FF 80"));
const Bytes kHevcSlice = WithStartCode(Hex("26 01 AF 09 40 F3 28"));
const Bytes kHevcSei = WithStartCode(Hex("4E 01 05 01 55 80"));

int CountingType(uint8_t type) { return type == 4 ? 4 : type == 32 ? 6 : 0; }

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

// ---- The units of the rewrite ----

Bytes TimeCodeUnitOf(uint32_t scale, uint32_t tick, uint32_t frameCount, bool fieldMark = false,
                     uint32_t fieldSeq = 0) {
  HevcSpsRecord sps = {};
  sps.vui_time_scale = scale;
  sps.vui_num_units_in_tick = tick;
  sps.field_seq_flag = fieldSeq;
  if (fieldMark) {
    sps.aspect_ratio_idc = 255;
    sps.sar_height = 2;
  }
  uint8_t unit[kTimingSeiRoom] = {};
  const uint32_t length = WriteHevcTimeCodeSei(unit, frameCount, sps);
  return Bytes(unit, unit + length);
}

TEST(WriteHevcTimeCodeSei, TakesTheTypeFromTheTiming) {
  struct Case {
    uint32_t scale, tick;
    uint8_t type, fieldType;
  };
  const Case cases[] = {{24000, 1001, 1, 1}, {24, 1, 1, 1},       {25, 1, 8, 8},
                        {30, 1, 2, 2},       {50, 1, 16, 8},      {60000, 1001, 32, 4},
                        {60, 1, 64, 2},      {30000, 1001, 4, 4}, {120, 1, 4, 4},
                        {25, 0, 4, 4},       {0, 0, 4, 4},        {0xFFFFFFFFu, 0x0A3D70A4u, 1, 1}};
  for (const Case& c : cases) {
    for (const bool mark : {false, true}) {
      const uint8_t type = mark ? c.fieldType : c.type;
      // A count that all types read differently.
      char text[32];
      TimeCodeToString(123456, type | 0x400u, text);
      const Digits digits{text[0], text[1], text[2], text[3]};
      EXPECT_EQ(TimeCodeUnitOf(c.scale, c.tick, 123456, mark), HevcUnit(CountingType(type), digits))
          << c.scale << "/" << c.tick << " " << mark;
    }
  }
}

TEST(WriteHevcTimeCodeSei, LooksForTheWholeFieldMark) {
  HevcSpsRecord sps = {};
  sps.vui_time_scale = 50;
  sps.vui_num_units_in_tick = 1;
  sps.sar_height = 2;  // without aspect_ratio_idc
  uint8_t unit[kTimingSeiRoom] = {};
  uint32_t length = WriteHevcTimeCodeSei(unit, 51, sps);
  EXPECT_EQ(Bytes(unit, unit + length), HevcUnit(0, {0, 0, 1, 1}));
  sps.aspect_ratio_idc = 1;
  length = WriteHevcTimeCodeSei(unit, 51, sps);
  EXPECT_EQ(Bytes(unit, unit + length), HevcUnit(0, {0, 0, 2, 1}));
  sps.sar_height = 1;
  length = WriteHevcTimeCodeSei(unit, 51, sps);
  EXPECT_EQ(Bytes(unit, unit + length), HevcUnit(0, {0, 0, 1, 1}));
}

TEST(WriteHevcTimeCodeSei, CountsFieldsInAFieldSequence) {
  EXPECT_EQ(TimeCodeUnitOf(25, 1, 26, false, 1), HevcUnit(0, {0, 0, 1, 1}, true));
  EXPECT_EQ(TimeCodeUnitOf(25, 1, 26, false, 0xFFFFFFFFu), HevcUnit(0, {0, 0, 1, 1}, true));
  EXPECT_EQ(TimeCodeUnitOf(25, 1, 26, false, 0), HevcUnit(0, {0, 0, 1, 1}, false));
}

Bytes PicTimingOf(const HevcSpsRecord& sps, uint32_t picStruct, uint32_t scanType, uint32_t first,
                  uint32_t second) {
  uint8_t unit[kTimingSeiRoom] = {};
  const uint32_t length = WriteHevcPicTiming(unit, picStruct, scanType, sps, first, second);
  return Bytes(unit, unit + length);
}

TEST(WriteHevcPicTiming, WritesWhatTheSpsHas) {
  HevcSpsRecord sps = {};
  EXPECT_TRUE(PicTimingOf(sps, 11, 0, 1, 2).empty());
  sps.frame_field_info_present_flag = 1;
  // 1011 00 0, stop bit; trailing byte.
  EXPECT_EQ(PicTimingOf(sps, 11, 0, 1, 2), Hex("00 00 00 01 4E 01 01 01 B1 80"));
  EXPECT_EQ(PicTimingOf(sps, 0, 1, 1, 2), Hex("00 00 00 01 4E 01 01 01 05 80"));
  sps.nal_hrd_parameters_present_flag = 1;
  sps.au_cpb_removal_delay_length_minus1 = 23;
  sps.dpb_output_delay_length_minus1 = 15;
  BitBuilder bits;
  bits.u(32, 1).u(16, 0x4E01).u(8, 1).u(8, 6).u(4, 10).u(2, 0).u(1, 0).u(24, 0x123456).u(16, 0x789A);
  bits.trailing().trailing();
  EXPECT_EQ(PicTimingOf(sps, 10, 0, 0x123456, 0x789A), bits.bytes());
  sps.frame_field_info_present_flag = 0;
  sps.nal_hrd_parameters_present_flag = 0;
  sps.vcl_hrd_parameters_present_flag = 1;
  BitBuilder delays;
  delays.u(32, 1).u(16, 0x4E01).u(8, 1).u(8, 5).u(24, 0x123456).u(16, 0x789A).trailing();
  EXPECT_EQ(PicTimingOf(sps, 10, 0, 0x123456, 0x789A), delays.bytes());
}

TEST(WriteHevcPicTiming, LeavesOutWidthsThatNoFieldHas) {
  HevcSpsRecord sps = {};
  sps.vcl_hrd_parameters_present_flag = 0xFFFFFFFFu;
  sps.au_cpb_removal_delay_length_minus1 = 0xFFFFFFFFu;  // 0 bits
  sps.dpb_output_delay_length_minus1 = 7;
  EXPECT_EQ(PicTimingOf(sps, 0, 0, 0xAA, 0x55), Hex("00 00 00 01 4E 01 01 01 55 80"));
  sps.au_cpb_removal_delay_length_minus1 = 64;
  EXPECT_EQ(PicTimingOf(sps, 0, 0, 0xAA, 0x55), Hex("00 00 00 01 4E 01 01 01 55 80"));
  sps.au_cpb_removal_delay_length_minus1 = 0x7FFFFFFFu;
  EXPECT_EQ(PicTimingOf(sps, 0, 0, 0xAA, 0x55), Hex("00 00 00 01 4E 01 01 01 55 80"));
  // Above 32 bits the value's bits repeat, as the bit writer has it.
  sps.au_cpb_removal_delay_length_minus1 = 39;
  EXPECT_EQ(PicTimingOf(sps, 0, 0, 0x11223344, 0x55), Hex("00 00 00 01 4E 01 01 06 44 11 22 33 44 55 80"));
}

TEST(AddSeiAtc, WritesSeventeenBytes) {
  for (int flags = 0; flags < 256; ++flags) {
    Bytes output(19, 0xA5);
    EXPECT_EQ(qlnUtilAddSeiATC(output.data(), static_cast<uint8_t>(flags)), 17u);
    EXPECT_EQ(output, Join({Hex("00 00 00 01 4E 01 04 08 B5 00 31"),
                            {'D', 'T', 'G', '1'},
                            {static_cast<uint8_t>((flags & 0x0E) | 1), 0x80, 0xA5, 0xA5}}));
  }
  EXPECT_EQ(qlnUtilAddSeiATC(nullptr, 0), 0u);
}

}  // namespace
}  // namespace qln
