// Works the buffer out, picture by picture.

#include "html/cpb_model.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace qlnmedia::html {

namespace {

// More pictures than any buffer holds are not waited for: what says so is no schedule.
constexpr size_t kMostPending = 1024;
constexpr double kDelayUnit = 90000;
// Times are sums of many quotients.
constexpr double kNothing = 1e-7;

}  // namespace

void CpbModel::Begin(const CpbSchedule& schedule) {
  Finish();
  schedule_ = schedule;
  running_ = false;
  lastArrival_ = 0;
}

void CpbModel::Take(const CpbSchedule& schedule, const CpbPicture& picture) {
  if (schedule != schedule_) Begin(schedule);
  if ((!running_ && !picture.period) || schedule.bitRate == 0) {
    Finish();  // in order
    settled_.emplace_back();
    return;
  }
  // The delay of a picture that begins a period counts from the period before it.
  double nominal = 0;
  if (!running_) {
    nominal = picture.period->delay / kDelayUnit;
  } else {
    nominal = lastRemoval_ + static_cast<double>(picture.removalDelay) * schedule_.tick;
  }
  double begin = lastArrival_;
  if (picture.period) period_ = *picture.period;
  if (!schedule_.constant && running_) {
    const double ahead = picture.period ? period_.delay : static_cast<double>(period_.delay) + period_.offset;
    begin = std::max(lastArrival_, nominal - ahead / kDelayUnit);
  }
  if (!running_) begin = 0;
  if (picture.period) lastRemoval_ = nominal;
  running_ = true;
  Pending next;
  next.begin = begin;
  next.bits = picture.bits;
  next.state.arrival = begin + static_cast<double>(picture.bits) / static_cast<double>(schedule_.bitRate);
  next.state.removal = nominal;
  const double late = next.state.arrival - nominal;
  if (late > kNothing) {
    next.state.underflow = !schedule_.lowDelay;
    if (schedule_.lowDelay && schedule_.tick > 0)
      next.state.removal = nominal + schedule_.tick * std::ceil(late / schedule_.tick);
  }
  lastArrival_ = next.state.arrival;
  pending_.push_back(next);
  Settle(false);
}

// A picture's state is known when one that begins to arrive behind its removal is there.
void CpbModel::Settle(bool all) {
  while (!pending_.empty()) {
    Pending& first = pending_.front();
    if (!all && pending_.size() < kMostPending && pending_.back().begin < first.state.removal) return;
    const double now = first.state.removal;
    for (const Pending& one : pending_) {
      if (one.begin >= now) break;
      const double length = one.state.arrival - one.begin;
      const double part = length <= 0 ? 1 : std::min(1.0, (now - one.begin) / length);
      first.state.before += part * static_cast<double>(one.bits);
    }
    first.state.overflow = first.state.before > static_cast<double>(schedule_.cpbSize) + 1;
    settled_.emplace_back(first.state);
    pending_.pop_front();
  }
}

std::vector<std::optional<CpbState>> CpbModel::Settled() { return std::exchange(settled_, {}); }

void CpbModel::Finish() { Settle(true); }

}  // namespace qlnmedia::html
