// The descriptors of carried MXF files, the times that their index tells, and files made by chance.

#include <gtest/gtest.h>

#include <random>

#include "mxf/carry.h"
#include "qlnmedia/error.h"

namespace qln::test {
namespace {

using qlnmedia::mxf::UnitTimes;

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
