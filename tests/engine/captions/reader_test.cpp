// The two passes over a stream's captions: counts and order, then the triplets in presentation order.

#include "captions/reader.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "captions/units.h"
#include "qlnmedia/stream_editor.h"
#include "support/field_stream.h"
#include "units/access_unit.h"

namespace qlnmedia {
namespace {

using captions::CcType;
using qln::test::CodedFrame;
using qln::test::MakeFieldPictures;

Triplets At(int place, size_t count) {
  return Triplets(count, {true, CcType::kServiceData, static_cast<uint8_t>(place + 32), 0x41});
}

// Fields in packets of their own: the first with as many triplets as it stands in order, the second of the
// last frame with one more.
struct Stream {
  StreamDescription description;
  std::vector<Bytes> packets;

  Stream() {
    description.codec = VideoCodec::kH264;
    description.raw = true;
    description.averageRate = {25, 1};
    const std::vector<CodedFrame> frames = {{.place = 0, .idr = true},
                                            {.place = 3},
                                            {.place = 1, .reference = false},
                                            {.place = 2, .reference = false}};
    size_t n = 0;
    for (const Bytes& picture : MakeFieldPictures(frames)) {
      UnitRun run = TakeApart(picture, Framing{});
      const int place = frames[n / 2].place;
      const size_t count = n % 2 == 0 ? static_cast<size_t>(place) : place == 3 ? 1 : 0;
      ++n;
      const size_t first = FirstPictureUnit(Codec::kH264, run.units);
      if (count != 0)
        InsertSei(Codec::kH264, run.units,
                  MakeCaptionUnit(Codec::kH264, run.units[first].bytes, At(place, count)));
      packets.push_back(PutTogether(run, Framing{}));
    }
  }
  CaptionSurvey Survey(size_t keepBytes = 0) const {
    CaptionCounter counter(description, keepBytes);
    for (const Bytes& packet : packets) counter.Add({packet, kNoTime, kNoTime, false, -1});
    EXPECT_EQ(counter.packets(), packets.size());
    return counter.Finish();
  }
};

TEST(CaptionReader, CountsByPicture) {
  const CaptionSurvey survey = Stream().Survey();
  EXPECT_EQ(survey.counts, (std::vector<uint8_t>{CaptionSurvey::kNone, 1, 2, 4}));
  EXPECT_EQ(survey.captioned(), 3u);
  EXPECT_EQ(survey.pace.rate, captions::Rate::k25);
}

TEST(CaptionReader, HandsPicturesOverInPresentationOrder) {
  const Stream stream;
  const CaptionSurvey survey = stream.Survey();
  std::vector<CaptionedPicture> pictures;
  CaptionSorter sorter(survey, stream.description,
                       [&](const CaptionedPicture& one) { pictures.push_back(one); });
  for (const Bytes& packet : stream.packets) {
    EXPECT_TRUE(sorter.missing());
    sorter.Add({packet, kNoTime, kNoTime, false, -1});
  }
  EXPECT_FALSE(sorter.missing());
  sorter.Finish();
  ASSERT_EQ(pictures.size(), 4u);
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(pictures[i].number, static_cast<int64_t>(i));
    EXPECT_DOUBLE_EQ(pictures[i].seconds, static_cast<double>(i) / 25);
    EXPECT_EQ(pictures[i].triplets, At(static_cast<int>(i), i == 3 ? 4 : i));
  }
}

// What fits the memory that is given for it needs no second pass.
TEST(CaptionReader, KeepsWhatFits) {
  const Stream stream;
  EXPECT_TRUE(stream.Survey().kept.empty());
  EXPECT_TRUE(stream.Survey(100).kept.empty());
  const CaptionSurvey survey = stream.Survey(10000);
  ASSERT_EQ(survey.kept.size(), stream.packets.size());
  std::vector<Triplets> pictures;
  CaptionSorter sorter(survey, [&](const CaptionedPicture& one) { pictures.push_back(one.triplets); });
  for (const Triplets& triplets : survey.kept) sorter.Add(triplets);
  sorter.Finish();
  ASSERT_EQ(pictures.size(), 4u);
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(pictures[i], At(static_cast<int>(i), i == 3 ? 4 : i));
}

// Labels follow the stream's timecode: picture timing here.
TEST(CaptionReader, FindsOutHowTheTimecodeCounts) {
  EXPECT_EQ(Stream().Survey().dropFrame, std::nullopt);
  for (const char* type : {"drop-frame", "non-drop-frame", "59.94"}) {
    Stream stream;
    StreamChanges changes;
    changes.timecode = "00:00:10:00";
    changes.timecodeType = type;
    StreamEditor editor(stream.description, changes);
    for (Bytes& packet : stream.packets) editor.Push({std::move(packet), kNoTime, kNoTime, false});
    editor.Finish();
    stream.packets.clear();
    while (auto edited = editor.Pull()) stream.packets.push_back(edited->unit.data);
    EXPECT_EQ(stream.Survey().dropFrame, std::string(type) != "non-drop-frame") << type;
  }
}

// ITU-T H.262 clause 6.2.2.6: drop_frame_flag is the first bit of group_of_pictures_header().
TEST(CaptionReader, FindsOutHowAGroupOfPicturesCounts) {
  for (const bool drop : {false, true}) {
    StreamDescription description;
    description.codec = VideoCodec::kMpeg2;
    DropFrameFinder finder(description);
    EXPECT_EQ(finder.dropFrame(), std::nullopt);
    finder.Add(Bytes{0, 0, 1, 0, 0, 0x10, 0xFF, 0xF8, 0, 0, 1, 1, 0x22});
    EXPECT_EQ(finder.dropFrame(), std::nullopt);
    finder.Add(Bytes{
        0, 0, 1, 0xB8, static_cast<uint8_t>(drop ? 0x80 : 0), 8, 0, 0x40, 0, 0, 1, 0, 0, 0x10, 0xFF, 0xF8, 0,
        0, 1, 1, 0x22});
    EXPECT_EQ(finder.dropFrame(), drop);
  }
}

// pic_struct of table D-1: 5 is top, bottom, top, and 6 the other way round.
TEST(ShownFieldsOfPictures, AreThoseOfPicStruct) {
  StreamDescription description;
  description.codec = VideoCodec::kH264;
  description.raw = true;
  description.averageRate = {30000, 1001};
  std::vector<CodedFrame> frames(6, {.place = 0, .idr = true, .fields = false});
  size_t n = 0;
  CaptionCounter counter(description);
  for (Bytes picture :
       MakeFieldPictures(frames, {.numUnitsInTick = 1001, .timeScale = 60000, .pictureTiming = true})) {
    // pic_struct and its clock flags: a frame of two fields, top first, in 4 and 2 bits; of three in 4 and 3.
    const Bytes two = {6, 1, 1, 0x32}, three = {6, 1, 1, static_cast<uint8_t>(n % 4 == 0 ? 0x51 : 0x61)};
    const auto at = std::search(picture.begin(), picture.end(), two.begin(), two.end());
    ASSERT_NE(at, picture.end());
    if (n++ % 2 == 0) std::copy(three.begin(), three.end(), at);
    counter.Add({.data = picture, .key = true});
  }
  const CaptionSurvey survey = counter.Finish();
  EXPECT_EQ(survey.fields, (std::vector<uint8_t>{3, 2, 3, 2, 3, 2}));
  EXPECT_EQ(survey.fieldRate, captions::Rate::k59_94);
}

TEST(ShownFieldsOfPictures, HaveARateByTheirTimes) {
  PicturePlaces order;
  order.timeBase = {1, 90000};
  const std::vector<uint8_t> fields = {3, 2, 3, 2};
  order.steps = {4505, 3003, 4504};
  EXPECT_EQ(RateOfFields(fields, order, 23.976), captions::Rate::k59_94);
  order.steps = {4500, 3000, 4500};
  EXPECT_EQ(RateOfFields(fields, order, 24), captions::Rate::k60);
  order.steps = {3600, 3600, 3600};
  EXPECT_EQ(RateOfFields(fields, order, 25), std::nullopt);
  order.steps.clear();
  EXPECT_EQ(RateOfFields(fields, order, 30), captions::Rate::k60);
  EXPECT_EQ(RateOfFields(fields, order, 25), std::nullopt);
}

}  // namespace
}  // namespace qlnmedia
