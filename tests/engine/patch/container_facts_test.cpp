// What changes of a stream ask of its container, value by value.

#include "patch/container_facts.h"

#include <gtest/gtest.h>

#include "engine/small_streams.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;

// 64 x 64 in 4:2:0, cropped (ITU-T H.265 clause 7.4.3.2.1: in units of two samples).
Bytes Cropped(uint32_t left, uint32_t right, uint32_t top, uint32_t bottom, int layer = 0) {
  qln::test::BitBuilder bits;
  bits.u(7, 33).u(6, static_cast<uint64_t>(layer)).u(3, 1).u(4, 0).u(3, 0).u(1, 1);
  bits.u(8, 1).u(32, 1u << 30).u(48, 0).u(8, 93);
  bits.ue(0).ue(1).ue(64).ue(64).u(1, 1).ue(left).ue(right).ue(top).ue(bottom).ue(0).ue(0).ue(4);
  bits.u(1, 1).ue(4).ue(2).ue(0).ue(0).ue(3).ue(0).ue(3).ue(0).ue(0).u(4, 0).ue(0).u(3, 0).u(1, 0).u(1, 0);
  return Escape(bits.trailing().bytes());
}

TEST(PictureSizes, OfTheFirstSetOnEachSide) {
  const std::optional<mp4::PictureSize> size = PictureSizeOf(
      Codec::kHevc, {test::HevcVps(), Cropped(0, 0, 0, 4)}, {Cropped(1, 2, 3, 4), Cropped(0, 0, 0, 0)});
  ASSERT_TRUE(size);
  EXPECT_EQ(size->wasWidth, 64u);
  EXPECT_EQ(size->wasHeight, 56u);
  EXPECT_EQ(size->width, 58u);
  EXPECT_EQ(size->height, 50u);
  EXPECT_EQ(size->left, 2);
  EXPECT_EQ(size->top, 6);
  const std::optional<mp4::PictureSize> back =
      PictureSizeOf(Codec::kHevc, {Cropped(1, 2, 3, 4)}, {Cropped(0, 0, 0, 4)});
  EXPECT_EQ(back->left, -2);
  EXPECT_EQ(back->top, -6);
}

TEST(PictureSizes, NothingWhereASideHasNoSetOfTheBaseLayer) {
  EXPECT_FALSE(PictureSizeOf(Codec::kHevc, {}, {Cropped(0, 0, 0, 0)}));
  EXPECT_FALSE(PictureSizeOf(Codec::kHevc, {Cropped(0, 0, 0, 0)}, {test::HevcVps()}));
  EXPECT_FALSE(PictureSizeOf(Codec::kHevc, {Cropped(0, 0, 0, 0)}, {Cropped(0, 0, 0, 0, 1)}));
  // One that breaks off is passed over.
  const Bytes cut = Hex("42 01 01");
  EXPECT_TRUE(PictureSizeOf(Codec::kHevc, {cut, Cropped(0, 0, 0, 0)}, {Cropped(0, 0, 0, 0)}));
}

TEST(ContainerFactsOf, NothingOfWhatContainersDoNotHold) {
  StreamChanges changes;
  changes.delimiters = true;
  changes.timecode = "10:00:00:00";
  changes.level = 41;
  EXPECT_FALSE(FactsOf(changes, {}).any());
}

TEST(ContainerFactsOf, ColourAndRangeEachByItself) {
  StreamChanges changes;
  changes.fullRange = true;
  mp4::ContainerFacts facts = FactsOf(changes, {});
  EXPECT_EQ(facts.colour->fullRange, true);
  EXPECT_FALSE(facts.colour->primaries || facts.colour->transfer || facts.colour->matrix);
  changes.fullRange.reset();
  changes.colour = ColourCodes{9, 16, 10};
  facts = FactsOf(changes, {});
  EXPECT_EQ(facts.colour->primaries, 9);
  EXPECT_EQ(facts.colour->transfer, 16);
  EXPECT_EQ(facts.colour->matrix, 10);
  EXPECT_FALSE(facts.colour->fullRange);
}

// The order of the message (ITU-T H.265 clause D.2.28): green, blue, red; ISO/IEC 14496-12 clause 12.1.8.
TEST(ContainerFactsOf, MasteringDisplayAndLightAsTheirBoxes) {
  StreamChanges changes;
  changes.mastering = MasteringDisplay{{0x1111, 0x1222}, {0x2111, 0x2222}, {0x3111, 0x3222},
                                       {0x4111, 0x4222}, 0x51515151,       0x61616161};
  changes.lightLevel = LightLevel{1000, 400};
  const mp4::ContainerFacts facts = FactsOf(changes, {});
  EXPECT_EQ(Bytes(facts.mastering->begin(), facts.mastering->end()),
            Hex("2111 2222 3111 3222 1111 1222 4111 4222 51515151 61616161"));
  EXPECT_EQ(facts.lightLevel, (std::array<uint16_t, 2>{1000, 400}));
}

TEST(ContainerFactsOf, ShapesOfSamplesThatAreTold) {
  StreamChanges changes;
  changes.sampleAspect = SampleAspect{12, 11};
  EXPECT_EQ(FactsOf(changes, {}).pixelShape, (std::array<uint32_t, 2>{12, 11}));
  changes.sampleAspect = SampleAspect{0, 0};
  EXPECT_FALSE(FactsOf(changes, {}).any());
}

// QuickTime File Format Specification, 'fiel': 1 is top field first, 6 bottom field first.
TEST(ContainerFactsOf, FieldsByTheOneThatIsShownFirst) {
  StreamChanges changes;
  StreamDescription stream;
  changes.interlaced = true;
  EXPECT_EQ(FactsOf(changes, stream).fields, (std::array<uint8_t, 2>{2, 1}));
  stream.bottomFirst = true;
  EXPECT_EQ(FactsOf(changes, stream).fields, (std::array<uint8_t, 2>{2, 6}));
  changes.interlaced = false;
  EXPECT_EQ(FactsOf(changes, stream).fields, (std::array<uint8_t, 2>{1, 0}));
}

}  // namespace
}  // namespace qlnmedia
