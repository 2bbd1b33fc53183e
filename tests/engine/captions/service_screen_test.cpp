// Digital captions read back: packets out of triplets, and what windows show. Codes are those of CTA-708.

#include "captions/service_screen.h"

#include <gtest/gtest.h>

#include <map>

#include "captions/service_reader.h"
#include "support/test_support.h"

namespace qlnmedia::captions {
namespace {

using qln::test::Hex;

Triplet Start(uint8_t first, uint8_t second) { return {true, CcType::kServiceStart, first, second}; }
Triplet Data(uint8_t first, uint8_t second) { return {true, CcType::kServiceData, first, second}; }

// The bytes that each service gets.
std::map<int, Bytes> Services(const std::vector<Triplet>& triplets) {
  std::map<int, Bytes> services;
  ServiceReader reader;
  for (const Triplet& t : triplets)
    reader.Add(t, [&](int service, std::span<const uint8_t> block) {
      services[service].insert(services[service].end(), block.begin(), block.end());
    });
  return services;
}

TEST(ServiceReader, TakesPacketsApart) {
  // Sequence 2, three pairs: service 1 with one byte, the null block, and filling.
  EXPECT_EQ(Services({Start(0x83, 0x21), Data(0x41, 0x00), Data(0x22, 0x42)}),
            (std::map<int, Bytes>{{1, {0x41}}}));
  // Two services; the second one is extended.
  EXPECT_EQ(Services({Start(0x04, 0x61), Data(0x41, 0xE2), Data(0x09, 0x42), Data(0x43, 0x00)}),
            (std::map<int, Bytes>{{3, {0x41}}, {9, {0x42, 0x43}}}));
}

TEST(ServiceReader, TakesTheLargestPacket) {
  std::vector<Triplet> triplets = {Start(0x00, 0x3F)};  // a size code of 0 means 128 bytes
  for (int i = 0; i < 63; ++i) triplets.push_back(Data(0x41, 0x41));
  const std::map<int, Bytes> services = Services(triplets);
  ASSERT_EQ(services.count(1), 1u);
  EXPECT_EQ(services.at(1).size(), 31u);
  triplets.pop_back();
  EXPECT_TRUE(Services(triplets).empty());
}

TEST(ServiceReader, LosesNoMoreThanACutPacket) {
  const Triplet notValid{false, CcType::kServiceData, 0x41, 0x00};
  EXPECT_TRUE(Services({Data(0x41, 0x00), Start(0x02, 0x21), notValid}).empty());
  EXPECT_EQ(Services({Start(0x03, 0x21), Start(0x02, 0x22), Data(0x42, 0x43)}),
            (std::map<int, Bytes>{{1, {0x42, 0x43}}}));
  // A block that leads past its packet.
  EXPECT_TRUE(Services({Start(0x02, 0x23), Data(0x42, 0x43)}).empty());
  // Line 21 pairs in between do not belong to it.
  EXPECT_EQ(Services({Start(0x02, 0x22), {true, CcType::kField1, 0x94, 0x20}, Data(0x42, 0x43)}),
            (std::map<int, Bytes>{{1, {0x42, 0x43}}}));
}

std::string Shown(std::initializer_list<const char*> blocks) {
  ServiceScreen screen;
  for (const char* block : blocks) screen.Add(Hex(block));
  return screen.Text();
}

// Window 0, visible, two rows of 32 columns in the lower half.
const char* const kWindow = "98 20 B2 32 01 1F 09";

TEST(ServiceScreen, ShowsTextInItsWindow) {
  EXPECT_EQ(Shown({"48 49"}), "");
  EXPECT_EQ(Shown({kWindow, "48 49"}), "HI");
  EXPECT_EQ(Shown({kWindow, "48 49 0D 59 4F 55 03"}), "HI\nYOU");
  // A third row scrolls the first one out.
  EXPECT_EQ(Shown({kWindow, "48 49 0D 59 4F 55 0D 21"}), "YOU\n!");
  EXPECT_EQ(Shown({kWindow, "48 49 08 4F"}), "HO");
  EXPECT_EQ(Shown({kWindow, "48 49 0C 4F"}), "O");
  EXPECT_EQ(Shown({kWindow, "48 0D 49 4A 0E 4F"}), "H\nO");
}

TEST(ServiceScreen, PutsThePenWhereItIsSent) {
  EXPECT_EQ(Shown({kWindow, "92 01 04 41 92 00 02 42 43 92 00 06 44"}), "BC  D\nA");
  EXPECT_EQ(Shown({kWindow, "92 0F 3F 41 42"}), "A");  // no further than the window's last place
}

TEST(ServiceScreen, ShowsAndHidesWindows) {
  const char* const hidden = "98 00 B2 32 01 1F 09";
  EXPECT_EQ(Shown({hidden, "41"}), "");
  EXPECT_EQ(Shown({hidden, "41 89 01"}), "A");
  EXPECT_EQ(Shown({hidden, "41 8B 01"}), "A");
  EXPECT_EQ(Shown({kWindow, "41 8A 01"}), "");
  EXPECT_EQ(Shown({kWindow, "41 8A 02"}), "A");
  EXPECT_EQ(Shown({kWindow, "41 88 01"}), "");
  EXPECT_EQ(Shown({kWindow, "41 88 01 42"}), "B");
  EXPECT_EQ(Shown({kWindow, "41 8C 01 42"}), "");
  EXPECT_EQ(Shown({kWindow, "41 8F 42"}), "");
  // Defined again, a window keeps its text.
  EXPECT_EQ(Shown({hidden, "41", kWindow, "42"}), "AB");
}

TEST(ServiceScreen, ReadsWindowsFromTheTop) {
  const char* const top = "99 20 05 32 00 1F 09";  // 5 of 75 rows from the top
  EXPECT_EQ(Shown({kWindow, "41", top, "42"}), "B\nA");
  EXPECT_EQ(Shown({kWindow, "41", top, "42 80 43"}), "B\nAC");
  // Beside each other, the left one first: columns 100 and 50 of 210.
  EXPECT_EQ(Shown({"98 20 32 64 01 1F 09 41", "99 20 32 32 01 1F 09 42"}), "B\nA");
}

TEST(ServiceScreen, KnowsTheCharacterSets) {
  EXPECT_EQ(Shown({kWindow, "7F 20 E9 20 10 39 10 25 10 76"}), "\u266A \u00E9 \u2122\u2026\u215B");
  EXPECT_EQ(Shown({kWindow, "10 26 10 A0 41"}), "__A");  // places without a character
  EXPECT_EQ(Shown({kWindow, "18 04 16 41"}),
            "\u0416"
            "A");  // two bytes of one character
}

TEST(ServiceScreen, PassesOverWhatChangesNoText) {
  // Pen and window attributes, delays, and codes that are reserved, each with its parameters.
  EXPECT_EQ(Shown({kWindow, "41 90 41 41 91 41 41 41 97 41 41 41 41 8D 41 8E 93 94 95 96 42"}), "AB");
  EXPECT_EQ(Shown({kWindow, "41 00 03 11 41 19 41 41 42"}), "AB");
  EXPECT_EQ(Shown({kWindow, "41 10 00 10 08 41 10 10 41 41 10 18 41 41 41 42"}), "AB");
  EXPECT_EQ(Shown({kWindow, "41 10 80 41 41 41 41 10 88 41 41 41 41 41 10 90 02 41 41 42"}), "AB");
}

TEST(ServiceScreen, TakesCommandsThatBlocksCutOff) {
  const Bytes all = Hex("98 20 B2 32 01 1F 09 41 92 01 00 10 39 18 04 16 10 90 01 41 42");
  ServiceScreen whole;
  whole.Add(all);
  EXPECT_EQ(whole.Text(),
            "A\n\u2122\u0416"
            "B");
  for (size_t cut = 0; cut <= all.size(); ++cut) {
    ServiceScreen screen;
    screen.Add(std::span(all).first(cut));
    screen.Add(std::span(all).subspan(cut));
    EXPECT_EQ(screen.Text(), whole.Text()) << cut;
  }
}

TEST(ServiceScreen, TakesAnything) {
  qln::test::Random random(11);
  ServiceReader reader;
  std::map<int, ServiceScreen> screens;
  for (int round = 0; round < 100000; ++round) {
    Triplet t{random.below(16) != 0, random.below(12) == 0 ? CcType::kServiceStart : CcType::kServiceData,
              static_cast<uint8_t>(random.next()), static_cast<uint8_t>(random.next())};
    if (random.below(4) == 0) t.first = static_cast<uint8_t>(0x98 + random.below(8));
    reader.Add(t, [&](int service, std::span<const uint8_t> block) {
      ASSERT_GE(service, 1);
      ASSERT_LE(service, 63);
      qln::test::ExactCopy copy(Bytes(block.begin(), block.end()));
      screens[service].Add({copy.data(), copy.size()});
      ASSERT_LE(screens[service].Text().size(), 8u * 15 * 43 * 3);
    });
  }
  EXPECT_FALSE(screens.empty());
}

}  // namespace
}  // namespace qlnmedia::captions
