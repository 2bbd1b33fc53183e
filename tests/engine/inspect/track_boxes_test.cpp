// Edit lists, sample descriptions and the sets of higher layers, from boxes made by hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "inspect/coded_frames.h"
#include "inspect/track_boxes.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;
using testing::ElementsAre;

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Bytes Box(const std::string& type, const Bytes& body) {
  const auto size = static_cast<uint32_t>(body.size() + 8);
  Bytes box = {static_cast<uint8_t>(size >> 24), static_cast<uint8_t>(size >> 16),
               static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)};
  box.insert(box.end(), type.begin(), type.end());
  return box + body;
}

Bytes Zeros(size_t count) { return Bytes(count, 0); }

// ISO/IEC 14496-12: a movie of 1000 units a second with one video track, number 3, of 25; its edits are an
// empty one of half a second, and two seconds from 0.2 on at twice the speed.
Bytes Movie(const Bytes& descriptionBoxes) {
  const Bytes edits = Box("edts", Box("elst", Hex("00000000 00000002"
                                                  "000001F4 FFFFFFFF 00010000"
                                                  "000007D0 00000005 00020000")));
  const Bytes entry = Box("hvc1", Zeros(78) + descriptionBoxes);
  const Bytes tables = Box("stbl", Box("stsd", Hex("00000000 00000001") + entry));
  const Bytes media =
      Box("mdia", Box("mdhd", Zeros(12) + Hex("00000019 00000000 00000000")) +
                      Box("hdlr", Zeros(8) + Bytes{'v', 'i', 'd', 'e'} + Zeros(13)) + Box("minf", tables));
  const Bytes track = Box("trak", Box("tkhd", Zeros(12) + Hex("00000003") + Zeros(68)) + edits + media);
  return Box("ftyp", Bytes{'i', 's', 'o', 'm', 0, 0, 0, 0}) +
         Box("moov", Box("mvhd", Zeros(12) + Hex("000003E8") + Zeros(84)) + track);
}

TEST(TrackBoxes, EditsInSeconds) {
  const Bytes bytes = Movie({});
  const mp4::MemorySource source(bytes);
  const TrackBoxes boxes = ReadTrackBoxes(source, 3);
  ASSERT_EQ(boxes.edits.size(), 2u);
  EXPECT_EQ(boxes.edits[0].seconds, 0.5);
  EXPECT_FALSE(boxes.edits[0].mediaTime.has_value());
  EXPECT_EQ(boxes.edits[1].seconds, 2.0);
  EXPECT_EQ(boxes.edits[1].mediaTime, 0.2);
  EXPECT_EQ(boxes.edits[1].rate, 2.0);
  Section section;
  AddTrackBoxes(section, boxes);
  const Json json = section.ToJson();
  EXPECT_EQ(json["edits"][0], (Json{{"duration", 0.5}, {"media_time", nullptr}, {"rate", 1.0}}));
  EXPECT_FALSE(json.contains("description_boxes"));
  EXPECT_TRUE(ReadTrackBoxes(source, 4).edits.empty());
}

TEST(TrackBoxes, SetsOfHigherLayers) {
  // An lhvC (ISO/IEC 14496-15 clause 9.6.3): head of 5 bytes, one array with an SPS of layer 1.
  const Bytes layered = Box("lhvC", Hex("01 F000 FC CF 01 A1 0001 0005 420901A0 80"));
  const Bytes bytes = Movie(Box("hvcC", Zeros(23)) + layered + Box("vexu", {}));
  const TrackBoxes boxes = ReadTrackBoxes(mp4::MemorySource(bytes), 3);
  EXPECT_THAT(boxes.description, ElementsAre("hvcC", "lhvC", "vexu"));
  ASSERT_EQ(boxes.layeredUnits.size(), 1u);
  CodedStream stream;
  stream.codec = Codec::kHevc;
  stream.layeredUnits = boxes.layeredUnits;
  const SetCollector collector(stream);
  ASSERT_EQ(collector.sets().size(), 1u);
  EXPECT_EQ(collector.sets()[0].Places(), "lhvC");
}

TEST(TrackBoxes, CutOffAtEachByte) {
  const Bytes bytes = Movie(Box("lhvC", Hex("01 F000 FC CF 01 A1 0001 0005 420901A0 80")));
  for (size_t size = 0; size < bytes.size(); ++size) {
    const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
    const TrackBoxes boxes = ReadTrackBoxes(mp4::MemorySource(cut), 3);
    EXPECT_LE(boxes.edits.size(), 2u);
    EXPECT_LE(boxes.layeredUnits.size(), 1u);
  }
}

}  // namespace
}  // namespace qlnmedia
