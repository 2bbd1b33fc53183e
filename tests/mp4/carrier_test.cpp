// Samples that change, in files built by hand: everything else stays byte for byte.
#include "container/mp4/carrier.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mp4/carry_random.h"
#include "qlnmedia/progress.h"

namespace qln::test::mp4 {
namespace {

using testing::HasSubstr;
using namespace qlnmedia::mp4;

TEST(Carrier, OneTrackInFrontAndBehind) {
  for (const bool front : {true, false}) {
    ExpectCarried(BuildMovie({.tracks = {SampleTrack(9)}, .moovFirst = front}));
  }
}

TEST(Carrier, InterleavedTracksGapsAndChunksOfAllLengths) {
  TrackSpec one = SampleTrack(20, 1);
  one.chunks = {3, 1, 4, 2};
  TrackSpec two = SampleTrack(17, 2);
  two.chunks = {2, 5};
  two.handler = "soun";
  two.format = "mp4a";
  for (const bool front : {true, false}) {
    for (const bool parts : {true, false}) {
      const Bytes file = BuildMovie({.tracks = {one, two, SampleTrack(3, 9)},
                                     .moovFirst = front,
                                     .gap = Text("GAP!"),
                                     .twoMdats = parts});
      ExpectCarried(file, 1);
      ExpectCarried(file, 2);
      ExpectCarried(file, 9);
    }
  }
}

TEST(Carrier, SizesOfEveryWidthGrowWhereTheyMust) {
  for (const int bits : {4, 8, 16, 32}) {
    TrackSpec track = SampleTrack(7);
    track.sizeBits = bits;
    const Bytes file = BuildMovie({.tracks = {track, SampleTrack(4, 2)}});
    ExpectCarried(file);
    for (const size_t size : {15u, 16u, 255u, 256u, 65535u, 65536u}) {
      FunctionEditor editor([&](const Sample& sample, const Bytes&) -> std::optional<Bytes> {
        if (sample.number == 3) return Noise(size, 3);
        return std::nullopt;
      });
      const Carried carried = CarrySamples(file, 1, editor);
      EXPECT_EQ(Compare(file, carried.output, 1, editor.result), "") << bits << " " << size;
      const int needed = size < 16 ? 4 : size < 256 ? 8 : size < 65536 ? 16 : 32;
      const auto counts = ListFile(carried.output).count();
      EXPECT_EQ(counts.count("stz2") != 0, std::max(bits, needed) < 32) << bits << " " << size;
    }
  }
}

TEST(Carrier, OneSizeForAllStaysOneWhereItIs) {
  TrackSpec track;
  track.uniform = true;
  track.chunks = {4};
  track.samples.assign(9, Noise(6, 1));
  const Bytes file = BuildMovie({.tracks = {track, SampleTrack(4, 2)}});
  ExpectCarried(file);
  FunctionEditor all([](const Sample&, const Bytes& bytes) { return Joined({bytes, Text("more")}); });
  const Carried carried = CarrySamples(file, 1, all);
  EXPECT_EQ(Compare(file, carried.output, 1, all.result), "");
  EXPECT_EQ(carried.output.size(), file.size() + 9 * 4);
}

TEST(Carrier, WideHeadsOpenEndsAndUnknownBoxes) {
  TrackSpec track = SampleTrack(8);
  track.wideHeads = true;
  track.tableBoxes = {Box("sgpd", Noise(20, 1)), Box("sbgp", Noise(30, 2)), Box("zzzz", Noise(5, 1))};
  track.trackBoxes = {Box("edts", {Box("elst", Noise(28, 1))}), Box("tref", {Box("cdsc", Number(2, 4))}),
                      Box("uuid", Noise(40, 2))};
  const MovieSpec spec{
      .tracks = {track},
      .moovBoxes = {Box("udta", {Box("name", Text("hello")), Number(0, 4)}), Box("uuid", Noise(40, 1))},
      .behindMoov = Joined({Box("free", Noise(50, 1)), Box("uuid", Noise(60, 2))}),
      .mdatToEnd = true};
  ExpectCarried(BuildMovie(spec));
  MovieSpec wide = spec;
  wide.mdatToEnd = false;
  wide.mdatWide = true;
  wide.behindAll = Joined({Box("free", Noise(50, 1)), Box("abcd", Noise(10, 1)), Bytes(3)});
  ExpectCarried(BuildMovie({.brand = "", .tracks = {track}, .moovFirst = false, .mdatWide = true}));
  const Bytes file = BuildMovie(wide);
  FunctionEditor editor(RandomChange(1));
  const Carried carried = CarrySamples(file, 1, editor);
  // What is no box at the end is no box in the output either.
  EXPECT_TRUE(std::equal(wide.behindAll.rbegin(), wide.behindAll.rend(), carried.output.rbegin()));
}

TEST(Carrier, DescriptionsAndDataInOtherFiles) {
  TrackSpec track = SampleTrack(8);
  track.descriptions = 3;
  track.descriptionOfChunk = {1, 2, 2, 1, 3, 1, 2, 3};
  ExpectCarried(BuildMovie({.tracks = {track, SampleTrack(3, 2)}}));
  track.id = 2;
  track.otherFile = true;
  const Bytes file = BuildMovie({.tracks = {SampleTrack(8, 1), track}});
  ExpectCarried(file, 1);
  FunctionEditor editor(RandomChange(1));
  EXPECT_THAT(Refusal([&] { CarrySamples(file, 2, editor); }),
              HasSubstr("samples of track 2 stand in another file"));
}

// Places of samples in identified media data, or in numbered segments, count from there.
TEST(Carrier, PlacesThatCountFromABoxStay) {
  for (const std::string reference : {"imdt", "snim"}) {
    TrackSpec other = SampleTrack(8, 2);
    other.reference = reference;
    const Bytes file = BuildMovie({.tracks = {SampleTrack(8, 1), other}});
    FunctionEditor editor(RandomChange(1));
    const Bytes output = CarrySamples(file, 1, editor).output;
    ASSERT_NE(output.size(), file.size());
    const auto places = [](const Bytes& bytes) {
      const std::string type = "stco";
      const auto at = std::find_end(bytes.begin(), bytes.end(), type.begin(), type.end());
      return Bytes(at, at + 44);
    };
    EXPECT_EQ(places(output), places(file));
    EXPECT_THAT(Refusal([&] { CarrySamples(file, 2, editor); }), HasSubstr("stand in another file"));
  }
}

// A change of a size in the boxes must not be one of a sample.
TEST(Carrier, DataThatCoversAChangedBoxIsRefused) {
  MovieSpec spec{.tracks = {SampleTrack(4, 1), SampleTrack(2, 2)}};
  Bytes file = BuildMovie(spec);
  const Listing listing = ListFile(file);
  size_t data = 0;
  std::vector<size_t> tables;
  for (const Node& node : listing.boxes) {
    if (node.type == "mdat") data = node.at;
    if (node.type == "stco") tables.push_back(node.at);
  }
  // The first sample of the second track begins with the size of the media data.
  const Bytes number = Number(data, 4);
  std::copy(number.begin(), number.end(), file.begin() + static_cast<std::ptrdiff_t>(tables.at(1) + 16));
  FunctionEditor last([](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
    if (sample.number != 3) return std::nullopt;
    return Joined({bytes, Text("+")});
  });
  EXPECT_THAT(Refusal([&] { CarrySamples(file, 1, last); }),
              HasSubstr("data of track 2 covers a box that changes (at byte " + std::to_string(data)));
}

TEST(Carrier, PlacesInAuxiliaryOffsetsAndItems) {
  TrackSpec track = SampleTrack(8, 2);
  track.placeBox = [](uint64_t at) { return Full("saio", 0, 0, {Number(1, 4), Number(at, 4)}); };
  TrackSpec typed = SampleTrack(8, 3);
  typed.placeBox = [](uint64_t at) {
    return Full("saio", 1, 1, {Text("cenc"), Number(0, 4), Number(2, 4), Number(at, 8), Number(at + 2, 8)});
  };
  const Bytes file = BuildMovie({.tracks = {SampleTrack(8, 1), track, typed}});
  ExpectCarried(file, 1);
  FunctionEditor editor(RandomChange(3));
  const Bytes output = CarrySamples(file, 1, editor).output;
  const Listing in = ListFile(file);
  const Listing out = ListFile(output);
  const auto field = [](const Bytes& bytes, const Listing& listing, int which, size_t at, size_t width) {
    int n = 0;
    for (const Node& node : listing.boxes) {
      if (node.type != "saio" || n++ != which) continue;
      uint64_t value = 0;
      for (size_t i = 0; i < width; ++i) value = value * 256 + bytes[node.at + node.head + at + i];
      return value;
    }
    return uint64_t{0};
  };
  EXPECT_EQ(field(file, in, 0, 8, 4), in.samples.at(2)[0].at);
  EXPECT_EQ(field(output, out, 0, 8, 4), out.samples.at(2)[0].at);
  EXPECT_EQ(field(output, out, 1, 16, 8), out.samples.at(3)[0].at);
  EXPECT_EQ(field(output, out, 1, 24, 8), out.samples.at(3)[0].at + 2);
}

// Items of a `meta`: one by a base, one by its extents, one over the whole file, one inside the box.
TEST(Carrier, ItemsFollowTheirBytes) {
  const auto meta = [](uint64_t place, uint64_t size) {
    const auto item = [](uint16_t id, uint16_t method, uint64_t base, uint64_t offset, uint64_t length) {
      return Joined({Number(id, 2), Number(method, 2), Number(0, 2), Number(base, 4), Number(1, 2),
                     Number(offset, 4), Number(length, 4)});
    };
    return Full("meta", 0, 0,
                {Full("hdlr", 0, 0, {Bytes(4), Text("pict"), Bytes(13)}),
                 Full("iloc", 1, 0,
                      {Number(0x4440, 2), Number(4, 2), item(1, 0, place, 0, size),
                       item(2, 0, 0, place, size), item(3, 0, 0, 0, 0), item(4, 1, 0, 7, 9)})});
  };
  const Bytes item = Text("this is an item");
  const TrackSpec track = SampleTrack(8, 1);
  const Bytes movie = BuildMovie({.tracks = {track}});
  // In front of the item a movie, so that it moves; and its place is known when the box is built.
  const uint64_t place = movie.size() + 8;
  const Bytes file = Joined({movie, Box("idat", item), meta(place, item.size())});
  FunctionEditor editor(RandomChange(5));
  const Bytes output = CarrySamples(file, 1, editor).output;
  ASSERT_NE(output.size(), file.size());
  EXPECT_EQ(Compare(file, output, 1, editor.result), "");
  const uint64_t moved = place + output.size() - file.size();
  const Bytes expected = meta(moved, item.size());
  EXPECT_EQ(Bytes(output.end() - static_cast<std::ptrdiff_t>(expected.size()), output.end()), expected);
}

TEST(Carrier, SubSamplesGetTheGrowthOfTheirPart) {
  TrackSpec track = SampleTrack(3);
  track.samples = {Noise(10, 1), Noise(10, 2), Noise(10, 3)};
  const auto part = [](uint16_t size) { return Joined({Number(size, 2), Bytes(6)}); };
  track.tableBoxes = {Full(
      "subs", 0, 0,
      {Number(2, 4), Number(1, 4), Number(2, 2), part(4), part(6), Number(2, 4), Number(1, 2), part(10)})};
  const Bytes file = BuildMovie({.tracks = {track}});
  FunctionEditor editor([](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
    if (sample.number == 1) return std::nullopt;
    Bytes out = bytes;
    out.insert(out.begin() + 5, 3, 0);
    return out;
  });
  const Bytes output = CarrySamples(file, 1, editor).output;
  EXPECT_EQ(Compare(file, output, 1, editor.result), "");
  const Bytes expected = Full(
      "subs", 0, 0,
      {Number(2, 4), Number(1, 4), Number(2, 2), part(4), part(9), Number(2, 4), Number(1, 2), part(13)});
  EXPECT_NE(std::search(output.begin(), output.end(), expected.begin(), expected.end()), output.end());
}

// What comes back in parts is that of whole samples, and each part of `subs` gets the growth within it, also
// where they come out even.
TEST(Carrier, SamplesComeBackInParts) {
  TrackSpec track = SampleTrack(2);
  track.samples = {Noise(10, 1), Noise(10, 2)};
  const auto part = [](uint16_t size) { return Joined({Number(size, 2), Bytes(6)}); };
  track.tableBoxes = {Full("subs", 0, 0, {Number(1, 4), Number(1, 4), Number(2, 2), part(4), part(6)})};
  const Bytes file = BuildMovie({.tracks = {track}});
  class Editor final : public SampleEditor {
   public:
    void Take(const Sample& sample, ByteSpan bytes, SampleReturns& returns) override {
      Bytes whole(bytes.begin(), bytes.end());
      if (sample.number == 0) {
        const Bytes grown = Joined({{bytes[1]}, {7, 7, 7}});
        const Bytes shrunk = {bytes[6]};
        returns.ReplaceParts(0, std::vector<SamplePart>{{1, {bytes[1]}, grown},
                                                        {6, Bytes(bytes.begin() + 6, bytes.end()), shrunk}});
        whole = Joined({Bytes(bytes.begin(), bytes.begin() + 1), grown,
                        Bytes(bytes.begin() + 2, bytes.begin() + 6), shrunk});
      } else {
        const SamplePart outside[] = {{8, {1, 2, 3}, {4}}};
        EXPECT_THROW(returns.ReplaceParts(1, outside), qlnmedia::Error);
      }
      result.push_back(whole);
    }
    std::vector<Bytes> result;
  };
  Editor editor;
  Change change;
  change.tracks.push_back({.trackId = 1, .samples = &editor});
  const Carried carried = CarryBytes(file, change);
  EXPECT_EQ(carried.counts.changedSamples, 1u);
  const Bytes& output = carried.output;
  EXPECT_EQ(Compare(file, output, 1, editor.result), "");
  const Bytes expected = Full("subs", 0, 0, {Number(1, 4), Number(1, 4), Number(2, 2), part(7), part(3)});
  EXPECT_NE(std::search(output.begin(), output.end(), expected.begin(), expected.end()), output.end());
}

TEST(Carrier, WhatCannotBeTrueIsRefusedWithItsPlace) {
  FunctionEditor all([](const Sample&, const Bytes& bytes) { return Joined({bytes, Text("+")}); });
  // Two chunks over the same bytes.
  MovieSpec spec{.tracks = {SampleTrack(2, 1), SampleTrack(2, 2)}};
  Bytes file = BuildMovie(spec);
  const Listing listing = ListFile(file);
  const auto setOffset = [&](int track, uint64_t to) {
    int n = 0;
    for (const Node& node : listing.boxes) {
      if (node.type != "stco" || ++n != track) continue;
      const Bytes number = Number(to, 4);
      std::copy(number.begin(), number.end(), file.begin() + static_cast<std::ptrdiff_t>(node.at + 16));
    }
  };
  const size_t first = listing.samples.at(1)[0].at;
  setOffset(2, first + 1);
  EXPECT_THAT(Refusal([&] { CarrySamples(file, 1, all); }),
              HasSubstr("overlaps data of track 2 (at byte " + std::to_string(first + 1)));
  setOffset(2, file.size() + 5);
  EXPECT_EQ(Refusal([&] { CarrySamples(file, 1, all); }), "");
  EXPECT_THAT(Refusal([&] { CarrySamples(file, 2, all); }),
              HasSubstr("sample 1 of track 2 is outside the file"));
  setOffset(1, 8);
  EXPECT_THAT(Refusal([&] { CarrySamples(file, 1, all); }),
              HasSubstr("outside the media data ('mdat') (at byte"));
  FunctionEditor keep([](const Sample&, const Bytes&) { return std::nullopt; });
  EXPECT_EQ(CarrySamples(file, 1, keep).output, file);
  // Two samples of one track over the same bytes, of which one changes.
  file = BuildMovie(spec);
  setOffset(1, listing.samples.at(1)[1].at);
  FunctionEditor one([](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
    if (sample.number == 1) return Joined({Text("+"), bytes});
    return std::nullopt;
  });
  EXPECT_THAT(Refusal([&] { CarrySamples(file, 1, one); }),
              HasSubstr("a changed sample shares its bytes with another of track 1"));
  // The other one, of this track or another, begins among the bytes that change.
  FunctionEditor front([](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
    if (sample.number != 1) return std::nullopt;
    Bytes fresh = bytes;
    for (size_t i = 0; i < 3; ++i) fresh.at(i) ^= 0xFF;
    return fresh;
  });
  setOffset(1, listing.samples.at(1)[1].at + 1);
  EXPECT_THAT(Refusal([&] { CarrySamples(file, 1, front); }),
              HasSubstr("a changed sample shares its bytes with another of track 1"));
  file = BuildMovie(spec);
  setOffset(2, listing.samples.at(1)[1].at + 2);
  EXPECT_THAT(Refusal([&] { CarrySamples(file, 1, front); }), HasSubstr("overlaps data of track 2"));
}

TEST(Carrier, ATableThatStandsTwiceIsRefusedWhereItsTrackChanges) {
  for (const char* const type : {"stts", "stss", "stsc", "stsz", "stco", "co64", "stsd"}) {
    TrackSpec track = SampleTrack(2);
    track.sync = {1};
    track.tableBoxes = {Full(type, 0, 0, {Number(0, 4), Number(0, 4)})};
    const Bytes file = BuildMovie({.tracks = {track}});
    FunctionEditor all([](const Sample&, const Bytes& bytes) { return Joined({bytes, Text("+")}); });
    EXPECT_THAT(Refusal([&] { CarrySamples(file, 1, all); }), HasSubstr("stands in its track a second time"))
        << type;
    EXPECT_EQ(CarryBytes(file, {}).output, file);
  }
}

TEST(Carrier, EncryptedSamplesAreRefusedAndTheirDescriptionsAreNot) {
  TrackSpec track = SampleTrack(2);
  track.format = "encv";
  track.entryBoxes = Joined({Box("avcC", Text("old")), Box("sinf", {Box("frma", Text("avc1"))})});
  const Bytes file = BuildMovie({.tracks = {track}});
  FunctionEditor all([](const Sample&, const Bytes& bytes) { return Joined({bytes, Text("+")}); });
  EXPECT_THAT(Refusal([&] { CarrySamples(file, 1, all); }), HasSubstr("sample 1 of track 1 is encrypted"));
  FunctionEditor same([](const Sample&, const Bytes& bytes) { return bytes; });
  EXPECT_EQ(CarrySamples(file, 1, same).output, file);
  Change change;
  change.tracks.push_back(
      {.trackId = 1, .samples = nullptr, .privateData = {{1, FourCc("avcC"), Text("fresh")}}, .facts = {}});
  EXPECT_EQ(CarryBytes(file, change).output.size(), file.size() + 2);
  TrafSpec traf;
  traf.runs = {{Noise(6, 1)}};
  traf.boxes = {Full("senc", 0, 0, {Number(0, 4)})};
  EXPECT_THAT(Refusal([&] {
                CarrySamples(BuildFragment({traf}, 0), 1, all, BuildInit({.tracks = {SampleTrack(1)}}));
              }),
              HasSubstr("encrypted"));
}

TEST(Carrier, MisuseIsNamed) {
  const Bytes file = BuildMovie({.tracks = {SampleTrack(3)}});
  FunctionEditor empty([](const Sample&, const Bytes&) { return Bytes{}; });
  EXPECT_THAT(Refusal([&] { CarrySamples(file, 1, empty); }), HasSubstr("is empty, or would become so"));
  EXPECT_THAT(Refusal([&] { CarrySamples(file, 8, empty); }), HasSubstr("there is no track 8"));
  TrafSpec traf;
  traf.runs = {{Noise(6, 1)}};
  EXPECT_THAT(Refusal([&] { CarrySamples(BuildFragment({traf}, 0), 1, empty); }),
              HasSubstr("initialization segment"));

  class Backwards final : public SampleEditor {
   public:
    void Take(const Sample& sample, ByteSpan bytes, SampleReturns& returns) override {
      if (sample.number != 2) return;
      returns.Replace(1, bytes);
      returns.Replace(0, bytes);
    }
  };
  Backwards backwards;
  Change change;
  change.tracks.push_back({.trackId = 1, .samples = &backwards, .privateData = {}, .facts = {}});
  EXPECT_THAT(Refusal([&] { CarryBytes(file, change); }),
              HasSubstr("sample 1 of track 1 came back out of order"));
}

TEST(Carrier, ProgressCountsUpAndCancels) {
  const Bytes file = BuildMovie({.tracks = {SampleTrack(30)}});
  FunctionEditor editor(RandomChange(1));
  Change change;
  change.tracks.push_back({.trackId = 1, .samples = &editor, .privateData = {}, .facts = {}});
  std::vector<double> parts;
  change.progress = [&](double part) {
    parts.push_back(part);
    return true;
  };
  CarryBytes(file, change);
  EXPECT_TRUE(std::is_sorted(parts.begin(), parts.end()));
  EXPECT_EQ(parts.back(), 1.0);
  for (const size_t stop : {size_t{1}, parts.size() / 2, parts.size()}) {
    size_t calls = 0;
    change.progress = [&](double) { return ++calls != stop; };
    EXPECT_THROW(CarryBytes(file, change), qlnmedia::Cancelled);
  }
}

}  // namespace
}  // namespace qln::test::mp4
