// The end of raw streams: units whose form tells, and pictures that a decoder is asked for.

#include "container/raw_end.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "container/whole_picture.h"
#include "engine/small_streams.h"
#include "support/field_stream.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;
using testing::HasSubstr;
using testing::IsEmpty;

std::string Note(const Bytes& stream, Codec codec = Codec::kH264) {
  return RawEndNote(stream, stream, codec);
}

Bytes Behind(const char* unit) {
  Bytes stream = qln::test::MakeFieldStream({{.idr = true, .fields = false}});
  for (const uint8_t byte : Hex(unit)) stream.push_back(byte);
  return stream;
}

TEST(RawEnds, OfWholePicturesSayNothing) {
  EXPECT_THAT(Note(qln::test::MakeFieldStream({{.idr = true}, {.place = 2}, {.place = 1, .fields = false}})),
              IsEmpty());
  EXPECT_THAT(Note({}), IsEmpty());
  EXPECT_THAT(Note(Hex("00 00 00")), IsEmpty());
}

// Every macroblock is I_PCM: a byte that is missing in front of the last one, the stop bit, is missing in the
// picture.
TEST(RawEnds, InsideTheLastPicture) {
  const Bytes stream =
      qln::test::MakeFieldStream({{.idr = true, .fields = false}, {.place = 1, .fields = false}});
  for (const size_t missing : {2u, 3u, 400u, 3000u}) {
    const Bytes cut(stream.begin(), stream.end() - static_cast<std::ptrdiff_t>(missing));
    EXPECT_EQ(Note(cut), "the file ends early: its last picture is cut off") << missing;
  }
}

// ITU-T H.264 clause 7.4.1.2.3: what announces another picture cannot be the last.
TEST(RawEnds, OfUnitsThatAnnounceAPicture) {
  EXPECT_EQ(Note(Behind("00000001 09F0")),
            "the file ends early: its last unit (access unit delimiter) has no picture behind it");
  for (const char* unit : {"00000001 674D001F", "00000001 68EE3C80", "000001 060501AA80", "000001 6E4080"})
    EXPECT_THAT(Note(Behind(unit)), HasSubstr("has no picture behind it")) << unit;
  for (const char* unit : {"00000001 0A", "000001 0B", "000001 0CFF80", "000001 7801"})
    EXPECT_THAT(Note(Behind(unit)), IsEmpty()) << unit;
}

TEST(RawEnds, OfUnitsThatBreakOff) {
  EXPECT_EQ(Note(Behind("00000001")), "the file ends early: behind its last start code there is no unit");
  EXPECT_EQ(Note(Behind("00000001 0CFFFF")), "the file ends early: its last unit (filler data) breaks off");
  EXPECT_THAT(Note(Behind("00000001 41")), HasSubstr("breaks off"));
}

// ITU-T H.265 clause 7.4.2.4.4.
TEST(RawEnds, OfHevcUnits) {
  const Bytes sets = test::PacketOf({test::HevcVps(), test::HevcSps(), test::HevcPps()});
  EXPECT_THAT(Note(sets, Codec::kHevc), HasSubstr("(PPS) has no picture behind it"));
  const Bytes suffix = MakeSeiUnit(Hex("5001"), {{132, Bytes(17, 1)}});
  EXPECT_THAT(Note(test::PacketOf({suffix}), Codec::kHevc), IsEmpty());
  const Bytes cut(suffix.begin(), suffix.begin() + 9);
  EXPECT_THAT(Note(test::PacketOf({cut}), Codec::kHevc), HasSubstr("(suffix SEI) breaks off"));
  EXPECT_THAT(Note(test::PacketOf({Hex("2601")}), Codec::kHevc), HasSubstr("breaks off"));
}

// A decoder that is given the picture twice, in different surroundings.
class Trials : public testing::Test {
 protected:
  // Sets and slices of the pictures of a stream.
  void SetUp() override {
    const std::vector<Bytes> pictures =
        qln::test::MakeFieldPictures({{.idr = true, .fields = false}, {.place = 1, .fields = false}});
    std::vector<Unit> sets = TakeApart(pictures[0], Framing{}).units;
    std::vector<Unit> slice = {sets.back()};
    sets.pop_back();
    trial_.sets = ToMarkerForm(sets);
    trial_.reference = ToMarkerForm(slice);
    trial_.picture = ToMarkerForm(TakeApart(pictures[1], Framing{}).units);
  }
  PictureTrial trial_;
};

TEST_F(Trials, AWholePictureIsTheSameInAllSurroundings) {
  EXPECT_EQ(TryPicture(trial_), Wholeness::kWhole);
  trial_.picture = trial_.reference;
  trial_.reference.clear();
  EXPECT_EQ(TryPicture(trial_), Wholeness::kWhole);
}

TEST_F(Trials, OneThatIsCutOffIsNot) {
  trial_.picture.resize(trial_.picture.size() / 2);
  EXPECT_EQ(TryPicture(trial_), Wholeness::kCutOff);
}

TEST_F(Trials, WhatADecoderDoesNotTakeIsNotKnown) {
  trial_.sets.clear();
  EXPECT_EQ(TryPicture(trial_), Wholeness::kUnknown);
}

}  // namespace
}  // namespace qlnmedia
