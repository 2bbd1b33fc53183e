// Small equivalents of platform calls: the clock, waiting, and scaled division.

#include <cerrno>
#include <ctime>

#include "kxutil/kxutil.h"

uint32_t kxOSGetMs() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint32_t>(static_cast<uint64_t>(now.tv_sec) * 1000 +
                               static_cast<uint64_t>(now.tv_nsec) / 1000000);
}

void Sleep(uint32_t milliseconds) {
  timespec left = {static_cast<time_t>(milliseconds / 1000),
                   static_cast<long>(milliseconds % 1000) * 1000000};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

int32_t MulDiv(int32_t number, int32_t numerator, int32_t denominator) {
  if (denominator == 0) return -1;
  // The largest product is 2^62, so that neither the sign change nor the rounding overflows.
  int64_t product = int64_t{number} * numerator;
  int64_t divisor = denominator;
  if (divisor < 0) {
    product = -product;
    divisor = -divisor;
  }
  const int64_t half = divisor / 2;
  const int64_t quotient = (product >= 0 ? product + half : product - half) / divisor;
  return quotient >= INT32_MIN && quotient <= INT32_MAX ? static_cast<int32_t>(quotient) : -1;
}
