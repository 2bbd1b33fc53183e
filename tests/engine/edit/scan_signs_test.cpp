// Each sign that pictures of an HEVC stream are frames or fields, on its own.

#include "edit/scan_signs.h"

#include <gtest/gtest.h>

#include "engine/small_streams.h"

namespace qlnmedia {
namespace {

using test::HevcPictureTiming;
using test::HevcPps;
using test::HevcSlice;
using test::HevcSps;
using test::HevcSpsParts;
using test::PacketOf;

StreamDescription Described(const std::vector<Bytes>& sets) {
  StreamDescription stream;
  stream.codec = VideoCodec::kHevc;
  stream.privateData = PacketOf(sets);
  return stream;
}

ScanSigns SignsOf(const HevcSpsParts& parts) { return ScanSigns(Described({HevcSps(parts), HevcPps()})); }

TEST(ScanSigns, NoneOfAPlainSet) {
  const ScanSigns signs = SignsOf({});
  EXPECT_EQ(signs.fields() + signs.frames() + signs.likelyFields(), "");
  EXPECT_TRUE(signs.everyPictureTold());
}

TEST(ScanSigns, OfTheSetItself) {
  EXPECT_EQ(SignsOf({.fieldSeq = true}).fields(), "the sequence parameter set says field_seq_flag 1");
  EXPECT_EQ(SignsOf({.width = 1920, .height = 540}).likelyFields(), "1920 x 540 is the raster of a field");
  EXPECT_EQ(SignsOf({.width = 720, .height = 288}).likelyFields(), "720 x 288 is the raster of a field");
  EXPECT_EQ(SignsOf({.width = 720, .height = 576}).likelyFields(), "");
  EXPECT_EQ(SignsOf({.sarWidth = 8, .sarHeight = 16}).likelyFields(),
            "its samples are twice as high as wide");
  EXPECT_EQ(SignsOf({.sarWidth = 16, .sarHeight = 8}).likelyFields(), "");
}

TEST(ScanSigns, OfTheContainerBesideIt) {
  StreamDescription stream = Described({HevcSps()});
  stream.height = 128;
  EXPECT_EQ(ScanSigns(stream).fields(), "the container's picture has 128 lines, a coded one 64");
  stream.raw = true;
  EXPECT_EQ(ScanSigns(stream).fields(), "");
  stream.raw = false;
  stream.height = 64;
  stream.averageRate = {50, 1};
  EXPECT_EQ(
      ScanSigns(stream).fields(),
      "there are two pictures in each frame time: 50 a second where the sequence parameter set says 25");
  stream.averageRate = {40, 1};
  EXPECT_EQ(ScanSigns(stream).fields(), "");
  // Rates that a reader took from the stream say nothing beside it.
  stream.averageRate = {50, 1};
  stream.ownMarks = false;
  EXPECT_EQ(ScanSigns(stream).fields(), "");
}

TEST(ScanSigns, OfPicturesAndTheirTiming) {
  ScanSigns signs = SignsOf({.frameFieldInfo = true});
  signs.TakePacket(PacketOf({HevcPictureTiming(11), HevcSlice(19, 0)}));
  EXPECT_EQ(signs.fields(), "picture timing says pic_struct 11");
  EXPECT_EQ(signs.frames(), "");
  EXPECT_TRUE(signs.everyPictureTold());
  signs.TakePacket(PacketOf({HevcPictureTiming(0), HevcSlice(1, 1)}));
  EXPECT_EQ(signs.frames(), "picture timing says pic_struct 0");
  signs.TakePacket(PacketOf({HevcPictureTiming(3), HevcSlice(1, 2)}));
  EXPECT_EQ(signs.frames(), "picture timing says pic_struct 0");  // the first one is kept
  EXPECT_TRUE(signs.everyPictureTold());
  signs.TakePacket(PacketOf({HevcSlice(1, 3)}));
  EXPECT_FALSE(signs.everyPictureTold());
}

TEST(ScanSigns, TimingWithoutTheInformationSaysNothing) {
  ScanSigns signs = SignsOf({});
  signs.TakePacket(PacketOf({HevcPictureTiming(11), HevcSlice(19, 0)}));
  EXPECT_EQ(signs.fields(), "");
  EXPECT_FALSE(signs.everyPictureTold());
}

TEST(ScanSigns, TwoPicturesInAPacketAreFields) {
  ScanSigns signs = SignsOf({});
  signs.TakePacket(PacketOf({HevcSlice(19, 0), HevcSlice(1, 1)}));
  EXPECT_EQ(signs.fields(), "a packet holds two pictures");
}

// A set of an enhancement layer is of other pictures.
TEST(ScanSigns, HigherLayersSayNothing) {
  ScanSigns signs(Described({HevcSps(), HevcSps({.layer = 1, .fieldSeq = true}), HevcPps()}));
  EXPECT_EQ(signs.fields(), "");
  signs.TakePacket(PacketOf({HevcSps({.layer = 1, .width = 720, .height = 288}), HevcSlice(19, 0)}));
  EXPECT_EQ(signs.likelyFields(), "");
}

TEST(PictureTimingPlaces, TheFirstMessageInFrontOfTheSlices) {
  PictureUnits part;
  part.codec = Codec::kHevc;
  const Bytes header = {0x4E, 0x01};
  part.units = test::UnitList({MakeSeiUnit(header, {{5, Bytes(16)}}),
                               MakeSeiUnit(header, {{0, Bytes(2)}, {1, Bytes(1, 0xB2)}}), HevcSlice(19, 0)});
  const std::optional<PictureTimingPlace> place = FindPictureTiming(part);
  ASSERT_TRUE(place);
  EXPECT_EQ(place->unit, 1u);
  EXPECT_EQ(place->message, 1u);
  EXPECT_EQ(place->content.payload, Bytes(1, 0xB2));
  std::swap(part.units[1], part.units[2]);
  EXPECT_FALSE(FindPictureTiming(part));
}

}  // namespace
}  // namespace qlnmedia
