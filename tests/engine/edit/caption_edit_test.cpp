// Captions put into packets and taken out of them: which picture gets which, and what is refused.

#include "edit/caption_edit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "captions/units.h"
#include "captions/user_data.h"
#include "edited_pictures.h"
#include "engine/small_streams.h"

namespace qlnmedia {
namespace {

using captions::Triplet;
using qln::test::Hex;
using qln::test::Join;
using test::TypesOf;
using testing::ElementsAre;
using testing::HasSubstr;

StreamChanges Wanted(std::vector<uint32_t>* asked = nullptr, size_t count = 1) {
  StreamChanges changes;
  changes.captionProvider = [asked, count](uint32_t place) {
    if (asked != nullptr) asked->push_back(place);
    return std::vector<Triplet>(count, test::CaptionAt(place)[0]);
  };
  return changes;
}

// Packets of frames and fields in their order of coding, with the survey of them.
struct Surveyed {
  test::Stream stream = test::MakeStream(test::Frames(), 0);
  std::unique_ptr<StreamSurvey> survey = test::SurveyOf(stream);
  std::vector<Unit> Units(size_t packet) const { return test::UnitsOf(stream.packets[packet].data, 0); }
};

uint8_t NameIn(const std::vector<Unit>& units) {
  for (const Unit& unit : units) {
    if (!IsSei(Codec::kH264, UnitType(Codec::kH264, unit.bytes))) continue;
    if (const auto found = ReadCaptionUnit(Codec::kH264, unit.bytes)) return found->at(0).first;
  }
  return 0;
}

TEST(CaptionEdit, EachPictureGetsItsOwnAndIsAskedForInOrder) {
  const Surveyed made;
  EditCounts counts;
  std::vector<uint32_t> asked;
  CaptionEdit edit(Wanted(&asked), made.survey.get(), "clip", counts);
  for (size_t i = 0; i < test::kPlaces.size(); ++i) {
    edit.NextPacket();
    std::vector<Unit> units = made.Units(i);
    EXPECT_TRUE(edit.ChangeUnits(Codec::kH264, units));
    EXPECT_EQ(NameIn(units), test::kPlaces[i] + 32);
  }
  EXPECT_THAT(asked, ElementsAre(0, 1, 2, 3, 4, 5, 6));
  EXPECT_EQ(counts.captions, 7);
  EXPECT_THROW(edit.NextPacket(), Error);  // more than were surveyed
}

// The second field of a frame in a packet of its own gets none.
TEST(CaptionEdit, SecondFieldsGetNone) {
  const test::Stream stream = test::MakeStream({{.idr = true}, {.place = 1}}, 0, {}, false);
  ASSERT_EQ(stream.packets.size(), 4u);
  const auto survey = test::SurveyOf(stream);
  EditCounts counts;
  CaptionEdit edit(Wanted(), survey.get(), "clip", counts);
  std::vector<bool> changed;
  for (const AccessUnit& packet : stream.packets) {
    edit.NextPacket();
    std::vector<Unit> units = test::UnitsOf(packet.data, 0);
    changed.push_back(edit.ChangeUnits(Codec::kH264, units));
  }
  EXPECT_THAT(changed, ElementsAre(true, false, true, false));
}

TEST(CaptionEdit, NoMoreThanAPacketHolds) {
  const Surveyed made;
  EditCounts counts;
  CaptionEdit edit(Wanted(nullptr, 40), made.survey.get(), "clip", counts);
  edit.NextPacket();
  std::vector<Unit> units = made.Units(0);
  edit.ChangeUnits(Codec::kH264, units);
  EXPECT_EQ(CaptionsOf(VideoCodec::kH264, test::Framed(units, 0), Framing{})->size(),
            captions::kMostTriplets);
}

TEST(CaptionEdit, RefusesWhatItCannotDo) {
  const Surveyed made;
  EditCounts counts;
  const auto refusal = [&](const StreamChanges& changes, const StreamSurvey* survey) {
    try {
      const CaptionEdit edit(changes, survey, "clip", counts);
    } catch (const Error& error) {
      return std::string(error.what());
    }
    return std::string();
  };
  const test::EditedStream captioned = test::Edit(made.stream, Wanted(), made.survey.get());
  const auto survey = test::SurveyOf(captioned);
  EXPECT_THAT(refusal(Wanted(), survey.get()), HasSubstr("has captions on 7 pictures"));
  StreamChanges replaced = Wanted();
  replaced.replaceCaptions = true;
  EXPECT_EQ(refusal(replaced, survey.get()), "");
}

TEST(CaptionEdit, TakesOutWithoutASurvey) {
  const Surveyed made;
  const test::EditedStream captioned = test::Edit(made.stream, Wanted(), made.survey.get());
  EditCounts counts;
  StreamChanges changes;
  changes.replaceCaptions = true;
  CaptionEdit edit(changes, nullptr, "clip", counts);
  edit.NextPacket();
  std::vector<Unit> units = test::UnitsOf(captioned.packets[0].data, 0);
  EXPECT_TRUE(edit.ChangeUnits(Codec::kH264, units));
  EXPECT_EQ(TypesOf(Codec::kH264, units), TypesOf(Codec::kH264, made.Units(0)));
  EXPECT_FALSE(edit.ChangeUnits(Codec::kH264, units));
  EXPECT_EQ(counts.captionsRemoved, 1);
}

// ITU-T H.262: a picture header, its extension, user data of another kind, and two slices.
const Bytes kHeaders = Hex("00000100 000FFFF8 000001B5 8FFFF34180");
const Bytes kOther = Hex("000001B2 44544731 41 F8");
const Bytes kSlices = Hex("00000101 AABB 00000102 CCDD");

TEST(CaptionEdit, Mpeg2HasThemInFrontOfItsFirstSlice) {
  StreamDescription description;
  description.codec = VideoCodec::kMpeg2;
  StreamSurvey survey(description);
  const Bytes packet = Join({kHeaders, kOther, kSlices});
  survey.Add({packet, 0, 0, true, -1});
  survey.Finish();
  EditCounts counts;
  CaptionEdit edit(Wanted(), &survey, "clip", counts);
  edit.NextPacket();
  const Bytes added = edit.ChangeMpeg2(packet);
  const Bytes captions = captions::MakePictureUserData(test::CaptionAt(0));
  EXPECT_EQ(added, Join({kHeaders, kOther, captions, kSlices}));
  EXPECT_EQ(counts.captions, 1);
  // And out again, wherever they stand.
  StreamChanges removal;
  removal.replaceCaptions = true;
  CaptionEdit remover(removal, nullptr, "clip", counts);
  remover.NextPacket();
  EXPECT_EQ(remover.ChangeMpeg2(added), packet);
  EXPECT_EQ(remover.ChangeMpeg2(Join({kHeaders, captions, kOther, captions, kSlices})), packet);
  EXPECT_EQ(counts.captionsRemoved, 3);
  // So are the forms of SCTE 20 and of DVDs.
  const Bytes scte20 = Hex("000001B2 0381 10ACA4D24BA87580");
  const Bytes dvd = Hex("000001B2 434301F8 82 FF942C FE8080");
  EXPECT_EQ(remover.ChangeMpeg2(Join({kHeaders, scte20, kOther, dvd, kSlices})), packet);
  EXPECT_EQ(counts.captionsRemoved, 5);
}

}  // namespace
}  // namespace qlnmedia
