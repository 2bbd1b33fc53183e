// Frame counts with what they read as, and the timecode units that they make.
#ifndef TESTS_INBAND_TIMECODE_SUPPORT_H
#define TESTS_INBAND_TIMECODE_SUPPORT_H

#include <gtest/gtest.h>

#include "qlnutil/qlninband.h"
#include "support/test_support.h"

namespace qln::test {

struct Digits {
  int hours, minutes, seconds, frames;
};

// Frame counts with what they read as: seconds, minutes, hours, the drop-frame minutes.
struct Count {
  uint8_t type;
  uint32_t count;
  Digits digits;
};

inline const Count kCounts[] = {
    {1, 0, {0, 0, 0, 0}},
    {1, 24 * 60 - 1, {0, 0, 59, 23}},
    {1, 24 * 60, {0, 1, 0, 0}},
    {1, 24 * 3600 * 24 - 1, {23, 59, 59, 23}},
    {1, 24 * 3600 * 24, {0, 0, 0, 0}},
    {2, 30 * 3600, {1, 0, 0, 0}},
    {2, 30 * 3600 - 1, {0, 59, 59, 29}},
    {4, 1799, {0, 0, 59, 29}},
    {4, 1800, {0, 1, 0, 2}},
    {4, 17981, {0, 9, 59, 29}},
    {4, 17982, {0, 10, 0, 0}},
    {4, 107892, {1, 0, 0, 0}},
    {8, 25 * 3600 * 10 + 7, {10, 0, 0, 7}},
    {16, 50 * 61 + 49, {0, 1, 1, 49}},
    {32, 3599, {0, 0, 59, 59}},
    {32, 3600, {0, 1, 0, 4}},
    {32, 35964, {0, 10, 0, 0}},
    {64, 60 * 3600 * 2 + 59, {2, 0, 0, 59}},
    {0, 31, {0, 0, 1, 1}},
    {128, 25, {0, 0, 1, 1}},
    {132, 25, {0, 0, 1, 1}},
    {99, 31, {0, 0, 1, 1}},
};

// Emulation prevention as the standards have it.
inline Bytes Escape(const Bytes& packet) {
  Bytes out(packet.begin(), packet.begin() + 4);
  int zeros = 0;
  for (size_t i = 4; i < packet.size(); ++i) {
    if (zeros == 2 && packet[i] <= 3) {
      out.push_back(3);
      zeros = 0;
    }
    out.push_back(packet[i]);
    zeros = packet[i] == 0 ? zeros + 1 : 0;
  }
  return out;
}

inline uint64_t N(int value) { return static_cast<uint64_t>(value); }

inline Bytes HevcUnit(int countingType, const Digits& time, bool fieldUnits = false) {
  BitBuilder bits;
  bits.u(32, 1).u(16, 0x4E01).u(8, 136).u(8, 6).u(2, 1).u(1, 1).u(1, fieldUnits ? 1 : 0);
  bits.u(5, N(countingType)).u(1, 1).u(1, 0).u(1, 0).u(9, N(time.frames));
  bits.u(6, N(time.seconds)).u(6, N(time.minutes)).u(5, N(time.hours)).u(5, 0);
  EXPECT_EQ(bits.bits(), 107u);
  bits.trailing().trailing();
  return Escape(bits.bytes());
}

inline int CountingType(uint8_t type) { return type == 4 ? 4 : type == 32 ? 6 : 0; }

}  // namespace qln::test

#endif
