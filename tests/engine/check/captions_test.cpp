// Captions of a stream against its rate, from numbers of triplets made by hand.

#include "check/captions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check_parts.h"

namespace qlnmedia {
namespace {

using test::Lines;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint8_t kNone = CaptionSurvey::kNone;

// At 25 pictures a second, where each has 24 triplets.
std::vector<std::string> Check(const std::vector<uint8_t>& counts) {
  CaptionSurvey survey;
  survey.stream = 1;
  survey.pace.rate = captions::Rate::k25;
  survey.pace.picturesPerSecond = 25;
  survey.counts = counts;
  FindingList findings;
  CheckCaptions(survey, findings);
  return Lines(findings.findings());
}

TEST(CaptionChecks, SteadyCaptionsAndNoneAtAllAreQuiet) {
  EXPECT_THAT(Check({24, 24, 24}), IsEmpty());
  EXPECT_THAT(Check({kNone, kNone, kNone}), IsEmpty());
  EXPECT_THAT(Check({}), IsEmpty());
}

TEST(CaptionChecks, CountsThatAreNotThoseOfTheRate) {
  EXPECT_THAT(Check({24, 20, 26, 20}),
              ElementsAre("captions@1x2: a picture with 20 caption triplets, fewer than the 24 of its rate",
                          "captions@2: a picture with 26 caption triplets, more than the 24 of its rate"));
}

TEST(CaptionChecks, GapsAtTheBeginningInTheMiddleAndAtTheEnd) {
  EXPECT_THAT(
      Check({kNone, 24, kNone, kNone, kNone, kNone, kNone, 24, kNone}),
      ElementsAre("captions@0x2: a picture without captions in a stream that has some",
                  "captions@2: a gap of 5 pictures (0.20 s) without captions in a stream that has some"));
}

TEST(CaptionChecks, ABurstServesThePicturesAroundIt) {
  EXPECT_THAT(
      Check({24, kNone, 48, 24}),
      ElementsAre("captions@2: a burst of 48 caption triplets on one picture between pictures without any; "
                  "its rate asks for 24 on each"));
}

}  // namespace
}  // namespace qlnmedia
