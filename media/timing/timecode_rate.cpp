// Chooses between the rates of container, VUI and user.

#include "timing/timecode_rate.h"

#include <fmt/format.h>

#include <cmath>

#include "base/error.h"
#include "base/numbers.h"
#include "sets/set_elements.h"
#include "timing/frame_rate.h"
#include "timing/timecode.h"

namespace qlnmedia {

namespace {

// 30 and 29.97 are one part in a thousand apart: a VUI tells them from each other, the average of a
// container's rounded times does not.
constexpr double kVuiTolerance = 0.0005;
constexpr double kAverageTolerance = 0.01;
constexpr double kShortClipTolerance = 0.1;
constexpr double kNominalTolerance = 0.03;

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
  if (!parsed) throw Error("--rate " + text, "is no rate", "write 25, 29.97, 30000/1001 or nominal");
  return Reduced(parsed->rate, parsed->scale);
}

}  // namespace

Rational VuiFrameRate(Codec codec, const SpsFacts& sps) {
  // A tick is a field in H.264. In HEVC it is a picture, and a picture is a field where the stream says so.
  const bool fields = codec == Codec::kH264 || sps.hevc.interlace[2];
  return Reduced(sps.timeScale, uint64_t{sps.numUnitsInTick} * (fields ? 2 : 1));
}

Rational VpsPictureRate(ByteSpan vps) {
  const SetElements set = ListElementsAs(Codec::kHevc, hevc::kVps, vps);
  const SetElement* const units = set.Find("vps_num_units_in_tick");
  const SetElement* const scale = set.Find("vps_time_scale");
  if (units == nullptr || scale == nullptr) return {0, 1};
  return Reduced(static_cast<uint64_t>(scale->value), static_cast<uint64_t>(units->value));
}

KnownRates RatesOf(const StreamDescription& stream, Codec codec, const std::vector<Bytes>& sets) {
  KnownRates known;
  if (!stream.raw) {
    known.container = stream.averageRate;
    known.guess = stream.baseRate;
  }
  std::optional<SpsFacts> sps;
  Rational vps{0, 1};
  for (const Bytes& unit : sets) {
    const int type = UnitType(codec, unit);
    if (!sps && IsSps(codec, type)) sps = ReadSpsFacts(codec, unit);
    if (!IsKnown(vps) && codec == Codec::kHevc && type == hevc::kVps) vps = VpsPictureRate(unit);
  }
  if (!sps) return known;
  known.stream = VuiFrameRate(codec, *sps);
  known.halves = codec == Codec::kH264 ? !sps->h264.frameMbsOnly : sps->hevc.interlace[2];
  if (!IsKnown(known.stream) && IsKnown(vps)) known.stream = known.halves ? Half(vps) : vps;
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

std::optional<Rational> NominalRate(const KnownRates& known) {
  const Rational rate = Choose(known);
  if (!IsKnown(rate)) return {};
  if (IsTimecodeRate(rate)) return rate;
  std::optional<Rational> nearest;
  double distance = kNominalTolerance;
  for (int i = 0; i < captions::kRateCount; ++i) {
    const captions::RateInfo& info = captions::InfoOf(static_cast<captions::Rate>(i));
    // What goes by no video clock aims at whole rates.
    if (info.denominator != 1) continue;
    const Rational candidate{info.numerator, info.denominator};
    const double off = std::abs(rate.value() / candidate.value() - 1);
    if (off >= distance) continue;
    distance = off;
    nearest = candidate;
  }
  return nearest;
}

Rational TimecodeRate(const KnownRates& known, const std::string& asked) {
  const Rational rate = Choose(known);
  if (asked.empty()) {
    if (!IsKnown(rate))
      throw Error("--timecode", "neither container nor stream says how many frames a second there are",
                  "say it with --rate, as --rate 25");
    const std::optional<Rational> nominal = NominalRate(known);
    if (nominal && !IsTimecodeRate(rate))
      throw Error("--timecode",
                  fmt::format("no timecode counts {} frames a second", PlainNumber(rate.value())),
                  fmt::format("the nominal rate is {}, which --rate nominal takes; --timecode-type counts "
                              "whatever the rate",
                              PlainNumber(nominal->value())));
    return rate;
  }
  if (asked == kNominalRate) {
    const std::optional<Rational> nominal = NominalRate(known);
    if (!nominal) throw Error("--rate nominal", "the file has no nominal rate", "write the rate in numbers");
    return *nominal;
  }
  const Rational wanted = ParseAsked(asked);
  const double tolerance = IsKnown(known.container) ? kAverageTolerance : kVuiTolerance;
  const bool agrees = !IsTimecodeRate(rate) || Near(wanted, rate, tolerance) ||
                      (known.halves && Near(wanted, Half(rate), tolerance));
  if (!agrees)
    throw Error("--rate " + asked, fmt::format("the file says {} frames a second", PlainNumber(rate.value())),
                "leave it out, or name how to count with --timecode-type");
  return wanted;
}

}  // namespace qlnmedia
