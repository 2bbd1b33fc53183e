// Caption files as events by time, and events spread over pictures.

#include "captions/caption_track.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "captions/mcc_file.h"
#include "captions/scc_file.h"

namespace qlnmedia::captions {
namespace {

const char* const kScc = "Scenarist_SCC V1.0\n\n01:00:00:10\t9420 9470 c74f\n\n01:00:01:00\t942c\n";

CaptionTrack TrackOf(std::string_view text) {
  std::string reason;
  std::optional<CaptionTrack> track = ReadCaptionTrack(text, &reason);
  EXPECT_TRUE(track) << reason;
  return track.value_or(CaptionTrack());
}

// The pairs of field 1 that say something, by picture.
std::vector<std::pair<int, int>> PairsOf(CaptionPictures pictures, int count) {
  std::vector<std::pair<int, int>> pairs;
  for (int i = 0; i < count; ++i) {
    for (const Triplet& t : pictures.Next(i)) {
      if (t.valid && t.type == CcType::kField1 && ((t.first | t.second) & 0x7F) != 0)
        pairs.emplace_back(i, t.first << 8 | t.second);
    }
  }
  return pairs;
}

std::string MccText(const std::vector<std::pair<const char*, Bytes>>& lines, const char* rate = "30") {
  std::string text = std::string("File Format=MacCaption_MCC V1.0\n\nTime Code Rate=") + rate + "\n\n";
  for (const auto& [at, cdp] : lines) {
    Bytes anc = WrapInAnc(cdp);
    anc.push_back(AncChecksum(anc));
    text += std::string(at) + "\t" + ShortenAnc(anc) + "\n";
  }
  return text;
}

Bytes Cdp(size_t triplets, uint8_t text = 0x41) {
  CaptionPacket packet;
  packet.triplets.assign(triplets, Triplet{});
  if (triplets != 0) packet.triplets[0] = {true, CcType::kField1, 0xC1, text};
  return WriteCdp(packet);
}

TEST(CaptionTrack, BeginsAtItsWholeHour) {
  const CaptionTrack track = TrackOf(kScc);
  EXPECT_EQ(track.FirstHour(), 108000);
  EXPECT_EQ(track.FrameOf("01:00:00:10"), 108010);
  EXPECT_FALSE(track.FrameOf("01:00:00:30"));
  EXPECT_FALSE(track.FrameOf("noon"));
  EXPECT_EQ(PairsOf(CaptionPictures(track, Rate::k29_97, track.FirstHour()), 60),
            (std::vector<std::pair<int, int>>{{10, 0x9420}, {11, 0x9470}, {12, 0xC74F}, {30, 0x942C}}));
}

TEST(CaptionTrack, CountsDropFrames) {
  const CaptionTrack track = TrackOf("Scenarist_SCC V1.0\n\n00:01:00;02\t9420\n");
  EXPECT_EQ(track.events.front().at, 1800);
}

TEST(CaptionPictures, AreAsManyAsTheRateAsksFor) {
  const CaptionTrack track = TrackOf(kScc);
  const std::pair<Rate, size_t> counts[] = {{Rate::k23_976, 25}, {Rate::k24, 25}, {Rate::k25, 24},
                                            {Rate::k29_97, 20},  {Rate::k30, 20}, {Rate::k50, 12},
                                            {Rate::k59_94, 10},  {Rate::k60, 10}};
  for (const auto& [rate, count] : counts) {
    CaptionPictures pictures(track, rate, track.FirstHour());
    for (int i = 0; i < 120; ++i) ASSERT_EQ(pictures.Next(i).size(), count) << InfoOf(rate).name;
    EXPECT_EQ(pictures.left(), 0u);
  }
}

TEST(CaptionPictures, AreConvertedByTime) {
  const CaptionTrack track = TrackOf(kScc);
  // Frame 10 of 29.97 is picture 8 of 23.976, and the eighth of 25 is nearer to it than the ninth.
  for (const auto& [rate, first, last] : {std::tuple{Rate::k23_976, 8, 24}, std::tuple{Rate::k25, 8, 25},
                                          std::tuple{Rate::k59_94, 20, 60}, std::tuple{Rate::k30, 10, 30}}) {
    const auto pairs = PairsOf(CaptionPictures(track, rate, track.FirstHour()), 100);
    ASSERT_EQ(pairs.size(), 4u);
    EXPECT_EQ(pairs.front(), (std::pair{first, 0x9420})) << InfoOf(rate).name;
    EXPECT_EQ(pairs.back(), (std::pair{last, 0x942C})) << InfoOf(rate).name;
  }
  EXPECT_TRUE(CaptionPictures(track, Rate::k25, 0).converted());
  EXPECT_FALSE(CaptionPictures(track, Rate::k29_97, 0).converted());
  EXPECT_FALSE(CaptionPictures(track, Rate::k59_94, 0).converted());
  EXPECT_FALSE(CaptionPictures(track, Rate::k30, 0).converted());
}

TEST(CaptionPictures, TellWhatIsLost) {
  const CaptionTrack track = TrackOf(kScc);
  CaptionPictures pictures(track, Rate::k29_97, 108011);
  EXPECT_EQ(pictures.early(), 1u);
  EXPECT_EQ(pictures.left(), 3u);
  EXPECT_EQ(PairsOf(pictures, 1), (std::vector<std::pair<int, int>>{{0, 0x9470}}));
  pictures.Next(0);
  EXPECT_EQ(pictures.left(), 2u);
}

TEST(CaptionPictures, KeepPacketsOfTheSameRateAsTheyAre) {
  const CaptionTrack track = TrackOf(MccText({{"00:00:00:01", Cdp(20)}}));
  CaptionPictures pictures(track, Rate::k29_97, 0);
  EXPECT_EQ(pictures.Next(0)[0], (Triplet{true, CcType::kField1, 0x80, 0x80}));
  const std::vector<Triplet> second = pictures.Next(1);
  ASSERT_EQ(second.size(), 20u);
  EXPECT_EQ(second[0], (Triplet{true, CcType::kField1, 0xC1, 0x41}));
  EXPECT_EQ(second[1], Triplet());
}

TEST(CaptionPictures, SpreadBursts) {
  CaptionPacket burst;
  burst.triplets.assign(31, Triplet{true, CcType::kServiceData, 1, 2});
  const CaptionTrack track = TrackOf(MccText({{"00:00:00:00", WriteCdp(burst)}}));
  CaptionPictures pictures(track, Rate::k29_97, 0);
  size_t sent = 0;
  for (int i = 0; i < 2; ++i) {
    const std::vector<Triplet> triplets = pictures.Next(i);
    EXPECT_EQ(triplets.size(), 20u);
    sent += static_cast<size_t>(std::count(triplets.begin(), triplets.end(), burst.triplets[0]));
  }
  EXPECT_EQ(sent, 31u);
}

TEST(CaptionTrack, NamesTheLineThatIsWrong) {
  const std::string good = MccText({{"00:00:00:01", Cdp(20)}});
  std::string broken = good;
  broken.replace(broken.size() - 3, 2, "00");
  const std::pair<std::string, const char*> texts[] = {
      {"", "line 0: neither a Scenarist file (.scc) nor a MacCaption file (.mcc)"},
      {"hello\n", "line 1: neither a Scenarist file (.scc) nor a MacCaption file (.mcc)"},
      {"Scenarist_SCC V1.0\n\n", "holds no captions"},
      {"Scenarist_SCC V1.0\n\n00:00:02:00\t9420\n\n00:00:01:00\t9420\n", "line 5: the time goes back"},
      {"Scenarist_SCC V1.0\n\n00:00:02:00\t9420 94", "line 3: not groups of four hexadecimal digits"},
      {MccText({{"00:00:00:02", Cdp(20)}, {"00:00:00:01", Cdp(20)}}), "line 6: the time goes back"},
      {broken, "line 5: the ANC checksum is wrong"},
      {good.substr(0, good.size() - 4), "line 5: not hexadecimal digits and shorthand"},
      {MccText({{"00:00:00:01", Bytes{0x96, 0x69, 4, 0x4F}}}),
       "line 5: the packet is too short for its sections"},
  };
  for (const auto& [text, expected] : texts) {
    std::string reason;
    EXPECT_FALSE(ReadCaptionTrack(text, &reason)) << text;
    EXPECT_EQ(reason, expected) << text;
  }
}

TEST(CaptionTrack, TakesMarksCommentsAndOtherPackets) {
  const std::string good = MccText({{"00:00:00:01", Cdp(20)}});
  std::string text = "\xEF\xBB\xBF" + good + "// the end\r\n00:00:00:02\t61020300000066\r\n";
  EXPECT_EQ(TrackOf(text).events.size(), 1u);
}

TEST(CaptionPictures, GoByTimeWherePicturesAreMissing) {
  const CaptionTrack track = TrackOf(kScc);
  CaptionPictures pictures(track, Rate::k29_97, track.FirstHour());
  // Frames 9 to 11 and 30 have no picture: the pairs of frames 10 to 12 begin at frame 12, one a picture.
  std::vector<std::pair<int64_t, int>> pairs;
  for (const int64_t number : {0, 8, 12, 13, 14, 15, 29, 31, 32}) {
    for (const Triplet& t : pictures.Next(number)) {
      if (t.valid && t.type == CcType::kField1 && t.first != 0x80)
        pairs.emplace_back(number, t.first << 8 | t.second);
    }
  }
  EXPECT_EQ(pairs,
            (std::vector<std::pair<int64_t, int>>{{12, 0x9420}, {13, 0x9470}, {14, 0xC74F}, {31, 0x942C}}));
}

TEST(CaptionPictures, LoseNothingWherePicturesOfTheSameRateAreMissing) {
  const CaptionTrack track = TrackOf(
      MccText({{"00:00:00:00", Cdp(20, 1)}, {"00:00:00:01", Cdp(20, 2)}, {"00:00:00:02", Cdp(20, 4)}}));
  CaptionPictures pictures(track, Rate::k29_97, 0);
  std::vector<uint8_t> sent;
  for (const int64_t number : {0, 2, 3}) {
    const std::vector<Triplet> triplets = pictures.Next(number);
    EXPECT_EQ(triplets.size(), 20u);
    if (triplets[0].first == 0xC1) sent.push_back(triplets[0].second);
  }
  EXPECT_EQ(sent, (std::vector<uint8_t>{1, 2, 4}));
}

TEST(CaptionTrack, IsWrittenAndReadBack) {
  const CaptionTrack track = TrackOf(kScc);
  CaptionPictures pictures(track, Rate::k59_94, track.FirstHour());
  MccTrackWriter mcc(Rate::k59_94);
  SccTrackWriter scc(Rate::k59_94);
  std::string text = mcc.Heading();
  std::vector<std::vector<Triplet>> all;
  for (int i = 0; i < 120; ++i) {
    all.push_back(pictures.Next(i));
    text += mcc.Lines(all.back(), i);
    scc.Add(all.back(), i);
  }
  const CaptionTrack again = TrackOf(text);
  EXPECT_EQ(again.rate, Rate::k59_94);
  ASSERT_EQ(again.events.size(), all.size());
  for (size_t i = 0; i < all.size(); ++i) EXPECT_EQ(again.events[i].triplets, all[i]) << i;
  EXPECT_EQ(scc.Text(), "Scenarist_SCC V1.0\n\n00:00:00:10\t9420 9470 c74f\n\n00:00:01:00\t942c\n");
}

TEST(CaptionTrack, WritesBurstsAsSeveralPackets) {
  std::vector<Triplet> burst;
  for (int i = 0; i < 70; ++i)
    burst.push_back({true, CcType::kServiceData, static_cast<uint8_t>(i), static_cast<uint8_t>(i + 1)});
  MccTrackWriter writer(Rate::k29_97);
  const std::string lines = writer.Lines(burst, 31);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 3);
  const CaptionTrack track = TrackOf(writer.Heading() + lines);
  ASSERT_EQ(track.events.size(), 1u);
  EXPECT_EQ(track.events[0].at, 31);
  EXPECT_EQ(track.events[0].triplets, burst);
  EXPECT_EQ(writer.Lines({}, 32), "");
}

// Drop-frame labels keep to the clock: 01:00:00;00 comes 3600 seconds behind 00:00:00;00 to within a part in
// a million, and 00:59:59;29 one frame before it, whatever the stream's rate.
TEST(CaptionTrack, DropFrameLabelsGoByTime) {
  const CaptionTrack track =
      TrackOf("Scenarist_SCC V1.0\n\n00:00:01;00\tc1c1\n\n00:59:59;29\tc2c2\n\n01:00:00;00\t4343\n");
  struct Case {
    Rate rate;
    bool converted;
    int second, last;  // pictures of the second and the third pair
  };
  // 107891 frames at 1001 / 30000 seconds are 3599.96 seconds, 107892 are 3599.9964.
  for (const Case& test : {Case{Rate::k29_97, false, 107891, 107892}, Case{Rate::k30, true, 107999, 108000},
                           Case{Rate::k59_94, false, 215782, 215784}, Case{Rate::k60, true, 215998, 216000},
                           Case{Rate::k25, true, 90000, 90001}}) {
    EXPECT_EQ(CaptionPictures(track, test.rate, 0).converted(), test.converted);
    const auto pairs = PairsOf(CaptionPictures(track, test.rate, 0), test.last + 4);
    ASSERT_EQ(pairs.size(), 3u);
    EXPECT_LE(std::abs(pairs[1].first - test.second), 1) << pairs[1].first;
    EXPECT_LE(std::abs(pairs[2].first - test.last), 1) << pairs[2].first;
    EXPECT_EQ(pairs[2].second, 0x4343);
  }
  // Labels that leave nothing out are frames, at either rate.
  const CaptionTrack plain = TrackOf("Scenarist_SCC V1.0\n\n01:00:00:00\tc1c1\n");
  for (const Rate rate : {Rate::k29_97, Rate::k30})
    EXPECT_EQ(PairsOf(CaptionPictures(plain, rate, 0), 108002).at(0).first, 108000);
}

// A .mcc file says its rate in its packets as well; with drop-frame labels the labels' one counts.
TEST(CaptionTrack, DropFrameLabelsOfPacketsGoByTime) {
  for (const Rate said : {Rate::k29_97, Rate::k30}) {
    CaptionPacket packet;
    packet.rate = said;
    packet.triplets.assign(20, Triplet{});
    packet.triplets[0] = {true, CcType::kField1, 0xC1, 0xC1};
    const CaptionTrack track = TrackOf(MccText({{"01:00:00;00", WriteCdp(packet)}}, "30DF"));
    EXPECT_EQ(track.rate, Rate::k29_97);
    EXPECT_TRUE(CaptionPictures(track, Rate::k30, 0).converted());
    EXPECT_EQ(PairsOf(CaptionPictures(track, Rate::k30, 0), 108010).at(0).first, 108000);
  }
}

// SMPTE ST 12-1: behind 00:00:59;29 comes 00:01:00;02.
TEST(CaptionTrackWriters, LabelsLeaveNumbersOut) {
  const std::vector<Triplet> pair = {{true, CcType::kField1, 0xC1, 0xC1}};
  MccTrackWriter mcc(Rate::k29_97, true);
  EXPECT_NE(mcc.Heading().find("Time Code Rate=30DF"), std::string::npos);
  EXPECT_EQ(mcc.Lines(pair, 1799).substr(0, 11), "00:00:59:29");
  EXPECT_EQ(mcc.Lines(pair, 1800).substr(0, 11), "00:01:00:02");
  EXPECT_EQ(mcc.Lines(pair, 17982).substr(0, 11), "00:10:00:00");
  MccTrackWriter fast(Rate::k59_94, true);
  EXPECT_NE(fast.Heading().find("Time Code Rate=60DF"), std::string::npos);
  EXPECT_EQ(fast.Lines(pair, 3600).substr(0, 11), "00:01:00:04");
  SccTrackWriter scc(Rate::k29_97, true);
  scc.Add(pair, 1799);
  scc.Add(pair, 1801);
  EXPECT_NE(scc.Text().find("00:00:59;29\tc1c1\n\n00:01:00;03\tc1c1"), std::string::npos) << scc.Text();
  // At exactly 30 and 60 pictures a second labels go by time: 60 seconds are 1798.2 frames of 29.97.
  for (const auto& [rate, number] : {std::pair{Rate::k30, 1800}, {Rate::k60, 3600}, {Rate::k25, 1500}}) {
    SccTrackWriter writer(rate, true);
    writer.Add(pair, number);
    EXPECT_NE(writer.Text().find("00:00:59;28\tc1c1"), std::string::npos) << writer.Text();
  }
}

// 1.1667 seconds are 35 frames of 30: picture 28 of 24, and of 25 the one at 1.16 seconds.
TEST(CaptionTrackWriters, LabelsOfSccAreTheNearestOnes) {
  const std::vector<Triplet> pair = {{true, CcType::kField1, 0xC1, 0xC1}};
  for (const auto& [rate, number, label] :
       {std::tuple{Rate::k24, 28, "00:00:01:05"}, std::tuple{Rate::k25, 29, "00:00:01:05"},
        std::tuple{Rate::k25, 1, "00:00:00:01"}, std::tuple{Rate::k25, 2, "00:00:00:02"},
        std::tuple{Rate::k25, 3, "00:00:00:04"}, std::tuple{Rate::k59_94, 71, "00:00:01:05"},
        std::tuple{Rate::k29_97, 35, "00:00:01:05"}}) {
    SccTrackWriter writer(rate);
    writer.Add(pair, number);
    EXPECT_NE(writer.Text().find(std::string("\n") + label + "\t"), std::string::npos) << writer.Text();
  }
}

// Each picture's label leads back to it, where there are enough labels.
TEST(CaptionTrackWriters, LabelsLeadBackToTheirPictures) {
  for (const Rate rate : {Rate::k23_976, Rate::k24, Rate::k25, Rate::k29_97, Rate::k30}) {
    for (int number = 0; number < 60; ++number) {
      SccTrackWriter writer(rate, false, 108000);
      writer.Add({{true, CcType::kField1, 0x94, 0x2C}}, number);
      EXPECT_EQ(PairsOf(CaptionPictures(TrackOf(writer.Text()), rate, 108000), 70),
                (std::vector<std::pair<int, int>>{{number, 0x942C}}))
          << InfoOf(rate).name;
    }
  }
}

TEST(CaptionTrackWriters, LabelsBeginWhereTheyAreToldTo) {
  const std::vector<Triplet> pair = {{true, CcType::kField1, 0xC1, 0xC1}};
  SccTrackWriter scc(Rate::k29_97, true, 17982);  // 00:10:00;00
  scc.Add(pair, 0);
  scc.Add(pair, 1800);
  EXPECT_NE(scc.Text().find("\n00:10:00;00\tc1c1\n\n00:11:00;02\tc1c1"), std::string::npos) << scc.Text();
  MccTrackWriter mcc(Rate::k25, false, 90000);
  EXPECT_EQ(mcc.Lines(pair, 26).substr(0, 11), "01:00:01:01");
}

}  // namespace
}  // namespace qlnmedia::captions
