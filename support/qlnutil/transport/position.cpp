// CQLNPos: every way to write a position ends in its normal form.

#include <cstdint>

#include "qlnutil/qlntransport.h"
#include "qlnutil/transport/fixed_point.h"

CQLNPos::CQLNPos() : whole_(0), fraction_(0) {}

CQLNPos::CQLNPos(const CQLNSpeed& distance) : whole_(0), fraction_(0) { Set(distance); }

CQLNPos::CQLNPos(int32_t whole, int32_t fraction) : whole_(0), fraction_(0) { Set(whole, fraction); }

// NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp): storing its own values is harmless.
CQLNPos& CQLNPos::operator=(const CQLNPos& other) {
  Set(other.whole_, other.fraction_.Get());
  return *this;
}

CQLNPos& CQLNPos::operator=(const CQLNSpeed& distance) {
  Set(distance);
  return *this;
}

void CQLNPos::Set(const CQLNSpeed& distance) { Set(0, distance.Get()); }

void CQLNPos::Set(int32_t whole, int32_t fraction) {
  whole_ = whole;
  fraction_.Set(fraction);
  Normalize();
}

void CQLNPos::SetAsFrac(int32_t numerator, int32_t denominator) {
  if (denominator == 0) {
    Set(0, 0);
    return;
  }
  // In 64 bits only so that the most negative number over -1 does not trap; the product still wraps at 32.
  const int64_t n = numerator;
  const int64_t d = denominator;
  const int64_t scaled = qln::WrappingMultiply(static_cast<int32_t>(n % d), QLN_SPEED_PLAY);
  Set(static_cast<int32_t>(n / d), static_cast<int32_t>(scaled / d));
}

void CQLNPos::Normalize() {
  const qln::FloorParts parts = qln::SplitByFloor(fraction_.Get());
  whole_ = qln::WrappingAdd(whole_, parts.whole);
  fraction_.Set(parts.fraction);
}

// The fraction is never below 0.
bool CQLNPos::IsNeg() const { return whole_ < 0; }

bool CQLNPos::IsPlus() const { return whole_ > 0 || fraction_.Get() > 0; }

bool CQLNPos::IsZero() const { return whole_ == 0 && fraction_.Get() == 0; }

int32_t CQLNPos::floor() const { return whole_; }

int32_t CQLNPos::ceil() const { return qln::WrappingAdd(whole_, fraction_.Get() != 0 ? 1 : 0); }

int32_t CQLNPos::frac() const { return fraction_.Get(); }

int32_t CQLNPos::fracbar() const { return QLN_SPEED_PLAY - 1 - fraction_.Get(); }
