// The stream editor on HEVC: a stream of an encoder in every framing, its slices cut off behind their
// headers; interlace signs and timing, timecodes of frames and fields, and everything else that differs from
// H.264.

#include <gtest/gtest.h>

#include "captions/reader.h"
#include "hdr/stream_hdr.h"
#include "pictures/order_survey.h"
#include "sets/set_edit.h"
#include "stream_builder.h"
#include "support/media.h"
#include "timing/hevc_timing.h"
#include "timing/timecode.h"

namespace qlnmedia {
namespace {

using captions::CcType;
using captions::Triplet;
using test::Edit;
using test::EditedStream;
using test::Framed;
using test::Stream;
using test::SurveyOf;
using test::UnitsOf;

constexpr Codec kHevc = Codec::kHevc;

// Twelve pictures at 50 a second, B pictures among them, as a raw stream with all sets in front of the first.
Stream MakeHevcStream(int lengthBytes) {
  const std::string file = qln::test::MediaFile("engine_edit.hevc",
                                                "ffmpeg -v error -y -f lavfi -i testsrc2=s=64x64:r=50:d=0.24 "
                                                "-c:v libx265 -pix_fmt yuv420p -x265-params "
                                                "keyint=6:open-gop=0:bframes=2:repeat-headers=1:aud=0:info=0:"
                                                "pools=1:frame-threads=1:log-level=none {out}");
  Stream stream;
  stream.description.codec = VideoCodec::kHevc;
  stream.description.lengthBytes = lengthBytes;
  stream.description.raw = true;
  stream.description.ownMarks = false;
  std::vector<Unit> units;
  for (Unit& unit : TakeApart(qln::test::ReadFile(file), Framing{}).units) {
    const bool slice = IsSlice(kHevc, UnitType(kHevc, unit.bytes));
    if (slice && unit.bytes.size() > 60) unit.bytes.resize(60);
    units.push_back(std::move(unit));
    if (!slice) continue;
    stream.packets.push_back({Framed(std::move(units), lengthBytes), kNoTime, kNoTime, false});
    units.clear();
  }
  EXPECT_EQ(stream.packets.size(), 12u);
  return stream;
}

std::vector<uint32_t> PlacesOf(const Stream& stream) {
  OrderSurvey survey(stream.description);
  for (const AccessUnit& packet : stream.packets) survey.Add({packet.data, kNoTime, kNoTime, false, -1});
  return survey.Finish().places;
}

class HevcInEveryFraming : public testing::TestWithParam<int> {
 protected:
  Stream stream_ = MakeHevcStream(GetParam());

  std::vector<Unit> Units(const Stream& stream, size_t packet) const {
    return UnitsOf(stream.packets[packet].data, GetParam());
  }
  // The units of a type in a packet.
  std::vector<Bytes> OfType(const Stream& stream, size_t packet, int type) const {
    std::vector<Bytes> found;
    for (const Unit& unit : Units(stream, packet)) {
      if (UnitType(kHevc, unit.bytes) == type) found.push_back(unit.bytes);
    }
    return found;
  }
  std::vector<SeiMessage> Messages(const Stream& stream, size_t packet, int type) const {
    std::vector<SeiMessage> found;
    for (const Bytes& unit : OfType(stream, packet, 39)) {
      for (const SeiMessage& message : ReadSeiMessages(kHevc, unit)) {
        if (message.type == type) found.push_back(message);
      }
    }
    return found;
  }
  void ExpectSlicesKept(const EditedStream& edited) const {
    ASSERT_EQ(edited.packets.size(), stream_.packets.size());
    for (size_t i = 0; i < edited.packets.size(); ++i) {
      EXPECT_EQ(edited.changed[i], edited.packets[i].data != stream_.packets[i].data);
      EXPECT_EQ(Units(edited, i).back().bytes, Units(stream_, i).back().bytes);
    }
  }
};

INSTANTIATE_TEST_SUITE_P(StreamEditor, HevcInEveryFraming, testing::Values(0, 1, 2, 4));

TEST_P(HevcInEveryFraming, AllButInterlaceTogether) {
  const EditedStream same = Edit(stream_, {});
  for (size_t i = 0; i < same.packets.size(); ++i) EXPECT_EQ(same.packets[i].data, stream_.packets[i].data);
  StreamChanges changes;
  changes.colour = ColourCodes{9, 18, 9};
  changes.lightLevel = LightLevel{1000, 400};
  changes.timecode = "00:00:59:45";
  changes.rate = "50";
  changes.delimiters = true;
  changes.recoveryPoints = true;
  changes.captionProvider = [](uint32_t place) {
    return std::vector<Triplet>{{true, CcType::kServiceData, static_cast<uint8_t>(place + 32), 0x41}};
  };
  stream_.description.averageRate = {50, 1};
  const auto survey = SurveyOf(stream_);
  const EditedStream edited = Edit(stream_, changes, survey.get());
  ExpectSlicesKept(edited);
  const std::vector<uint32_t> places = PlacesOf(stream_);
  for (size_t i = 0; i < edited.packets.size(); ++i) {
    EXPECT_EQ(UnitType(kHevc, Units(edited, i).front().bytes), 35);
    for (const Bytes& sps : OfType(edited, i, 33))
      EXPECT_EQ(ReadSpsFacts(kHevc, sps)->colour, changes.colour);
    const bool entry = !OfType(stream_, i, 33).empty();
    EXPECT_EQ(HdrOf(kHevc, Units(edited, i)).lightLevel, entry ? changes.lightLevel : std::nullopt);
    const auto captions = CaptionsOf(VideoCodec::kHevc, edited.packets[i].data, Framing{GetParam()});
    EXPECT_EQ(captions.value().at(0).first, places[i] + 32);
    const std::vector<SeiMessage> timecodes = Messages(edited, i, 136);
    ASSERT_EQ(timecodes.size(), 1u);
    const uint32_t frame = 45 + places[i];
    EXPECT_EQ(ReadTimeCode(timecodes[0].payload).at(0).Text(),
              frame < 50 ? "00:00:59:" + std::to_string(frame) : "00:01:00:0" + std::to_string(frame - 50));
  }
  EXPECT_EQ(edited.counts.delimiters, 12);
  EXPECT_EQ(edited.counts.timecodes, 12);
  EXPECT_EQ(edited.counts.captions, 12);
  EXPECT_EQ(edited.counts.hdrUnits, 2);
}

TEST_P(HevcInEveryFraming, FieldsAreTold) {
  StreamChanges changes;
  changes.interlaced = true;
  EXPECT_THROW(Edit(stream_, changes), Error);                           // no survey
  EXPECT_THROW(Edit(stream_, changes, SurveyOf(stream_).get()), Error);  // nothing says that these are fields
  // A container whose picture has twice the lines says so.
  stream_.description.raw = false;
  stream_.description.height = 128;
  stream_.description.timeBase = {1, 50};
  std::vector<uint32_t> places = PlacesOf(MakeHevcStream(GetParam()));
  for (size_t i = 0; i < places.size(); ++i) stream_.packets[i].pts = places[i];
  for (const bool bottomFirst : {false, true}) {
    stream_.description.bottomFirst = bottomFirst;
    const EditedStream edited = Edit(stream_, changes, SurveyOf(stream_).get());
    ExpectSlicesKept(edited);
    EXPECT_EQ(edited.counts.timingsAdded, 12);
    EXPECT_EQ(edited.counts.videoSets, 2);
    EXPECT_EQ(edited.counts.sequenceSets, 2);
    for (size_t i = 0; i < places.size(); ++i) {
      for (const Bytes& unit : OfType(edited, i, 33)) {
        const SpsFacts sps = ReadSpsFacts(kHevc, unit).value();
        EXPECT_EQ(sps.hevc.interlace, (std::array<bool, 3>{false, true, true}));
        EXPECT_TRUE(sps.hevc.frameFieldInfo);
      }
      const std::vector<SeiMessage> timing = Messages(edited, i, 1);
      ASSERT_EQ(timing.size(), 1u);
      const FrameFieldInfo info = ReadFrameFieldInfo(timing[0].payload).value();
      // Table D.2 of ITU-T H.265: a field paired with the one before or behind it.
      const uint32_t expected = bottomFirst ? (places[i] % 2 == 0 ? 12 : 9) : (places[i] % 2 == 0 ? 11 : 10);
      EXPECT_EQ(info.picStruct, expected);
      EXPECT_EQ(info.sourceScanType, 0u);
    }
    // Told once, they stay; nobody can say that they are frames, and timecodes count pairs.
    const auto survey = SurveyOf(edited);
    const EditedStream again = Edit(edited, changes, survey.get());
    EXPECT_EQ(again.packets[3].data, edited.packets[3].data);
    StreamChanges frames;
    frames.interlaced = false;
    EXPECT_THROW(Edit(edited, frames, survey.get()), Error);
    StreamChanges timecodes;
    timecodes.timecode = "10:00:00:00";
    timecodes.rate = "25";
    const EditedStream timed = Edit(edited, timecodes);
    for (size_t i = 0; i < places.size(); ++i)
      EXPECT_EQ(ReadTimeCode(Messages(timed, i, 136).at(0).payload).at(0).Text(),
                "10:00:00:0" + std::to_string(places[i] / 2));
  }
}

TEST_P(HevcInEveryFraming, FramesAreTold) {
  StreamChanges changes;
  changes.interlaced = false;
  const EditedStream edited = Edit(stream_, changes, SurveyOf(stream_).get());
  ExpectSlicesKept(edited);
  for (const Bytes& unit : OfType(edited, 0, 33)) {
    const SpsFacts sps = ReadSpsFacts(kHevc, unit).value();
    EXPECT_EQ(sps.hevc.interlace, (std::array<bool, 3>{true, false, false}));
    EXPECT_TRUE(sps.hevc.frameOnly);
  }
  EXPECT_EQ(edited.counts.timingsAdded, 0);
}

}  // namespace
}  // namespace qlnmedia
