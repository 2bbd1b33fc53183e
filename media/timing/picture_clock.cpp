// Finds the pace of pictures by what the container says and by their times.

#include "timing/picture_clock.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace qlnmedia {

namespace {

constexpr double kSameRate = 0.005;
// Times of a clip of few pictures, and times in milliseconds, are rounded coarsely; a wrong rate is further
// off than that.
constexpr double kCoarse = 0.03;
constexpr size_t kStepsLookedAt = 65536;

// The known rate that is nearest.
std::optional<captions::Rate> NearestRate(double picturesPerSecond, double tolerance) {
  std::optional<captions::Rate> best;
  double bestDistance = tolerance;
  for (int i = 0; i < captions::kRateCount; ++i) {
    const captions::RateInfo& info = captions::InfoOf(static_cast<captions::Rate>(i));
    const double distance = std::fabs(picturesPerSecond * info.denominator / info.numerator - 1);
    if (distance >= bestDistance) continue;
    bestDistance = distance;
    best = static_cast<captions::Rate>(i);
  }
  return best;
}

// The first of the container's two rates that is a known one and near `seen`; 0 if there is none. A `seen` of
// 0 tells nothing.
double ToldRate(const StreamDescription& stream, double seen) {
  for (const Rational rate : {stream.averageRate, stream.baseRate}) {
    if (!captions::RateOf(rate.numerator, rate.denominator)) continue;
    if (seen == 0 || std::fabs(seen / rate.value() - 1) < kCoarse) return rate.value();
  }
  return 0;
}

// True if each step is nearer to one frame than to none or two.
bool IsSteady(const PicturePlaces& order, double picturesPerSecond) {
  const double frame = 1 / (picturesPerSecond * order.timeBase.value());
  return std::all_of(order.steps.begin(), order.steps.end(),
                     [frame](uint32_t step) { return step > 0.5 * frame - 1 && step < 1.5 * frame + 1; });
}

// Pictures a second by the step that stands in the middle of all.
double UsualRate(const PicturePlaces& order) {
  const size_t count = std::min(order.steps.size(), kStepsLookedAt);
  std::vector<uint32_t> steps(order.steps.begin(), order.steps.begin() + static_cast<std::ptrdiff_t>(count));
  const auto middle = steps.begin() + static_cast<std::ptrdiff_t>(count / 2);
  std::nth_element(steps.begin(), middle, steps.end());
  return *middle == 0 ? 0 : 1 / (*middle * order.timeBase.value());
}

}  // namespace

Pace PaceOf(const StreamDescription& stream, const PicturePlaces& order) {
  Pace pace;
  const double seen = order.picturesPerSecond;
  const double told = ToldRate(stream, seen);
  pace.picturesPerSecond = told != 0 ? told : seen;
  pace.rate = NearestRate(pace.picturesPerSecond, kSameRate);
  if (seen == 0 || IsSteady(order, pace.picturesPerSecond)) return pace;
  pace.steady = false;
  const double usual = UsualRate(order);
  const double toldUsual = usual == 0 ? 0 : ToldRate(stream, usual);
  pace.rate = NearestRate(toldUsual != 0 ? toldUsual : usual, kCoarse);
  if (pace.rate) {
    const captions::RateInfo& info = captions::InfoOf(*pace.rate);
    pace.picturesPerSecond = static_cast<double>(info.numerator) / info.denominator;
  }
  return pace;
}

double PictureClock::seconds() const {
  if (!pace_.steady) return static_cast<double>(ticks_) * order_.timeBase.value();
  return pace_.picturesPerSecond > 0 ? static_cast<double>(index_) / pace_.picturesPerSecond : 0;
}

int64_t PictureClock::number() const {
  if (pace_.steady) return static_cast<int64_t>(index_);
  return std::llround(seconds() * pace_.picturesPerSecond);
}

void PictureClock::Next() {
  if (index_ < order_.steps.size()) ticks_ += order_.steps[index_];
  ++index_;
}

}  // namespace qlnmedia
