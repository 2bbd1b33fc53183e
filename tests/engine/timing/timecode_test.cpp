// Timecodes of pictures: what people write, the messages that carry it, the order in which pictures are
// shown.

#include "timing/timecode.h"

#include <gtest/gtest.h>

#include "base/error.h"
#include "pictures/presentation_order.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::BitBuilder;
using qln::test::ToHex;

TEST(PictureTimecode, TypesFollowTheRate) {
  EXPECT_EQ(ParseTimecode("00:00:01:00", "", {25, 1}).count, 25u);
  EXPECT_EQ(ParseTimecode("00:00:01:00", "", {25, 1}).type, 8);
  EXPECT_EQ(ParseTimecode("00:00:01:00", "", {24000, 1001}).type, 132);
  EXPECT_EQ(ParseTimecode("00:01:00;02", "", {30000, 1001}).count, 1800u);
  EXPECT_EQ(ParseTimecode("00:01:00;02", "", {30000, 1001}).type, 4);
  EXPECT_EQ(ParseTimecode("00:01:00:00", "", {30000, 1001}).type, 2);
  EXPECT_EQ(ParseTimecode("00:01:00;04", "", {60000, 1001}).type, 32);
  EXPECT_EQ(ParseTimecode("00:00:01:00", "film", {25, 1}).count, 24u);
}

TEST(PictureTimecode, WhatIsNoTimecodeIsRefused) {
  for (const char* text : {"", "1:00:00:00", "00:00:00:0x", "00:00:00.00", "00-00-00-00", "00:00:00:25",
                           "00:60:00:00", "00:00:00;00"})
    EXPECT_THROW(ParseTimecode(text, "", {25, 1}), Error) << text;
  EXPECT_THROW(ParseTimecode("00:01:00;01", "", {30000, 1001}), Error);
  EXPECT_THROW(ParseTimecode("00:00:00:00", "frames", {25, 1}), Error);  // a count and no clock
  EXPECT_THROW(ParseTimecode("00:00:00:00", "", {12, 1}), Error);
}

// What a refusal says.
std::string Refusal(const char* text, const char* typeName, Rational rate) {
  try {
    ParseTimecode(text, typeName, rate);
  } catch (const Error& error) {
    return error.what();
  }
  return "none";
}

// A day has 24 hours: SMPTE ST 12-1 counts from 00:00:00:00 to the last number of 23:59:59.
TEST(PictureTimecode, TimesOfDayEndAtMidnight) {
  struct Last {
    const char* text;
    const char* behind;
    Rational rate;
    uint32_t count;
  };
  for (const Last& last : {Last{"23:59:59:23", "23:59:59:24", {24000, 1001}, 2073599},
                           Last{"23:59:59:24", "23:59:59:25", {25, 1}, 2159999},
                           Last{"23:59:59:29", "23:59:59:30", {30000, 1001}, 2591999},
                           Last{"23:59:59;29", "23:59:59;30", {30000, 1001}, 2589407},
                           Last{"23:59:59;59", "23:59:59;60", {60000, 1001}, 5178815},
                           Last{"23:59:59:59", "23:59:59:60", {60, 1}, 5183999}}) {
    EXPECT_EQ(ParseTimecode(last.text, "", last.rate).count, last.count);
    for (std::string text : {std::string(last.behind), "24:00:00" + std::string(last.text).substr(8),
                             "25:00:00" + std::string(last.text).substr(8), std::string("99:99:99:99"),
                             std::string("00:60:00:00"), std::string("00:00:60:00")}) {
      text[8] = last.text[8];
      const std::string refusal = Refusal(text.c_str(), "", last.rate);
      EXPECT_NE(refusal.find("is no time of day"), std::string::npos) << refusal;
      EXPECT_NE(refusal.find(std::string("the last one is ") + last.text), std::string::npos) << refusal;
    }
  }
  EXPECT_NE(Refusal("00:00:00:25", "", {25, 1}).find("the next one is 00:00:01:00"), std::string::npos);
}

TEST(PictureTimecode, RatesAreToldInPlainDigits) {
  EXPECT_NE(Refusal("00:00:00:00", "", {1000000, 1}).find("counts 1000000 frames"), std::string::npos);
  EXPECT_NE(Refusal("00:00:00:00", "", {25, 2}).find("counts 12.5 frames"), std::string::npos);
  EXPECT_NE(Refusal("00:00:00;00", "", {24000, 1001}).find("at 23.976 frames"), std::string::npos);
}

TEST(PictureTimecode, PicturesGetTheirPlaceInPresentationOrder) {
  // Coding order of an I, P, B, B pattern, some hundred pictures.
  PresentationOrder order;
  std::vector<int64_t> times = {0};
  for (int64_t n = 1; n < 300; n += 3) {
    times.push_back(n + 2);
    times.push_back(n);
    times.push_back(n + 1);
  }
  std::vector<uint32_t> places;
  for (const int64_t time : times) {
    order.Add({0, time * 1000 - 5});
    while (order.ready()) places.push_back(order.Take());
  }
  while (!order.empty()) places.push_back(order.Take());
  ASSERT_EQ(places.size(), times.size());
  for (size_t i = 0; i < times.size(); ++i) EXPECT_EQ(places[i], static_cast<uint32_t>(times[i]));
}

TEST(PictureTimecode, AGroupFollowsTheOneInFrontOfIt) {
  PresentationOrder order;
  for (const PresentationKey key : {PresentationKey{1, 0}, {1, 8}, {1, 4}, {2, -2}, {2, -4}, {2, 0}})
    order.Add(key);
  std::vector<uint32_t> places;
  while (!order.empty()) places.push_back(order.Take());
  EXPECT_EQ(places, (std::vector<uint32_t>{0, 2, 1, 4, 3, 5}));
}

TEST(PictureTimecode, ANewMessageHoldsOneFullTimestamp) {
  SpsFacts sps;  // no HRD: 24 bits of time offset
  // pic_struct 0, clock, ct_type 0, no field units, counting 0, full, no discontinuity, none dropped.
  const auto expected = BitBuilder()
                            .u(4, 0)
                            .u(1, 1)
                            .u(2, 0)
                            .u(1, 0)
                            .u(5, 0)
                            .u(3, 4)
                            .u(8, 20)
                            .u(6, 3)
                            .u(6, 2)
                            .u(5, 1)
                            .u(24, 0)
                            .u(1, 1)
                            .align();
  const uint32_t count = ((1 * 60 + 2) * 60 + 3) * 25 + 20;
  EXPECT_EQ(ToHex(MakePictureTiming({}, sps, count, 8)), ToHex(expected.bytes()));
}

// A field has one clock, of an interlaced scan; where a tick is told it is a field, and frames count two.
TEST(PictureTimecode, AFieldsMessageSaysWhichFieldItIs) {
  SpsFacts sps;
  sps.h264.timeOffsetLength = 0;
  sps.numUnitsInTick = 1;
  sps.timeScale = 50;
  for (const uint32_t picStruct : {1u, 2u}) {
    const auto expected = BitBuilder()
                              .u(4, picStruct)
                              .u(1, 1)
                              .u(2, 1)
                              .u(1, 1)
                              .u(5, 0)
                              .u(3, 4)
                              .u(8, 24)
                              .u(6, 59)
                              .u(6, 59)
                              .u(5, 23)
                              .trailing();
    PictureTiming timing;
    timing.picStruct = picStruct;
    EXPECT_EQ(ToHex(MakePictureTiming(timing, sps, 24 * 3600 * 25 - 1, 8)), ToHex(expected.bytes()));
  }
}

TEST(PictureTimecode, AnExistingMessageKeepsAllButItsClock) {
  SpsFacts sps;
  sps.h264.hrd = true;
  sps.h264.picStruct = true;
  sps.h264.cpbRemovalDelayLength = 10;
  sps.h264.dpbOutputDelayLength = 7;
  sps.h264.timeOffsetLength = 0;
  // pic_struct 3: two clocks, of which only the second is there, not a full one.
  const auto before = BitBuilder()
                          .u(10, 777)
                          .u(7, 99)
                          .u(4, 3)
                          .u(1, 0)
                          .u(1, 1)
                          .u(2, 1)
                          .u(1, 1)
                          .u(5, 4)
                          .u(3, 0)
                          .u(8, 11)
                          .u(1, 1)
                          .u(6, 30)
                          .u(1, 0)
                          .u(1, 1)
                          .align()
                          .bytes();
  const auto timing = ReadPictureTiming(before, sps);
  ASSERT_TRUE(timing.has_value());
  const auto expected = BitBuilder()
                            .u(10, 777)
                            .u(7, 99)
                            .u(4, 3)
                            .u(1, 0)
                            .u(1, 1)
                            .u(2, 1)
                            .u(1, 1)
                            .u(5, 0)
                            .u(3, 4)
                            .u(8, 7)
                            .u(6, 0)
                            .u(6, 0)
                            .u(5, 0)
                            .u(1, 1)
                            .align()
                            .bytes();
  EXPECT_EQ(ToHex(MakePictureTiming(*timing, sps, 7, 8)), ToHex(expected));
  EXPECT_FALSE(ReadPictureTiming(Bytes(before.begin(), before.begin() + 3), sps).has_value());
}

TEST(PictureTimecode, ClocksAreReadBack) {
  SpsFacts sps;
  sps.h264.picStruct = true;
  const auto timing = ReadPictureTiming(MakePictureTiming({}, sps, 1800, 4), sps);
  ASSERT_TRUE(timing.has_value());
  EXPECT_TRUE(timing->times[0].whole);
  EXPECT_EQ(timing->times[0].Text(), "00:01:00;02");
  const auto messages = ReadSeiMessages(Codec::kHevc, MakeHevcTimecodeUnit(25 * 3601, 8));
  const auto times = ReadTimeCode(messages.at(0).payload);
  ASSERT_EQ(times.size(), 1u);
  EXPECT_EQ(times[0].Text(), "01:00:01:00");
  // Two clocks, the first without hours; the second, in drop-frame counting, breaks off or not.
  const Bytes two = BitBuilder()
                        .u(2, 2)
                        .u(1, 1)
                        .u(1, 0)
                        .u(5, 0)
                        .u(3, 0)
                        .u(9, 7)
                        .u(1, 1)
                        .u(6, 12)
                        .u(1, 0)
                        .u(5, 3)
                        .u(3, 5)
                        .u(1, 1)
                        .u(1, 1)
                        .u(5, 4)
                        .u(3, 4)
                        .u(9, 29)
                        .u(6, 3)
                        .u(6, 2)
                        .u(5, 1)
                        .u(5, 0)
                        .align()
                        .bytes();
  const auto both = ReadTimeCode(two);
  ASSERT_EQ(both.size(), 2u);
  EXPECT_FALSE(both[0].whole);
  EXPECT_EQ(both[0].frames, 7u);
  EXPECT_EQ(both[0].seconds, 12u);
  EXPECT_TRUE(both[1].whole);
  EXPECT_EQ(both[1].Text(), "01:02:03;29");
  for (size_t size = 0; size + 1 < two.size(); ++size)
    EXPECT_LE(ReadTimeCode(Bytes(two.begin(), two.begin() + static_cast<std::ptrdiff_t>(size))).size(), 1u);
}

// The three flags and numbers behind counting_type of the one clock of a message, in both codecs.
struct Written {
  uint32_t counting, discontinuity, dropped;
  std::string text;
  friend bool operator==(const Written&, const Written&) = default;
  friend void PrintTo(const Written& w, std::ostream* out) {
    *out << w.counting << ' ' << w.discontinuity << w.dropped << ' ' << w.text;
  }
};

// Bit by bit, by the syntax tables: at `at` stands counting_type, n_frames has `frameBits`.
Written WrittenAt(const Bytes& payload, size_t at, size_t frameBits) {
  const auto take = [&](size_t bits) {
    uint32_t value = 0;
    for (; bits > 0; --bits, ++at) value = value << 1 | (payload.at(at / 8) >> (7 - at % 8) & 1u);
    return value;
  };
  Written written;
  written.counting = take(5);
  EXPECT_EQ(take(1), 1u);  // full_timestamp_flag
  written.discontinuity = take(1);
  written.dropped = take(1);
  const uint32_t frames = take(frameBits);
  const uint32_t seconds = take(6);
  const uint32_t minutes = take(6);
  char text[48];
  std::snprintf(text, sizeof text, "%02u:%02u:%02u:%02u", take(5), minutes, seconds, frames);
  written.text = text;
  return written;
}

void ExpectWritten(uint32_t count, uint8_t type, const Written& expected) {
  SpsFacts sps;
  EXPECT_EQ(WrittenAt(MakePictureTiming({}, sps, count, type), 8, 8), expected);
  const Bytes unit = MakeHevcTimecodeUnit(count, type);
  EXPECT_EQ(WrittenAt(ReadSeiMessages(Codec::kHevc, unit).at(0).payload, 4, 9), expected);
}

// ITU-T H.264 clause D.2.3, H.265 clause D.3.27: with counting_type 4 and cnt_dropped_flag 1, n_frames is 2,
// seconds are 0, and minutes are no multiple of ten. Four numbers are "unspecified" ones, counting_type 6.
TEST(PictureTimecode, SkippedNumbersAreToldWhereTheyAreSkipped) {
  ExpectWritten(1799, 4, {4, 0, 0, "00:00:59:29"});
  ExpectWritten(1800, 4, {4, 0, 1, "00:01:00:02"});
  ExpectWritten(1801, 4, {4, 0, 0, "00:01:00:03"});
  ExpectWritten(17981, 4, {4, 0, 0, "00:09:59:29"});
  ExpectWritten(17982, 4, {4, 0, 0, "00:10:00:00"});
  ExpectWritten(17984, 4, {4, 0, 0, "00:10:00:02"});
  ExpectWritten(2, 4, {4, 0, 0, "00:00:00:02"});
  ExpectWritten(3600, 32, {6, 0, 1, "00:01:00:04"});
  ExpectWritten(3601, 32, {6, 0, 0, "00:01:00:05"});
  ExpectWritten(60 * 30 + 2, 2, {0, 0, 0, "00:01:00:02"});
  ExpectWritten(60 * 60 + 4, 64, {0, 0, 0, "00:01:00:04"});
}

TEST(PictureTimecode, CountsGoOnPastMidnight) {
  ExpectWritten(2159999, 8, {0, 0, 0, "23:59:59:24"});
  ExpectWritten(2160000, 8, {0, 1, 0, "00:00:00:00"});
  ExpectWritten(2160001, 8, {0, 0, 0, "00:00:00:01"});
  ExpectWritten(0, 8, {0, 0, 0, "00:00:00:00"});
  ExpectWritten(2589407, 4, {4, 0, 0, "23:59:59:29"});
  ExpectWritten(2589408, 4, {4, 1, 0, "00:00:00:00"});
  ExpectWritten(2589408 + 1800, 4, {4, 0, 1, "00:01:00:02"});
  ExpectWritten(5178816, 32, {6, 1, 0, "00:00:00:00"});
}

TEST(PictureTimecode, SkippedNumbersAreReadBack) {
  SpsFacts sps;
  sps.h264.picStruct = true;
  for (const uint8_t type : {uint8_t{4}, uint8_t{32}}) {
    const uint32_t drop = type == 4 ? 1800 : 3600;
    for (const uint32_t count : {drop, drop + 1}) {
      const auto timing = ReadPictureTiming(MakePictureTiming({}, sps, count, type), sps);
      const auto messages = ReadSeiMessages(Codec::kHevc, MakeHevcTimecodeUnit(count, type));
      for (const ClockTime& time : {timing.value().times[0], ReadTimeCode(messages.at(0).payload).at(0)}) {
        EXPECT_TRUE(time.drop);
        EXPECT_EQ(time.dropped, count == drop);
        EXPECT_EQ(time.Text()[8], ';');
      }
    }
  }
}

TEST(PictureTimecode, HevcUnitIsOfItsPicturesLayerAndCountsFramesOfFields) {
  const Bytes frame = MakeHevcTimecodeUnit(7, 8);
  const Bytes field = MakeHevcTimecodeUnit(7, 8, true, 2);
  EXPECT_EQ(frame[1], 1);
  EXPECT_EQ(field[0], 39 << 1);
  EXPECT_EQ(field[1], 3);  // nuh_temporal_id_plus1
  const auto was = ReadSeiMessages(Codec::kHevc, frame).at(0).payload;
  auto is = ReadSeiMessages(Codec::kHevc, field).at(0).payload;
  EXPECT_EQ(is[0] & 0x10, 0x10);  // units_field_based_flag
  is[0] &= 0xEF;
  EXPECT_EQ(ToHex(is), ToHex(was));
}

TEST(PictureTimecode, HevcUnitIsAPrefixSei) {
  const Bytes unit = MakeHevcTimecodeUnit(25 * 60 + 7, 8);
  const auto messages = ReadSeiMessages(Codec::kHevc, unit);
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].type, 136);
  // One clock, full timestamp, frame 7 of 00:01:00.
  const auto head =
      BitBuilder().u(2, 1).u(1, 1).u(1, 0).u(5, 0).u(1, 1).u(2, 0).u(9, 7).u(6, 0).u(6, 1).u(5, 0).u(5, 0);
  const Bytes expected = head.bytes();
  ASSERT_EQ(messages[0].payload.size(), 6u);
  EXPECT_EQ(Bytes(messages[0].payload.begin(), messages[0].payload.begin() + 5),
            Bytes(expected.begin(), expected.begin() + 5));
}

}  // namespace
}  // namespace qlnmedia
