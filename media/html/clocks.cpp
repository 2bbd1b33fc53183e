// Counts timecodes and finds out where they do not go on.

#include "html/clocks.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace qlnmedia::html {

namespace {

// Frames from midnight, by so many numbers a second.
int64_t Count(const ClockTime& time, int64_t numbers) {
  const int64_t minutes = int64_t{time.hours} * 60 + time.minutes;
  const int64_t frames = (minutes * 60 + time.seconds) * numbers + time.frames;
  return time.drop ? frames - numbers / 15 * (minutes - minutes / 10) : frames;
}

int64_t CountsOfADay(bool drop, int64_t numbers) {
  constexpr int64_t kMinutes = 24 * 60;
  return kMinutes * 60 * numbers - (drop ? numbers / 15 * (kMinutes - kMinutes / 10) : 0);
}

// Numbers in a second: those of the rate, or of half of it where no clock has more.
int64_t NumbersOf(const std::vector<uint32_t>& clocks, double rate) {
  uint32_t highest = 0;
  for (const uint32_t clock : clocks)
    if (clock != 0) highest = std::max(highest, UnpackedClock(clock).frames);
  const auto whole = static_cast<int64_t>(std::lround(rate));
  if (whole > highest) {
    const bool half = whole >= 48 && highest < whole / 2 && static_cast<int64_t>(clocks.size()) > whole;
    return half ? whole / 2 : whole;
  }
  for (const uint32_t usual : {24u, 25u, 30u, 48u, 50u, 60u, 100u, 120u})
    if (usual > highest) return usual;
  return int64_t{highest} + 1;
}

}  // namespace

uint32_t PackedClock(const ClockTime& time) {
  return ((((time.hours << 6 | time.minutes) << 6 | time.seconds) << 9 | time.frames) << 1 |
          (time.drop ? 1u : 0u)) +
         1;
}

ClockTime UnpackedClock(uint32_t packed) {
  const uint32_t bits = packed - 1;
  ClockTime time;
  time.hours = bits >> 22;
  time.minutes = bits >> 16 & 63;
  time.seconds = bits >> 10 & 63;
  time.frames = bits >> 1 & 511;
  time.drop = (bits & 1) != 0;
  time.whole = true;
  return time;
}

std::vector<uint32_t> ClockJumps(const std::vector<uint32_t>& clocks, double rate) {
  const int64_t numbers = NumbersOf(clocks, rate);
  size_t pairs = 0, equal = 0;
  for (size_t i = 1; i < clocks.size(); ++i) {
    if (clocks[i] == 0 || clocks[i - 1] == 0) continue;
    ++pairs;
    if (clocks[i] == clocks[i - 1]) ++equal;
  }
  const bool doubled = equal * 3 > pairs;
  std::vector<uint32_t> jumps;
  size_t last = clocks.size();
  for (size_t i = 0; i < clocks.size(); ++i) {
    if (clocks[i] == 0) continue;
    if (last != clocks.size()) {
      const ClockTime now = UnpackedClock(clocks[i]);
      int64_t ahead = Count(now, numbers) - Count(UnpackedClock(clocks[last]), numbers);
      if (ahead < 0) ahead += CountsOfADay(now.drop, numbers);
      const auto passed = static_cast<int64_t>(i - last);
      const bool goesOn = doubled ? std::abs(2 * ahead - passed) <= 1 : ahead == passed;
      if (!goesOn) jumps.push_back(static_cast<uint32_t>(i));
    }
    last = i;
  }
  return jumps;
}

}  // namespace qlnmedia::html
