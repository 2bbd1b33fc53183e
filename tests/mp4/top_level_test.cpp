// What the outermost boxes of a file tell without its samples being taken apart.
#include "container/mp4/top_level.h"

#include <gtest/gtest.h>

#include "mp4/build_boxes.h"

namespace qln::test::mp4 {
namespace {

using namespace qlnmedia::mp4;

std::optional<WrongBox> WrongIn(const Bytes& file) { return FindWrongBox(MemorySource(file)); }

TEST(TopLevel, SizesThatCannotBe) {
  const Bytes whole =
      Joined({Box("ftyp", Text("isom....")), Box("mdat", Noise(20, 1)), Box("moov", Bytes{})});
  EXPECT_FALSE(WrongIn(whole));
  EXPECT_FALSE(WrongIn({}));
  EXPECT_FALSE(WrongIn(Joined({whole, Bytes(7)})));
  EXPECT_FALSE(WrongIn(Joined({whole, Bytes(40)}))) << "padding";
  EXPECT_FALSE(WrongIn(Joined({whole, Number(0, 4), Text("free"), Bytes(9)}))) << "up to the end";
  const auto small = WrongIn(Joined({whole, Number(7, 4), Text("abcd"), Bytes(9)}));
  ASSERT_TRUE(small);
  EXPECT_EQ(small->type, FourCc("abcd"));
  EXPECT_EQ(small->at, whole.size());
  EXPECT_EQ(small->said, 7u);
  EXPECT_EQ(small->left, 17u);
  const auto cut = WrongIn(Bytes(whole.begin(), whole.begin() + 30));
  ASSERT_TRUE(cut);
  EXPECT_EQ(cut->type, FourCc("mdat"));
  EXPECT_EQ(cut->at, 16u);
  EXPECT_EQ(cut->said, 28u);
  EXPECT_EQ(cut->left, 14u);
  const auto wide = WrongIn(Joined({whole, Number(1, 4), Text("mdat"), Number(1000, 8)}));
  ASSERT_TRUE(wide);
  EXPECT_EQ(wide->said, 1000u);
  EXPECT_EQ(wide->left, 16u);
  // 64 bits that say less than the head itself.
  EXPECT_EQ(WrongIn(Joined({Number(1, 4), Text("mdat"), Number(15, 8)}))->said, 15u);
}

TEST(TopLevel, EveryTruncationIsTold) {
  const Bytes whole = Joined({Box("ftyp", Text("isom....")), Box("mdat", Noise(20, 1))});
  for (size_t size = 0; size < whole.size(); ++size) {
    const bool betweenBoxes = size < 8 || (size >= 16 && size < 24);
    EXPECT_EQ(WrongIn(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size))).has_value(),
              !betweenBoxes)
        << size;
  }
}

TEST(TopLevel, AnIndexIsAWholeMoovWithATrack) {
  const auto has = [](const Bytes& file) { return HasIndex(MemorySource(file)); };
  const Bytes movie = Box("moov", {Box("mvhd", Bytes(100)), Box("trak", Bytes{})});
  EXPECT_TRUE(has(movie));
  EXPECT_TRUE(has(Joined({Box("mdat", Noise(20, 1)), movie})));
  EXPECT_FALSE(has({}));
  EXPECT_FALSE(has(Box("mdat", movie)));
  EXPECT_FALSE(has(Box("moov", {Box("mvhd", Bytes(100))})));
  EXPECT_FALSE(has(Bytes(movie.begin(), movie.end() - 1)));
}

TEST(TopLevel, QuickTimeIsABrandOrNone) {
  const auto is = [](const Bytes& file) { return IsQuickTime(MemorySource(file)); };
  EXPECT_TRUE(is(Box("ftyp", Text("qt  ...."))));
  EXPECT_TRUE(is(Joined({Box("wide", Bytes{}), Box("ftyp", Text("qt  ...."))})));
  EXPECT_TRUE(is(Box("mdat", Bytes{})));
  EXPECT_FALSE(is(Box("ftyp", Text("isom...."))));
  EXPECT_FALSE(is(Box("ftyp", Text("mp42qt  "))));
}

TEST(TopLevel, EncryptedTracksByTheirDescriptions) {
  TrackSpec clear;
  clear.samples = {Noise(10, 1)};
  TrackSpec named = clear;
  named.id = 2;
  named.format = "encv";
  TrackSpec schemed = clear;
  schemed.id = 3;
  schemed.entryBoxes = Box("sinf", {Box("frma", Text("avc1"))});
  const Bytes file = BuildMovie({.tracks = {clear, named, schemed}});
  EXPECT_EQ(EncryptedTracks(MemorySource(file)), (std::set<uint32_t>{2, 3}));
  for (size_t size = 0; size < file.size(); size += 3)
    EXPECT_LE(EncryptedTracks(MemorySource(ByteSpan(file).first(size))).size(), 2u);
}

}  // namespace
}  // namespace qln::test::mp4
