// Caption data over pictures: the share of each rate, timecode arithmetic, line 21 pairs out of text.

#include "captions/sequencer.h"

#include <gtest/gtest.h>

#include "captions/service_block.h"
#include "support/test_support.h"

namespace qlnmedia::captions {
namespace {

TEST(Rate, HasTheTripletsOfTheStandard) {
  const int triplets[kRateCount] = {25, 25, 24, 20, 20, 12, 10, 10};
  for (int i = 0; i < kRateCount; ++i) {
    EXPECT_EQ(InfoOf(static_cast<Rate>(i)).triplets, triplets[i]);
    EXPECT_EQ(InfoOf(static_cast<Rate>(i)).cdpCode, i + 1);
  }
}

TEST(Rate, IsFoundByItsFraction) {
  EXPECT_EQ(RateOf(24000, 1001), Rate::k23_976);
  EXPECT_EQ(RateOf(24, 1), Rate::k24);
  EXPECT_EQ(RateOf(25, 1), Rate::k25);
  EXPECT_EQ(RateOf(30000, 1001), Rate::k29_97);
  EXPECT_EQ(RateOf(2997, 100), Rate::k29_97);
  EXPECT_EQ(RateOf(60, 2), Rate::k30);
  EXPECT_EQ(RateOf(50, 1), Rate::k50);
  EXPECT_EQ(RateOf(60000, 1001), Rate::k59_94);
  EXPECT_EQ(RateOf(60, 1), Rate::k60);
  EXPECT_FALSE(RateOf(15, 1));
  EXPECT_FALSE(RateOf(0, 1));
  EXPECT_FALSE(RateOf(25, 0));
}

TEST(Timecode, CountsDropFrame) {
  EXPECT_EQ(PictureOf({0, 0, 59, 29}, 30, true), 1799);
  EXPECT_EQ(PictureOf({0, 1, 0, 2}, 30, true), 1800);
  EXPECT_FALSE(PictureOf({0, 1, 0, 0}, 30, true));
  EXPECT_FALSE(PictureOf({0, 1, 0, 1}, 30, true));
  EXPECT_EQ(PictureOf({0, 10, 0, 0}, 30, true), 17982);
  EXPECT_EQ(PictureOf({1, 0, 0, 0}, 30, true), 107892);
  EXPECT_EQ(PictureOf({0, 1, 0, 4}, 60, true), 3600);
  EXPECT_FALSE(PictureOf({0, 1, 0, 3}, 60, true));
  EXPECT_EQ(PictureOf({0, 1, 0, 0}, 30, false), 1800);
  EXPECT_FALSE(PictureOf({0, 0, 0, 30}, 30, false));
  EXPECT_FALSE(PictureOf({24, 0, 0, 0}, 30, false));
}

TEST(Timecode, IsTheReverseOfItself) {
  for (const auto& [nominal, dropFrame] :
       {std::pair{24, false}, {25, false}, {30, false}, {30, true}, {50, false}, {60, false}, {60, true}}) {
    for (int64_t picture = 0; picture < 200000; picture += 7) {
      ASSERT_EQ(PictureOf(TimecodeOf(picture, nominal, dropFrame), nominal, dropFrame), picture);
    }
  }
}

TEST(Timecode, ReadsAndWritesText) {
  bool dropFrame = true;
  EXPECT_EQ(ParseTimecode("01:02:03:04", &dropFrame), (Timecode{1, 2, 3, 4}));
  EXPECT_FALSE(dropFrame);
  for (const char* text : {"01:02:03;04", "01:02:03.04", "01:02:03,04"}) {
    EXPECT_EQ(ParseTimecode(text, &dropFrame), (Timecode{1, 2, 3, 4}));
    EXPECT_TRUE(dropFrame);
  }
  for (const char* text : {"", "1:02:03:04", "01:02:03:4", "01:02:03:0a", "01-02:03:04", "01:02:03:04 "}) {
    EXPECT_FALSE(ParseTimecode(text, &dropFrame)) << text;
  }
  EXPECT_EQ(FormatTimecode({1, 2, 3, 4}, true), "01:02:03;04");
  EXPECT_EQ(FormatTimecode({23, 59, 59, 24}, false), "23:59:59:24");
}

// Pairs of line 21 in each of the first pictures, and their sum over a second.
std::vector<int> PairsPerPicture(Rate rate) {
  Sequencer sequencer(rate);
  std::vector<int> counts;
  for (int i = 0; i < InfoOf(rate).nominal; ++i) {
    int pairs = 0;
    for (const Triplet& t : sequencer.NextPicture()) {
      if (t.valid && (t.type == CcType::kField1 || t.type == CcType::kField2)) ++pairs;
    }
    counts.push_back(pairs);
  }
  return counts;
}

TEST(Sequencer, SendsSixtyFieldsASecond) {
  for (int i = 0; i < kRateCount; ++i) {
    const std::vector<int> counts = PairsPerPicture(static_cast<Rate>(i));
    int sum = 0;
    for (const int count : counts) sum += count;
    EXPECT_EQ(sum, 60);
  }
  EXPECT_EQ(PairsPerPicture(Rate::k24)[0], 2);
  EXPECT_EQ(PairsPerPicture(Rate::k24)[1], 3);
  EXPECT_EQ(PairsPerPicture(Rate::k29_97), std::vector<int>(30, 2));
  EXPECT_EQ(PairsPerPicture(Rate::k59_94), std::vector<int>(60, 1));
}

TEST(Sequencer, TakesFieldsInTurn) {
  for (int i = 0; i < kRateCount; ++i) {
    const Rate rate = static_cast<Rate>(i);
    Sequencer sequencer(rate);
    std::vector<Pair> first, second;
    for (int n = 0; n < 200; ++n) {
      first.push_back(static_cast<Pair>(0x1000 + n));
      second.push_back(static_cast<Pair>(0x2000 + n));
    }
    sequencer.AddPairs(1, first);
    sequencer.AddPairs(2, second);
    int field = 0;
    for (int n = 0; n < 100; ++n) {
      const std::vector<Triplet> picture = sequencer.NextPicture();
      ASSERT_EQ(picture.size(), static_cast<size_t>(InfoOf(rate).triplets));
      bool pairsOver = false;
      for (const Triplet& t : picture) {
        if (!t.valid) {
          EXPECT_EQ(t, Triplet{});
          pairsOver = true;
          continue;
        }
        ASSERT_FALSE(pairsOver);
        ASSERT_EQ(static_cast<int>(t.type), field % 2);
        const std::vector<Pair>& sent = field % 2 == 0 ? first : second;
        ASSERT_EQ(t.first << 8 | t.second, sent[static_cast<size_t>(field / 2)]);
        ++field;
      }
    }
  }
}

TEST(Sequencer, PutsServiceDataBehindThePairs) {
  Sequencer sequencer(Rate::k60);
  const std::vector<Triplet> service = TripletsOf(MakeChannelPacket(0, {{1, Bytes(30, 0x41)}}));
  ASSERT_EQ(service.size(), 16u);
  sequencer.AddService(service);
  std::vector<Triplet> sent;
  for (int n = 0; n < 2; ++n) {
    const std::vector<Triplet> picture = sequencer.NextPicture();
    sent.insert(sent.end(), picture.begin() + 1, picture.end());
  }
  EXPECT_EQ(std::vector<Triplet>(sent.begin(), sent.begin() + 16), service);
  EXPECT_EQ(sent[16], Triplet{});
  EXPECT_TRUE(sequencer.empty());
}

TEST(Sequencer, CountsItsPackets) {
  Sequencer sequencer(Rate::k25);
  EXPECT_EQ(sequencer.NextPacket().counter, 0);
  const CaptionPacket packet = sequencer.NextPacket();
  EXPECT_EQ(packet.counter, 1);
  EXPECT_EQ(packet.rate, Rate::k25);
  EXPECT_EQ(packet.triplets.size(), 24u);
}

TEST(Line21, HasOddParity) {
  for (int byte = 0; byte < 128; ++byte) {
    int bits = 0;
    const uint8_t coded = WithOddParity(static_cast<uint8_t>(byte));
    for (int i = 0; i < 8; ++i) bits += coded >> i & 1;
    EXPECT_EQ(bits % 2, 1);
    EXPECT_EQ(coded & 0x7F, byte);
  }
  EXPECT_EQ(MakePair(0, 0), kNullPair);
}

TEST(Line21, MakesPopOnCaptions) {
  // ENM, RCL, row 15, "HI!", EOC.
  EXPECT_EQ(PopOnCaption("HI!"), (std::vector<Pair>{0x94AE, 0x94AE, 0x9420, 0x9420, 0x9470, 0x9470, 0xC849,
                                                    0xA180, 0x942F, 0x942F}));
  // The first of two lines stands in the row above.
  const std::vector<Pair> two = PopOnCaption("A\nB");
  EXPECT_EQ(two[4], 0x94D0);  // row 14
  EXPECT_EQ(two[6], 0xC180);
  EXPECT_EQ(two[7], 0x9470);  // row 15
  EXPECT_EQ(EraseCaption(), (std::vector<Pair>{0x942C, 0x942C}));
}

}  // namespace
}  // namespace qlnmedia::captions
