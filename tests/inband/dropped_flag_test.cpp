// cnt_dropped_flag of HEVC timecodes: only a host's own timecode service can bring it about, since no count
// of the library's has a new minute that begins behind second 0.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "qlnutil/inband/hevc_timing_sei.h"
#include "timecode/kxtimecode.h"

namespace {

struct Call {
  uint32_t count, flags;
};

// Minutes and seconds for the counts 10 and 9 while `standIn` is set.
bool standIn = false;
char minutesNow, minutesBefore, secondsNow;
std::vector<Call> calls;

}  // namespace

// Stands in front of the shared library's, as a host's own would.
int32_t TimeCodeToString(uint32_t timecode, uint32_t flags, char* output) {
  if (!standIn) {
    const auto real =
        reinterpret_cast<int32_t (*)(uint32_t, uint32_t, char*)>(dlsym(RTLD_NEXT, "TimeCodeToString"));
    return real(timecode, flags, output);
  }
  calls.push_back({timecode, flags});
  const char digits[4] = {1, timecode == 10 ? minutesNow : minutesBefore,
                          timecode == 10 ? secondsNow : '\x3B', 5};
  std::memcpy(output, digits, sizeof digits);
  return 0;
}

namespace qln {
namespace {

bool Dropped(uint8_t type, char before, char now, char seconds) {
  standIn = true;
  calls.clear();
  minutesBefore = before;
  minutesNow = now;
  secondsNow = seconds;
  uint8_t unit[kTimingSeiRoom] = {};
  EXPECT_GE(WriteTimeCodeUnit(unit, 10, type, false), 15u);
  standIn = false;
  // The previous count is asked for first, then the count, both in binary.
  EXPECT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0].count, 9u);
  EXPECT_EQ(calls[1].count, 10u);
  EXPECT_EQ(calls[0].flags, type | 0x400u);
  EXPECT_EQ(calls[1].flags, type | 0x400u);
  return (unit[9] & 0x10) != 0;
}

TEST(DroppedFlag, NeedsANewMinuteBehindSecondZero) {
  for (const uint8_t type : {uint8_t{4}, uint8_t{32}}) {
    EXPECT_TRUE(Dropped(type, 1, 2, 1));
    EXPECT_TRUE(Dropped(type, 2, 1, 59));
    EXPECT_FALSE(Dropped(type, 1, 2, 0));
    EXPECT_FALSE(Dropped(type, 2, 2, 1));
  }
}

TEST(DroppedFlag, BelongsToDropFrameTypes) {
  constexpr uint8_t kOthers[] = {0, 1, 2, 8, 16, 36, 64, 128, 132};
  for (const uint8_t type : kOthers) EXPECT_FALSE(Dropped(type, 1, 2, 1)) << int{type};
}

TEST(DroppedFlag, CountZeroComesBehindItself) {
  standIn = true;
  calls.clear();
  uint8_t unit[kTimingSeiRoom] = {};
  WriteTimeCodeUnit(unit, 0, 4, false);
  standIn = false;
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0].count, 0u);
  EXPECT_EQ(calls[1].count, 0u);
}

}  // namespace
}  // namespace qln
