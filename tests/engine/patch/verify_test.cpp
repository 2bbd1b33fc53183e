// What a verification takes for kept, and what it finds: files of one stream against files with one thing
// changed.

#include "patch/verify.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "small_files.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;
using test::RefusalOf;
using testing::HasSubstr;
namespace boxes = qln::test::mp4;

std::set<int> MayChangeOf(Codec codec, const EditOptions& changes) {
  std::set<int> types;
  for (int type = 0; type < (codec == Codec::kH264 ? 32 : 64); ++type) {
    if (MayChange(codec, type, changes)) types.insert(type);
  }
  return types;
}

// ITU-T H.264 table 7-1, H.265 table 7-1.
TEST(MayChange, WhatIsAskedFor) {
  using Types = std::set<int>;
  EXPECT_EQ(MayChangeOf(Codec::kH264, {}), Types{});
  EXPECT_EQ(MayChangeOf(Codec::kHevc, {}), Types{});
  EditOptions colour;
  colour.colour = ColourCodes{9, 16, 9};
  EXPECT_EQ(MayChangeOf(Codec::kH264, colour), (Types{7, 15}));
  EXPECT_EQ(MayChangeOf(Codec::kHevc, colour), (Types{32, 33}));
  EditOptions light;
  light.lightLevel = LightLevel{1000, 400};
  EXPECT_EQ(MayChangeOf(Codec::kH264, light), Types{6});
  EXPECT_EQ(MayChangeOf(Codec::kHevc, light), (Types{39, 40}));
  EditOptions delimiters;
  delimiters.delimiters = true;
  EXPECT_EQ(MayChangeOf(Codec::kH264, delimiters), Types{9});
  EXPECT_EQ(MayChangeOf(Codec::kHevc, delimiters), Types{35});
  EditOptions filler;
  filler.remove.filler = true;
  EXPECT_EQ(MayChangeOf(Codec::kH264, filler), (Types{6, 12}));
  EXPECT_EQ(MayChangeOf(Codec::kHevc, filler), (Types{38, 39, 40}));
  EditOptions unspecified;
  unspecified.remove.unspecified = true;
  EXPECT_EQ(MayChangeOf(Codec::kH264, unspecified), (Types{0, 24, 25, 26, 27, 28, 29, 30, 31}));
  EXPECT_EQ(MayChangeOf(Codec::kHevc, unspecified),
            (Types{48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62, 63}));
}

TEST(RequireKept, EachDifference) {
  const std::vector<StreamKept> before = {{10, 1}, {5, 2}};
  EXPECT_THAT(RequireKept(before, before, "out"), HasSubstr("verified: 15 packets of 2 streams"));
  EXPECT_THAT(RefusalOf([&] {
                RequireKept(before, {{10, 1}}, "out");
              }),
              HasSubstr("out: has 1 streams, and had 2"));
  EXPECT_THAT(RefusalOf([&] {
                RequireKept(before, {{10, 1}, {5, 3}}, "out");
              }),
              HasSubstr("stream 1: its packets are not what they were"));
  EXPECT_THAT(RefusalOf([&] {
                RequireKept(before, {{9, 1}, {5, 2}}, "out");
              }),
              HasSubstr("stream 0: its packets are not what they were"));
}

class Verified : public testing::Test {
 protected:
  std::string Mp4(const std::string& name, const boxes::TrackSpec& track) {
    boxes::MovieSpec movie;
    movie.tracks = {track};
    return files_.Put(name, boxes::BuildMovie(movie));
  }
  // A byte stream of the same pictures.
  std::string Raw(const std::string& name, const test::Stream& stream) {
    Bytes all;
    for (const AccessUnit& packet : stream.packets)
      all.insert(all.end(), packet.data.begin(), packet.data.end());
    return files_.Put(name, all);
  }
  std::string Compare(const std::string& in, const std::string& out, const EditOptions& changes = {}) {
    return RefusalOf([&] { said_ = VerifyPatched(in, out, changes, "out"); });
  }
  static std::string CompareMuxed(const std::string& in, const std::string& out) {
    return RefusalOf([&] { VerifyMuxed(in, out, {}, "out"); });
  }
  test::Files files_;
  std::string said_;
};

TEST_F(Verified, DigestsTellEveryByteThatMustStay) {
  const test::Stream stream = test::PictureStream();
  boxes::TrackSpec track = test::PictureTrack(stream);
  const std::vector<StreamKept> before = KeptOf(Mp4("in.mp4", track), {});
  ASSERT_EQ(before.size(), 1u);
  EXPECT_EQ(before[0].packets, 6u);
  // Delimiters come and go where they are asked for.
  const Bytes delimiter = Hex("00000002 09F0");
  track.samples[1].insert(track.samples[1].begin(), delimiter.begin(), delimiter.end());
  EditOptions asked;
  asked.delimiters = true;
  EXPECT_EQ(RefusalOf([&] { RequireKept(before, KeptOf(Mp4("more.mp4", track), asked), "out"); }), "");
  EXPECT_NE(RefusalOf([&] { RequireKept(before, KeptOf(Mp4("more.mp4", track), {}), "out"); }), "");
  track.samples[1].back() ^= 1;
  EXPECT_NE(RefusalOf([&] { RequireKept(before, KeptOf(Mp4("slice.mp4", track), asked), "out"); }), "");
  // Bytes that no length covers stay as well.
  boxes::TrackSpec damaged = test::PictureTrack(stream);
  for (const uint8_t byte : Hex("000000FF 11")) damaged.samples[2].push_back(byte);
  const std::vector<StreamKept> rest = KeptOf(Mp4("rest.mp4", damaged), {});
  damaged.samples[2].back() = 0x12;
  EXPECT_NE(KeptOf(Mp4("rest2.mp4", damaged), {})[0].digest, rest[0].digest);
}

TEST_F(Verified, TimesOfEveryPacket) {
  const test::Stream stream = test::PictureStream();
  boxes::TrackSpec track = test::PictureTrack(stream);
  const std::string in = Mp4("in.mp4", track);
  EXPECT_EQ(Compare(in, in), "");
  EXPECT_THAT(said_, HasSubstr("verified: 6 packets of 1 streams"));
  EXPECT_THAT(said_, HasSubstr("boxes, edit lists and sync samples are the input's"));
  track.durations[3] = 50;
  EXPECT_THAT(Compare(in, Mp4("times.mp4", track)),
              testing::ContainsRegex("its (duration|decoding time|presentation time) is not the input's"));
  track = test::PictureTrack(stream);
  track.samples.pop_back();
  track.durations.pop_back();
  track.chunks = {track.samples.size()};
  EXPECT_THAT(Compare(in, Mp4("fewer.mp4", track)), HasSubstr("has not as many packets as the input"));
}

TEST_F(Verified, RawStreamsBySlices) {
  test::Stream stream = test::PictureStream(6, 0);
  const std::string in = Raw("in.h264", stream);
  stream.packets[2].data.back() ^= 1;
  EXPECT_THAT(CompareMuxed(in, Raw("slice.h264", stream)),
              HasSubstr("out: stream 0, packet 2: its coded data is not the input's"));
  stream.packets[2].data.back() ^= 1;
  stream.packets.pop_back();
  EXPECT_THAT(CompareMuxed(in, Raw("fewer.h264", stream)), HasSubstr("has not as many packets as the input"));
}

TEST_F(Verified, StreamsThatComeOrGo) {
  const boxes::TrackSpec track = test::PictureTrack(test::PictureStream());
  boxes::TrackSpec sound;
  sound.id = 2;
  sound.handler = "soun";
  sound.format = "mp4a";
  sound.samples = {boxes::Noise(10, 1)};
  boxes::MovieSpec movie;
  movie.tracks = {track, sound};
  EXPECT_THAT(Compare(Mp4("in.mp4", track), files_.Put("two.mp4", boxes::BuildMovie(movie))),
              HasSubstr("has 2 streams, the input 1"));
}

TEST(VerifiedTexts, NameWhatWasCompared) {
  EXPECT_EQ(
      VerifiedText(38, 2),
      "verified: 38 samples of 2 tracks have the input's times, durations and sync marks; boxes are the "
      "input's");
}

}  // namespace
}  // namespace qlnmedia
