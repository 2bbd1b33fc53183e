// Slices that an editor gets the heads of alone: what comes back is what it would have been of whole ones.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "mp4/build_boxes.h"
#include "mp4/list_file.h"
#include "mp4/patch_by_engine.h"
#include "patch/sample_units.h"
#include "support/media.h"

namespace qln::test::mp4 {
namespace {

using namespace qlnmedia;
using qlnmedia::mp4::Sample;
using testing::IsEmpty;
using testing::SizeIs;

constexpr uint8_t kSlice = 0x41, kIdrSlice = 0x65, kSei = 0x06, kDelimiter = 0x09, kFiller = 0x0C;

// A unit without anything in it that looks like a start code.
Bytes UnitOf(uint8_t head, size_t size, uint32_t seed) {
  Bytes unit = Noise(size, seed);
  for (uint8_t& byte : unit) byte = static_cast<uint8_t>(byte | 0x10);
  unit.front() = head;
  return unit;
}

Bytes SampleOf(const std::vector<Bytes>& units, size_t lengthBytes = 4) {
  Bytes sample;
  for (const Bytes& unit : units) sample = Joined({sample, Number(unit.size(), lengthBytes), unit});
  return sample;
}

// An avcC of no sets.
Bytes RecordOf(size_t lengthBytes) {
  return {1, 66, 0, 30, static_cast<uint8_t>(0xFC | (lengthBytes - 1)), 0xE0, 0};
}

// What an editor makes of a sample: units are put in and taken out between slices, which stay.
Bytes Edited(const Bytes& data, size_t lengthBytes, uint32_t seed) {
  std::mt19937 random(seed);
  UnitRun run = TakeApart(data, {static_cast<int>(lengthBytes)});
  std::vector<Unit> units;
  const auto mayAdd = [&] {
    for (size_t more = random() % 3; more > 1; --more)
      units.push_back({.bytes = UnitOf(kSei, 5 + random() % 60, static_cast<uint32_t>(random()))});
  };
  for (Unit& unit : run.units) {
    mayAdd();
    const int type = UnitType(Codec::kH264, unit.bytes);
    if (!IsSlice(Codec::kH264, type) && random() % 3 == 0) continue;
    if (type == h264::kSei && random() % 2 == 0) unit.bytes.back() ^= 1;
    units.push_back(std::move(unit));
  }
  mayAdd();
  run.units = std::move(units);
  return PutTogether(run, {static_cast<int>(lengthBytes)});
}

Bytes WithParts(const Bytes& sample, const std::vector<qlnmedia::mp4::SamplePart>& parts) {
  Bytes out;
  size_t at = 0;
  for (const auto& part : parts) {
    EXPECT_FALSE(part.was.empty());
    EXPECT_GE(part.at, at);
    const auto begin = sample.begin() + static_cast<std::ptrdiff_t>(part.at);
    EXPECT_TRUE(std::equal(part.was.begin(), part.was.end(), begin));
    out.insert(out.end(), sample.begin() + static_cast<std::ptrdiff_t>(at), begin);
    out.insert(out.end(), part.is.begin(), part.is.end());
    at = part.at + part.was.size();
  }
  out.insert(out.end(), sample.begin() + static_cast<std::ptrdiff_t>(at), sample.end());
  return out;
}

TEST(CutSlices, ComeBackWhole) {
  std::mt19937 random(24);
  size_t cut = 0;
  for (uint32_t round = 0; round < 300; ++round) {
    SCOPED_TRACE(round);
    const size_t lengthBytes = round % 3 == 0 ? 2 : 4;
    const size_t most = lengthBytes == 2 ? 60000 : 100000;
    std::vector<Bytes> units;
    for (size_t left = 1 + random() % 6; left > 0; --left) {
      const bool slice = random() % 2 == 0;
      const size_t size =
          slice ? (random() % 3 == 0 ? 20 : 8000 + random() % (most - 8000)) : 3 + random() % 400;
      const uint8_t other = random() % 2 == 0 ? kSei : kFiller;
      units.push_back(UnitOf(slice ? kSlice : other, size, static_cast<uint32_t>(random())));
    }
    const Bytes sample = SampleOf(units, lengthBytes);
    SampleUnits of(VideoCodec::kH264, {RecordOf(lengthBytes)});
    SampleUnits::Given given;
    ASSERT_TRUE(of.Take(Sample{.size = static_cast<uint32_t>(sample.size())}, sample, given));
    cut += given.cuts.size();
    const Bytes edited = Edited(given.bytes, lengthBytes, round);
    const auto returned = of.GiveBack(1, given, edited, "here");
    const Bytes shall = Edited(sample, lengthBytes, round);
    if (given.cuts.empty()) {
      EXPECT_EQ(given.bytes, sample);
      EXPECT_EQ(returned.bytes, shall);
    } else {
      EXPECT_LT(given.bytes.size(), sample.size());
      EXPECT_EQ(WithParts(sample, returned.parts), shall);
      EXPECT_THAT(of.GiveBack(1, given, given.bytes, "here").parts, IsEmpty());
    }
  }
  EXPECT_GT(cut, 200u);
}

// Where one length covers several units, an editor has to see all of them.
TEST(CutSlices, UnitsUnderOneLengthStayWhole) {
  const Bytes slice = UnitOf(kIdrSlice, 30000, 1);
  const Bytes joined = Joined({slice, {0, 0, 1}, UnitOf(kSlice, 30000, 2)});
  for (const Bytes& sample : {SampleOf({joined}), SampleOf({slice, joined}), SampleOf({joined, slice}),
                              SampleOf({Joined({{kDelimiter, 0x10, 0, 0, 1}, slice}), slice})}) {
    SampleUnits of(VideoCodec::kH264, {RecordOf(4)});
    SampleUnits::Given given;
    ASSERT_TRUE(of.Take(Sample{.size = static_cast<uint32_t>(sample.size())}, sample, given));
    EXPECT_THAT(given.cuts, IsEmpty());
    EXPECT_EQ(given.bytes, sample);
  }
}

// What no length covers comes along.
TEST(CutSlices, BytesBehindTheLastUnitStay) {
  const Bytes sample = Joined({SampleOf({UnitOf(kIdrSlice, 30000, 1)}), Number(1000, 4), Noise(10, 2)});
  SampleUnits of(VideoCodec::kH264, {RecordOf(4)});
  SampleUnits::Given given;
  ASSERT_TRUE(of.Take(Sample{.size = static_cast<uint32_t>(sample.size())}, sample, given));
  EXPECT_THAT(given.cuts, SizeIs(1));
  const auto returned = of.GiveBack(1, given, Edited(given.bytes, 4, 2), "here");
  EXPECT_EQ(WithParts(sample, returned.parts), Edited(sample, 4, 2));
}

TEST(CutSlices, ASliceThatComesBackChangedIsRefused) {
  const Bytes sample = SampleOf({UnitOf(kIdrSlice, 30000, 1), UnitOf(kSlice, 30000, 2)});
  SampleUnits of(VideoCodec::kH264, {RecordOf(4)});
  SampleUnits::Given given;
  ASSERT_TRUE(of.Take(Sample{.size = static_cast<uint32_t>(sample.size())}, sample, given));
  Bytes edited = given.bytes;
  edited.back() ^= 1;
  EXPECT_THROW(of.GiveBack(1, given, edited, "here"), Error);
  edited.resize(edited.size() / 2);
  EXPECT_THROW(of.GiveBack(1, given, edited, "here"), Error);
}

// Pictures of an encoder, of several slices each.
TEST(CutSlices, PicturesAreWhatTheyWere) {
  const std::string path =
      MediaFile("mp4-large-slices.mp4",
                "ffmpeg -v error -y -f lavfi -i \"nullsrc=s=320x240:r=25:d=0.4,geq=random(1)*255:128:128\" "
                "-c:v libx264 "
                "-threads 1 -preset ultrafast -qp 8 -g 5 -slices 3 -pix_fmt yuv420p {out}");
  const Bytes file = ReadFile(path);
  const Listing listing = ListFile(file);
  for (const ListedSample& sample : listing.samples.at(1)) EXPECT_GT(sample.data.size(), 30000u);
  for (const Wishes wishes : {Wishes::kDelimiters, Wishes::kEverything})
    EXPECT_EQ(JudgePatch(file, {}, wishes), "");
}

}  // namespace
}  // namespace qln::test::mp4
