// What the carrier of MXF changes and what it leaves, on files put together by hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "container/mxf/constant_size.h"
#include "mxf/carry.h"
#include "qlnmedia/error.h"

namespace qln::test {
namespace {

using qlnmedia::mxf::FitToSize;

std::string ErrorOf(const Bytes& file, const Edit& edit) {
  try {
    Carry(file, edit);
  } catch (const qlnmedia::Error& error) {
    return error.what();
  }
  return "";
}

TEST(MxfCarrier, GivesTheInputWhereNothingChanges) {
  const std::vector<Bytes> units = Units(7, 1);
  for (const uint32_t alignment : {1u, 512u}) {
    MadeOptions options;
    options.alignment = alignment;
    options.dark = options.ancillary = true;
    options.runIn = 100;
    const Bytes file = MakeFile(units, options);
    EXPECT_EQ(Carry(file, Same), file);
    ExpectCarried(file, file, units);
    // What is cut off, anywhere, stays so.
    for (const size_t cut : {size_t{1}, size_t{30}, file.size() / 3}) {
      const Bytes shorter(file.begin(), file.end() - static_cast<long>(cut));
      EXPECT_EQ(Carry(shorter, Same), shorter);
    }
  }
}

TEST(MxfCarrier, FollowsWithEveryNumber) {
  const std::vector<Bytes> units = Units(9, 2);
  const Edit edit = [](size_t i, Bytes unit) { return i % 3 == 1 ? unit : Longer(unit, 10 + 40 * i); };
  for (const bool inBody : {false, true}) {
    for (const size_t step : {size_t{0}, size_t{2}}) {
      MadeOptions options;
      options.indexInBody = inBody;
      options.unitsPerPartition = step;
      options.unitsPerSegment = step == 0 ? 0 : 1;
      options.footerMetadata = true;
      const Bytes file = MakeFile(units, options);
      const Bytes out = Carry(file, edit);
      ExpectCarried(file, out, Edited(units, edit));
      size_t growth = 0;
      for (size_t i = 0; i < units.size(); ++i) growth += edit(i, units[i]).size() - units[i].size();
      EXPECT_EQ(out.size(), file.size() + growth);
    }
  }
}

TEST(MxfCarrier, KeepsAlignmentByFillItems) {
  const std::vector<Bytes> units = Units(8, 3);
  MadeOptions options;
  options.alignment = 512;
  const Bytes file = MakeFile(units, options);
  for (const size_t more : {size_t{1}, size_t{200}, size_t{511}, size_t{512}, size_t{2000}}) {
    const Edit edit = [more](size_t i, Bytes unit) { return i == 2 || i == 5 ? Longer(unit, more) : unit; };
    const Bytes out = Carry(file, edit);
    ExpectCarried(file, out, Edited(units, edit));
    EXPECT_EQ(out.size() % 512, file.size() % 512) << more;
  }
}

// Two elements meet at a multiple by themselves; a change comes between them.
TEST(MxfCarrier, PutsAFillItemInWhereNoneWas) {
  std::vector<Bytes> units = Units(6, 4, 512 - 20);
  MadeOptions options;
  options.alignment = 512;
  const Bytes file = MakeFile(units, options);
  const Edit longer = [](size_t i, Bytes unit) { return i == 1 ? Longer(unit, 7) : unit; };
  const Edit tail = [](size_t i, Bytes unit) {
    if (i == 3) unit.push_back(9);
    return unit;
  };
  for (const Edit& edit : {longer, tail}) {
    const Bytes out = Carry(file, edit);
    ExpectCarried(file, out, Edited(units, edit));
    EXPECT_EQ(out.size(), file.size() + 512);
  }
}

TEST(MxfCarrier, WidensLengthFieldsOnlyWhereItMust) {
  std::vector<Bytes> units = {Unit(100, 1), Unit(127, 2), Unit(50, 3), Unit(60, 4)};
  MadeOptions options;
  options.lengthBytes = 1;
  const Bytes file = MakeFile(units, options);
  const Edit edit = [](size_t, Bytes unit) { return Longer(unit, 20); };
  const Bytes out = Carry(file, edit);
  ExpectCarried(file, out, Edited(units, edit));
  EXPECT_EQ(out.size(), file.size() + 4 * 20 + 3);  // of the second a field of four bytes
  for (const int bytes : {4, 9}) {
    options.lengthBytes = bytes;
    const Bytes wide = MakeFile(units, options);
    EXPECT_EQ(Carry(wide, edit).size(), wide.size() + 4 * 20);
  }
}

TEST(MxfCarrier, LeavesWhatGrowsOpen) {
  const std::vector<Bytes> units = Units(6, 5);
  MadeOptions options;
  options.open = true;
  options.footer = options.randomIndex = false;
  options.unitsPerPartition = 2;
  options.indexInBody = true;
  const Edit edit = [](size_t, Bytes unit) { return Longer(unit, 31); };
  Bytes file = MakeFile(units, options);
  ExpectCarried(file, Carry(file, edit), Edited(units, edit));
  // It ends within an element of sound, which stays.
  options.index = Indexed::kNot;
  file = MakeFile(units, options);
  file.resize(file.size() - 100);
  const Bytes out = Carry(file, edit);
  EXPECT_TRUE(std::equal(file.end() - 30, file.end(), out.end() - 30));
  EXPECT_EQ(out.size(), file.size() + 31 * units.size());
}

TEST(MxfCarrier, KeepsConstantSizesByFiller) {
  const Bytes filler = {0, 0, 1, 0x0C, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x80};
  Bytes unit = Unit(200, 1);
  EXPECT_EQ(FitToSize(unit, 200, Codec::kH264), unit);
  // Room comes of a filler unit, or of zeros where there is too little of it.
  Bytes larger = FitToSize(unit, 213, Codec::kH264);
  Bytes expected = unit;
  expected.insert(expected.end(), filler.begin(), filler.end());
  EXPECT_EQ(larger, expected);
  expected = unit;
  expected.resize(204);
  EXPECT_EQ(FitToSize(unit, 204, Codec::kH264), expected);
  EXPECT_EQ(FitToSize(unit, 400, std::nullopt).size(), 400u);
  EXPECT_EQ(FitToSize(unit, 400, std::nullopt).back(), 0);
  // And goes into one that is there.
  expected = larger;
  expected.insert(expected.end() - 1, 10, 0xFF);
  EXPECT_EQ(FitToSize(larger, 223, Codec::kH264), expected);
  // What comes in takes zeros, then filler bytes, then filler units.
  Bytes zeros = larger;
  zeros.resize(220);
  EXPECT_EQ(FitToSize(Longer(zeros, 7), 220, Codec::kH264), Longer(larger, 7));
  Bytes taken = Longer(larger, 5);
  taken.erase(taken.end() - 6, taken.end() - 1);
  EXPECT_EQ(FitToSize(Longer(larger, 5), 213, Codec::kH264), taken);
  Bytes gone = Longer(unit, 10);
  gone.resize(213);
  EXPECT_EQ(FitToSize(Longer(larger, 10), 213, Codec::kH264), gone);
  EXPECT_EQ(FitToSize(Longer(larger, 30), 213, Codec::kH264), Longer(unit, 30));
  // HEVC's filler stands in the sublayer of the picture in front of it.
  Bytes hevc = {0, 0, 1, 0x02, 0x03, 0xAB};
  const Bytes filled = {0, 0, 1, 0x02, 0x03, 0xAB, 0, 0, 1, 38 << 1, 0x03, 0xFF, 0x80};
  EXPECT_EQ(FitToSize(hevc, filled.size(), Codec::kHevc), filled);
}

TEST(MxfCarrier, KeepsUnitsOfOneSize) {
  std::vector<Bytes> units = Units(5, 6, 600);
  for (Bytes& unit : units) unit.resize(650);
  MadeOptions options;
  options.index = Indexed::kByOneSize;
  options.alignment = 512;
  const Edit edit = [](size_t i, Bytes unit) { return i % 2 == 0 ? Longer(unit, 50) : unit; };
  const Edit fitted = [&edit](size_t i, Bytes unit) {
    unit = edit(i, unit);
    while (unit.size() > 650 && unit.back() == 0) unit.pop_back();
    return unit;
  };
  Bytes file = MakeFile(units, options);
  Bytes out = Carry(file, edit);
  EXPECT_EQ(out.size(), file.size());
  ExpectCarried(file, out, Edited(units, fitted));
  // The fill item behind a picture gives more room, and then there is none.
  options.pictureFill = 100;
  file = MakeFile(units, options);
  const Edit more = [](size_t, Bytes unit) { return Longer(unit, 50 + 80); };
  out = Carry(file, more);
  EXPECT_EQ(out.size(), file.size());
  const Edit kept = [](size_t, Bytes unit) {
    unit.resize(600);
    return Longer(unit, 130);
  };
  ExpectCarried(file, out, Edited(units, kept));
  EXPECT_THAT(ErrorOf(file, [](size_t, Bytes unit) { return Longer(unit, 50 + 81 + 4); }),
              ::testing::HasSubstr("picture 0 has to stay 650 bytes long, and 5 bytes are missing"));
  options.pictureFill = 0;
  options.alignment = 1;
  file = MakeFile(units, options);
  EXPECT_THAT(ErrorOf(file, [](size_t, Bytes unit) { return Longer(unit, 53); }),
              ::testing::HasSubstr("picture 0 has to stay 650 bytes long, and 3 bytes are missing"));
  // AVC-Intra is of one size without such an index, too.
  options.index = Indexed::kByEntries;
  options.coded = Coded::kAvcIntra;
  file = MakeFile(units, options);
  out = Carry(file, edit);
  EXPECT_EQ(out.size(), file.size());
  ExpectCarried(file, out, Edited(units, fitted));
}

TEST(MxfCarrier, RefusesWhatAnIndexCannotTell) {
  const std::vector<Bytes> units = Units(5, 7);
  MadeOptions options;
  Bytes file = MakeFile(units, options);
  // An entry that points beside its unit.
  const std::vector<ReadTriplet> triplets = ListTriplets(file);
  size_t entries = 0;
  for (const ReadTriplet& triplet : triplets) {
    if (triplet.isIndex()) entries = triplet.at + 20 + triplet.value.size() - 5 * 15;
  }
  file[entries + 15 + 10] ^= 1;
  EXPECT_EQ(Carry(file, Same), file);
  EXPECT_THAT(ErrorOf(file, [](size_t, Bytes unit) { return Longer(unit, 3); }),
              ::testing::HasSubstr("an index entry points to no element of essence"));
  file[entries + 15 + 10] ^= 1;
  file[entries - 1] = 14;  // entries that are shorter than their fields
  EXPECT_EQ(Carry(file, Same), file);
  EXPECT_THAT(ErrorOf(file, [](size_t, Bytes unit) { return Longer(unit, 3); }),
              ::testing::HasSubstr("an index table segment is damaged"));
}

TEST(MxfCarrier, RefusesEncryptedEssence) {
  Bytes file = MakeFile(Units(3, 8), {});
  const Bytes encrypted = Triplet("060e2b34020401010d010301027e0100", Bytes(64, 1));
  const std::vector<ReadTriplet> triplets = ListTriplets(file);
  for (const ReadTriplet& triplet : triplets) {
    if (!triplet.isEssence()) continue;
    file.insert(file.begin() + static_cast<long>(triplet.at), encrypted.begin(), encrypted.end());
    break;
  }
  EXPECT_THAT(ErrorOf(file, Same), ::testing::HasSubstr("its essence is encrypted"));
}

TEST(MxfCarrier, NamesThePlaceOfWhatIsNoTriplet) {
  Bytes file = MakeFile(Units(3, 9), {});
  const std::vector<ReadTriplet> triplets = ListTriplets(file);
  const ReadTriplet& third = triplets[triplets.size() - 3];
  Bytes wrong = file;
  wrong[third.at] = 0x11;
  EXPECT_THAT(ErrorOf(wrong, Same),
              ::testing::HasSubstr("no key begins where one has to (at byte " + std::to_string(third.at)));
  wrong = file;
  wrong[third.at + 16] = 0x80;
  EXPECT_THAT(ErrorOf(wrong, Same), ::testing::HasSubstr("a length has no form of KLV"));
  EXPECT_THAT(ErrorOf(Bytes(100, 0), Same), ::testing::HasSubstr("has no header partition of MXF"));
}

}  // namespace
}  // namespace qln::test
