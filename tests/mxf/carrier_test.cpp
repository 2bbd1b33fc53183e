// What the carrier of MXF changes and what it leaves, on files put together by hand.

#include "container/mxf/carrier.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "container/mp4/memory_sink.h"
#include "container/mxf/constant_size.h"
#include "container/mxf/layout_check.h"
#include "mxf/list_triplets.h"
#include "mxf/made_file.h"
#include "qlnmedia/error.h"

namespace qln::test {
namespace {

using qlnmedia::Codec;
using qlnmedia::mp4::MemorySink;
using qlnmedia::mp4::MemorySource;
using qlnmedia::mxf::Carrier;
using qlnmedia::mxf::DescriptorFacts;
using qlnmedia::mxf::FactsByTrack;
using qlnmedia::mxf::FitToSize;
using qlnmedia::mxf::Picture;
using qlnmedia::mxf::PictureReader;
using qlnmedia::mxf::UnitTimes;

// Bytes that look like an access unit with one slice.
Bytes Unit(size_t size, uint32_t seed) {
  std::mt19937 random(seed);
  Bytes bytes = {0, 0, 0, 1, 0x65};
  while (bytes.size() < size) bytes.push_back(static_cast<uint8_t>(1 + random() % 250));
  return bytes;
}

std::vector<Bytes> Units(size_t count, uint32_t seed, size_t size = 0) {
  std::mt19937 random(seed);
  std::vector<Bytes> units;
  for (size_t i = 0; i < count; ++i)
    units.push_back(Unit(size != 0 ? size : 20 + random() % 700, seed * 100 + static_cast<uint32_t>(i)));
  return units;
}

using Edit = std::function<Bytes(size_t, Bytes)>;

Bytes Carry(const Bytes& file, const Edit& edit, const FactsByTrack& facts = {},
            std::optional<Codec> codec = Codec::kH264) {
  const MemorySource source(file, "in.mxf");
  Carrier carrier(source);
  PictureReader pictures(source, carrier.layout(), carrier.tracks());
  for (Picture picture; pictures.Next(picture);)
    carrier.Replace(picture, edit(static_cast<size_t>(picture.number), picture.bytes), codec);
  carrier.Prepare(facts);
  MemorySink sink;
  carrier.Write(sink);
  CheckLayout(source, carrier.layout(), MemorySource(sink.bytes(), "out.mxf"), "out.mxf");
  return sink.bytes();
}

Bytes Same(size_t, Bytes unit) { return unit; }

std::vector<Bytes> Edited(const std::vector<Bytes>& units, const Edit& edit) {
  std::vector<Bytes> edited;
  for (size_t i = 0; i < units.size(); ++i) edited.push_back(edit(i, units[i]));
  return edited;
}

// Puts `more` bytes in behind the start code.
Bytes Longer(Bytes unit, size_t more) {
  unit.insert(unit.begin() + 5, more, 0x33);
  return unit;
}

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

FactsByTrack Facts(const DescriptorFacts& facts) { return {{{1, kPictureNumber}, facts}}; }

Bytes DescriptorOf(const Bytes& file, size_t which = 0) {
  for (const ReadTriplet& triplet : ListTriplets(file)) {
    if (triplet.isSet() && triplet.key.substr(28, 2) == "28" && which-- == 0) return triplet.value;
  }
  return {};
}

TEST(MxfCarrier, ChangesEveryCopyOfTheDescriptor) {
  const std::vector<Bytes> units = Units(4, 10);
  DescriptorFacts facts;
  facts.colour = qlnmedia::ColourCodes{9, 16, 9};
  facts.fullRange = false;
  for (const size_t fill : {size_t{0}, size_t{60}, size_t{200}}) {
    for (const uint32_t alignment : {1u, 256u}) {
      MadeOptions options;
      options.footerMetadata = options.dark = true;
      options.headerFill = fill;
      options.alignment = alignment;
      const Bytes file = MakeFile(units, options);
      const Bytes out = Carry(file, Same, Facts(facts));
      ExpectCarried(file, out, units, "15010500", true);
      if (fill == 200) {
        EXPECT_EQ(out.size(), file.size());
      }
      for (const size_t copy : {size_t{0}, size_t{1}}) {
        std::map<uint16_t, Bytes> was = TagsOf(DescriptorOf(file, copy)),
                                  is = TagsOf(DescriptorOf(out, copy));
        EXPECT_EQ(is.at(0x3219), (Bytes{6, 0xE, 0x2B, 0x34, 4, 1, 1, 0xD, 4, 1, 1, 1, 3, 4, 0, 0}));
        EXPECT_EQ(is.at(0x3210), (Bytes{6, 0xE, 0x2B, 0x34, 4, 1, 1, 0xD, 4, 1, 1, 1, 1, 0xA, 0, 0}));
        EXPECT_EQ(is.at(0x321A), (Bytes{6, 0xE, 0x2B, 0x34, 4, 1, 1, 0xD, 4, 1, 1, 1, 2, 6, 0, 0}));
        EXPECT_EQ(is.at(0x3304), (Bytes{0, 0, 0, 16}));
        EXPECT_EQ(is.at(0x3305), (Bytes{0, 0, 0, 235}));
        EXPECT_EQ(is.at(0x3306), (Bytes{0, 0, 0, 225}));
        for (const auto& [tag, value] : was) {
          if (tag != 0x3219) {
            EXPECT_EQ(is.at(tag), value) << tag;
          }
        }
        EXPECT_EQ(is.size(), was.size() + 5);
      }
      // Once more changes nothing.
      EXPECT_EQ(Carry(out, Same, Facts(facts)), out);
    }
  }
}

TEST(MxfCarrier, GivesNewPropertiesTheirTags) {
  MadeOptions options;
  options.primerHasColour = false;
  const Bytes file = MakeFile(Units(3, 11), options);
  DescriptorFacts facts;
  facts.colour = qlnmedia::ColourCodes{1, 2, 1};
  facts.mastering = qlnmedia::ParseMasteringDisplay("G(6,7)B(8,9)R(10,11)WP(12,13)L(9000,10)");
  facts.sampleAspect = qlnmedia::SampleAspect{4, 3};
  facts.fields = true;
  const Bytes out = Carry(file, Same, Facts(facts));
  const std::map<uint16_t, Bytes> is = TagsOf(DescriptorOf(out));
  EXPECT_EQ(is.count(0x3210), 0u);  // an unspecified one has no label
  EXPECT_EQ(is.at(0x320C), Bytes{1});
  EXPECT_EQ(is.at(0x320E), (Bytes{0, 0, 0, 5, 0, 0, 0, 6}));  // 160 x 256 lines of two fields, of 4 to 3
  EXPECT_EQ(is.at(0xFFFF), (Bytes{0, 10, 0, 11, 0, 6, 0, 7, 0, 8, 0, 9}));
  EXPECT_EQ(is.at(0xFFFE), (Bytes{0, 12, 0, 13}));
  EXPECT_EQ(is.at(0xFFFD), (Bytes{0, 0, 0x23, 0x28}));
  EXPECT_EQ(is.at(0xFFFC), (Bytes{0, 0, 0, 10}));
  for (const ReadTriplet& triplet : ListTriplets(out)) {
    if (!triplet.isPrimer()) continue;
    std::map<uint16_t, Bytes> labels;
    for (size_t at = 8; at + 18 <= triplet.value.size(); at += 18)
      labels[static_cast<uint16_t>(NumberAt(triplet.value, at, 2))].assign(
          triplet.value.begin() + static_cast<long>(at) + 2,
          triplet.value.begin() + static_cast<long>(at) + 18);
    EXPECT_EQ(NumberAt(triplet.value, 0, 4), labels.size());
    EXPECT_EQ(labels.at(0x3219), (Bytes{6, 0xE, 0x2B, 0x34, 1, 1, 1, 9, 4, 1, 2, 1, 1, 6, 1, 0}));
    EXPECT_EQ(labels.at(0xFFFD), (Bytes{6, 0xE, 0x2B, 0x34, 1, 1, 1, 0xE, 4, 0x20, 4, 1, 1, 3, 0, 0}));
  }
}

TEST(MxfCarrier, TellsWhenPicturesAreShown) {
  MadeOptions options;
  // Stored I P B B: shown 0, 2, 3, 1 of four.
  options.temporalOffsets = {0, 1, 1, -2};
  options.unitsPerSegment = 3;
  const Bytes file = MakeFile(Units(4, 12), options);
  const MemorySource source(file);
  const Carrier carrier(source);
  const UnitTimes times(source, carrier.layout(), 1);
  EXPECT_EQ(times.ShownAt(0), 0);
  EXPECT_EQ(times.ShownAt(1), 3);
  EXPECT_EQ(times.ShownAt(2), 1);
  EXPECT_EQ(times.ShownAt(3), 2);
  EXPECT_EQ(times.ShownAt(4), std::nullopt);
  EXPECT_TRUE(times.Complete(4));
  EXPECT_FALSE(times.Complete(5));
  EXPECT_TRUE(times.IsEntry(0));
  EXPECT_FALSE(times.IsEntry(1));
}

MadeOptions RandomOptions(std::mt19937& random) {
  MadeOptions options;
  const auto flip = [&random] { return random() % 2 == 0; };
  const uint32_t alignments[] = {1, 1, 16, 256, 512};
  options.alignment = alignments[random() % 5];
  const int lengths[] = {1, 4, 9};
  options.lengthBytes = lengths[random() % 3];
  options.runIn = flip() ? 0 : random() % 300;
  options.index = flip() ? Indexed::kByEntries : Indexed::kNot;
  options.indexInBody = flip();
  options.unitsPerPartition = random() % 4;
  options.unitsPerSegment = random() % 4;
  options.slices = flip();
  options.sound = flip();
  options.systemItem = flip();
  options.ancillary = flip();
  options.dark = flip();
  options.footer = flip();
  options.randomIndex = flip();
  options.footerMetadata = flip();
  options.open = !options.footer;
  options.headerFill = flip() ? 0 : 20 + random() % 400;
  options.pictureFill = flip() ? 0 : 25 + random() % 60;
  return options;
}

TEST(MxfCarrier, CarriesRandomFiles) {
  for (uint32_t seed = 1; seed <= 300; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const MadeOptions options = RandomOptions(random);
    const std::vector<Bytes> units = Units(1 + random() % 8, seed);
    const Bytes file = MakeFile(units, options);
    const auto kind = static_cast<uint32_t>(random());
    const Edit edit = [kind](size_t i, Bytes unit) {
      std::mt19937 by(kind + static_cast<uint32_t>(i));
      const auto what = static_cast<int>(by() % 6);
      if (what == 0) unit.resize(6 + by() % unit.size());
      if (what == 1) return Longer(unit, 1 + by() % 1000);
      if (what == 2) unit.insert(unit.end(), by() % 40, unit.back());
      if (what == 3) unit.back() ^= 0x55;
      return unit;
    };
    DescriptorFacts facts;
    if (random() % 2 == 0) facts.colour = qlnmedia::ColourCodes{1, 1, 1};
    ExpectCarried(file, Carry(file, edit, Facts(facts)), Edited(units, edit), "15010500", true);
    if (::testing::Test::HasFailure()) break;
  }
}

// Wrong bytes end in a clear error or in an output, and in nothing else.
TEST(MxfCarrier, StandsWrongBytes) {
  MadeOptions options;
  options.footerMetadata = options.dark = true;
  const Bytes file = MakeFile(Units(4, 13), options);
  int carried = 0;
  for (uint32_t seed = 1; seed <= 400; ++seed) {
    std::mt19937 random(seed);
    Bytes wrong = file;
    for (uint32_t i = 0; i < 1 + seed % 3; ++i)
      wrong[random() % wrong.size()] = static_cast<uint8_t>(random() % 3 == 0 ? 0xFF : random());
    if (seed % 5 == 0) wrong.resize(random() % wrong.size());
    try {
      EXPECT_EQ(Carry(wrong, Same), wrong);
      Carry(wrong, [](size_t, Bytes unit) { return Longer(unit.size() < 6 ? Unit(9, 1) : unit, 40); });
      ++carried;
    } catch (const qlnmedia::Error& error) {
      EXPECT_FALSE(std::string(error.what()).empty());
    }
  }
  EXPECT_GT(carried, 100);
}

}  // namespace
}  // namespace qln::test
