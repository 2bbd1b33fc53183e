// The stream editor: each change alone and all together, in every framing, read back; what stays as it was;
// when results come, and in which order.

#include "qlnmedia/stream_editor.h"

#include <gtest/gtest.h>

#include <numeric>

#include "captions/reader.h"
#include "hdr/stream_hdr.h"
#include "pictures/picture_tracker.h"
#include "sets/set_edit.h"
#include "stream_builder.h"
#include "support/test_support.h"
#include "timing/timecode.h"

namespace qlnmedia {
namespace {

using captions::CcType;
using captions::Triplet;
using qln::test::Hex;
using test::Edit;
using test::EditedStream;
using test::MakeStream;
using test::Stream;
using test::SurveyOf;
using test::UnitsOf;

constexpr Codec kH264 = Codec::kH264;

const MasteringDisplay kDisplay{{34000, 16000}, {13250, 34500}, {7500, 3000}, {15635, 16450}, 10000000, 1};
const LightLevel kLevel{1000, 400};

// I P B B, twice, of frames and of fields.
std::vector<test::CodedFrame> Frames() {
  return {{.place = 0, .idr = true},
          {.place = 3},
          {.place = 1, .reference = false},
          {.place = 2, .fields = false, .reference = false},
          {.place = 0, .idr = true},
          {.place = 2, .bottomFirst = true},
          {.place = 1, .fields = false, .reference = false}};
}
const std::vector<uint32_t> kPlaces = {0, 3, 1, 2, 4, 6, 5};

// One triplet that names the place.
std::vector<Triplet> CaptionAt(uint32_t place) {
  return {{true, CcType::kServiceData, static_cast<uint8_t>(place + 32), 0x41}};
}

std::vector<Bytes> SlicesOf(const Stream& stream, int lengthBytes) {
  std::vector<Bytes> slices;
  for (const AccessUnit& packet : stream.packets) {
    for (const Unit& unit : UnitsOf(packet.data, lengthBytes)) {
      if (IsSlice(kH264, UnitType(kH264, unit.bytes))) slices.push_back(unit.bytes);
    }
  }
  return slices;
}

// The timecodes of each packet's pictures, and nothing where one has none.
std::vector<std::vector<std::string>> TimecodesOf(const Stream& stream) {
  const ConfigRecord config = ConfigOf(stream.description);
  PictureTracker tracker(kH264);
  for (const Bytes& unit : config.units()) tracker.TakeSet(unit);
  std::vector<std::vector<std::string>> all;
  for (const AccessUnit& packet : stream.packets) {
    const std::vector<Unit> units = TakeApart(packet.data, config.framing).units;
    all.emplace_back();
    for (const CodedPicture& picture : tracker.Take(units)) {
      for (size_t i = picture.begin; i < picture.slice; ++i) {
        if (!IsSei(kH264, UnitType(kH264, units[i].bytes))) continue;
        for (const SeiMessage& message : ReadSeiMessages(kH264, units[i].bytes)) {
          if (message.type != 1) continue;
          const auto timing = ReadPictureTiming(message.payload, *picture.head.value().sps);
          all.back().push_back(timing && timing->times[0].whole ? timing->times[0].Text() : "none");
        }
      }
    }
  }
  return all;
}

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

TEST(StreamEditor, FieldsInPacketsOfTheirOwnBelongTogether) {
  const Stream stream = MakeStream(Frames(), 4, {.pictureTiming = true, .delimiters = true}, false);
  StreamChanges changes;
  changes.timecode = "00:00:00:00";
  changes.captionProvider = CaptionAt;
  const auto survey = SurveyOf(stream);
  EXPECT_EQ(survey->pictures(), 7u);
  const EditedStream edited = Edit(stream, changes, survey.get());
  const auto timecodes = TimecodesOf(edited);
  size_t packet = 0;
  const std::vector<test::CodedFrame> frames = Frames();
  for (size_t i = 0; i < frames.size(); ++i) {
    for (int field = 0; field < (frames[i].fields ? 2 : 1); ++field, ++packet) {
      EXPECT_EQ(timecodes[packet], std::vector<std::string>{"00:00:00:0" + std::to_string(kPlaces[i])});
      EXPECT_EQ(CaptionsOf(VideoCodec::kH264, edited.packets[packet].data, Framing{4}).has_value(),
                field == 0);
    }
  }
}

TEST(StreamEditor, OnlyTimecodesMakePicturesWait) {
  std::vector<test::CodedFrame> frames = {{.place = 0, .idr = true, .fields = false}};
  for (int place = 1; place < 100; ++place)
    frames.push_back({.place = place % 32, .idr = place % 32 == 0, .fields = false});
  const Stream stream = MakeStream(frames, 4);
  for (const bool timecodes : {false, true}) {
    StreamChanges changes;
    changes.delimiters = true;
    if (timecodes) changes.timecode = "00:00:00:00";
    StreamEditor editor(stream.description, changes);
    EXPECT_FALSE(editor.Pull());
    size_t pulled = 0;
    for (size_t pushed = 0; pushed < stream.packets.size(); ++pushed) {
      editor.Push(stream.packets[pushed]);
      while (const auto edited = editor.Pull()) {
        EXPECT_EQ(edited->unit.pts, stream.packets[pulled].pts);
        ++pulled;
      }
      const size_t waiting = pushed + 1 - pulled;
      EXPECT_LT(waiting, StreamEditor::kMostWaiting);
      EXPECT_EQ(waiting, timecodes ? std::min(pushed + 1, StreamEditor::kMostWaiting - 1) : 0u);
    }
    editor.Finish();
    while (const auto edited = editor.Pull()) EXPECT_EQ(edited->unit.pts, stream.packets[pulled++].pts);
    EXPECT_EQ(pulled, stream.packets.size());
  }
}

TEST(StreamEditor, SecondFieldsDoNotWaitForThemselves) {
  std::vector<test::CodedFrame> frames = {{.place = 0, .idr = true}};
  for (int place = 1; place < 60; ++place) frames.push_back({.place = place % 30, .idr = place % 30 == 0});
  const Stream stream = MakeStream(frames, 4, {}, false);
  StreamChanges changes;
  changes.timecode = "00:00:00:00";
  StreamEditor editor(stream.description, changes);
  size_t pulled = 0;
  for (const AccessUnit& packet : stream.packets) {
    editor.Push(packet);
    while (editor.Pull()) ++pulled;
    EXPECT_EQ(pulled % 2, 0u);
  }
  EXPECT_EQ(pulled, stream.packets.size() - 2 * (StreamEditor::kMostWaiting - 1));
}

TEST(StreamEditor, ARecoveryPointMarksItsPacket) {
  Stream stream = MakeStream({{.place = 0, .idr = true, .fields = false}, {.place = 1, .fields = false}}, 0);
  stream.description.ownMarks = false;
  // Sets in front of an intra picture say that decoding can start there, where no container does.
  std::vector<Unit> units = UnitsOf(stream.packets[0].data, 0);
  const std::vector<Unit> own = UnitsOf(stream.packets[1].data, 0);
  std::erase_if(units, [](const Unit& unit) { return IsSlice(kH264, UnitType(kH264, unit.bytes)); });
  units.insert(units.end(), own.begin(), own.end());
  stream.packets[1].data = test::Framed(units, 0);
  StreamChanges changes;
  changes.recoveryPoints = true;
  const EditedStream edited = Edit(stream, changes);
  EXPECT_EQ(edited.counts.recoveryPoints, 1);
  EXPECT_TRUE(edited.packets[1].key);
  EXPECT_FALSE(stream.packets[1].key);
}

TEST(StreamEditor, ARawStreamIsOrderedByItsHeaders) {
  Stream stream = MakeStream(Frames(), 0);
  stream.description.raw = true;
  stream.description.ownMarks = false;
  for (AccessUnit& packet : stream.packets) packet.pts = packet.dts = kNoTime;
  StreamChanges changes;
  changes.timecode = "00:00:00:00";
  EXPECT_THROW(Edit(stream, changes), Error);  // nothing in front of the packets says the rate
  changes.rate = "25";
  const auto timecodes = TimecodesOf(Edit(stream, changes));
  for (size_t i = 0; i < kPlaces.size(); ++i)
    EXPECT_EQ(timecodes[i].at(0), "00:00:00:0" + std::to_string(kPlaces[i]));
}

TEST(StreamEditor, SetsBesideLengthsAreFoundWithTheGivenFraming) {
  Stream stream = MakeStream(Frames(), 2);
  stream.description.privateData = {};  // as a host that has none
  stream.description.lengthBytes = 2;
  StreamChanges changes;
  changes.fullRange = true;
  const EditedStream edited = Edit(stream, changes);
  EXPECT_EQ(edited.counts.sequenceSets, 2);
  EXPECT_TRUE(edited.description.privateData.empty());
  stream.description.lengthBytes = 3;
  EXPECT_THROW(Edit(stream, changes), Error);
}

// The text of the failure, without what it begins with.
std::string FailureOf(const Stream& stream, const StreamChanges& changes,
                      const StreamSurvey* survey = nullptr) {
  try {
    Edit(stream, changes, survey);
  } catch (const Error& error) {
    const std::string text = error.what();
    EXPECT_EQ(text.substr(0, 6), "clip: ") << text;
    return text.substr(6);
  }
  return "";
}

TEST(StreamEditor, SaysWhyItRefuses) {
  Stream stream = MakeStream(Frames(), 1);
  StreamChanges captions;
  captions.captionProvider = CaptionAt;
  EXPECT_EQ(FailureOf(stream, captions), "captions take a survey of the stream");
  StreamChanges interlaced;
  interlaced.interlaced = true;
  EXPECT_NE(FailureOf(stream, interlaced).find("is H.264"), std::string::npos);
  interlaced.timecode = "00:00:00:00";
  EXPECT_NE(FailureOf(stream, interlaced).find("fields must be told"), std::string::npos);
  StreamChanges timecodes;
  timecodes.timecode = "00:00:00:00";
  Stream untimed = stream;
  untimed.packets[1].pts = kNoTime;
  EXPECT_NE(FailureOf(untimed, timecodes).find("without a presentation time"), std::string::npos);
  Stream setless = stream;
  setless.description.privateData = {};
  setless.description.lengthBytes = 1;
  setless.packets.erase(setless.packets.begin());
  setless.packets.resize(2);
  EXPECT_NE(FailureOf(setless, timecodes).find("before its parameter sets"), std::string::npos);
  // A unit of 250 bytes that grows by a clock.
  Stream tight = MakeStream({{.place = 0, .idr = true, .fields = false}}, 1, {.pictureTiming = true});
  std::vector<Unit> units = UnitsOf(tight.packets[0].data, 1);
  for (Unit& unit : units) {
    if (UnitType(kH264, unit.bytes) != 6) continue;
    std::vector<SeiMessage> messages = ReadSeiMessages(kH264, unit.bytes);
    messages.push_back({5, Bytes(245, 0x55)});
    unit.bytes = MakeSeiUnit(Hex("06"), messages);
    ASSERT_LE(unit.bytes.size(), 255u);
  }
  tight.packets[0].data = test::Framed(units, 1);
  EXPECT_NE(FailureOf(tight, timecodes).find("does not fit its 1-byte length field"), std::string::npos);
  Stream broken = stream;
  broken.description.privateData.resize(9);
  EXPECT_FALSE(FailureOf(broken, {}).empty());
  Stream other = stream;
  other.description.codec = VideoCodec::kOther;
  EXPECT_FALSE(FailureOf(other, {}).empty());
  const auto survey = SurveyOf(stream);
  Stream longer = stream;
  longer.packets.push_back(longer.packets.back());
  EXPECT_EQ(FailureOf(longer, captions, survey.get()), "has more packets than were surveyed");
}

// An MPEG-2 picture with its header and one slice.
Bytes Mpeg2Picture(int temporalReference) {
  return {0,
          0,
          1,
          0,
          static_cast<uint8_t>(temporalReference >> 2),
          static_cast<uint8_t>(temporalReference << 6 | 8),
          0,
          0,
          0,
          0,
          1,
          0x01,
          0x12,
          0x34,
          0x56};
}

TEST(StreamEditor, CaptionsOfMpeg2StandInFrontOfTheSlices) {
  Stream stream;
  stream.description.codec = VideoCodec::kMpeg2;
  stream.description.averageRate = {25, 1};
  stream.description.raw = true;
  for (const int reference : {0, 3, 1, 2})
    stream.packets.push_back({Mpeg2Picture(reference), kNoTime, kNoTime, false});
  StreamChanges changes;
  changes.captionProvider = CaptionAt;
  const auto survey = SurveyOf(stream);
  const EditedStream edited = Edit(stream, changes, survey.get());
  const std::vector<uint32_t> places = {0, 3, 1, 2};
  for (size_t i = 0; i < places.size(); ++i) {
    EXPECT_EQ(CaptionsOf(VideoCodec::kMpeg2, edited.packets[i].data, {}), CaptionAt(places[i]));
    EXPECT_EQ(Bytes(edited.packets[i].data.end() - 7, edited.packets[i].data.end()),
              Bytes(stream.packets[i].data.end() - 7, stream.packets[i].data.end()));
  }
  changes.captionProvider = nullptr;
  changes.replaceCaptions = true;
  const EditedStream without = Edit(edited, changes);
  for (size_t i = 0; i < places.size(); ++i) EXPECT_EQ(without.packets[i].data, stream.packets[i].data);
  changes.delimiters = true;
  EXPECT_NE(FailureOf(stream, changes).find("MPEG-2"), std::string::npos);
}

}  // namespace
}  // namespace qlnmedia
