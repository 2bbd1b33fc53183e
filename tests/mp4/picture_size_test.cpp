// Sizes of pictures in the boxes of a track, where cropping makes them others.
#include "container/mp4/picture_size.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "container/mp4/layout_check.h"
#include "mp4/carry.h"

namespace qln::test::mp4 {
namespace {

using testing::HasSubstr;
using namespace qlnmedia::mp4;

// What boxes say: entry in samples, header and apertures in samples of 16.16.
struct Sizes {
  uint32_t entry[2];
  double header[2];
  Bytes clap = {};
};

Bytes Fixed(double width, double height) {
  return Joined(
      {Number(static_cast<uint64_t>(width * 65536), 4), Number(static_cast<uint64_t>(height * 65536), 4)});
}

Bytes Clap(std::initializer_list<int64_t> numbers) {
  std::vector<Bytes> parts;
  for (const int64_t number : numbers) parts.push_back(Number(static_cast<uint32_t>(number), 4));
  return Box("clap", parts);
}

size_t PlaceOf(const Bytes& file, const char* type) {
  const Bytes text = Text(type);
  return static_cast<size_t>(std::search(file.begin(), file.end(), text.begin(), text.end()) - file.begin());
}

void Put(Bytes& file, size_t at, const Bytes& bytes) {
  std::copy(bytes.begin(), bytes.end(), file.begin() + static_cast<std::ptrdiff_t>(at));
}

Bytes FileOf(const Sizes& sizes) {
  TrackSpec track;
  track.samples = {Noise(10, 1), Noise(20, 2)};
  track.entryBoxes = Joined({Box("avcC", Noise(30, 7)), sizes.clap});
  const Bytes size = Fixed(sizes.header[0], sizes.header[1]);
  track.trackBoxes = {
      Box("tapt", {Full("clef", 0, 0, {size}), Full("prof", 0, 0, {size}), Full("enof", 0, 0, {size})})};
  Bytes file = BuildMovie({.brand = "qt  ", .tracks = {track}});
  Put(file, PlaceOf(file, "tkhd") + 4 + 76, size);
  Put(file, PlaceOf(file, "avc1") + 4 + 24, Joined({Number(sizes.entry[0], 2), Number(sizes.entry[1], 2)}));
  return file;
}

Change ChangeOf(const PictureSize& picture) {
  Change change;
  change.tracks.push_back({.trackId = 1});
  change.tracks[0].pictures = {picture};
  return change;
}

void ExpectBecomes(const PictureSize& picture, const Sizes& before, const Sizes& after) {
  const Bytes file = FileOf(before);
  const Change change = ChangeOf(picture);
  EXPECT_EQ(CarryBytes(file, change).output, FileOf(after));
  const MemorySource source(file, "in.mov");
  Carrier carrier(source);
  carrier.Prepare(change);
  CheckLayout(carrier, MemorySource(FileOf(after), "out.mov"), "out.mov");
}

// 160 x 120 become 152 x 116: 2 columns left, 6 right, 4 lines above.
const PictureSize kCropped = {
    .wasWidth = 160, .wasHeight = 120, .width = 152, .height = 116, .left = 2, .top = 4};

TEST(PictureSizes, FollowInTheirProportion) {
  ExpectBecomes(kCropped, {{160, 120}, {160, 120}}, {{152, 116}, {152, 116}});
  // Shown with samples of 3:2.
  ExpectBecomes(kCropped, {{160, 120}, {240, 120}}, {{152, 116}, {228, 116}});
  // A track without a size of its own.
  ExpectBecomes(kCropped, {{160, 120}, {0, 0}}, {{152, 116}, {0, 0}});
}

// 1088 lines in the stream, of which the container always named 1080.
TEST(PictureSizes, StayWhereTheContainerWasRight) {
  ExpectBecomes({.wasWidth = 192, .wasHeight = 112, .width = 192, .height = 108}, {{192, 108}, {192, 108}},
                {{192, 108}, {192, 108}});
}

TEST(PictureSizes, OfFramesWhoseFieldsAreThePictures) {
  ExpectBecomes({.wasWidth = 160, .wasHeight = 60, .width = 160, .height = 58}, {{160, 120}, {160, 120}},
                {{160, 116}, {160, 116}});
}

TEST(PictureSizes, ACleanApertureNamesTheSamePart) {
  const auto becomes = [](const Bytes& was, const Bytes& is) {
    ExpectBecomes(kCropped, {{160, 120}, {160, 120}, was}, {{152, 116}, {152, 116}, is});
  };
  // 100 x 80 in the middle: columns 30 to 130, of the new ones 28 to 128, whose centre is 2 behind the
  // middle.
  becomes(Clap({100, 1, 80, 1, 0, 1, 0, 1}), Clap({100, 1, 80, 1, 2, 1, -2, 1}));
  // All of it no longer fits: what is left is the new picture.
  becomes(Clap({160, 1, 120, 1, 0, 1, 0, 1}), Clap({152, 1, 116, 1, 0, 1, 0, 1}));
  // 159 1/2 columns from the first on, of which 152 are left.
  becomes(Clap({319, 2, 120, 1, -1, 4, 0, 1}), Clap({152, 1, 116, 1, 0, 1, 0, 1}));
  // 7 columns at the left end: 2 to 7 are there, 5 of them, and -73.5 from the middle.
  becomes(Clap({7, 1, 80, 1, -153, 2, 0, 1}), Clap({5, 1, 80, 1, -147, 2, -2, 1}));
  // Nothing that can be: stays.
  becomes(Clap({7, 0, 80, 1, 0, 1, 0, 1}), Clap({7, 0, 80, 1, 0, 1, 0, 1}));
  becomes(Clap({500, 1, 80, 1, 0, 1, 0, 1}), Clap({500, 1, 80, 1, 0, 1, 0, 1}));
  becomes(Clap({2, 1, 80, 1, -79, 1, 0, 1}), Clap({2, 1, 80, 1, -79, 1, 0, 1}));
}

TEST(PictureSizes, AreAllThatMayBeAnother) {
  const Bytes file = FileOf({{160, 120}, {160, 120}});
  const Change change = ChangeOf(kCropped);
  const MemorySource source(file, "in.mov");
  Carrier carrier(source);
  carrier.Prepare(change);
  const Bytes good = FileOf({{152, 116}, {152, 116}});
  const auto harmed = [&](const char* type, size_t at) {
    Bytes bad = good;
    ++bad[PlaceOf(bad, type) + 4 + at];
    return Refusal([&] { CheckLayout(carrier, MemorySource(bad, "out.mov"), "out.mov"); });
  };
  EXPECT_THAT(harmed("tkhd", 75), HasSubstr("'tkhd'"));
  EXPECT_THAT(harmed("clef", 3), HasSubstr("'clef'"));
  EXPECT_THAT(harmed("avc1", 23), HasSubstr("'avc1'"));
  EXPECT_THAT(harmed("avc1", 28), HasSubstr("'avc1'"));
  // Where no picture was to change, sizes may not either.
  Carrier other(source);
  const Change none;
  other.Prepare(none);
  EXPECT_THAT(Refusal([&] { CheckLayout(other, MemorySource(good, "out.mov"), "out.mov"); }),
              HasSubstr("'tkhd'"));
}

}  // namespace
}  // namespace qln::test::mp4
