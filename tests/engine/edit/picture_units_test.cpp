// The units of a packet, parted by pictures and joined again.

#include "edit/picture_units.h"

#include <gtest/gtest.h>

#include "engine/small_streams.h"
#include "support/field_stream.h"

namespace qlnmedia {
namespace {

using qln::test::CodedFrame;
using qln::test::Hex;
using test::TypesOf;

std::vector<Unit> FieldPair() {
  qln::test::Bytes packet;
  for (const qln::test::Bytes& field :
       qln::test::MakeFieldPictures({CodedFrame{.idr = true}}, {.delimiters = true}))
    packet.insert(packet.end(), field.begin(), field.end());
  return TakeApart(packet, Framing{}).units;
}

TEST(PictureUnits, OneForEachFieldOfAPacket) {
  PictureTracker tracker(Codec::kH264);
  const std::vector<Unit> units = FieldPair();
  std::vector<PictureUnits> parts = PartUnits(Codec::kH264, tracker, units);
  ASSERT_EQ(parts.size(), 2u);
  EXPECT_EQ(TypesOf(Codec::kH264, parts[0].units), "9 7 8 5");
  EXPECT_EQ(TypesOf(Codec::kH264, parts[1].units), "9 1");
  EXPECT_EQ(CountPictures(parts), 2u);
  EXPECT_FALSE(parts[0].picture->secondField);
  EXPECT_TRUE(parts[1].picture->secondField);
  EXPECT_EQ(parts[0].kinds, kSliceI);
  const std::vector<Unit> joined = JoinUnits(std::move(parts));
  ASSERT_EQ(joined.size(), units.size());
  for (size_t i = 0; i < units.size(); ++i) EXPECT_EQ(joined[i].bytes, units[i].bytes);
}

TEST(PictureUnits, APacketWithoutPicturesIsOnePart) {
  PictureTracker tracker(Codec::kH264);
  const std::vector<PictureUnits> parts =
      PartUnits(Codec::kH264, tracker, test::UnitList({Hex("09 F0"), Hex("06 05 01 AA 80")}));
  ASSERT_EQ(parts.size(), 1u);
  EXPECT_EQ(parts[0].units.size(), 2u);
  EXPECT_FALSE(parts[0].picture);
  EXPECT_EQ(CountPictures(parts), 0u);
  EXPECT_EQ(PartUnits(Codec::kH264, tracker, {}).size(), 1u);
}

// Where the access unit begins, and its first slice, as units come and go.
TEST(PictureUnits, PlacesFollowTheUnits) {
  PictureUnits part;
  part.codec = Codec::kH264;
  part.units = test::UnitList({Hex("0C FF 80"), Hex("09 F0"), Hex("06 05 01 AA 80"), Hex("65 B8")});
  EXPECT_EQ(part.begin(), 1u);  // filler data belongs to what is in front
  EXPECT_EQ(part.slice(), 3u);
  part.units.erase(part.units.begin() + 1, part.units.begin() + 3);
  EXPECT_EQ(part.begin(), 1u);
  EXPECT_EQ(part.slice(), 1u);
  part.units.pop_back();
  EXPECT_EQ(part.begin(), 1u);
  EXPECT_EQ(part.slice(), 1u);
}

}  // namespace
}  // namespace qlnmedia
