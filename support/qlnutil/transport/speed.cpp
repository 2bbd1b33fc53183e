// CQLNSpeed, and the free functions that turn a speed into rates and repeat counts.

#include <cmath>
#include <cstdint>

#include "kxutil/kxutil.h"
#include "qlnutil/qlntransport.h"
#include "qlnutil/transport/fixed_point.h"

CQLNSpeed::CQLNSpeed() : raw_(QLN_SPEED_PLAY) {}

CQLNSpeed::CQLNSpeed(int32_t raw) : raw_(raw) {}

CQLNSpeed::CQLNSpeed(int32_t numerator, int32_t denominator) : raw_(0) { Set(numerator, denominator); }

// User-provided on purpose: the assignment is an exported member that hosts link against.
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp)
CQLNSpeed& CQLNSpeed::operator=(const CQLNSpeed& other) {
  raw_ = other.raw_;
  return *this;
}

CQLNSpeed& CQLNSpeed::operator=(double times) {
  const double units = times * 65520.0;
  if (std::isnan(units)) {
    raw_ = 0;
  } else if (units >= 2147483647.0) {
    raw_ = INT32_MAX;
  } else if (units <= -2147483648.0) {
    raw_ = INT32_MIN;
  } else {
    raw_ = static_cast<int32_t>(units);
  }
  return *this;
}

int32_t CQLNSpeed::Get() const { return raw_; }

void CQLNSpeed::Set(int32_t raw) { raw_ = raw; }

void CQLNSpeed::Set(int32_t numerator, int32_t denominator) {
  raw_ = denominator == 0 ? QLN_SPEED_NONE : MulDiv(QLN_SPEED_PLAY, numerator, denominator);
}

int32_t CQLNSpeed::Abs() const { return static_cast<int32_t>(qln::AbsoluteSpeed(raw_)); }

int32_t CQLNSpeed::Whole() const { return raw_ / QLN_SPEED_PLAY; }

int32_t CQLNSpeed::Frac() const { return raw_ - QLN_SPEED_PLAY * Whole(); }

double CQLNSpeed::Double() const { return raw_ / 65520.0; }

int32_t CQLNSpeed::Fractionalize() {
  const qln::FloorParts parts = qln::SplitByFloor(raw_);
  raw_ = parts.fraction;
  return parts.whole;
}

uint32_t speedRate(int32_t speed) {
  const double frames = qln::AbsoluteSpeed(speed) / 65520.0;
  const uint32_t whole = static_cast<uint32_t>(frames);
  return whole << 16 | static_cast<uint32_t>((frames - whole) * 65536.0);
}

namespace {

// The run that speedReps goes on with: one for the process, as hosts rely on it.
struct RepsRun {
  int32_t speed = QLN_SPEED_NONE;
  double rate = 0.0;  // steps of 32760 that one call is worth
  double accumulated = 0.0;
};

RepsRun repsRun;

}  // namespace

uint32_t speedReps(uint32_t* counter, int32_t speed) {
  if (speed == 0) return 0;
  RepsRun& run = repsRun;
  if (speed != run.speed && speed != QLN_SPEED_NONE) {
    run = {speed, qln::AbsoluteSpeed(speed) / 32760.0, 0.0};
  }

  // Both comparisons with 1.0 are strict: what has accumulated to exactly one waits for the next call.
  if (run.speed >= QLN_SPEED_PLAY) {
    const double whole = std::trunc(run.rate);
    run.accumulated += run.rate - whole;
    if (counter != nullptr) {
      *counter += static_cast<uint32_t>(whole);
      if (run.accumulated > 1.0) {
        ++*counter;
        run.accumulated -= std::trunc(run.accumulated);
      }
    }
    return 1;
  }

  if (counter != nullptr) ++*counter;
  const double repeats = 1.0 / run.rate;
  const double whole = std::trunc(repeats);
  run.accumulated += repeats - whole;
  if (run.accumulated > 1.0) {
    run.accumulated -= std::trunc(run.accumulated);
    return static_cast<uint32_t>(whole) + 1;
  }
  return static_cast<uint32_t>(whole);
}
