// Caption tracks of movies put together box by box.

#include "container/caption_tracks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "engine/patch/small_files.h"
#include "mp4/build_boxes.h"
#include "qlnmedia/captions.h"
#include "qlnmedia/check.h"
#include "support/fed_pipe.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using captions::Rate;
using qln::test::Hex;
using qln::test::mp4::BuildMovie;
using qln::test::mp4::Bytes;
using qln::test::mp4::Full;
using qln::test::mp4::MovieSpec;
using qln::test::mp4::Number;
using qln::test::mp4::TrackSpec;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// One pair of field 1 a sample.
Bytes Pair(const std::string& hex) { return Hex("0000000A 63646174 " + hex); }

TrackSpec Captions(std::vector<Bytes> samples, uint32_t duration) {
  TrackSpec track;
  track.id = 2;
  track.handler = "clcp";
  track.format = "c608";
  track.durations.assign(samples.size(), duration);
  track.samples = std::move(samples);
  return track;
}

MovieSpec Movie(TrackSpec captions) {
  TrackSpec video;
  video.samples = {Bytes(20, 1), Bytes(20, 2)};
  MovieSpec movie;
  movie.brand = "qt  ";
  movie.tracks = {video, std::move(captions)};
  return movie;
}

struct Read {
  captions::CaptionTrack track;
  std::vector<std::string> damage;
};
Read ReadMovie(const MovieSpec& movie, std::optional<Rate> asked = {}) {
  const Bytes bytes = BuildMovie(movie);
  const mp4::MemorySource source(bytes, "clip.mov");
  const auto places = FindCaptionTracks(source);
  EXPECT_EQ(places.size(), 1u);
  Read read;
  read.track = ReadCaptionTrackOf(source, places.at(0), asked, &read.damage);
  return read;
}

std::vector<std::pair<int64_t, int>> EventsOf(const captions::CaptionTrack& track) {
  std::vector<std::pair<int64_t, int>> events;
  for (const captions::CaptionEvent& event : track.events)
    events.emplace_back(event.at, event.triplets.at(0).first << 8 | event.triplets[0].second);
  return events;
}

TEST(CaptionTracks, AreFound) {
  const Bytes bytes = BuildMovie(Movie(Captions({Pair("9420")}, 40)));
  const auto places = FindCaptionTracks(mp4::MemorySource(bytes));
  ASSERT_EQ(places.size(), 1u);
  EXPECT_EQ(places[0].stream, 1u);
  EXPECT_EQ(places[0].id, 2u);
  EXPECT_EQ(places[0].format, "c608");
  EXPECT_THAT(FindCaptionTracks(mp4::MemorySource(Bytes(100, 7))), IsEmpty());
}

// build_boxes has timescales of 1000: 40 units are a picture of 25 a second.
TEST(CaptionTracks, GoByTheirTimes) {
  const Read read = ReadMovie(Movie(Captions({Pair("9420"), Pair("9470"), Bytes(), Pair("C1C2")}, 40)));
  EXPECT_THAT(read.damage, IsEmpty());
  EXPECT_EQ(read.track.rate, Rate::k25);
  EXPECT_TRUE(read.track.fromZero);
  EXPECT_THAT(EventsOf(read.track),
              ElementsAre(std::pair(0, 0x9420), std::pair(1, 0x9470), std::pair(3, 0xC1C2)));
  const Read faster = ReadMovie(Movie(Captions({Pair("9420"), Pair("9470")}, 40)), Rate::k50);
  EXPECT_THAT(EventsOf(faster.track), ElementsAre(std::pair(0, 0x9420), std::pair(2, 0x9470)));
  // Pairs of many frames in one sample follow each other at the rate of line 21.
  const Read many = ReadMovie(Movie(Captions({Hex("0000000E 63646174 9420 9470 C1C2"), Pair("942F")}, 1001)));
  EXPECT_EQ(many.track.rate, Rate::k29_97);
  EXPECT_THAT(EventsOf(many.track), ElementsAre(std::pair(0, 0x9420), std::pair(1, 0x9470),
                                                std::pair(2, 0xC1C2), std::pair(30, 0x942F)));
}

TEST(CaptionTracks, ResolveEditLists) {
  TrackSpec captions = Captions({Pair("9420"), Pair("9470"), Pair("C1C2"), Pair("942F")}, 40);
  // Nothing for 200, then the media from 40 on for 80, in units of the movie's 1000.
  captions.trackBoxes = {qln::test::mp4::Box(
      "edts",
      std::vector<Bytes>{Full("elst", 0, 0,
                              {Number(2, 4), Number(200, 4), Number(0xFFFFFFFF, 4), Number(0x10000, 4),
                               Number(80, 4), Number(40, 4), Number(0x10000, 4)})})};
  const Read read = ReadMovie(Movie(captions));
  EXPECT_THAT(EventsOf(read.track), ElementsAre(std::pair(5, 0x9470), std::pair(6, 0xC1C2)));
  // A last sample without length is part of what ends with it.
  captions.samples.resize(3);
  captions.durations = {40, 80, 0};
  const Read last = ReadMovie(Movie(captions), Rate::k25);
  EXPECT_THAT(EventsOf(last.track), ElementsAre(std::pair(5, 0x9470), std::pair(7, 0xC1C2)));
}

TEST(CaptionTracks, NameDamagedSamplesOnce) {
  const Read read =
      ReadMovie(Movie(Captions({Pair("9420"), Hex("0000000B 63646174 942094"), Pair("C1C2"),
                                Hex("0000000B 63646174 942094"), Hex("000000FF 63646174 9420"), Pair("942F")},
                               40)));
  EXPECT_THAT(EventsOf(read.track),
              ElementsAre(std::pair(0, 0x9420), std::pair(2, 0xC1C2), std::pair(5, 0x942F)));
  ASSERT_EQ(read.damage.size(), 2u);
  EXPECT_THAT(read.damage[0],
              testing::MatchesRegex(
                  "stream 1: sample 1 at byte [0-9]+: a pair of line 21 breaks off \\(2 samples\\); "
                  "left out"));
  EXPECT_THAT(read.damage[1], HasSubstr("sample 4"));
  EXPECT_THROW(ReadMovie(Movie(Captions({Bytes()}, 40))), NotApplicable);
}

// An edit list, in units of the movie's 1000: length and place in the media, -1 for an empty edit.
qln::test::mp4::Bytes EditList(const std::vector<std::pair<uint32_t, int64_t>>& edits) {
  std::vector<Bytes> parts = {Number(edits.size(), 4)};
  for (const auto& [length, media] : edits) {
    parts.push_back(Number(length, 4));
    parts.push_back(Number(static_cast<uint32_t>(media), 4));
    parts.push_back(Number(0x10000, 4));
  }
  return qln::test::mp4::Box("edts", std::vector<Bytes>{Full("elst", 0, 0, parts)});
}

// Pairs C1B0, C1B1 ... of 40 each beside ten pictures of 40, with edit lists where they are not empty.
Read ReadEdited(const std::vector<std::pair<uint32_t, int64_t>>& video,
                const std::vector<std::pair<uint32_t, int64_t>>& captions,
                std::vector<int32_t> timeOffsets = {}) {
  std::vector<Bytes> pairs;
  for (int i = 0; i < 6; ++i) pairs.push_back(Pair("C1B" + std::to_string(i)));
  MovieSpec movie = Movie(Captions(pairs, 40));
  movie.tracks[0].samples.assign(10, Bytes(20, 1));
  movie.tracks[0].durations.assign(10, 40);
  movie.tracks[0].timeOffsets = std::move(timeOffsets);
  if (!video.empty()) movie.tracks[0].trackBoxes = {EditList(video)};
  if (!captions.empty()) movie.tracks[1].trackBoxes = {EditList(captions)};
  return ReadMovie(movie);
}

// As "AT:N" for the pair C1BN.
std::string Placed(const Read& read) {
  std::string text;
  for (const auto& [at, pair] : EventsOf(read.track))
    text += (text.empty() ? "" : " ") + std::to_string(at) + ":" + std::to_string(pair - 0xC1B0);
  return text;
}

TEST(CaptionTracks, GoByTheFirstPictureThatIsShown) {
  EXPECT_EQ(Placed(ReadEdited({}, {})), "0:0 1:1 2:2 3:3 4:4 5:5");
  // Pictures stand 120 later, and captions as they are: three are over by then.
  EXPECT_EQ(Placed(ReadEdited({{120, -1}, {400, 0}}, {})), "-3:0 -2:1 -1:2 0:3 1:4 2:5");
  EXPECT_EQ(Placed(ReadEdited({{120, -1}, {400, 0}}, {{120, -1}, {240, 0}})), "0:0 1:1 2:2 3:3 4:4 5:5");
  // Pictures that are held back, without an edit list.
  EXPECT_EQ(Placed(ReadEdited({}, {}, {80, 120, 40, 80, 80, 80, 80, 80, 80, 80})),
            "-2:0 -1:1 0:2 1:3 2:4 3:5");
  // And with one, which begins in the midst of a picture.
  EXPECT_EQ(Placed(ReadEdited({{40, -1}, {200, 100}}, {}, std::vector<int32_t>(10, 80))),
            "-1:0 0:1 1:2 2:3 3:4 4:5");
  // Behind a piece that shows nothing since no picture is there.
  EXPECT_EQ(Placed(ReadEdited({{80, 4000}, {200, 0}}, {})), "-2:0 -1:1 0:2 1:3 2:4 3:5");
  // None at all.
  EXPECT_EQ(Placed(ReadEdited({{80, 4000}}, {})), "0:0 1:1 2:2 3:3 4:4 5:5");
}

TEST(CaptionTracks, ResolveSeveralEditsOfBothTracks) {
  // From 200 on pictures; from 120 on the media from 40 up to 200, then that from 0 up to 80 again.
  const std::vector<std::pair<uint32_t, int64_t>> video = {{200, -1}, {120, 80}, {40, -1}, {80, 240}};
  const std::vector<std::pair<uint32_t, int64_t>> captions = {
      {120, -1}, {160, 40}, {80, 0}, {40, -1}, {40, 200}};
  EXPECT_EQ(Placed(ReadEdited(video, captions)), "-2:1 -1:2 0:3 1:4 2:0 3:1 5:5");
  // What is shown before the first picture is no picture's.
  const Read read = ReadEdited(video, captions);
  captions::CaptionPictures pictures(read.track, Rate::k25, 0);
  EXPECT_EQ(pictures.early(), 2u);
  EXPECT_EQ(pictures.Next(0).at(0).second, 0xB3);
}

// A caption distribution packet with all of its sections: time code at 7, cc_data at 12, service information
// at 74, footer at 83 (SMPTE ST 334-2), whose checksum is right.
Bytes Cdp(uint16_t counter, const std::function<void(Bytes&)>& spoil = {}, bool sum = true) {
  captions::CaptionPacket packet;
  packet.counter = counter;
  packet.timecode = captions::Timecode{1, 2, 3, 4};
  packet.triplets.assign(20, captions::Triplet{});
  packet.triplets[0] = {true, captions::CcType::kField1, 0xC1, static_cast<uint8_t>(0xB0 + counter)};
  packet.serviceInfo = Hex("73 F1 E1 65 6E 67 C1 3F FF");
  Bytes cdp = captions::WriteCdp(packet);
  EXPECT_EQ(cdp.size(), 87u);
  if (spoil) spoil(cdp);
  if (!spoil || !sum) return cdp;
  cdp.back() = 0;
  uint8_t all = 0;
  for (const uint8_t byte : cdp) all = static_cast<uint8_t>(all + byte);
  cdp.back() = static_cast<uint8_t>(-all);
  return cdp;
}

Bytes PacketSample(const Bytes& cdp) { return qln::test::mp4::Box("ccdp", cdp); }

struct Spoilt {
  const char* what;
  std::function<void(Bytes&)> spoil;
  const char* reason;
  bool sum = true;
};

const Spoilt kSpoilt[] = {
    {"identifier", [](Bytes& cdp) { cdp[0] = 0x97; }, "no cdp_identifier"},
    {"length", [](Bytes& cdp) { cdp[2] = 80; }, "cdp_length is not the packet's"},
    {"rate", [](Bytes& cdp) { cdp[3] = 0x0F; }, "cdp_frame_rate is reserved"},
    {"sequence count", [](Bytes& cdp) { cdp[6] ^= 1; }, "the counters of header and footer differ"},
    {"time code", [](Bytes& cdp) { cdp[7] = 0x70; }, "a section is not known"},
    {"cc_data", [](Bytes& cdp) { cdp[12] = 0x70; }, "a section is not known"},
    {"cc_count", [](Bytes& cdp) { cdp[13] = 0xE0 | 31; }, "the packet is too short for its sections"},
    {"triplet", [](Bytes& cdp) { cdp[16] ^= 1; }, "the checksum is wrong", false},
    {"service information", [](Bytes& cdp) { cdp[74] = 0x70; }, "a section is not known"},
    {"svc_count", [](Bytes& cdp) { cdp[75] = 0xF0 | 9; }, "the packet is too short for its sections"},
    {"footer", [](Bytes& cdp) { cdp[83] = 0x70; }, "a section is not known"},
    {"footer's sequence count", [](Bytes& cdp) { cdp[85] ^= 1; }, "the counters of header and footer differ"},
    {"checksum", [](Bytes& cdp) { cdp[86] ^= 1; }, "the checksum is wrong", false},
};

// Six packets, of which the third and the fifth are spoilt.
MovieSpec PacketMovie(const Spoilt& spoilt) {
  std::vector<Bytes> samples;
  for (uint16_t i = 0; i < 6; ++i)
    samples.push_back(PacketSample(i == 2 || i == 4 ? Cdp(i, spoilt.spoil, spoilt.sum) : Cdp(i)));
  TrackSpec track = Captions(samples, 33);
  track.format = "c708";
  return Movie(track);
}

TEST(CaptionTracks, DamageInEachSectionLosesItsPacketAndNothingElse) {
  for (const Spoilt& spoilt : kSpoilt) {
    SCOPED_TRACE(spoilt.what);
    const Read read = ReadMovie(PacketMovie(spoilt));
    EXPECT_EQ(Placed(read), "0:0 1:1 3:3 5:5");
    ASSERT_EQ(read.damage.size(), 1u);
    EXPECT_THAT(read.damage[0], testing::MatchesRegex(std::string("stream 1: sample 2 at byte [0-9]+: ") +
                                                      spoilt.reason + " \\(2 samples\\); left out"));
    // Pictures of damaged packets have the padding of 29.97 pictures a second, all others what they had.
    captions::CaptionPictures pictures(read.track, Rate::k29_97, 0);
    for (int64_t i = 0; i < 5; ++i) {
      const std::vector<captions::Triplet> triplets = pictures.Next(i);
      ASSERT_EQ(triplets.size(), 20u);
      const captions::Triplet null = {true, captions::CcType::kField1, 0x80, 0x80};
      const captions::Triplet pair = {true, captions::CcType::kField1, 0xC1, static_cast<uint8_t>(0xB0 + i)};
      EXPECT_EQ(triplets[0], i == 2 || i == 4 ? null : pair);
      for (size_t rest = 2; rest < triplets.size(); ++rest) EXPECT_FALSE(triplets[rest].valid);
    }
  }
}

// The same movie with pictures that are some.
Bytes WithPictures(MovieSpec movie) {
  movie.tracks[0] = test::PictureTrack(test::PictureStream());
  return BuildMovie(movie);
}

const Spoilt kWhole = {"nothing", [](Bytes&) {}, ""};

// What check says of a file's caption track.
std::vector<std::string> FindingsOf(const std::string& path) {
  std::vector<std::string> told;
  for (const Finding& finding : CheckFile(path)) {
    if (finding.stream == 1) told.push_back(finding.text);
  }
  return told;
}

TEST(CaptionTracks, AreCheckedPacketByPacket) {
  test::Files files;
  // B1, B2 and others among the second bytes of pairs have even parity.
  const std::string parity = "a pair whose parity is wrong";
  EXPECT_THAT(FindingsOf(files.Put("whole.mov", WithPictures(PacketMovie(kWhole)))), ElementsAre(parity));
  EXPECT_THAT(
      FindingsOf(files.Put("spoilt.mov", WithPictures(PacketMovie(kSpoilt[7])))),
      ElementsAre(parity, testing::MatchesRegex("c708 track: sample 2 at byte [0-9]+: the checksum is wrong "
                                                "\\(2 samples\\); left out")));
}

TEST(CaptionTracks, OfAPipeAreRefusedByName) {
  test::Files files;
  const qln::test::FedPipe pipe(files.Put("piped.mov", WithPictures(PacketMovie(kWhole))));
  EXPECT_THAT(test::RefusalOf([&] { CaptionFileText(pipe.path(), CaptionFileKind::kMcc); }),
              HasSubstr("stream 1 is a c708 track, which is not read from a pipe"));
}

}  // namespace
}  // namespace qlnmedia
