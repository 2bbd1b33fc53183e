// What a container says of its streams, against a file in which one thing is another.

#include "container/same_streams.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engine/patch/small_files.h"

namespace qlnmedia {
namespace {

using testing::HasSubstr;
namespace boxes = qln::test::mp4;

// As a muxer is told of pictures: by the file's boxes, and not by what the search found in the stream.
const AVFormatContext& ToldOf(const MediaFile& in) {
  const ContainerColour& said = in.containerColour(0);
  AVCodecParameters& told = *in.context()->streams[0]->codecpar;
  told.field_order = static_cast<AVFieldOrder>(said.fieldOrder);
  told.color_primaries = static_cast<AVColorPrimaries>(said.primaries);
  told.color_trc = static_cast<AVColorTransferCharacteristic>(said.transfer);
  told.color_space = static_cast<AVColorSpace>(said.matrix);
  told.color_range = static_cast<AVColorRange>(said.range);
  told.width = said.width;
  told.height = said.height;
  return *in.context();
}

class SameStreams : public testing::Test {
 protected:
  SameStreams() { movie_.tracks = {test::PictureTrack(test::PictureStream())}; }
  // What is said where `movie_` is what was written, and the movie without changes what it was written from.
  std::string Difference() {
    boxes::MovieSpec plain;
    plain.tracks = {test::PictureTrack(test::PictureStream())};
    const MediaFile in(files_.Put("in.mp4", boxes::BuildMovie(plain)));
    const std::string written = files_.Put("out.mp4", boxes::BuildMovie(movie_));
    return test::RefusalOf([&] { RequireSameStreams(in, ToldOf(in), written); });
  }
  // Bytes over those that stand so far behind the first `mark`.
  static void PutAt(Bytes& file, const char* mark, size_t behind, const Bytes& bytes) {
    const Bytes text = boxes::Text(mark);
    const auto at = std::search(file.begin(), file.end(), text.begin(), text.end());
    std::copy(bytes.begin(), bytes.end(), at + static_cast<std::ptrdiff_t>(behind));
  }
  // The same file but for such bytes.
  std::string DifferenceAt(const char* mark, size_t behind, const Bytes& bytes) {
    Bytes plain = boxes::BuildMovie(movie_);
    // The movie is shown as its tracks are: a matrix of 1.
    PutAt(plain, "mvhd", 40,
          boxes::Joined({boxes::Number(0x10000, 4), Bytes(12), boxes::Number(0x10000, 4), Bytes(12),
                         boxes::Number(0x40000000, 4)}));
    const MediaFile in(files_.Put("in.mp4", plain));
    PutAt(plain, mark, behind, bytes);
    const std::string written = files_.Put("out.mp4", plain);
    return test::RefusalOf([&] { RequireSameStreams(in, ToldOf(in), written); });
  }
  boxes::MovieSpec movie_;
  test::Files files_;
};

TEST_F(SameStreams, NothingWhereTheyAre) { EXPECT_EQ(Difference(), ""); }

TEST_F(SameStreams, StreamsThatAreLost) {
  boxes::TrackSpec sound;
  sound.id = 2;
  sound.handler = "soun";
  sound.format = "mp4a";
  sound.samples = {boxes::Noise(10, 1)};
  movie_.tracks.push_back(sound);
  EXPECT_THAT(Difference(), HasSubstr("its streams (1; the output would have 2) cannot be carried over"));
}

TEST_F(SameStreams, TagsAndNumbers) {
  EXPECT_THAT(DifferenceAt("avc1", 0, boxes::Text("avc3")), HasSubstr("its codec tag or stream type"));
  EXPECT_THAT(DifferenceAt("tkhd", 16, boxes::Number(7, 4)), HasSubstr("its id"));
}

// ISO/IEC 14496-12 clauses 8.3.2 and 8.4.2: a matrix that turns by 90 degrees, and the language "deu".
TEST_F(SameStreams, LanguageAndOrientation) {
  EXPECT_THAT(DifferenceAt("mdhd", 4 + 4 + 16, boxes::Number(0x10B5, 2)), HasSubstr("its language"));
  const Bytes turned = boxes::Joined({Bytes(4), boxes::Number(0x10000, 4), Bytes(4),
                                      boxes::Number(0xFFFF0000, 4), Bytes(16), boxes::Number(0x40000000, 4)});
  EXPECT_THAT(DifferenceAt("tkhd", 4 + 40, turned), HasSubstr("its orientation"));
}

// What the muxer was told counts, and no shape is a square one.
TEST_F(SameStreams, ShapesOfPixels) {
  const auto shaped = [](uint32_t width, uint32_t height) {
    return boxes::Box("pasp", {boxes::Number(width, 4), boxes::Number(height, 4)});
  };
  movie_.tracks = {test::PictureTrack(test::PictureStream(), shaped(4, 3))};
  EXPECT_THAT(Difference(), HasSubstr("its pixel shape"));
  movie_.tracks = {test::PictureTrack(test::PictureStream(), shaped(1, 1))};
  EXPECT_EQ(Difference(), "");
}

}  // namespace
}  // namespace qlnmedia
