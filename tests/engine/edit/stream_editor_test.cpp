// The stream editor: when results come, and in which order, and what it refuses.

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

// Captions without a survey are those with one, behind each other by the editor's own order; a declared
// reorder depth makes pictures wait less and changes nothing else.
TEST(StreamEditor, CaptionsNeedNoSurvey) {
  const Stream stream = MakeStream(Frames(), 4, {.pictureTiming = true}, false);
  StreamChanges changes;
  changes.timecode = "00:00:00:00";
  changes.captionProvider = CaptionAt;
  const auto survey = SurveyOf(stream);
  const EditedStream surveyed = Edit(stream, changes, survey.get());
  for (const std::optional<uint32_t> reorder : {std::optional<uint32_t>(), std::optional<uint32_t>(2)}) {
    changes.reorder = reorder;
    const EditedStream alone = Edit(stream, changes);
    ASSERT_EQ(alone.packets.size(), surveyed.packets.size());
    for (size_t i = 0; i < alone.packets.size(); ++i)
      EXPECT_EQ(alone.packets[i].data, surveyed.packets[i].data) << i;
    EXPECT_EQ(alone.counts.captions, surveyed.counts.captions);
  }
  changes.reorder = 0;
  EXPECT_THROW(Edit(stream, changes), Error);
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
