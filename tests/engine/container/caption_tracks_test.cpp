// Caption tracks of movies put together box by box.

#include "container/caption_tracks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mp4/build_boxes.h"
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

}  // namespace
}  // namespace qlnmedia
