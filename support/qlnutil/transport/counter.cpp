// CQLNTransTC and CQLNTransTC2: the counter that steps, loops and tells how long a frame stands.

#include <cstdint>

#include "qlnutil/qlntransport.h"
#include "qlnutil/transport/fixed_point.h"

using qln::WrappingAdd;
using qln::WrappingSubtract;

CQLNTransTC::CQLNTransTC()
    : in_(0), out_(0), dur_(0), pos_(0, 0), speed_(0), recount_(true), index_(0), lastPlayCount_(1) {}

CQLNTransTC& CQLNTransTC::operator=(const CQLNTransTC& other) {
  if (this == &other) return *this;
  in_ = other.in_;
  out_ = other.out_;
  dur_ = WrappingSubtract(out_, in_);
  speed_ = other.speed_;
  pos_ = other.pos_;
  index_ = other.index_;
  lastPlayCount_ = other.lastPlayCount_;
  recount_ = other.recount_;
  return *this;
}

CQLNPos& CQLNTransTC::operator=(const CQLNPos& position) {
  SetTC(position);
  return pos_;
}

CQLNSpeed& CQLNTransTC::operator=(const CQLNSpeed& speed) {
  speed_ = speed;
  return speed_;
}

int32_t CQLNTransTC::operator=(int32_t frame) {
  SetTC(frame);
  return pos_.whole_;
}

CQLNSpeed CQLNTransTC::StepLength(int32_t steps) {
  return CQLNSpeed(qln::WrappingMultiply(qln::WrappingMultiply(PlayCount(), speed_.Get()), steps));
}

void CQLNTransTC::EndStep(int32_t indexChange) {
  if (dur_ != 0) Modulo();
  index_ = WrappingAdd(index_, indexChange);
  recount_ = true;
}

int32_t& CQLNTransTC::operator++() {
  pos_ += StepLength(1);
  EndStep(1);
  return pos_.whole_;
}

int32_t& CQLNTransTC::operator--() {
  pos_ -= StepLength(1);
  EndStep(-1);
  return pos_.whole_;
}

int32_t CQLNTransTC::operator+=(int32_t steps) {
  pos_ += StepLength(steps);
  EndStep(1);
  return pos_.whole_;
}

int32_t CQLNTransTC::operator-=(int32_t steps) {
  pos_ -= StepLength(steps);
  EndStep(-1);
  return pos_.whole_;
}

void CQLNTransTC::SetRange(int32_t a, int32_t b) {
  const bool swapped = b != -1 && a >= b;  // -1 as the second value is an open end and stays the second
  in_ = swapped ? b : a;
  out_ = swapped ? a : b;
  dur_ = WrappingSubtract(out_, in_);
}

void CQLNTransTC::SetSpeed(const CQLNSpeed& speed) {
  speed_ = speed;
  recount_ = true;
  pos_.Set(pos_.whole_, qln::IsPlainSpeed(speed_.Get()) ? 0 : QLN_SPEED_HALF);
}

void CQLNTransTC::SetTC(int32_t frame) {
  pos_.Set(frame, 0);
  index_ = 0;
  Modulo();
  recount_ = true;
}

void CQLNTransTC::SetTC(const CQLNPos& position) {
  pos_ = position;
  recount_ = true;
  Modulo();
  index_ = 0;
}

int32_t CQLNTransTC::GetTC() const { return pos_.whole_; }

int32_t CQLNTransTC::GetTC(int16_t& count) {
  count = static_cast<int16_t>(PlayCount());
  return pos_.whole_;
}

int32_t CQLNTransTC::GetTC(uint16_t& count) {
  count = static_cast<uint16_t>(PlayCount());
  return pos_.whole_;
}

int32_t CQLNTransTC::GetTC(int32_t& count) {
  count = PlayCount();
  return pos_.whole_;
}

int32_t CQLNTransTC::GetTC(uint32_t& count) {
  count = static_cast<uint32_t>(PlayCount());
  return pos_.whole_;
}

void CQLNTransTC::GetCPos(CQLNPos& position) const { position = pos_; }

void CQLNTransTC::GetCSpeed(CQLNSpeed& speed) const { speed = speed_; }

int32_t CQLNTransTC::GetLSpeed() const { return speed_.Get(); }

int32_t CQLNTransTC::GetIn() const { return in_; }

int32_t CQLNTransTC::GetOut() const { return out_; }

int32_t CQLNTransTC::GetDur() const { return WrappingSubtract(out_, in_); }

int32_t CQLNTransTC::GetIndex() const { return index_; }

void CQLNTransTC::Modulo() {
  if (dur_ == 0) return;
  int32_t whole = pos_.whole_;
  // Unsigned arithmetic folds a position behind the range rightly, but one in front of it only where 2^32 is
  // a multiple of the range. Just below frame 0, where clips begin, the range is added first.
  if (whole >= -99 && whole <= -1) whole = WrappingAdd(whole, dur_);
  const uint32_t offset = static_cast<uint32_t>(WrappingSubtract(whole, in_)) % static_cast<uint32_t>(dur_);
  pos_.Set(WrappingAdd(in_, static_cast<int32_t>(offset)), pos_.frac());
  recount_ = true;
}

int32_t CQLNTransTC::PlayCount() {
  if (!recount_) return lastPlayCount_;
  const int32_t speed = speed_.Get();
  const uint32_t absolute = qln::AbsoluteSpeed(speed);
  if (speed == 0 || absolute >= QLN_SPEED_PLAY) return 1;
  const int32_t unitsAhead = speed > 0 ? pos_.fracbar() : pos_.frac();
  lastPlayCount_ = unitsAhead / static_cast<int32_t>(absolute) + 1;
  recount_ = false;
  return lastPlayCount_;
}

CQLNTransTC2::CQLNTransTC2() = default;

CQLNPos& CQLNTransTC2::operator=(const CQLNPos& position) { return CQLNTransTC::operator=(position); }

CQLNSpeed& CQLNTransTC2::operator=(const CQLNSpeed& speed) { return CQLNTransTC::operator=(speed); }

int32_t CQLNTransTC2::operator=(int32_t frame) { return CQLNTransTC::operator=(frame); }

int32_t CQLNTransTC2::In() const { return in_; }

int32_t CQLNTransTC2::Out() const { return out_; }

uint32_t CQLNTransTC2::GetIndex() const { return static_cast<uint32_t>(index_); }

int32_t CQLNTransTC2::GetLastPlayCount() const { return lastPlayCount_; }

int32_t CQLNTransTC2::GetRepeat() { return PlayCount(); }

int32_t CQLNTransTC2::GetClipTC() const { return WrappingSubtract(pos_.floor(), in_); }

void CQLNTransTC2::SetClipTC(int32_t frame) { SetTC(WrappingAdd(frame, in_)); }

void CQLNTransTC2::SetClipTCLimit(int32_t frame) {
  const int32_t position = WrappingAdd(in_, frame);
  SetTC(position < out_ ? position : WrappingSubtract(out_, 1));
}

void CQLNTransTC2::SetTCLimit(int32_t frame) {
  if (frame < in_) {
    pos_.Set(in_, 0);
  } else if (frame >= out_) {
    pos_.Set(WrappingSubtract(out_, 1), 0);
  } else {
    pos_.Set(frame, 0);
  }
}

void CQLNTransTC2::SetSpeed(const CQLNSpeed& speed) { CQLNTransTC::SetSpeed(speed); }

void CQLNTransTC2::SetSpeedZero(const CQLNSpeed& speed) {
  speed_ = speed;
  recount_ = true;
  if (qln::IsPlainSpeed(speed_.Get())) pos_.Set(pos_.floor(), 0);
}
