// Which kind of container an output has, by bytes and by names.

#include "container/container_kind.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "engine/patch/small_files.h"

namespace qlnmedia {
namespace {

using test::RefusalOf;
using testing::HasSubstr;

class Kinds : public testing::Test {
 protected:
  const MediaFile& Mp4() {
    if (!mp4_) mp4_.emplace(files_.Put("in.mp4", test::PictureFile(test::PictureStream())));
    return *mp4_;
  }
  std::string Named(const std::string& format, const std::string& path) {
    return RefusalOf([&] { RequireEndingOf(format, Mp4(), path); });
  }
  test::Files files_;
  std::optional<MediaFile> mp4_;
};

TEST_F(Kinds, ByTheBoxAndNotByTheName) {
  EXPECT_EQ(OutputFormatOf(Mp4()), "mp4");
  const MediaFile mov(files_.Put("named.mp4", test::PictureFile(test::PictureStream(), {}, "qt  ")));
  EXPECT_EQ(OutputFormatOf(mov), "mov");
  Bytes raw;
  for (const AccessUnit& packet : test::PictureStream(6, 0).packets)
    raw.insert(raw.end(), packet.data.begin(), packet.data.end());
  EXPECT_EQ(OutputFormatOf(MediaFile(files_.Put("raw.h264", raw))), "h264");
}

TEST_F(Kinds, EndingsOfOtherKindsAreRefused) {
  EXPECT_EQ(Named("mp4", "a.mp4"), "");
  EXPECT_EQ(Named("mp4", "a.M4V"), "");
  EXPECT_EQ(Named("mp4", "a.unknown"), "");
  EXPECT_EQ(Named("mp4", "a"), "");
  EXPECT_EQ(Named("mp4", "folder.mkv/a"), "");
  EXPECT_EQ(Named("mp4", ".mkv"), "");  // a hidden file's name
  EXPECT_THAT(Named("mp4", "a.mkv"), HasSubstr("is named as MKV, but the output is MP4 as the input is"));
  EXPECT_THAT(Named("mp4", "a.MOV"), HasSubstr("name it .mp4"));
  EXPECT_THAT(Named("mpegts", "a.h265"), HasSubstr("is named as raw HEVC, but the output is TS"));
  // What the input is called is always right.
  EXPECT_EQ(Named("mov", "a.mp4"), "");
}

TEST_F(Kinds, OutputsThatCannotBeWritten) {
  const std::string in = files_.Put("a", "text");
  EXPECT_EQ(RefusalOf([&] { RequireWritable(in, files_ / "b"); }), "");
  EXPECT_EQ(RefusalOf([&] { RequireWritable(in, files_.Put("c", "old")); }), "");
  EXPECT_THAT(RefusalOf([&] { RequireWritable(in, in); }), HasSubstr("is the input itself"));
  std::filesystem::create_hard_link(in, files_ / "link");
  EXPECT_THAT(RefusalOf([&] { RequireWritable(in, files_ / "link"); }), HasSubstr("is the input itself"));
  EXPECT_THAT(RefusalOf([&] { RequireWritable(in, files_.path()); }), HasSubstr("is no ordinary file"));
  EXPECT_THAT(RefusalOf([&] { RequireWritable(in, in + "/b"); }), HasSubstr("cannot be written"));
}

}  // namespace
}  // namespace qlnmedia
