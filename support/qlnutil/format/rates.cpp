// Rates between the rate field, the rational pair, the floating-point rate and the timecode type.

#include "qlnutil/format/rates.h"

#include "qlnutil/format/tc_type.h"
#include "qlnutil/qlnformat.h"

namespace qln {
namespace {

struct RateRow {
  uint32_t field;
  uint32_t rate;
};

// Rate fields that stand for a rate over 1001.
constexpr RateRow kRatesOver1001[] = {{14, 15000}, {23, 24000}, {29, 30000},  {47, 48000},
                                      {59, 60000}, {71, 72000}, {119, 120000}};

// What is not known counts as a plain count does.
const TimecodeType& TcRowOf(uint32_t tcType) {
  const TimecodeType* const type = FindTimecodeType(tcType);
  return type != nullptr ? *type : *FindTimecodeType(kTcFrames);
}

// The rates that a measured one is taken for, each with its rational form and the timecode type that counts
// it. The ranges overlap; the first that holds decides.
struct RateClass {
  RateRange range;
  uint32_t rate;
  uint32_t scale;
  uint32_t tcType;
};

constexpr RateClass kRateClasses[] = {
    {{24.9, false, 25.1}, 25, 1, QLN_TC_PAL},
    {{23.0, true, 24.0}, 24000, 1001, QLN_TC_FILM_DROP},
    {{24.0, true, 25.0}, 24, 1, QLN_TC_FILM},
    {{47.0, true, 49.0}, 48, 1, QLN_TC_FILM},
    {{60.0, true, kNoRateLimit}, 60, 1, QLN_TC_60},
    {{59.0, true, 60.0}, 60000, 1001, QLN_TC_59_94},
    {{50.0, true, 59.0}, 50, 1, QLN_TC_50},
    {{29.0, false, 30.0}, 30000, 1001, QLN_TC_DROP_FRAME},
    {{30.0, true, 30.9}, 30, 1, QLN_TC_NON_DROP_FRAME},
};

// The class of a folded rate; null for one between the ranges.
const RateClass* RateClassOf(double r) {
  for (const RateClass& rateClass : kRateClasses) {
    if (rateClass.range.Contains(r)) return &rateClass;
  }
  return nullptr;
}

// A time above 0, truncated; `otherwise` where the result does not fit.
uint32_t TruncateTo32(double value, uint32_t otherwise) {
  return value < 4294967296.0 ? static_cast<uint32_t>(value) : otherwise;
}

}  // namespace

double FoldToBaseRate(double r) {
  if (r >= 14.0 && r <= 15.5) r *= 2.0;
  if (r >= 47.0 && r <= 48.5) r /= 2.0;
  if (r >= 71.0 && r <= 72.5) r /= 3.0;
  if (r >= 100.0 && r <= 120.0) r *= 0.25;
  return r;
}

int32_t vidRateScaleFromFPS(double framesPerSecond, uint32_t* rate, uint32_t* scale) {
  if (rate == nullptr || scale == nullptr) return -1;
  const auto give = [&](uint32_t newRate, uint32_t newScale) {
    *rate = newRate;
    *scale = newScale;
    return 0;
  };
  const double r = FoldToBaseRate(framesPerSecond);
  if (const RateClass* const rateClass = RateClassOf(r)) return give(rateClass->rate, rateClass->scale);
  give(r > -2147483649.0 ? static_cast<uint32_t>(static_cast<int32_t>(r)) * 100u : 0u, 100);
  return 1;
}

}  // namespace qln

using namespace qln;

int32_t vidRateScale(QLNSignalFormat format, uint32_t* rate, uint32_t* scale) {
  if (rate == nullptr || scale == nullptr || format == QLN_SIGNAL_FORMAT_UNKNOWN) return -1;
  const uint32_t field = format & kRateFieldMask;
  *rate = field;
  *scale = 1;
  for (const RateRow& row : kRatesOver1001) {
    if (row.field == field) {
      *rate = row.rate;
      *scale = 1001;
    }
  }
  return field == kRateFieldNone ? -1 : 0;
}

int32_t vidRateScaleFromSize(uint32_t width, uint32_t height, uint32_t* rate, uint32_t* scale) {
  if (rate == nullptr || scale == nullptr) return -1;
  if (width > 4096) return 0;
  const bool ntsc =
      (width <= 720 && height < 513) || (width > 720 && width <= 1080) || (width > 1828 && width <= 1920);
  const bool film = width > 2048 || (width > 1920 && height >= 1236);
  *rate = ntsc ? 30000 : film ? 24 : 25;
  *scale = ntsc ? 1001 : 1;
  return 0;
}

double vidFramesPerSecD(QLNSignalFormat format, uint32_t rate, uint32_t scale) {
  if (rate == 0 || scale == 0) {
    if (vidRateScale(format, &rate, &scale) != 0) return kNtscFramesPerSecond;
  }
  return static_cast<double>(rate) / static_cast<double>(scale);
}

double vidMsPerFrameD(QLNSignalFormat format, uint32_t rate, uint32_t scale) {
  return 1000.0 / vidFramesPerSecD(format, rate, scale);
}

uint32_t vidMsPerFrame(QLNSignalFormat format, uint32_t rate, uint32_t scale) {
  return TruncateTo32(vidMsPerFrameD(format, rate, scale) + 0.5, 0xFFFFFFFFu);
}

double vidTCFramesPerSecD(uint32_t tcType) { return TcRowOf(tcType).framesPerSecond; }

double vidTCMsPerFrameD(uint32_t tcType) { return TcRowOf(tcType).msPerFrame; }

uint32_t vidTCMsPerFrame(uint32_t tcType) { return TruncateTo32(vidTCMsPerFrameD(tcType) + 0.5, 0); }

uint32_t vidGetTCType(double framesPerSecond) {
  const double r = FoldToBaseRate(framesPerSecond);
  if (r < 23.0 || r > 60.0) return QLN_TC_NON_DROP_FRAME;
  const RateClass* const rateClass = RateClassOf(r);
  return rateClass != nullptr ? rateClass->tcType : QLN_TC_NON_DROP_FRAME;
}
