// The boxes of MP4 and MOV files: read where they are whole, passed over where they are not.

#include "container/iso_layout.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/media.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::Bytes;
using qln::test::Hex;
using qln::test::Join;

Bytes Box(const std::string& type, const Bytes& body) {
  const Bytes size = {0, 0, static_cast<uint8_t>((body.size() + 8) >> 8),
                      static_cast<uint8_t>(body.size() + 8)};
  return Join({size, Bytes(type.begin(), type.end()), body});
}

IsoLayout LayoutOf(const Bytes& file) {
  const std::string path = qln::test::MediaPath("iso_layout_test.mp4");
  qln::test::WriteFile(path, file);
  return ReadIsoLayout(path);
}

// A video track with id 7: one sample description with two boxes, 3 samples, an empty edit and a whole one.
Bytes VideoTrack() {
  const Bytes header = Box("tkhd", Join({Hex("00000007 00000000 00000000 00000007"), Bytes(64)}));
  const Bytes edits = Box("edts", Box("elst", Hex("00000000 00000002"
                                                  "00000064 FFFFFFFF 00010000"
                                                  "00000064 00000400 00010000")));
  const Bytes entry = Box("avc1", Join({Bytes(78), Box("avcC", Hex("01")), Box("pasp", Bytes(8))}));
  const Bytes descriptions = Box("stsd", Join({Hex("00000000 00000001"), entry}));
  const Bytes sizes = Box("stsz", Hex("00000000 00000000 00000003 00000001 00000001 00000001"));
  return Box("trak", Join({header, edits, Box("tref", Box("chap", Bytes(4))),
                           Box("mdia", Box("minf", Join({Box("vmhd", Bytes(12)),
                                                         Box("stbl", Join({descriptions, sizes}))})))}));
}

TEST(IsoLayout, AnIndexBehindTheMediaData) {
  const IsoLayout layout = LayoutOf(
      Join({Box("ftyp", Hex("71742020 00000200")), Box("mdat", Bytes(50)), Box("moov", VideoTrack())}));
  EXPECT_EQ(layout.brand, "qt  ");
  EXPECT_FALSE(layout.indexInFront);
  EXPECT_FALSE(layout.fragmented);
  EXPECT_TRUE(layout.indexHasSamples());
  EXPECT_TRUE(layout.hasEdits());
  ASSERT_EQ(layout.tracks.size(), 1u);
  const IsoTrack* const track = layout.Track(7);
  ASSERT_NE(track, nullptr);
  EXPECT_EQ(layout.Track(8), nullptr);
  EXPECT_TRUE(track->video);
  EXPECT_EQ(track->samples, 3u);
  EXPECT_EQ(track->sampleDescriptions, 1u);
  EXPECT_EQ(track->edits, 1u);
  EXPECT_FALSE(track->editsAtOtherRates);
  EXPECT_EQ(track->descriptionBoxes, (std::vector<std::string>{"avcC", "pasp"}));
  EXPECT_EQ(track->references, (std::vector<std::string>{"chap"}));
}

TEST(IsoLayout, Fragments) {
  const Bytes index = Box("moov", Box("mvex", Bytes(4)));
  const Bytes fragment = Box("moof", Box("traf", Box("tfhd", Hex("00020038 00000001"))));
  const Bytes file = Join({index, Box("sidx", Bytes(12)), fragment, Box("mdat", Bytes(9)), fragment});
  const IsoLayout layout = LayoutOf(file);
  EXPECT_TRUE(layout.indexInFront);
  EXPECT_TRUE(layout.fragmented);
  EXPECT_TRUE(layout.baseIsMoof);
  EXPECT_FALSE(layout.indexHasSamples());
  EXPECT_FALSE(layout.indexesFragments());
  EXPECT_TRUE(LayoutOf(Join({index, fragment, Box("sidx", Bytes(12)), fragment})).indexesFragments());
  EXPECT_EQ(layout.segmentIndexes, (std::vector<uint64_t>{index.size()}));
  EXPECT_EQ(layout.fragments, (std::vector<uint64_t>{index.size() + 20, file.size() - fragment.size()}));
}

TEST(IsoLayout, LongSizesAndBoxesUpToTheEnd) {
  Bytes large = Hex("00000001 6D646174 0000000000000014 00000000");  // mdat with a size of 8 bytes
  Bytes last = Box("moov", VideoTrack());
  std::fill(last.begin(), last.begin() + 4, uint8_t{0});
  const IsoLayout layout = LayoutOf(Join({large, last}));
  EXPECT_FALSE(layout.indexInFront);
  EXPECT_EQ(layout.tracks.size(), 1u);
}

TEST(IsoLayout, EveryTruncationAndDamagedSizesEndTheWalk) {
  const Bytes file = Join({Box("mdat", Bytes(5)), Box("moov", VideoTrack())});
  for (size_t size = 0; size <= file.size(); ++size)
    EXPECT_LE(LayoutOf(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size))).tracks.size(),
              1u);
  for (size_t at = 0; at + 4 <= file.size(); ++at) {
    for (const uint8_t value : Hex("000107FF")) {
      Bytes damaged = file;
      damaged[at] = value;
      EXPECT_LE(LayoutOf(damaged).tracks.size(), 2u);
    }
  }
  EXPECT_TRUE(LayoutOf(Hex("0000000000000000")).tracks.empty());
  EXPECT_TRUE(ReadIsoLayout("/no/such/file").tracks.empty());
}

}  // namespace
}  // namespace qlnmedia
