// Steps of work, the right to call it off, and what is told of unfinished files.

#include "base/progress.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/unfinished.h"

namespace qlnmedia {
namespace {

struct Told {
  std::string what;
  int64_t done;
  int64_t total;
  bool finished;
  friend bool operator==(const Told&, const Told&) = default;
};

class Steps {
 public:
  ProgressCallback callback() {
    return [this](const ProgressStep& step) {
      all.push_back({std::string(step.what), step.done, step.total, step.finished});
      return goOn;
    };
  }
  std::vector<Told> all;
  bool goOn = true;
};

TEST(Progress, TellsTheFirstStepAtOnceAndLaterOnesNotTooOften) {
  Steps steps;
  const ProgressCallback callback = steps.callback();
  Progress progress(callback, "reading", 1000);
  for (int i = 0; i < 1000; ++i) progress.At(i);
  ASSERT_FALSE(steps.all.empty());
  EXPECT_EQ(steps.all[0], (Told{"reading", 0, 1000, false}));
  const size_t told = steps.all.size();
  EXPECT_LT(told, 500u);
  std::this_thread::sleep_for(std::chrono::milliseconds(110));
  progress.At(999);
  ASSERT_EQ(steps.all.size(), told + 1);
  EXPECT_EQ(steps.all.back(), (Told{"reading", 999, 1000, false}));
  progress.Done();
  EXPECT_EQ(steps.all.back(), (Told{"reading", 1000, 1000, true}));
}

TEST(Progress, EndsOnceAlsoWhereTheWorkFails) {
  Steps steps;
  const ProgressCallback callback = steps.callback();
  {
    Progress progress(callback, "patching", 10);
    progress.At(1);
    progress.Done();
  }
  EXPECT_EQ(steps.all.size(), 2u);
  try {
    Progress progress(callback, "patching", 10);
    progress.At(1);
    throw 1;
  } catch (int) {
  }
  ASSERT_EQ(steps.all.size(), 4u);
  EXPECT_TRUE(steps.all.back().finished);
}

TEST(Progress, WorkWithoutAStepIsNotTold) {
  Steps steps;
  const ProgressCallback callback = steps.callback();
  {
    Progress progress(callback, "reading", 10);
    progress.At(-1);  // a place that is not known
  }
  EXPECT_TRUE(steps.all.empty());
}

TEST(Progress, WhoeverSaysNoCallsItOff) {
  Steps steps;
  steps.goOn = false;
  const ProgressCallback callback = steps.callback();
  Progress progress(callback, "reading", 10);
  EXPECT_THROW(progress.At(3), Cancelled);
  // The last step is told all the same, and its answer counts for nothing.
  progress.Done();
  EXPECT_EQ(steps.all.size(), 2u);
}

TEST(Progress, NobodyNeedsToListen) {
  const ProgressCallback none;
  Progress progress(none, "reading", 10);
  progress.At(3);
  progress.Done();
}

TEST(Unfinished, IsToldWhenItComesAndWhenItGoes) {
  std::vector<std::pair<std::string, bool>> told;
  {
    const Unfinished first([&](const std::string& path, bool there) { told.emplace_back(path, there); },
                           "a.part");
    EXPECT_EQ(told.size(), 1u);
    const Unfinished silent({}, "b.part");
  }
  EXPECT_EQ(told, (std::vector<std::pair<std::string, bool>>{{"a.part", true}, {"a.part", false}}));
}

}  // namespace
}  // namespace qlnmedia
