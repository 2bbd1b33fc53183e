// Caption tracks put into movies that are put together by hand, as the tests' own reader shows them.

#include "container/mp4/caption_track.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "container/mp4/movie.h"
#include "mp4/build_boxes.h"
#include "mp4/list_file.h"
#include "support/test_support.h"

namespace qln::test::mp4 {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
namespace engine = qlnmedia::mp4;

engine::CaptionSamples Three() {
  engine::CaptionSamples samples;
  samples.bytes = Hex("0000000A 63646174 9420 0000000A 63646174 9470 0000000A 63646174 942F");
  samples.sizes = {10, 10, 10};
  samples.durations = {100, 100, 50};
  samples.perChunk = 2;
  samples.language = 0x15C7;  // eng
  return samples;
}

MovieSpec Movie(const std::string& brand, std::vector<Bytes> trackBoxes = {}) {
  TrackSpec video;
  video.samples = {Noise(20, 1), Noise(30, 2), Noise(10, 3)};
  video.trackBoxes = std::move(trackBoxes);
  MovieSpec movie;
  movie.brand = brand;
  movie.tracks = {video};
  return movie;
}

Bytes Put(const Bytes& file, const engine::CaptionSamples& samples, bool replace = false) {
  const engine::MemorySource source(file, "clip.mov");
  const engine::FileWithCaptions made = engine::PutCaptionTrack(source, 1, samples, replace);
  Bytes out(made.source->size());
  made.source->Read(0, out);
  return out;
}

std::string Refusal(const Bytes& file, bool replace = false) {
  try {
    Put(file, Three(), replace);
  } catch (const qlnmedia::Error& error) {
    return error.what();
  }
  return {};
}

// The body of the n-th box of a path; empty where there is none.
Bytes BodyOf(const Bytes& file, const std::string& path, size_t n = 0) {
  for (const Node& box : ListFile(file).boxes) {
    if (box.path != path || n-- != 0) continue;
    const auto begin = file.begin() + static_cast<std::ptrdiff_t>(box.at + box.head);
    return Bytes(begin, file.begin() + static_cast<std::ptrdiff_t>(box.at + box.size));
  }
  return {};
}

Bytes SampleTable(uint64_t place) {
  return Joined(
      {Full("stsd", 0, 0, {Number(1, 4), Box("c608", {Bytes(6), Number(1, 2)})}),
       Full("stts", 0, 0, {Number(2, 4), Number(2, 4), Number(100, 4), Number(1, 4), Number(50, 4)}),
       Full("stsc", 0, 0,
            {Number(2, 4), Number(1, 4), Number(2, 4), Number(1, 4), Number(2, 4), Number(1, 4),
             Number(1, 4)}),
       Full("stsz", 0, 0, {Number(10, 4), Number(3, 4)}),
       Full("stco", 0, 0, {Number(2, 4), Number(place, 4), Number(place + 20, 4)})});
}

TEST(CaptionTracks, StandBehindTheOthers) {
  for (const bool front : {true, false}) {
    for (const char* brand : {"qt  ", "isom"}) {
      SCOPED_TRACE(brand);
      MovieSpec spec = Movie(brand);
      spec.moovFirst = front;
      const Bytes in = BuildMovie(spec);
      const Bytes out = Put(in, Three());
      const Listing before = ListFile(in);
      const Listing after = ListFile(out);
      // Pictures where they were said to be, captions likewise, one behind the other at the end.
      ASSERT_EQ(after.samples.at(1).size(), 3u);
      for (size_t i = 0; i < 3; ++i) EXPECT_EQ(after.samples.at(1)[i].data, before.samples.at(1)[i].data);
      ASSERT_EQ(after.samples.at(2).size(), 3u);
      EXPECT_EQ(after.samples.at(2)[1].data, Hex("0000000A 63646174 9470"));
      EXPECT_EQ(after.samples.at(2)[2].decodeTime, 200);
      EXPECT_EQ(after.samples.at(2)[2].at + 10, out.size());
      EXPECT_EQ(BodyOf(out, "moov/trak/mdia/minf/stbl", 1), SampleTable(out.size() - 30));
      EXPECT_EQ(BodyOf(out, "moov/trak/tref"), Box("clcp", Number(2, 4)));
      const Bytes handler = BodyOf(out, "moov/trak/mdia/hdlr", 1);
      const bool quickTime = std::string(brand) == "qt  ";
      EXPECT_EQ(Bytes(handler.begin(), handler.begin() + 12),
                Joined({Bytes(4), quickTime ? Text("mhlr") : Bytes(4), Text("clcp")}));
      const Bytes generic = BodyOf(out, "moov/trak/mdia/minf/gmhd");
      const Bytes gmin = Full("gmin", 0, 0, {Hex("0040 8000 8000 8000 0000 0000")});
      EXPECT_EQ(generic, quickTime ? gmin : Bytes());
      EXPECT_EQ(BodyOf(out, "moov/trak/mdia/minf/nmhd"), quickTime ? Bytes() : Bytes(4));
      // Version, times, timescale, duration of 64 bits, language.
      const Bytes media = BodyOf(out, "moov/trak/mdia/mdhd", 1);
      EXPECT_EQ(Bytes(media.begin() + 20, media.end()), Hex("000003E8 00000000000000FA 15C7 0000"));
    }
  }
}

// What players show one at a time: enabled, in a group of its own, or with the captions that are there.
TEST(CaptionTracks, AreOneOfAGroup) {
  const auto choice = [](const Bytes& file, size_t track) {
    const Bytes head = BodyOf(file, "moov/trak/tkhd", track);
    return std::pair(head.at(3), head.at(46) << 8 | head.at(47));
  };
  EXPECT_EQ(choice(Put(BuildMovie(Movie("qt  ")), Three()), 1), std::pair(uint8_t{3}, 1));
  MovieSpec spec = Movie("qt  ");
  TrackSpec subtitles;
  subtitles.id = 7;
  subtitles.handler = "sbtl";
  subtitles.format = "tx3g";
  subtitles.samples = {Noise(9, 4)};
  spec.tracks.push_back(subtitles);
  Bytes in = BuildMovie(spec);
  const engine::MemorySource source(in);
  engine::Reader reader(source);
  const engine::Layout layout = engine::ReadLayout(source);
  const auto head = engine::FindBox(reader, layout.movies.at(0).tracks.at(1).box, engine::FourCc("tkhd"));
  ASSERT_EQ(reader.U8(head->body), 0);
  in[head->body + 35] = 5;  // alternate_group
  in[head->body + 3] = 7;
  EXPECT_EQ(choice(Put(in, Three()), 2), std::pair(uint8_t{2}, 5));
  in[head->body + 3] = 6;  // that one is not enabled
  EXPECT_EQ(choice(Put(in, Three()), 2), std::pair(uint8_t{3}, 5));
}

// The edits of the video, less the time at which its first picture stands; without any, an empty one.
TEST(CaptionTracks, AreEditedAsPicturesAre) {
  const Bytes edits =
      Box("edts", {Full("elst", 0, 0,
                        {Number(2, 4), Number(40, 4), Number(0xFFFFFFFF, 4), Number(0x10000, 4),
                         Number(150, 4), Number(130, 4), Number(0x10000, 4)})});
  engine::CaptionSamples samples = Three();
  samples.first = 80;
  const auto editsOf = [&samples](const MovieSpec& movie, size_t n) {
    return BodyOf(Put(BuildMovie(movie), samples), "moov/trak/edts", n);
  };
  const auto list = [](std::vector<Bytes> parts) {
    parts.insert(parts.begin(), Number(2, 4));
    return Full("elst", 1, 0, parts);
  };
  const Bytes normal = Number(0x10000, 4);
  EXPECT_EQ(editsOf(Movie("qt  ", {edits}), 1),
            list({Number(40, 8), Number(UINT64_MAX, 8), normal, Number(150, 8), Number(50, 8), normal}));
  const Bytes lead = editsOf(Movie("qt  "), 0);
  const Bytes front = list({Number(80, 8), Number(UINT64_MAX, 8), normal});
  ASSERT_EQ(lead.size(), front.size() + 20);
  EXPECT_EQ(Bytes(lead.begin() + 8, lead.begin() + 36), Bytes(front.begin() + 8, front.end()));
  EXPECT_EQ(Bytes(lead.begin() + 36, lead.end()), Joined({Number(250, 8), Number(0, 8), normal}));
  samples.first = 0;
  EXPECT_EQ(editsOf(Movie("qt  "), 0), Bytes());
}

TEST(CaptionTracks, TakeThePlaceOfTheOneThatIsThere) {
  const Bytes once = Put(BuildMovie(Movie("qt  ")), Three());
  EXPECT_THAT(Refusal(once), HasSubstr("clip.mov: has a caption track, track 2"));
  engine::CaptionSamples other = Three();
  other.bytes.back() = 0x2C;
  other.sizes = {10, 20};
  other.durations = {100, 150};
  const Bytes twice = Put(once, other, true);
  const Listing listing = ListFile(twice);
  ASSERT_EQ(listing.samples.size(), 2u);
  ASSERT_EQ(listing.samples.at(2).size(), 2u);
  EXPECT_EQ(listing.samples.at(2)[1].data, Hex("0000000A 63646174 9470 0000000A 63646174 942C"));
  EXPECT_EQ(listing.samples.at(1)[2].data, ListFile(once).samples.at(1)[2].data);
  EXPECT_EQ(BodyOf(twice, "moov/trak/tref"), Box("clcp", Number(2, 4)));
  MovieSpec spec = Movie("qt  ");
  for (const uint32_t id : {2u, 3u}) {
    TrackSpec track;
    track.id = id;
    track.handler = "clcp";
    track.format = id == 2 ? "c608" : "c708";
    track.samples = {Noise(9, id)};
    spec.tracks.push_back(track);
  }
  EXPECT_THAT(Refusal(BuildMovie(spec), true), HasSubstr("has several caption tracks, 2 and 3"));
}

TEST(CaptionTracks, AreRefusedWhereTheyCannotBe) {
  const MovieSpec spec = Movie("isom");
  EXPECT_THAT(Refusal(BuildInit(spec)), HasSubstr("is in fragments, which take no caption track"));
  Bytes longer = BuildMovie(spec);
  longer.insert(longer.end(), {1, 2, 3});
  EXPECT_THAT(Refusal(longer), HasSubstr("does not end with a box, and takes no caption track behind it"));
  MovieSpec other = spec;
  other.behindAll = Full("sidx", 0, 0, {Bytes(24)});
  EXPECT_THAT(Refusal(BuildMovie(other)), HasSubstr("names places, and takes no caption track"));
}

// A file behind which 32 bits name no place.
class LongSource final : public engine::Source {
 public:
  explicit LongSource(Bytes front) : front_(std::move(front)) {
    // A box of free space of 5 GB, by a 64-bit size.
    const Bytes free = Joined({Number(1, 4), Text("free"), Number(kFree, 8)});
    front_.insert(front_.end(), free.begin(), free.end());
  }
  const std::string& name() const override { return name_; }
  uint64_t size() const override { return front_.size() - 16 + kFree; }
  void Read(uint64_t at, std::span<uint8_t> to) const override {
    for (size_t i = 0; i < to.size(); ++i) to[i] = at + i < front_.size() ? front_[at + i] : 0;
  }

 private:
  static constexpr uint64_t kFree = 5'000'000'000;
  std::string name_ = "long.mov";
  Bytes front_;
};

TEST(CaptionTracks, MayStandBehindFourGigabytes) {
  MovieSpec spec = Movie("qt  ");
  spec.moovFirst = false;
  const LongSource source(BuildMovie(spec));
  const engine::FileWithCaptions made = engine::PutCaptionTrack(source, 1, Three(), false);
  Bytes front(6000);
  made.source->Read(0, front);
  const uint64_t place = made.source->size() - 30;
  const Bytes table = Full("co64", 0, 0, {Number(2, 4), Number(place, 8), Number(place + 20, 8)});
  EXPECT_NE(std::search(front.begin(), front.end(), table.begin(), table.end()), front.end());
}

TEST(CaptionTracks, SayTheirLanguage) {
  EXPECT_EQ(engine::LanguageCode("eng"), 0x15C7);
  EXPECT_EQ(engine::LanguageCode("und"), 0x55C4);
  for (const char* none : {"", "en", "ENG", "engl", "e g"})
    EXPECT_EQ(engine::LanguageCode(none), std::nullopt);
}

}  // namespace
}  // namespace qln::test::mp4
