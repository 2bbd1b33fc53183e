// Frames and fields as sets, slices, picture timing and order counts tell them.

#include "inspect/scan_facts.h"

#include <gtest/gtest.h>

#include "coded_streams.h"

namespace qlnmedia {
namespace {

using test::FieldStream;
using test::HevcPictureTiming;
using test::HevcSlice;
using test::HevcSpsParts;
using test::HevcStream;

std::string Text(const CodedStream& stream) {
  const ScanFacts scan = ScanOf(stream);
  return scan.type + "|" + scan.coding + "|" + scan.fieldOrder;
}

TEST(ScanFacts, OfH264ByOrderCounts) {
  EXPECT_EQ(Text(FieldStream({{.idr = true}, {.place = 1}})), "interlaced|fields|top field first");
  EXPECT_EQ(Text(FieldStream({{.idr = true, .bottomFirst = true}, {.place = 1, .bottomFirst = true}})),
            "interlaced|fields|bottom field first");
  EXPECT_EQ(Text(FieldStream({{.idr = true, .fields = false}})), "interlaced|frames|top field first");
  EXPECT_EQ(Text(FieldStream({{.idr = true, .fields = false, .bottomFirst = true}})),
            "interlaced|frames|bottom field first");
  EXPECT_EQ(Text(FieldStream({{.idr = true}, {.place = 1, .fields = false}})),
            "interlaced|fields and frames|top field first");
}

// pic_struct of table D-1 says it, whatever order counts say.
TEST(ScanFacts, OfH264ByPictureTiming) {
  const qln::test::FieldStreamOptions timed = {.pictureTiming = true};
  EXPECT_EQ(Text(FieldStream({{.idr = true, .fields = false, .bottomFirst = true}}, timed)),
            "interlaced|frames|bottom field first");
  CodedStream stream = FieldStream({{.idr = true, .fields = false}}, timed);
  // The message of that frame (06 01 01 ...) with a pic_struct of 0, a progressive frame.
  for (size_t i = 0; i + 4 < stream.packets[0].data.size(); ++i) {
    uint8_t* const at = stream.packets[0].data.data() + i;
    if (at[0] == 1 && at[1] == 6 && at[2] == 1 && at[3] == 1) at[4] = static_cast<uint8_t>(at[4] & 0x0F);
  }
  EXPECT_EQ(Text(stream), "progressive|frames|");
}

CodedStream Hevc(const HevcSpsParts& parts, const std::vector<std::array<uint32_t, 2>>& told) {
  std::vector<std::vector<Bytes>> packets;
  for (uint32_t i = 0; i < told.size(); ++i) {
    const Bytes slice = i == 0 ? HevcSlice(19, 0) : HevcSlice(1, i, 1);
    packets.push_back(told[i][0] == 99
                          ? std::vector<Bytes>{slice}
                          : std::vector<Bytes>{HevcPictureTiming(told[i][0], told[i][1]), slice});
  }
  return HevcStream({test::HevcSps(parts), test::HevcPps()}, packets);
}

// ITU-T H.265: general flags, and table D.2.
TEST(ScanFacts, OfHevc) {
  EXPECT_EQ(Text(Hevc({}, {{99, 0}})), "|frames|");
  EXPECT_EQ(Text(Hevc({.progressive = true}, {{99, 0}})), "progressive|frames|");
  EXPECT_EQ(Text(Hevc({.interlaced = true}, {{99, 0}})), "interlaced|frames|");
  const HevcSpsParts byPicture = {.progressive = true, .interlaced = true, .frameFieldInfo = true};
  EXPECT_EQ(Text(Hevc(byPicture, {{0, 1}})), "progressive|frames|");
  EXPECT_EQ(Text(Hevc(byPicture, {{3, 0}})), "interlaced|frames|top field first");
  EXPECT_EQ(Text(Hevc(byPicture, {{0, 2}, {4, 0}})), "interlaced|frames|bottom field first");
  const HevcSpsParts fields = {.interlaced = true, .fieldSeq = true, .frameFieldInfo = true};
  EXPECT_EQ(Text(Hevc(fields, {{11, 0}, {10, 0}})), "interlaced|fields|top field first");
  EXPECT_EQ(Text(Hevc(fields, {{12, 0}, {9, 0}})), "interlaced|fields|bottom field first");
  EXPECT_EQ(Text(Hevc(fields, {{2, 0}, {1, 0}})), "interlaced|fields|bottom field first");
  // Without the flag the messages are of another layout.
  EXPECT_EQ(Text(Hevc({.interlaced = true}, {{3, 0}})), "interlaced|frames|");
}

TEST(ScanFacts, NothingWithoutPictures) {
  EXPECT_EQ(Text(CodedStream()), "||");
  EXPECT_EQ(Text(HevcStream({test::HevcSps()}, {{HevcSlice(19, 0)}})), "||");  // no PPS
}

TEST(ScanFacts, OfOtherCodecsByTheContainersWord) {
  EXPECT_EQ(ScanText(ScanOf(kProgressive)), "progressive");
  EXPECT_EQ(ScanText(ScanOf(kTopFirst)), "interlaced, top field first");
  EXPECT_EQ(ScanText(ScanOf(kBottomCodedTopShownFirst)), "interlaced, top field first");
  EXPECT_EQ(ScanText(ScanOf(kBottomFirst)), "interlaced, bottom field first");
  EXPECT_EQ(ScanText(ScanOf(kTopCodedBottomShownFirst)), "interlaced, bottom field first");
  EXPECT_EQ(ScanText(ScanOf(kFieldOrderUnknown)), "");
}

TEST(ScanFacts, InWords) {
  EXPECT_EQ(ScanText({"progressive", "frames", ""}), "progressive");
  EXPECT_EQ(ScanText({"interlaced", "frames", "top field first"}),
            "interlaced, top field first, coded as frames");
  EXPECT_EQ(ScanText({"progressive", "macroblock-adaptive frames", ""}),
            "progressive, coded as macroblock-adaptive frames");
  EXPECT_EQ(ScanText({"", "fields", ""}), "coded as fields");
}

}  // namespace
}  // namespace qlnmedia
