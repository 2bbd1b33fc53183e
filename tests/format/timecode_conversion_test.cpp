// Timecode counts from every rate to every type, held against lists of all the numbers that each type shows.

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "format/recorded_services.h"
#include "qlnutil/qlnformat.h"

namespace qln::test {
namespace {

using Calls = std::vector<std::string>;

class ConvertTimecode : public testing::Test {
 protected:
  void SetUp() override { ResetServices(); }
  void TearDown() override { ResetServices(); }
};

uint32_t Converted(uint32_t timecode, uint32_t target, uint32_t rate, uint32_t scale) {
  vidConvertTC(&timecode, target, rate, scale);
  return timecode;
}

TEST_F(ConvertTimecode, SameTypeCallsNothing) {
  EXPECT_EQ(Converted(1234, 8, 25, 1), 1234u);
  EXPECT_EQ(Converted(1234, 8, 100, 1), 1234u);
  EXPECT_EQ(Converted(1234, 0x3208, 25, 1), 1234u);
  EXPECT_EQ(Converted(1234, 4, 30000, 1001), 1234u);
  EXPECT_EQ(Converted(1234, 32, 60000, 1001), 1234u);
  EXPECT_EQ(Converted(1234, 64, 60, 1), 1234u);
  EXPECT_EQ(Services().calls, Calls{});
}

TEST_F(ConvertTimecode, ServiceGetsTheTypesAsTold) {
  // One hour of film is one hour of PAL.
  EXPECT_EQ(Converted(86400, 8, 24, 1), 90000u);
  EXPECT_EQ(Services().calls,
            (Calls{"TimeCodeToString 86400 0x32101", "TimeCodeFromString 01:00:00:00 0x8"}));
  ResetServices();
  EXPECT_EQ(Converted(90000, 0xABC01, 25, 1), 86400u);
  EXPECT_EQ(Services().calls,
            (Calls{"TimeCodeToString 90000 0x32108", "TimeCodeFromString 01:00:00:00 0xABC01"}));
}

TEST_F(ConvertTimecode, ScaleOfZeroCountsNonDrop) {
  EXPECT_EQ(Converted(1234, 2, 25, 0), 1234u);
  EXPECT_EQ(Converted(1234, 2, 0, 0), 1234u);
  EXPECT_EQ(Services().calls, Calls{});
  EXPECT_EQ(Converted(30, 8, 25, 0), 25u);
  EXPECT_EQ(Services().calls[0], "TimeCodeToString 30 0x32102");
}

TEST_F(ConvertTimecode, FastRatesDoubleBehindTheConversion) {
  EXPECT_EQ(Converted(60, 8, 60, 1), 50u);
  EXPECT_EQ(Converted(60, 8, 60000, 1001), 50u);
  EXPECT_EQ(Converted(60, 2, 60, 1), 60u);
  // 50 is no such rate.
  EXPECT_EQ(Converted(50, 8, 50, 1), 25u);
}

TEST_F(ConvertTimecode, DoublingWraps) {
  Services().timeCodeFromString = [](const char*, uint32_t* timecode) {
    *timecode = 0x80000003;
    return 0;
  };
  EXPECT_EQ(Converted(1, 8, 60, 1), 6u);
}

TEST_F(ConvertTimecode, TextThatIsNotTakenLeavesTheCount) {
  Services().timeCodeFromString = [](const char*, uint32_t*) { return -1; };
  EXPECT_EQ(Converted(77, 8, 24, 1), 77u);
  EXPECT_EQ(Converted(77, 8, 60, 1), 154u);
}

TEST_F(ConvertTimecode, ServiceThatWritesNothingLeavesAnEmptyText) {
  Services().timeCodeToString = [](uint32_t, char*) { return -1; };
  EXPECT_EQ(Converted(77, 8, 24, 1), 77u);
  EXPECT_EQ(Services().calls[1], "TimeCodeFromString  0x8");
}

TEST_F(ConvertTimecode, ServiceMayWrite32Characters) {
  const std::string longest(32, '1');
  Services().timeCodeToString = [&](uint32_t, char* output) {
    for (int i = 0; i < 33; ++i) EXPECT_EQ(output[i], '\0');
    std::memcpy(output, longest.c_str(), 33);
    return 0;
  };
  Services().timeCodeFromString = [&](const char* text, uint32_t* timecode) {
    *timecode = text == longest ? 1 : 0;
    return 0;
  };
  EXPECT_EQ(Converted(77, 8, 24, 1), 1u);
}

TEST_F(ConvertTimecode, NullCountCallsNothing) {
  vidConvertTC(nullptr, 8, 24, 1);
  EXPECT_EQ(Services().calls, Calls{});
}

// ---- All pairs ----

struct Label {
  uint32_t second;  // since 0:00:00
  uint32_t frame;
  auto operator<=>(const Label&) const = default;
};

// Every number that a type shows over 71 minutes, in order: the count is the place in the list.
class Numbering {
 public:
  Numbering(uint32_t framesPerSecond, uint32_t skippedPerMinute) : framesPerSecond_(framesPerSecond) {
    for (uint32_t second = 0; second < 71 * 60; ++second) {
      const bool skips = second % 60 == 0 && second / 60 % 10 != 0;
      for (uint32_t frame = skips ? skippedPerMinute : 0; frame < framesPerSecond; ++frame)
        labels_.push_back({second, frame});
    }
    for (uint32_t count = 0; count < labels_.size(); ++count) counts_[labels_[count]] = count;
  }

  const std::vector<Label>& labels() const { return labels_; }

  // Among the first numbers of a minute, four of which may be skipped, or the last five.
  bool NearMinute(Label label) const {
    return (label.second % 60 == 0 && label.frame < 9) ||
           (label.second % 60 == 59 && label.frame + 5 >= framesPerSecond_);
  }

  // The count of a label: of the next that exists for one that is skipped; frames past the rate carry on.
  uint32_t CountOf(Label label) const {
    if (label.frame < framesPerSecond_) return counts_.lower_bound(label)->second;
    return counts_.at({label.second, framesPerSecond_ - 1}) + label.frame - (framesPerSecond_ - 1);
  }

 private:
  uint32_t framesPerSecond_;
  std::vector<Label> labels_;
  std::map<Label, uint32_t> counts_;
};

struct Source {
  uint32_t rate;
  uint32_t scale;
  uint32_t type;
};

TEST_F(ConvertTimecode, EveryRateToEveryTypeOverMinutesTenMinutesAndTheHour) {
  const Source sources[] = {{24, 1, 1},        {30, 1, 2},         {30000, 1001, 4}, {25, 1, 8},
                            {50, 1, 16},       {60000, 1001, 32},  {60, 1, 64},      {24000, 1001, 128},
                            {48, 1, 1},        {48000, 1001, 128}, {72, 1, 1},       {72000, 1001, 128},
                            {15, 1, 2},        {15000, 1001, 4},   {100, 1, 8},      {120, 1, 2},
                            {120000, 1001, 4}, {10, 1, 2}};
  // Types that count alike share a list: frames per second and numbers skipped a minute.
  std::map<std::pair<uint32_t, uint32_t>, Numbering> lists;
  for (const auto& [fps, skipped] : std::initializer_list<std::pair<uint32_t, uint32_t>>{
           {24, 0}, {25, 0}, {30, 0}, {30, 2}, {50, 0}, {60, 0}, {60, 4}})
    lists.emplace(std::pair{fps, skipped}, Numbering(fps, skipped));
  const std::map<uint32_t, const Numbering*> numberings = {
      {1, &lists.at({24, 0})},  {2, &lists.at({30, 0})},   {4, &lists.at({30, 2})},
      {8, &lists.at({25, 0})},  {16, &lists.at({50, 0})},  {32, &lists.at({60, 4})},
      {64, &lists.at({60, 0})}, {128, &lists.at({24, 0})}, {132, &lists.at({24, 0})},
      {3, &lists.at({30, 0})}};
  for (const Source& source : sources) {
    const Numbering& shown = *numberings.at(source.type);
    for (const auto& [target, numbering] : numberings) {
      for (uint32_t count = 0; count < shown.labels().size(); ++count) {
        const Label label = shown.labels()[count];
        if (!shown.NearMinute(label) && count % 5003 != 0) continue;
        uint32_t expected = count;
        if (target != source.type) {
          expected = numbering->CountOf(label);
          if (source.type == 32 || source.type == 64) expected *= 2;
        }
        ASSERT_EQ(Converted(count, target, source.rate, source.scale), expected)
            << source.rate << '/' << source.scale << " to " << target << ": " << label.second << " s, frame "
            << label.frame;
        Services().calls.clear();
      }
    }
  }
}

}  // namespace
}  // namespace qln::test
