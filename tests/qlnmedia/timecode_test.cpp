// Timecodes of pictures: what people write, the messages that carry it, the order in which pictures are
// shown.

#include "qlnmedia/timecode.h"

#include <gtest/gtest.h>

#include "qlnmedia/tool_error.h"
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
    EXPECT_THROW(ParseTimecode(text, "", {25, 1}), ToolError) << text;
  EXPECT_THROW(ParseTimecode("00:01:00;01", "", {30000, 1001}), ToolError);
  EXPECT_THROW(ParseTimecode("00:00:00:00", "", {12, 1}), ToolError);
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
    order.Add(time * 1000 - 5);
    while (order.ready()) places.push_back(order.Take());
  }
  while (!order.empty()) places.push_back(order.Take());
  ASSERT_EQ(places.size(), times.size());
  for (size_t i = 0; i < times.size(); ++i) EXPECT_EQ(places[i], static_cast<uint32_t>(times[i]));
}

TEST(PictureTimecode, ANewMessageHoldsOneFullTimestamp) {
  SpsSummary sps;  // no HRD: 24 bits of time offset
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

TEST(PictureTimecode, AnExistingMessageKeepsAllButItsClock) {
  SpsSummary sps;
  sps.hrd = true;
  sps.picStruct = true;
  sps.cpbRemovalDelayLength = 10;
  sps.dpbOutputDelayLength = 7;
  sps.timeOffsetLength = 0;
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
