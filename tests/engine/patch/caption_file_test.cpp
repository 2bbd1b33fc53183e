// A caption file on its way into a stream: offsets, rates, and what is said of it.

#include "patch/caption_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "small_files.h"

namespace qlnmedia {
namespace {

using test::RefusalOf;
using testing::ElementsAre;
using testing::HasSubstr;

// A Scenarist file: line 21 code pairs with odd parity, one a frame, two from 01:00:00:00 and from
// 01:00:01:00 on.
const char* const kScc = "Scenarist_SCC V1.0\n\n01:00:00:00\t9420 9420\n\n01:00:01:00\t942c 942c\n";

// What a first pass finds of `count` steady pictures a second apart by 1/rate, none captioned.
CaptionSurvey Survey(captions::Rate rate, size_t count) {
  const captions::RateInfo& info = captions::InfoOf(rate);
  CaptionSurvey survey;
  survey.pace.rate = survey.pace.nominal = rate;
  survey.pace.picturesPerSecond = static_cast<double>(info.numerator) / info.denominator;
  survey.counts.assign(count, CaptionSurvey::kNone);
  survey.order.pictures = static_cast<uint32_t>(count);
  for (uint32_t i = 0; i < count; ++i) survey.order.places.push_back(i);
  return survey;
}

class CaptionFiles : public testing::Test {
 protected:
  CaptionOptions Options(const std::string& offset = {}, const std::string& text = kScc) {
    return {files_.Put("captions.scc", text), offset, false};
  }
  // The pictures that get more than the padding of their rate.
  static std::vector<uint32_t> Filled(CaptionFile& file, uint32_t count) {
    const CaptionProvider provider = file.provider();
    std::vector<uint32_t> filled;
    for (uint32_t place = 0; place < count; ++place) {
      for (const captions::Triplet& triplet : provider(place)) {
        const bool padding = (triplet.first & 0x7F) == 0 && (triplet.second & 0x7F) == 0;
        if (!triplet.valid || padding || triplet.type != captions::CcType::kField1) continue;
        filled.push_back(place);
        break;
      }
    }
    return filled;
  }
  test::Files files_;
};

TEST_F(CaptionFiles, BeginAtTheirFirstWholeHour) {
  CaptionFile file(Options());
  const CaptionSurvey survey = Survey(captions::Rate::k29_97, 40);
  file.SpreadOver(survey, "clip", 0, "");
  EXPECT_THAT(Filled(file, 40), ElementsAre(0, 1, 30, 31));
}

TEST_F(CaptionFiles, BeginAtTheOffset) {
  CaptionFile file(Options("01:00:00:20"));
  const CaptionSurvey survey = Survey(captions::Rate::k29_97, 15);
  file.SpreadOver(survey, "clip", 3, "");
  EXPECT_THAT(Filled(file, 15), ElementsAre(10, 11));
  EditCounts counts;
  counts.captions = 15;
  counts.captionsRemoved = 2;
  EXPECT_THAT(
      file.Summary(counts),
      ElementsAre("stream 3: captions put into 15 pictures, 20 triplets each, 2 earlier ones taken out",
                  "warning: 2 frames of captions stand in front of the first picture and are lost"));
}

TEST_F(CaptionFiles, SayWhatDoesNotFit) {
  CaptionFile file(Options());
  CaptionSurvey survey = Survey(captions::Rate::k25, 10);
  survey.pace.steady = false;
  survey.order.timeBase = {1, 1000};
  survey.order.steps.assign(9, 40);
  file.SpreadOver(survey, "clip", 0, "");
  Filled(file, 10);
  EXPECT_THAT(file.Summary({}),
              ElementsAre("stream 0: captions put into 0 pictures, 24 triplets each",
                          HasSubstr("pictures are missing or of uneven length"),
                          AllOf(HasSubstr("is made for 29.97 pictures a second, the stream has 25"),
                                HasSubstr("times are converted")),
                          "warning: 2 frames of captions stand behind the last picture and are lost"));
}

TEST_F(CaptionFiles, AreRefusedWithTheReason) {
  EXPECT_THAT(RefusalOf([&] { CaptionFile file(Options("1 o'clock")); }),
              HasSubstr("\"1 o'clock\" is no timecode at the caption file's rate"));
  EXPECT_THAT(RefusalOf([&] { CaptionFile file(Options("01:00:00:30")); }), HasSubstr("is no timecode"));
  EXPECT_THAT(RefusalOf([&] { CaptionFile file(Options("", "Some text\n")); }), HasSubstr("captions.scc: "));
  EXPECT_THROW(CaptionFile({files_ / "none", "", false}), Error);
}

TEST_F(CaptionFiles, GoIntoNoStreamThatHasSomeOrKnowsNone) {
  CaptionSurvey captioned = Survey(captions::Rate::k25, 4);
  captioned.counts[2] = 20;
  CaptionFile file(Options());
  EXPECT_THAT(RefusalOf([&] { file.SpreadOver(captioned, "clip", 1, ""); }),
              HasSubstr("clip: stream 1 has captions on 1 pictures"));
  CaptionOptions replacing = Options();
  replacing.replace = true;
  CaptionFile replaced(replacing);
  EXPECT_EQ(RefusalOf([&] { replaced.SpreadOver(captioned, "clip", 1, ""); }), "");
  CaptionSurvey slow = Survey(captions::Rate::k25, 4);
  slow.pace = {};
  slow.pace.picturesPerSecond = 12.5;
  EXPECT_THAT(RefusalOf([&] { file.SpreadOver(slow, "clip", 0, ""); }),
              HasSubstr("stream 0 has 12.5 pictures a second, a rate without captions"));
}

// Nine pairs ahead of the picture at one second, 1.2 of them a picture; the end-of-caption code is on that
// picture, and what erases the caption on those at 1.2 seconds.
TEST_F(CaptionFiles, OfTextAreMadeAtTheRateOfTheStream) {
  const std::string path = files_.Put("captions.srt", "1\n00:00:01,000 --> 00:00:01,200\nHi\n");
  CaptionFile file({path, {}, false, {}});
  const CaptionSurvey survey = Survey(captions::Rate::k25, 40);
  file.SpreadOver(survey, "clip", 0, "");
  EXPECT_THAT(Filled(file, 40), ElementsAre(17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 30, 31));
  EditCounts counts;
  EXPECT_EQ(file.Summary(counts).size(), 1u);
}

TEST_F(CaptionFiles, OfTextAreRefusedOrFitted) {
  const std::string path = files_.Put("late.srt", "1\n00:00:00,100 --> 00:00:01,200\nHi\n");
  EXPECT_THROW((CaptionFile{{path, {}, false, {}}}), Error);
  CaptionSourceOptions fit;
  fit.fit = true;
  CaptionFile file({path, {}, false, fit});
  const CaptionSurvey survey = Survey(captions::Rate::k29_97, 40);
  file.SpreadOver(survey, "clip", 0, "");
  EditCounts counts;
  EXPECT_THAT(file.Summary(counts).at(1),
              HasSubstr("late.srt: line 2: \"Hi\" cannot be sent in time: it would be"));
  // A stream is named of media alone.
  CaptionSourceOptions stream;
  stream.stream = "1";
  EXPECT_THROW((CaptionFile{{files_.Put("captions.scc", kScc), {}, false, stream}}), Error);
}

}  // namespace
}  // namespace qlnmedia
