// Elementary ancillary files, element by element.

#include "container/anc_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/error.h"
#include "captions/anc_element.h"

namespace qlnmedia {
namespace {

using captions::CcType;
using captions::Triplet;
using testing::ElementsAre;
using testing::HasSubstr;

// Four pictures, of which the second has nothing.
std::string File(captions::Rate rate) {
  captions::AncTrackWriter writer(rate);
  std::string file;
  for (const std::vector<Triplet>& triplets : {std::vector<Triplet>{{true, CcType::kField1, 0x94, 0x2C}},
                                               {},
                                               std::vector<Triplet>{{true, CcType::kServiceStart, 0x02, 0x21},
                                                                    {true, CcType::kServiceData, 0x41, 0}},
                                               std::vector<Triplet>{{true, CcType::kField2, 0x15, 0xAE}}}) {
    const captions::Bytes element = writer.Element(triplets);
    file.append(element.begin(), element.end());
  }
  return file;
}

std::vector<std::pair<int64_t, size_t>> EventsOf(const captions::CaptionTrack& track) {
  std::vector<std::pair<int64_t, size_t>> events;
  for (const captions::CaptionEvent& event : track.events)
    events.emplace_back(event.at, event.triplets.size());
  return events;
}

std::string Refused(const std::string& file) {
  std::vector<std::string> damage;
  try {
    ReadAncFile(file, "a.anc", {}, &damage);
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}

TEST(AncFiles, HaveAnElementAPicture) {
  std::vector<std::string> damage;
  const captions::CaptionTrack track =
      ReadAncFile(File(captions::Rate::k59_94), "a.anc", captions::Rate::k25, &damage);
  EXPECT_THAT(EventsOf(track), ElementsAre(std::pair(0, 1u), std::pair(2, 2u), std::pair(3, 1u)));
  EXPECT_EQ(track.rate, captions::Rate::k59_94);
  EXPECT_EQ(track.nominal, 60);
  EXPECT_TRUE(track.fromZero);
  EXPECT_THAT(damage, ElementsAre());
}

TEST(AncFiles, DamageLosesItsPacket) {
  std::string file = File(captions::Rate::k29_97);
  const size_t second = file.find("\x61\x01", 40);
  file[second + 14] ^= 1;
  std::vector<std::string> damage;
  EXPECT_THAT(EventsOf(ReadAncFile(file, "a.anc", {}, &damage)),
              ElementsAre(std::pair(0, 1u), std::pair(3, 1u)));
  ASSERT_EQ(damage.size(), 1u);
  EXPECT_THAT(damage[0],
              testing::MatchesRegex("ancillary data: picture 2 at byte [0-9]+: an ANC packet whose "
                                    "checksum is wrong; left out"));
  damage.clear();
  file = File(captions::Rate::k29_97);
  file.pop_back();
  EXPECT_THAT(EventsOf(ReadAncFile(file, "a.anc", {}, &damage)),
              ElementsAre(std::pair(0, 1u), std::pair(2, 2u)));
  EXPECT_THAT(damage, ElementsAre(HasSubstr("an element of ancillary data that breaks off")));
}

TEST(AncFiles, OthersAreRefused) {
  EXPECT_THAT(Refused("Scenarist_SCC V1.0\n"), HasSubstr("does not begin with an element of ancillary data"));
  EXPECT_THAT(Refused(std::string("\x06\x0E\x2B\x34\x02\x05\x01\x01", 8)), HasSubstr("seems to be MXF"));
  EXPECT_THAT(Refused(""), HasSubstr("is empty"));
  EXPECT_THAT(Refused(std::string(8, '\0')), HasSubstr("holds no captions"));
  EXPECT_TRUE(IsAncFile("a.ANC"));
  EXPECT_FALSE(IsAncFile(".anc"));
  EXPECT_FALSE(IsAncFile("a.mcc"));
}

// An element of packets, each on its line and of its field (0 for a frame).
struct Packet {
  int line;
  int field;
  uint8_t sdid;
  captions::Bytes words;
};
std::string Element(const std::vector<Packet>& packets) {
  std::vector<captions::AncPacket> all;
  for (const Packet& packet : packets) {
    captions::AncPacket& one = all.emplace_back();
    one.line = packet.line;
    one.field = packet.field;
    one.did = 0x61;
    one.sdid = packet.sdid;
    one.words = packet.words;
  }
  const captions::Bytes element = captions::WriteAncElement(all, false);
  return {element.begin(), element.end()};
}

captions::Bytes Cdp(captions::Rate rate, CcType type, uint8_t number) {
  captions::CaptionPacket packet;
  packet.rate = rate;
  packet.counter = number;
  packet.triplets.assign(static_cast<size_t>(captions::InfoOf(rate).triplets), Triplet{});
  packet.triplets[0] = {true, type, 0xC1, number};
  return captions::WriteCdp(packet);
}

// The second bytes of valid triplets of each picture, field 2 with a dash.
std::string Shown(const captions::CaptionTrack& track) {
  std::string text;
  for (const captions::CaptionEvent& event : track.events) {
    text += std::to_string(event.at) + ":";
    for (const Triplet& t : event.triplets) {
      if (t.valid) text += (t.type == CcType::kField2 ? "-" : "") + std::to_string(t.second) + ",";
    }
    text += " ";
  }
  return text;
}

std::string ShownOf(const std::string& file, captions::Rate rate) {
  std::vector<std::string> damage;
  const captions::CaptionTrack track = ReadAncFile(file, "a.anc", {}, &damage);
  EXPECT_THAT(damage, ElementsAre());
  EXPECT_EQ(track.rate, rate);
  return Shown(track);
}

TEST(AncFiles, TakeAllPacketsOfAnElementForOnePicture) {
  // Pairs of either field on lines of their own, and a frame of which only one field has one.
  const auto pair = [](uint8_t field, uint8_t number) { return captions::Bytes{field, 0xC1, number}; };
  EXPECT_EQ(ShownOf(Element({{9, 1, 2, pair(0x80, 1)}, {272, 2, 2, pair(0x00, 2)}}) + Element({}) +
                        Element({{272, 2, 2, pair(0x00, 3)}}) + Element({{9, 1, 2, pair(0x80, 4)}}),
                    captions::Rate::k29_97),
            "0:1,-2, 2:-3, 3:4, ");
  // Two caption packets of a frame, in the order in which they stand, on one line or on two.
  constexpr captions::Rate kRate = captions::Rate::k29_97;
  EXPECT_EQ(ShownOf(Element({{9, 0, 1, Cdp(kRate, CcType::kField1, 1)},
                             {9, 0, 1, Cdp(kRate, CcType::kField2, 2)}}) +
                        Element({{9, 1, 1, Cdp(kRate, CcType::kField1, 3)}}) +
                        Element({{9, 1, 1, Cdp(kRate, CcType::kField1, 4)},
                                 {572, 2, 1, Cdp(kRate, CcType::kField1, 5)}}),
                    kRate),
            "0:1,-2, 1:3, 2:4,5, ");
}

TEST(AncFiles, OfFieldsHaveTwoPicturesAFrame) {
  constexpr captions::Rate kRate = captions::Rate::k59_94;
  const auto frame = [](uint8_t number) {
    return Element({{9, 1, 1, Cdp(kRate, CcType::kField1, number)},
                    {572, 2, 1, Cdp(kRate, CcType::kField2, static_cast<uint8_t>(number + 1))}});
  };
  EXPECT_EQ(ShownOf(frame(1) + Element({}) + frame(3), kRate), "0:1, 1:-2, 4:3, 5:-4, ");
  // One that has its packet alone says that elements are pictures.
  EXPECT_EQ(ShownOf(frame(1) + Element({{9, 1, 1, Cdp(kRate, CcType::kField1, 3)}}), kRate), "0:1,-2, 1:3, ");
}

}  // namespace
}  // namespace qlnmedia
