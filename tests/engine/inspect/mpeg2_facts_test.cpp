// Headers of MPEG-2 by the bits of ITU-T H.262.

#include "inspect/mpeg2_facts.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::BitBuilder;
using qln::test::Join;

// Clause 6.2.2.3: sequence_extension.
Bytes SequenceExtension(uint32_t profileAndLevel, bool progressive) {
  return BitBuilder()
      .u(32, 0x1B5)
      .u(4, 1)
      .u(8, profileAndLevel)
      .u(1, progressive)
      .u(2, 1)
      .u(17, 0)
      .u(16, 0)
      .bytes();
}

// Clause 6.2.3.1: picture_coding_extension.
Bytes Picture(uint32_t structure, bool topFirst, bool progressive) {
  BitBuilder bits;
  bits.u(32, 0x1B5).u(4, 8).u(16, 0xFFFF).u(2, 0).u(2, structure).u(1, topFirst).u(6, 0).u(1, 0);
  return bits.u(1, progressive).u(1, 0).align().bytes();
}

// Clause 6.2.2.6: group_of_pictures_header.
Bytes Group(bool drop, uint32_t h, uint32_t m, uint32_t s, uint32_t f) {
  return BitBuilder().u(32, 0x1B8).u(1, drop).u(5, h).u(6, m).u(1, 1).u(6, s).u(6, f).u(7, 0).bytes();
}

Mpeg2Facts FactsOf(const std::vector<Bytes>& packets) { return ReadMpeg2Facts(packets); }

std::string Profile(uint32_t profileAndLevel) {
  const Mpeg2Facts facts = FactsOf({SequenceExtension(profileAndLevel, true)});
  return facts.profile + "@" + facts.level;
}

// Tables 8-2 to 8-4, and 8-5 with the escape bit.
TEST(Mpeg2Facts, ProfilesAndLevels) {
  EXPECT_EQ(Profile(0x48), "Main@Main");
  EXPECT_EQ(Profile(0x44), "Main@High");
  EXPECT_EQ(Profile(0x46), "Main@High 1440");
  EXPECT_EQ(Profile(0x42), "Main@HighP");
  EXPECT_EQ(Profile(0x4A), "Main@Low");
  EXPECT_EQ(Profile(0x58), "Simple@Main");
  EXPECT_EQ(Profile(0x14), "High@High");
  EXPECT_EQ(Profile(0x38), "SNR Scalable@Main");
  EXPECT_EQ(Profile(0x26), "Spatially Scalable@High 1440");
  EXPECT_EQ(Profile(0x85), "4:2:2@Main");
  EXPECT_EQ(Profile(0x82), "4:2:2@High");
  EXPECT_EQ(Profile(0x8E), "Multi-view@Low");
  EXPECT_EQ(Profile(0x8A), "Multi-view@High");
  EXPECT_EQ(Profile(0x78), "@Main");
  EXPECT_EQ(Profile(0xFF), "@");
}

std::string Scan(const std::vector<Bytes>& packets) {
  const ScanFacts scan = FactsOf(packets).scan;
  return scan.type + "|" + scan.coding + "|" + scan.fieldOrder;
}

TEST(Mpeg2Facts, PicturesOfFramesAndFields) {
  const Bytes interlaced = SequenceExtension(0x48, false);
  EXPECT_EQ(Scan({Join({SequenceExtension(0x48, true), Picture(3, false, true)})}), "progressive|frames|");
  EXPECT_EQ(Scan({Join({interlaced, Picture(3, true, false)})}), "interlaced|frames|top field first");
  EXPECT_EQ(Scan({Join({interlaced, Picture(3, false, false)})}), "interlaced|frames|bottom field first");
  // All that were seen are progressive frames.
  EXPECT_EQ(Scan({interlaced, Picture(3, true, true), Picture(3, true, true)}), "progressive|frames|");
  EXPECT_EQ(Scan({interlaced, Picture(3, true, true), Picture(3, false, false)}),
            "interlaced|frames|bottom field first");
  EXPECT_EQ(Scan({interlaced, Picture(2, false, false), Picture(1, false, false)}),
            "interlaced|fields|bottom field first");
  EXPECT_EQ(Scan({interlaced, Picture(1, false, false), Picture(2, false, false), Picture(3, true, false)}),
            "interlaced|fields and frames|top field first");
}

TEST(Mpeg2Facts, TheFirstGroupsTime) {
  const Mpeg2Facts facts = FactsOf({Group(false, 10, 59, 58, 24), Group(true, 1, 2, 3, 4)});
  EXPECT_EQ(facts.timecode->Text(), "10:59:58:24");
  EXPECT_EQ(FactsOf({Group(true, 1, 2, 3, 4)}).timecode->Text(), "01:02:03;04");
  EXPECT_FALSE(FactsOf({SequenceExtension(0x48, true)}).timecode);
}

TEST(Mpeg2Facts, HeadersThatBreakOff) {
  const Bytes all = Join({SequenceExtension(0x48, false), Picture(3, true, false), Group(false, 1, 2, 3, 4)});
  for (size_t size = 0; size < all.size(); ++size) {
    const qln::test::ExactCopy cut(Bytes(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(size)));
    FactsOf({cut.bytes()});
  }
  EXPECT_EQ(Scan({Picture(3, true, false)}), "||");  // MPEG-1, or a packet in the middle
}

}  // namespace
}  // namespace qlnmedia
