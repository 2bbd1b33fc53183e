// Services told apart and decoded, with the times of their pictures.

#include "captions/decoder.h"

#include <gtest/gtest.h>

#include "captions/line21.h"
#include "captions/service_block.h"
#include "captions/text.h"

namespace qlnmedia {
namespace {

using qlnmedia::captions::CcType;
using qlnmedia::captions::Pair;
using qlnmedia::captions::Triplet;

constexpr double kPicture = 0.04;

class Stream {
 public:
  // One picture a triplet, from the given picture on.
  void At(int picture, const Triplets& triplets) {
    for (; picture_ < picture; ++picture_) decoder_.Add({}, kPicture * picture_);
    for (const Triplet& t : triplets) decoder_.Add({t}, kPicture * picture_++);
  }
  void Pairs(int picture, CcType field, const std::vector<Pair>& pairs) {
    Triplets triplets;
    for (const Pair pair : pairs)
      triplets.push_back({true, field, static_cast<uint8_t>(pair >> 8), static_cast<uint8_t>(pair)});
    At(picture, triplets);
  }
  void Service(int picture, const std::string& text, int service) {
    for (const auto& block : qlnmedia::captions::ShowText(text, service)) {
      At(picture,
         qlnmedia::captions::TripletsOf(qlnmedia::captions::MakeChannelPacket(sequence_++, {block})));
      picture = picture_;
    }
  }
  std::vector<CaptionService> Finish(int picture) {
    decoder_.Finish(kPicture * picture);
    return decoder_.services();
  }

 private:
  CaptionDecoder decoder_;
  int picture_ = 0;
  int sequence_ = 0;
};

// The times of an .srt file's cues, "begin --> end" each.
std::vector<std::pair<std::string, std::string>> CuesOf(const std::string& srt) {
  std::vector<std::pair<std::string, std::string>> cues;
  for (size_t at = 0; (at = srt.find(" --> ", at)) != std::string::npos; ++at)
    cues.emplace_back(srt.substr(at - 12, 12), srt.substr(at + 5, 12));
  return cues;
}

// Pop-on captions one right behind the other, each shown so many pictures, at rates whose pictures take no
// whole milliseconds: a cue ends where the next one begins.
TEST(CaptionDecoder, CuesMeetWithoutOverlap) {
  for (const double picture : {1 / 30.0, 1001 / 30000.0, 1001 / 24000.0, 1 / 60.0, 0.04}) {
    CaptionDecoder decoder;
    constexpr int kPictures = 1500;
    // The pairs of the pictures: RCL, ENM, PAC, two letters, EOC, each control code twice.
    std::vector<Pair> pairs(kPictures, 0x8080);
    for (int at = 0, number = 0; at + 20 < kPictures; at += 20 + 7 * (number++ % 5)) {
      const auto letters = static_cast<Pair>(
          0xC100 | qlnmedia::captions::WithOddParity(static_cast<uint8_t>('A' + number % 26)));
      const Pair caption[] = {0x9420, 0x9420, 0x94AE, 0x94AE, 0x9470, 0x9470, letters, 0x942F, 0x942F};
      std::copy(std::begin(caption), std::end(caption), pairs.begin() + at);
    }
    std::vector<double> times;
    for (int i = 0; i < kPictures; ++i) {
      times.push_back(i * picture);
      const Pair pair = pairs[static_cast<size_t>(i)];
      decoder.Add({{true, CcType::kField1, static_cast<uint8_t>(pair >> 8), static_cast<uint8_t>(pair)}},
                  times.back());
    }
    decoder.Finish(kPictures * picture);
    const std::vector<CaptionLine> lines = decoder.services().at(0).lines;
    ASSERT_GT(lines.size(), 40u);
    const auto cues = CuesOf(WriteSrt(lines));
    ASSERT_EQ(cues.size(), lines.size());
    for (size_t i = 0; i + 1 < cues.size(); ++i) EXPECT_EQ(cues[i].second, cues[i + 1].first) << picture;
  }
}

TEST(CaptionDecoder, TellsTheServicesOfLine21Apart) {
  Stream stream;
  // RCL, "HI", EOC on channel 1; the same codes of channel 2 have bit 3 set.
  stream.Pairs(0, CcType::kField1, {0x9420, 0x9420, 0x9470, 0xC849, 0x942F, 0x942F});
  stream.Pairs(10, CcType::kField1, {0x1C20, 0x1C20, 0x1C70, 0xC84F, 0x1C2F, 0x1C2F});
  stream.Pairs(20, CcType::kField1, {0x942A, 0xC1C1});          // TR: text of T1
  stream.Pairs(30, CcType::kField2, {0x0185, 0xC1C1, 0x8F62});  // a packet of extended data services
  stream.Pairs(40, CcType::kField2, {0x1520, 0x1520, 0x1570, 0x4FCB, 0x152F, 0x152F});
  const std::vector<CaptionService> services = stream.Finish(100);
  EXPECT_EQ(NamesOf(services), "CC1, T1, CC2, CC3, XDS");
  ASSERT_EQ(services.size(), 5u);
  ASSERT_EQ(services[0].lines.size(), 1u);
  EXPECT_EQ(services[0].lines[0].text, "HI");
  EXPECT_NEAR(services[0].lines[0].begin, 4 * kPicture, 0.002);
  ASSERT_EQ(services[2].lines.size(), 1u);
  EXPECT_EQ(services[2].lines[0].text, "HO");
  EXPECT_NEAR(services[2].lines[0].begin, 14 * kPicture, 0.002);
  ASSERT_EQ(services[3].lines.size(), 1u);
  EXPECT_EQ(services[3].lines[0].text, "OK");
  EXPECT_NEAR(services[3].lines[0].end, 100 * kPicture, 0.002);
}

TEST(CaptionDecoder, NullPairsAreNoService) {
  Stream stream;
  stream.Pairs(0, CcType::kField1, {0x8080, 0x8080});
  stream.At(2, {{false, CcType::kField1, 0x94, 0x20}, {false, CcType::kServiceStart, 2, 0x21}});
  EXPECT_EQ(NamesOf(stream.Finish(10)), "");
}

TEST(CaptionDecoder, ShowsDigitalServices) {
  Stream stream;
  stream.Service(0, "ONE\nTWO", 1);
  stream.Service(25, "DEUX", 2);
  stream.Service(50, "THREE", 1);
  const std::vector<CaptionService> services = stream.Finish(75);
  ASSERT_EQ(NamesOf(services), "service 1, service 2");
  ASSERT_EQ(services[0].lines.size(), 2u);
  EXPECT_EQ(services[0].lines[0].text, "ONE\nTWO");
  EXPECT_EQ(services[0].lines[1].text, "THREE");
  EXPECT_EQ(services[1].lines.size(), 1u);
  // The first line begins with the picture that completes its packet and ends with the one that replaces it.
  EXPECT_LT(services[0].lines[0].begin, 25 * kPicture);
  EXPECT_NEAR(services[0].lines[0].end, services[0].lines[1].begin, 1e-9);
  EXPECT_GE(services[0].lines[1].begin, 50 * kPicture);
  EXPECT_NEAR(services[0].lines[1].end, 75 * kPicture, 1e-9);
}

TEST(CaptionDecoder, TakesCharactersThatAreAddedAsOneCaption) {
  Stream stream;
  stream.Service(0, "A LINE THAT IS LONGER THAN ONE BLOCK", 1);
  const std::vector<CaptionService> services = stream.Finish(75);
  ASSERT_EQ(services.size(), 1u);
  ASSERT_EQ(services[0].lines.size(), 1u);
  EXPECT_EQ(services[0].lines[0].text, "A LINE THAT IS LONGER THAN ONE B");  // a row has 32 places
}

}  // namespace
}  // namespace qlnmedia
