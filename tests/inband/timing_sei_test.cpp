// The timing units of the interlace rewrite, and the ATC packet.

#include <gtest/gtest.h>

#include "inband/timecode_support.h"
#include "qlnutil/inband/hevc_timing_sei.h"
#include "qlnutil/qlninband.h"
#include "timecode/kxtimecode.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::CountingType;
using test::Digits;
using test::HevcUnit;
using test::Hex;
using test::Join;

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
