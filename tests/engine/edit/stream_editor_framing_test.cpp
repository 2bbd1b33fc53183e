// The stream editor: each change alone and all together, in every framing, read back; what stays as it was.

#include "qlnmedia/stream_editor.h"

#include <gtest/gtest.h>

#include <numeric>

#include "captions/reader.h"
#include "edited_pictures.h"
#include "hdr/stream_hdr.h"
#include "pictures/picture_tracker.h"
#include "sets/set_edit.h"
#include "stream_builder.h"
#include "support/test_support.h"
#include "timing/timecode.h"

namespace qlnmedia {
namespace {
using namespace test;
using qln::test::Hex;

class EveryFraming : public testing::TestWithParam<int> {
 protected:
  Stream stream_ = MakeStream(Frames(), GetParam());

  // Times and slices are those of the source, and packets keep their order.
  void ExpectKept(const EditedStream& edited) const {
    ASSERT_EQ(edited.packets.size(), stream_.packets.size());
    for (size_t i = 0; i < stream_.packets.size(); ++i) {
      EXPECT_EQ(edited.packets[i].pts, stream_.packets[i].pts);
      EXPECT_EQ(edited.packets[i].dts, stream_.packets[i].dts);
      EXPECT_EQ(edited.changed[i], edited.packets[i].data != stream_.packets[i].data) << i;
    }
    EXPECT_EQ(SlicesOf(edited, GetParam()), SlicesOf(stream_, GetParam()));
  }
  std::vector<SpsFacts> SetsOf(const Stream& stream) const {
    std::vector<SpsFacts> sets;
    std::vector<Bytes> units = ConfigOf(stream.description).units();
    for (const AccessUnit& packet : stream.packets) {
      for (const Unit& unit : UnitsOf(packet.data, GetParam())) units.push_back(unit.bytes);
    }
    for (const Bytes& unit : units) {
      if (IsSps(kH264, UnitType(kH264, unit))) sets.push_back(ReadSpsFacts(kH264, unit).value());
    }
    return sets;
  }
};

INSTANTIATE_TEST_SUITE_P(StreamEditor, EveryFraming, testing::Values(0, 1, 2, 4));

TEST_P(EveryFraming, WithoutChangesEverythingIsAsItWas) {
  const EditedStream edited = Edit(stream_, {});
  ExpectKept(edited);
  EXPECT_EQ(edited.description.privateData, stream_.description.privateData);
  for (size_t i = 0; i < stream_.packets.size(); ++i) {
    EXPECT_FALSE(edited.changed[i]);
    EXPECT_EQ(edited.packets[i].data, stream_.packets[i].data);
  }
}

TEST_P(EveryFraming, ColourGoesIntoEverySet) {
  StreamChanges changes;
  changes.colour = ColourCodes{9, 16, 9};
  changes.fullRange = true;
  const EditedStream edited = Edit(stream_, changes);
  ExpectKept(edited);
  const std::vector<SpsFacts> sets = SetsOf(edited);
  EXPECT_EQ(sets.size(), GetParam() == 0 ? 2u : 3u);
  for (const SpsFacts& sps : sets) {
    EXPECT_EQ(sps.colour, changes.colour);
    EXPECT_TRUE(sps.fullRange);
  }
  EXPECT_EQ(edited.counts.sequenceSets, 2);
  EXPECT_EQ(edited.counts.privateSequenceSets, GetParam() == 0 ? 0 : 1);
  EXPECT_EQ(std::accumulate(edited.changed.begin(), edited.changed.end(), 0), 2);  // the IDR pictures
  // A second time there is nothing to do.
  const EditedStream again = Edit(edited, changes);
  EXPECT_EQ(again.counts.sequenceSets + again.counts.privateSequenceSets, 0);
  EXPECT_EQ(again.description.privateData, edited.description.privateData);
  EXPECT_EQ(std::accumulate(again.changed.begin(), again.changed.end(), 0), 0);
}

TEST_P(EveryFraming, HdrStandsWhereDecodingCanStart) {
  StreamChanges changes;
  changes.mastering = kDisplay;
  changes.lightLevel = kLevel;
  const EditedStream edited = Edit(stream_, changes);
  ExpectKept(edited);
  for (size_t i = 0; i < edited.packets.size(); ++i) {
    const StreamHdr hdr = HdrOf(kH264, UnitsOf(edited.packets[i].data, GetParam()));
    EXPECT_EQ(hdr.mastering, stream_.packets[i].key ? changes.mastering : std::nullopt) << i;
    EXPECT_EQ(hdr.lightLevel, stream_.packets[i].key ? changes.lightLevel : std::nullopt) << i;
  }
  EXPECT_EQ(edited.counts.hdrUnits, 2);
  // Other values take their place.
  changes.lightLevel = LightLevel{600, 200};
  changes.mastering.reset();
  const EditedStream again = Edit(edited, changes);
  const StreamHdr hdr = HdrOf(kH264, UnitsOf(again.packets[0].data, GetParam()));
  EXPECT_EQ(hdr.lightLevel, changes.lightLevel);
  EXPECT_EQ(hdr.mastering, kDisplay);
  EXPECT_EQ(again.counts.hdrMessagesRemoved, 2);
}

TEST_P(EveryFraming, TimecodesFollowPresentationOrder) {
  StreamChanges changes;
  changes.timecode = "10:00:00:00";
  const EditedStream edited = Edit(stream_, changes);
  ExpectKept(edited);
  const auto timecodes = TimecodesOf(edited);
  const std::vector<test::CodedFrame> frames = Frames();
  for (size_t i = 0; i < frames.size(); ++i) {
    const std::string expected = "10:00:00:0" + std::to_string(kPlaces[i]);
    // Both fields of a frame have the frame's.
    EXPECT_EQ(timecodes[i], std::vector<std::string>(frames[i].fields ? 2 : 1, expected)) << i;
  }
  for (const SpsFacts& sps : SetsOf(edited)) EXPECT_TRUE(sps.h264.picStruct);
  EXPECT_EQ(edited.counts.timecodes, 12);
}

TEST_P(EveryFraming, DelimitersStandInFrontOfEveryField) {
  StreamChanges changes;
  changes.delimiters = true;
  changes.recoveryPoints = true;
  for (AccessUnit& packet : stream_.packets) packet.key = true;
  const EditedStream edited = Edit(stream_, changes);
  ExpectKept(edited);
  EXPECT_EQ(edited.counts.delimiters, 12);
  EXPECT_EQ(edited.counts.recoveryPoints, 5);  // none at the IDR pictures
  for (size_t i = 0; i < edited.packets.size(); ++i) {
    const std::vector<Unit> units = UnitsOf(edited.packets[i].data, GetParam());
    EXPECT_TRUE(IsDelimiter(kH264, UnitType(kH264, units.front().bytes)));
    EXPECT_TRUE(IsRandomAccess(kH264, units));
  }
}

TEST_P(EveryFraming, CaptionsGoToTheirPlaces) {
  std::vector<uint32_t> asked;
  StreamChanges changes;
  changes.captionProvider = [&](uint32_t place) {
    asked.push_back(place);
    return CaptionAt(place);
  };
  const auto survey = SurveyOf(stream_);
  EXPECT_EQ(survey->pictures(), 7u);
  EXPECT_EQ(survey->captioned(), 0u);
  EXPECT_DOUBLE_EQ(survey->picturesPerSecond(), 25);
  EXPECT_TRUE(survey->steady());
  const EditedStream edited = Edit(stream_, changes, survey.get());
  ExpectKept(edited);
  EXPECT_EQ(asked, (std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 6}));
  for (size_t i = 0; i < edited.packets.size(); ++i)
    EXPECT_EQ(CaptionsOf(VideoCodec::kH264, edited.packets[i].data, Framing{GetParam()}),
              CaptionAt(kPlaces[i]));
  EXPECT_EQ(edited.counts.captions, 7);

  // They are not put over others, but in their place, or taken out.
  const auto captioned = SurveyOf(edited);
  EXPECT_EQ(captioned->captioned(), 7u);
  EXPECT_THROW(Edit(edited, changes, captioned.get()), Error);
  changes.replaceCaptions = true;
  const EditedStream again = Edit(edited, changes, captioned.get());
  EXPECT_EQ(again.counts.captionsRemoved, 7);
  for (size_t i = 0; i < again.packets.size(); ++i) EXPECT_EQ(again.packets[i].data, edited.packets[i].data);
  changes.captionProvider = nullptr;
  const EditedStream without = Edit(edited, changes);
  for (size_t i = 0; i < without.packets.size(); ++i)
    EXPECT_EQ(without.packets[i].data, stream_.packets[i].data);
}

TEST_P(EveryFraming, AllTogether) {
  StreamChanges changes;
  changes.colour = ColourCodes{9, 16, 9};
  changes.mastering = kDisplay;
  changes.lightLevel = kLevel;
  changes.timecode = "00:59:59:23";
  changes.delimiters = true;
  changes.recoveryPoints = true;
  changes.captionProvider = CaptionAt;
  const auto survey = SurveyOf(stream_);
  const EditedStream edited = Edit(stream_, changes, survey.get());
  ExpectKept(edited);
  for (const SpsFacts& sps : SetsOf(edited)) EXPECT_EQ(sps.colour, changes.colour);
  const auto timecodes = TimecodesOf(edited);
  for (size_t i = 0; i < edited.packets.size(); ++i) {
    const std::vector<Unit> units = UnitsOf(edited.packets[i].data, GetParam());
    EXPECT_TRUE(IsDelimiter(kH264, UnitType(kH264, units.front().bytes)));
    EXPECT_EQ(HdrOf(kH264, units).lightLevel, stream_.packets[i].key ? changes.lightLevel : std::nullopt);
    EXPECT_EQ(CaptionsOf(VideoCodec::kH264, edited.packets[i].data, Framing{GetParam()}),
              CaptionAt(kPlaces[i]));
    const uint32_t count = 23 + kPlaces[i];
    EXPECT_EQ(timecodes[i].at(0),
              count < 25 ? "00:59:59:" + std::to_string(count) : "01:00:00:0" + std::to_string(count - 25));
  }
}

}  // namespace
}  // namespace qlnmedia
