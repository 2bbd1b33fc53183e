// Files that libavformat opens, and those that it refuses for boxes that say nothing of their streams.

#include "patch/described_file.h"

#include <gtest/gtest.h>

#include "small_files.h"

namespace qlnmedia {
namespace {

namespace boxes = qln::test::mp4;

// A `sidx` of a second level (ISO/IEC 14496-12 clause 8.16.3, reference_type 1), which libavformat gives a
// file up for.
Bytes Index() {
  return boxes::Full("sidx", 0, 0,
                     {boxes::Number(1, 4), boxes::Number(1000, 4), boxes::Number(0, 8), boxes::Number(0, 2),
                      boxes::Number(1, 2), boxes::Number(0x80000010, 4), boxes::Number(0, 8)});
}

Bytes WithIndex(const Bytes& behindAll = {}) {
  boxes::MovieSpec movie;
  movie.tracks = {test::PictureTrack(test::PictureStream())};
  movie.behindMoov = Index();
  movie.behindAll = behindAll;
  return boxes::BuildMovie(movie);
}

TEST(DescribedFiles, WholeWhereTheyOpen) {
  test::Files files;
  const DescribedFile file = OpenDescribed(files.Put("clip.mp4", test::PictureFile(test::PictureStream())));
  EXPECT_TRUE(file.whole);
  EXPECT_EQ(file.media->streams().at(0).coded.codec, VideoCodec::kH264);
}

TEST(DescribedFiles, ByTheirMovieWhereTheyDoNot) {
  test::Files files;
  const std::string path = files.Put("clip.mp4", WithIndex());
  ASSERT_THROW(MediaFile{path}, Error);  // what this is about
  const DescribedFile file = OpenDescribed(path);
  EXPECT_FALSE(file.whole);
  ASSERT_EQ(file.media->streams().size(), 1u);
  EXPECT_EQ(file.media->streams()[0].coded.codec, VideoCodec::kH264);
  EXPECT_EQ(file.media->streams()[0].coded.privateData, test::PictureStream().description.privateData);
}

TEST(DescribedFiles, WhatIsNoHelpEitherIsRefused) {
  test::Files files;
  EXPECT_THROW(OpenDescribed(files / "none"), Error);
  EXPECT_THROW(OpenDescribed(files.path()), Error);
  EXPECT_THROW(OpenDescribed(files.Put("text", std::string(400, 'x'))), Error);
  // Two movies in a file: nobody knows which one is meant.
  const Bytes movie = test::PictureFile(test::PictureStream());
  EXPECT_THROW(OpenDescribed(files.Put("two.mp4", WithIndex(movie))), Error);
}

}  // namespace
}  // namespace qlnmedia
