// Chooses between the rates of container, VUI and user.

#include "timing/timecode_rate.h"

#include <fmt/format.h>

#include <cmath>

#include "base/error.h"
#include "base/numbers.h"
#include "timing/timecode.h"

namespace qlnmedia {

namespace {

// 30 and 29.97 are one part in a thousand apart: a VUI tells them from each other, the average of a
// container's rounded times does not.
constexpr double kVuiTolerance = 0.0005;
constexpr double kAverageTolerance = 0.01;
constexpr double kShortClipTolerance = 0.1;

bool IsKnown(Rational rate) { return rate.numerator > 0 && rate.denominator > 0; }

bool Near(Rational a, Rational b, double tolerance) {
  return std::abs(a.value() / b.value() - 1) <= tolerance;
}

// Of a known rate.
Rational Half(Rational rate) {
  return Reduced(static_cast<uint64_t>(rate.numerator), uint64_t{2} * static_cast<uint32_t>(rate.denominator),
                 INT32_MAX);
}

Rational ParseAsked(const std::string& text) {
  const std::optional<RationalRate> parsed = ParseRate(text);
  if (!parsed) throw Error("--rate " + text, "is no rate", "write 25, 29.97 or 30000/1001");
  return Reduced(parsed->rate, parsed->scale);
}

}  // namespace

Rational VuiFrameRate(Codec codec, const SpsFacts& sps) {
  // A tick is a field in H.264. In HEVC it is a picture, and a picture is a field where the stream says so.
  const bool fields = codec == Codec::kH264 || sps.hevc.interlace[2];
  return Reduced(sps.timeScale, uint64_t{sps.numUnitsInTick} * (fields ? 2 : 1));
}

KnownRates RatesOf(const StreamDescription& stream, Codec codec, const std::optional<SpsFacts>& sps) {
  KnownRates known;
  if (!stream.raw) {
    known.container = stream.averageRate;
    known.guess = stream.baseRate;
  }
  if (!sps) return known;
  known.stream = VuiFrameRate(codec, *sps);
  known.halves = codec == Codec::kH264 ? !sps->h264.frameMbsOnly : sps->hevc.interlace[2];
  // Every picture of such a HEVC stream is a field, and has a packet of its own.
  if (codec == Codec::kHevc && known.halves && IsKnown(known.container))
    known.container = Half(known.container);
  return known;
}

namespace {

Rational Choose(const KnownRates& known) {
  const Rational average = known.container;
  if (!IsKnown(average)) return known.stream;
  if (known.halves && IsKnown(known.stream) && Near(Half(average), known.stream, kAverageTolerance))
    return known.stream;  // a packet a field
  if (IsTimecodeRate(average)) return average;
  for (const Rational rate : {known.stream, known.guess}) {
    if (IsTimecodeRate(rate) && (Near(average, rate, kShortClipTolerance) ||
                                 (known.halves && Near(Half(average), rate, kShortClipTolerance))))
      return rate;
  }
  return average;
}

}  // namespace

Rational TimecodeRate(const KnownRates& known, const std::string& asked) {
  const Rational rate = Choose(known);
  if (asked.empty()) {
    if (!IsKnown(rate))
      throw Error("--timecode", "neither container nor stream says how many frames a second there are",
                  "say it with --rate, as --rate 25");
    return rate;
  }
  const Rational wanted = ParseAsked(asked);
  const double tolerance = IsKnown(known.container) ? kAverageTolerance : kVuiTolerance;
  const bool agrees = !IsTimecodeRate(rate) || Near(wanted, rate, tolerance) ||
                      (known.halves && Near(wanted, Half(rate), tolerance));
  if (!agrees)
    throw Error("--rate " + asked, fmt::format("the file says {:.5g} frames a second", rate.value()),
                "leave it out, or name how to count with --timecode-type");
  return wanted;
}

}  // namespace qlnmedia
