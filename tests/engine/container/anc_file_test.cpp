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

}  // namespace
}  // namespace qlnmedia
