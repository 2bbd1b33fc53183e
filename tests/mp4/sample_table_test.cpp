// Samples out of tables and fragments, held against what was built and against the tests' own reader.
#include "container/mp4/sample_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mp4/build_boxes.h"
#include "mp4/carry.h"
#include "mp4/list_file.h"

namespace qln::test::mp4 {
namespace {

using testing::HasSubstr;
using namespace qlnmedia::mp4;

std::vector<Sample> SamplesOf(const Bytes& file, uint32_t track, const Bytes& init = {}) {
  const MemorySource source(file, "in.mp4");
  const MemorySource initSource(init, "init.mp4");
  std::shared_ptr<const Layout> initLayout;
  if (!init.empty()) initLayout = std::make_shared<Layout>(ReadLayout(initSource));
  const Layout layout = ReadLayout(source, initLayout);
  TrackSamples samples(source, layout, track);
  std::vector<Sample> out;
  for (Sample sample; samples.Next(sample);) out.push_back(sample);
  return out;
}

void ExpectAsListed(const Bytes& file, uint32_t track, const Bytes& init = {}) {
  const Listing listing = ListFile(file, init);
  const auto& expected = listing.samples.at(track);
  const auto samples = SamplesOf(file, track, init);
  ASSERT_EQ(samples.size(), expected.size());
  for (size_t i = 0; i < samples.size(); ++i) {
    EXPECT_EQ(samples[i].number, i);
    EXPECT_EQ(samples[i].offset, expected[i].at) << i;
    EXPECT_EQ(samples[i].size, expected[i].data.size()) << i;
    EXPECT_EQ(samples[i].decodeTime, expected[i].decodeTime) << i;
    EXPECT_EQ(samples[i].compositionTime, expected[i].compositionTime) << i;
    EXPECT_EQ(samples[i].duration, expected[i].duration) << i;
    EXPECT_EQ(samples[i].description, expected[i].description) << i;
  }
}

TrackSpec SomeTrack(size_t samples, uint32_t id = 1) {
  TrackSpec track;
  track.id = id;
  for (size_t i = 0; i < samples; ++i)
    track.samples.push_back(Noise(3 + i * 5 % 11, static_cast<uint32_t>(i + 100 * id)));
  return track;
}

TEST(SampleTable, ChunksDescriptionsTimesAndSyncSamples) {
  TrackSpec track = SomeTrack(10);
  track.chunks = {3, 3, 1};
  track.descriptions = 2;
  track.descriptionOfChunk = {1, 2, 2, 1, 1, 2};
  track.durations = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100};
  track.timeOffsets = {5, -5, 0, 1, 2, 3, 4, 5, 6, -7};
  track.sync = {1, 4, 10};
  const Bytes file = BuildMovie({.tracks = {track, SomeTrack(4, 2)}, .gap = Text("gap")});
  ExpectAsListed(file, 1);
  ExpectAsListed(file, 2);
  const auto samples = SamplesOf(file, 1);
  EXPECT_EQ(samples[3].decodeTime, 60);
  EXPECT_EQ(samples[1].compositionTime, 5);
  EXPECT_EQ(samples[3].description, 2u);
  std::vector<size_t> sync;
  for (const Sample& sample : samples) {
    if (sample.sync) sync.push_back(sample.number + 1);
  }
  EXPECT_EQ(sync, (std::vector<size_t>{1, 4, 10}));
}

TEST(SampleTable, SizesOfEveryWidth) {
  for (const int bits : {4, 8, 16, 32}) {
    for (const size_t count : {1u, 2u, 7u}) {
      TrackSpec track = SomeTrack(count);
      track.sizeBits = bits;
      ExpectAsListed(BuildMovie({.tracks = {track}}), 1);
    }
  }
  TrackSpec track;
  track.uniform = true;
  track.samples.assign(9, Noise(6, 1));
  track.chunks = {4};
  track.wideOffsets = true;
  ExpectAsListed(BuildMovie({.tracks = {track}, .moovFirst = false}), 1);
}

TEST(SampleTable, WideHeadsOpenEndsAndTwoMediaBoxes) {
  TrackSpec track = SomeTrack(8);
  track.wideHeads = true;
  ExpectAsListed(BuildMovie({.tracks = {track}, .mdatToEnd = true}), 1);
  ExpectAsListed(BuildMovie({.brand = "", .tracks = {track}, .mdatWide = true}), 1);
  ExpectAsListed(BuildMovie({.tracks = {track, SomeTrack(5, 7)}, .twoMdats = true}), 7);
}

TEST(SampleTable, FragmentsWithEveryKindOfBase) {
  const MovieSpec movie{.tracks = {SomeTrack(1, 1), SomeTrack(1, 2)}};
  const Bytes init = BuildInit(movie, 6);
  for (int kind = 0; kind < 32; ++kind) {
    TrafSpec one;
    one.runs = {{Noise(6, 1), Noise(6, 2)}, {Noise(6, 3)}};
    one.explicitBase = (kind & 1) != 0;
    one.baseIsMoof = (kind & 2) != 0;
    one.sizes = (kind & 4) != 0;
    one.durations = one.timeOffsets = (kind & 8) != 0;
    one.offsetsInAll = (kind & 16) != 0;
    one.firstFlags = true;
    one.decodeTime = kind % 3 == 0 ? 5000 : -1;
    TrafSpec two = one;
    two.trackId = 2;
    two.runs = {{Noise(4, 4), Noise(5, 5), Noise(6, 6)}};
    two.sizes = true;
    Bytes file = init;
    for (int i = 0; i < 3; ++i) file = Joined({file, BuildFragment({one, two}, file.size(), Text("gap"))});
    SCOPED_TRACE(kind);
    ExpectAsListed(file, 1);
    ExpectAsListed(file, 2);
    EXPECT_EQ(SamplesOf(file, 1).size(), 9u);
    EXPECT_TRUE(SamplesOf(file, 1)[0].sync);
    if (kind % 2 != 0) continue;  // a base that is told is one of the whole file
    const Bytes segment = BuildFragment({one, two}, 0);
    ExpectAsListed(segment, 2, init);
    ExpectAsListed(segment, 1, init);
  }
}

TEST(SampleTable, RunsWithoutPlacesFollowEachOther) {
  const Bytes init = BuildInit({.tracks = {SomeTrack(1, 1), SomeTrack(1, 2)}});
  TrafSpec one;
  one.baseIsMoof = false;
  one.runs = {{Noise(6, 1)}, {Noise(7, 3), Noise(2, 9)}};
  TrafSpec two = one;
  two.trackId = 2;
  two.offsets = false;
  const Bytes file = Joined({init, BuildFragment({one, two}, init.size())});
  ExpectAsListed(file, 1);
  ExpectAsListed(file, 2);
}

TEST(SampleTable, TablesThatLieAreNamedWithTheirPlace) {
  const Bytes good = BuildMovie({.tracks = {SomeTrack(3)}});
  const auto place = [&](const std::string& type) {
    const auto found = std::search(good.begin(), good.end(), type.begin(), type.end());
    return static_cast<size_t>(found - good.begin()) - 4;
  };
  const auto refusal = [&](const std::string& type, size_t field, uint32_t value) {
    Bytes bad = good;
    const Bytes number = Number(value, 4);
    std::copy(number.begin(), number.end(), bad.begin() + static_cast<std::ptrdiff_t>(place(type) + field));
    return Refusal([&] { SamplesOf(bad, 1); });
  };
  EXPECT_THAT(refusal("stsz", 16, 4),
              HasSubstr("box 'stsz' says that it has 4 entries and has room for 3 (at byte " +
                        std::to_string(place("stsz")) + ")"));
  EXPECT_THAT(refusal("stco", 12, 0xFFFFFFFF), HasSubstr("box 'stco' says that it has 4294967295 entries"));
  EXPECT_THAT(refusal("stsc", 16, 2), HasSubstr("box 'stsc' begins a run at chunk 2 and not at 1"));
  EXPECT_THAT(refusal("stco", 12, 2), HasSubstr("sizes of 3 samples and chunks for 2"));
  EXPECT_THAT(refusal("stco", 0, 4000), HasSubstr("box 'stco' says 4000 bytes where"));
  EXPECT_THAT(refusal("stbl", 0, 0), HasSubstr("lacks"));
}

TEST(SampleTable, FragmentsThatLieAreNamedWithTheirPlace) {
  const Bytes init = BuildInit({.tracks = {SomeTrack(1)}});
  TrafSpec traf;
  traf.runs = {{Noise(6, 1), Noise(6, 2)}};
  const Bytes good = BuildFragment({traf}, 0);
  const std::string type = "trun";
  const auto at = std::search(good.begin(), good.end(), type.begin(), type.end()) - good.begin() + 8;
  Bytes bad = good;
  bad[static_cast<size_t>(at) + 3] = 3;
  EXPECT_THAT(Refusal([&] { SamplesOf(bad, 1, init); }),
              HasSubstr("box 'trun' says that it has 3 samples and there is room for 2"));
  traf.sizes = false;
  traf.defaultSize = 1;
  bad = BuildFragment({traf}, 0);
  bad[static_cast<size_t>(at) - 8 + 4 + 4 + 4] = 0x7F;  // the count's highest byte, behind a longer tfhd
  EXPECT_NE(Refusal([&] { SamplesOf(bad, 1, init); }), "");
}

TEST(SampleTable, WhatIsNoMovieIsSaidToBeNone) {
  EXPECT_THAT(Refusal([] { SamplesOf(Noise(200, 5), 1); }), HasSubstr("in.mp4: not an MP4 or MOV file"));
  EXPECT_THAT(Refusal([] { SamplesOf(Bytes{}, 1); }), HasSubstr("not an MP4 or MOV file"));
  EXPECT_THAT(Refusal([] { SamplesOf(Box("moov", {Box("cmov", Bytes(9))}), 1); }), HasSubstr("compressed"));
}

}  // namespace
}  // namespace qln::test::mp4
