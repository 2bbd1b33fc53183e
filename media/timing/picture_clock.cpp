// Finds the pace of pictures by what the container says and by their times.

#include "timing/picture_clock.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "base/error.h"
#include "base/numbers.h"
#include "timing/timecode_rate.h"
#include "units/config_record.h"

namespace qlnmedia {

namespace {

constexpr double kSameRate = 0.005;
// Times of a clip of few pictures, and times in milliseconds, are rounded coarsely; a wrong rate is further
// off than that.
constexpr double kCoarse = 0.03;
// Averages of rounded times are off by less than that from what somebody knows.
constexpr double kAverage = 0.01;
constexpr size_t kStepsLookedAt = 65536;

// The known rate that is nearest; of whole ones where only those are asked for.
std::optional<captions::Rate> NearestRate(double picturesPerSecond, double tolerance, bool whole = false) {
  std::optional<captions::Rate> best;
  double bestDistance = tolerance;
  for (int i = 0; i < captions::kRateCount; ++i) {
    const captions::RateInfo& info = captions::InfoOf(static_cast<captions::Rate>(i));
    if (whole && info.denominator != 1) continue;
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

namespace {

double PerSecond(captions::Rate rate) {
  const captions::RateInfo& info = captions::InfoOf(rate);
  return static_cast<double>(info.numerator) / info.denominator;
}

// Pictures a second by the sets of a raw stream, which has no other word for it; 0 where they say nothing.
double RateOfSets(const StreamDescription& stream) {
  const std::optional<Codec> codec = UnitCodecOf(stream.codec);
  if (!codec) return 0;
  const KnownRates known = RatesOf(stream, *codec, ConfigOf(stream).units());
  if (known.stream.numerator == 0) return 0;
  const bool fields = codec == Codec::kHevc && known.halves;  // each a picture
  return known.stream.value() * (fields ? 2 : 1);
}

Pace FoundPace(const StreamDescription& stream, const PicturePlaces& order) {
  Pace pace;
  const double seen = order.picturesPerSecond;
  const double ofSets = stream.raw ? RateOfSets(stream) : 0;
  const double told = ofSets != 0 ? ofSets : ToldRate(stream, seen);
  pace.guessed = stream.raw && ofSets == 0 && UnitCodecOf(stream.codec).has_value();
  pace.picturesPerSecond = told != 0 ? told : seen;
  pace.rate = NearestRate(pace.picturesPerSecond, kSameRate);
  if (seen == 0 || IsSteady(order, pace.picturesPerSecond)) return pace;
  pace.steady = false;
  const double usual = UsualRate(order);
  const double toldUsual = usual == 0 ? 0 : ToldRate(stream, usual);
  pace.rate = NearestRate(toldUsual != 0 ? toldUsual : usual, kCoarse);
  if (pace.rate) pace.picturesPerSecond = PerSecond(*pace.rate);
  return pace;
}

}  // namespace

Pace PaceOf(const StreamDescription& stream, const PicturePlaces& order) {
  Pace pace = FoundPace(stream, order);
  pace.nominal = pace.rate;
  // What goes by no video clock aims at whole rates; a step that is one of another is no accident.
  const double usual = order.steps.empty() ? 0 : UsualRate(order);
  if (!pace.nominal) pace.nominal = NearestRate(usual, kSameRate);
  if (!pace.nominal) pace.nominal = NearestRate(usual, kCoarse, true);
  if (!pace.nominal) pace.nominal = NearestRate(pace.picturesPerSecond, kCoarse, true);
  return pace;
}

Pace AskedPace(const Pace& pace, const PicturePlaces& order, const std::string& asked) {
  if (asked.empty()) return pace;
  const std::string where = "--rate " + asked;
  std::optional<captions::Rate> wanted = pace.nominal;
  if (asked != kNominalRate) {
    const std::optional<RationalRate> parsed = ParseRate(asked);
    if (!parsed) throw Error(where, "is no rate", "write 25, 29.97, 30000/1001 or nominal");
    wanted = captions::RateOf(parsed->rate, parsed->scale);
    if (!wanted)
      throw Error(where, "is no rate of captions", "there are 23.976, 24, 25, 29.97, 30, 50, 59.94 and 60");
  }
  if (!wanted) throw Error(where, "the file has no nominal rate", "write the rate in numbers");
  if (wanted == pace.rate) return pace;
  const double perSecond = PerSecond(*wanted);
  const auto near = [perSecond](double rate, double tolerance) {
    return std::fabs(rate / perSecond - 1) <= tolerance;
  };
  if (pace.rate && !pace.guessed && !near(pace.picturesPerSecond, kAverage)) {
    // Fields are pictures, and --rate may speak of frames.
    if (near(pace.picturesPerSecond / 2, kAverage)) return pace;
    throw Error(where, fmt::format("the file says {} pictures a second", PlainNumber(pace.picturesPerSecond)),
                "leave it out");
  }
  Pace other = pace;
  other.rate = wanted;
  other.picturesPerSecond = perSecond;
  other.steady = order.picturesPerSecond == 0 || (pace.steady && near(order.picturesPerSecond, kSameRate));
  return other;
}

std::string AdviceForPace(const Pace& pace) {
  if (!pace.nominal) return "--rate says the rate that it is made for, as --rate 25";
  return fmt::format("its nominal rate is {}, which --rate nominal takes",
                     captions::InfoOf(*pace.nominal).name);
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
