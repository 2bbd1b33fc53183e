// Keys of presentation order by times, headers and temporal references, and the order of whole streams.

#include "pictures/presentation_order.h"

#include <gtest/gtest.h>

#include "pictures/order_survey.h"
#include "support/field_stream.h"

namespace qlnmedia {
namespace {

using qln::test::CodedFrame;
using qln::test::MakeFieldPictures;

StreamDescription H264(bool raw) {
  StreamDescription stream;
  stream.codec = VideoCodec::kH264;
  stream.timeBase = {1, 25};
  stream.raw = raw;
  return stream;
}

TEST(PresentationKeys, TimesFollowEachOtherAcrossRecordings) {
  PresentationKeys keys(H264(false));
  const auto next = [&](int64_t pts, int64_t dts) {
    return keys.Next({{}, pts, dts, false, -1}, {}).value();
  };
  const PresentationKey first = next(100, 98);
  EXPECT_EQ(next(102, 99).group, first.group);
  EXPECT_EQ(next(kNoTime, 101).time, 101);      // a decoding time is better than none
  EXPECT_EQ(next(kNoTime, kNoTime).time, 101);  // and so is the one before
  EXPECT_EQ(next(99, 76).group, first.group);   // a second back is no other recording
  const PresentationKey other = next(3, 1);
  EXPECT_EQ(other.group, first.group + 1);
  EXPECT_LT(first, other);
}

TEST(PresentationKeys, APacketWithoutAPictureHasNoneInARawStream) {
  PresentationKeys raw(H264(true));
  EXPECT_FALSE(raw.timed());
  EXPECT_FALSE(raw.Next({{}, 5, 5, false, -1}, {}));
  CodedPicture picture;
  EXPECT_FALSE(raw.Next({{}, 5, 5, false, -1}, {picture}));  // its header cannot be read
  picture.head.emplace();
  picture.order = {2, 9, 8};
  EXPECT_EQ(raw.Next({{}, 5, 5, false, -1}, {picture}), (PresentationKey{2, 8}));
  picture.secondField = true;
  EXPECT_FALSE(raw.Next({{}, 5, 5, false, -1}, {picture}));
  PresentationKeys timed(H264(false));
  EXPECT_FALSE(timed.Next({{}, 5, 5, false, -1}, {picture}));
  EXPECT_TRUE(timed.Next({{}, 5, 5, false, -1}, {}));  // no sets: its time is all that is known
}

// An MPEG-2 picture, a group of pictures in front of it where it begins one.
Bytes Mpeg2(int reference, bool group) {
  Bytes data;
  if (group) data = {0, 0, 1, 0xB8, 0, 8, 0, 0};
  data.insert(data.end(), {0, 0, 1, 0, static_cast<uint8_t>(reference >> 2),
                           static_cast<uint8_t>(reference << 6 | 8), 0, 0, 0, 0, 1, 1, 0x12});
  return data;
}

TEST(PresentationKeys, TemporalReferencesBeginAnewWithAGroupAndWrap) {
  StreamDescription stream = H264(true);
  stream.codec = VideoCodec::kMpeg2;
  PresentationKeys keys(stream);
  const auto next = [&](const Bytes& data) { return keys.Next({data, kNoTime, kNoTime, false, -1}, {}); };
  const PresentationKey first = next(Mpeg2(2, true)).value();
  EXPECT_EQ(next(Mpeg2(0, false)), (PresentationKey{first.group, 0}));
  EXPECT_EQ(next(Mpeg2(1, true)), (PresentationKey{first.group + 1, 1}));
  EXPECT_EQ(next(Mpeg2(1023, false)), (PresentationKey{first.group + 1, 1023}));
  EXPECT_EQ(next(Mpeg2(2, false)), (PresentationKey{first.group + 2, 2}));
  EXPECT_FALSE(next(Bytes{0, 0, 1, 0xB3, 1, 2}));
}

TEST(PresentationKeys, Mpeg2WithoutATimeGoesOnByReferences) {
  StreamDescription stream = H264(false);
  stream.codec = VideoCodec::kMpeg2;
  PresentationKeys keys(stream);
  const Bytes picture = Mpeg2(3, false);
  EXPECT_EQ(keys.Next({picture, 70, 68, false, -1}, {}).value().time, 70);
  EXPECT_EQ(keys.Next({picture, kNoTime, 69, false, -1}, {}).value().time, 3);
  EXPECT_FALSE(keys.timed());
  EXPECT_EQ(keys.Next({picture, 71, 70, false, -1}, {}).value().time, 3);
}

const std::vector<CodedFrame> kFrames = {
    {.place = 0, .idr = true}, {.place = 3}, {.place = 1, .reference = false}, {.place = 2, .fields = false}};

TEST(OrderSurvey, PlacesTheFieldsOfARawStream) {
  OrderSurvey survey(H264(true));
  for (const Bytes& picture : MakeFieldPictures(kFrames)) survey.Add({picture, kNoTime, kNoTime, false, -1});
  const PicturePlaces places = survey.Finish();
  EXPECT_EQ(places.places, (std::vector<uint32_t>{0, kNoPlace, 3, kNoPlace, 1, kNoPlace, 2}));
  EXPECT_EQ(places.pictures, 4u);
  EXPECT_TRUE(places.steps.empty());
  EXPECT_EQ(places.picturesPerSecond, 0);
}

TEST(OrderSurvey, TellsThePaceByTimes) {
  OrderSurvey survey(H264(false));
  const std::vector<Bytes> pictures = MakeFieldPictures(kFrames);
  size_t n = 0;
  for (const int64_t pts : {10, 10, 17, 17, 11, 11, 13}) survey.Add({pictures[n++], pts, kNoTime, false, -1});
  const PicturePlaces places = survey.Finish();
  EXPECT_EQ(places.places, (std::vector<uint32_t>{0, kNoPlace, 3, kNoPlace, 1, kNoPlace, 2}));
  EXPECT_EQ(places.steps, (std::vector<uint32_t>{1, 2, 4}));
  EXPECT_DOUBLE_EQ(places.picturesPerSecond, 3 / (7 / 25.0));
}

TEST(OrderSurvey, SettlesLongStreamsAsTheyCome) {
  StreamDescription stream = H264(false);
  stream.codec = VideoCodec::kMpeg2;  // every packet is a picture
  OrderSurvey survey(stream);
  constexpr int64_t kCount = 9000;
  for (int64_t n = 0; n < kCount; n += 3) {
    for (const int64_t time : {n + 2, n, n + 1}) survey.Add({{}, time, n, false, -1});
  }
  const PicturePlaces places = survey.Finish();
  ASSERT_EQ(places.places.size(), static_cast<size_t>(kCount));
  for (uint32_t n = 0; n < kCount; n += 3) {
    EXPECT_EQ(places.places[n], n + 2);
    EXPECT_EQ(places.places[n + 1], n);
    EXPECT_EQ(places.places[n + 2], n + 1);
  }
}

}  // namespace
}  // namespace qlnmedia
