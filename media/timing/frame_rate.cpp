// Rates and timecode arithmetic.

#include "timing/frame_rate.h"

#include <cstdio>

namespace qlnmedia::captions {
namespace {

// Each picture carries its share of 9600 bits a second.
constexpr RateInfo kRates[kRateCount] = {
    {"23.976", 24, 24000, 1001, 1, 25, false}, {"24", 24, 24, 1, 2, 25, false},
    {"25", 25, 25, 1, 3, 24, false},           {"29.97", 30, 30000, 1001, 4, 20, true},
    {"30", 30, 30, 1, 5, 20, false},           {"50", 50, 50, 1, 6, 12, false},
    {"59.94", 60, 60000, 1001, 7, 10, true},   {"60", 60, 60, 1, 8, 10, false},
};

// Numbers that drop-frame skips at the start of a minute.
int DroppedNumbers(int nominal) { return nominal / 15; }

bool TwoDigits(std::string_view text, size_t at, int* value) {
  const char tens = text[at];
  const char ones = text[at + 1];
  if (tens < '0' || tens > '9' || ones < '0' || ones > '9') return false;
  *value = (tens - '0') * 10 + (ones - '0');
  return true;
}

}  // namespace

const RateInfo& InfoOf(Rate rate) { return kRates[static_cast<int>(rate)]; }

std::optional<Rate> RateOf(int64_t numerator, int64_t denominator) {
  if (numerator <= 0 || denominator <= 0) return std::nullopt;
  for (int i = 0; i < kRateCount; ++i) {
    // Equal to within a part in ten thousand: 1000/1001 is ten times that.
    const double ratio = static_cast<double>(numerator) / static_cast<double>(denominator) *
                         kRates[i].denominator / kRates[i].numerator;
    if (ratio > 0.9999 && ratio < 1.0001) return static_cast<Rate>(i);
  }
  return std::nullopt;
}

std::optional<int64_t> PictureOf(const Timecode& t, int nominal, bool dropFrame) {
  if (t.hours < 0 || t.hours > 23 || t.minutes < 0 || t.minutes > 59 || t.seconds < 0 || t.seconds > 59 ||
      t.frames < 0 || t.frames >= nominal) {
    return std::nullopt;
  }
  const int64_t minutes = t.hours * 60 + t.minutes;
  const int64_t number = (minutes * 60 + t.seconds) * nominal + t.frames;
  if (!dropFrame) return number;
  const int dropped = DroppedNumbers(nominal);
  if (t.minutes % 10 != 0 && t.seconds == 0 && t.frames < dropped) return std::nullopt;
  return number - dropped * (minutes - minutes / 10);
}

Timecode TimecodeOf(int64_t picture, int nominal, bool dropFrame) {
  int64_t number = picture;
  if (dropFrame) {
    const int dropped = DroppedNumbers(nominal);
    const int64_t minute = int64_t{nominal} * 60 - dropped;
    const int64_t tenMinutes = minute * 10 + dropped;
    const int64_t rest = number % tenMinutes;
    const int64_t skips = number / tenMinutes * 9 + (rest < dropped ? 0 : (rest - dropped) / minute);
    number += skips * dropped;
  }
  const int64_t seconds = number / nominal;
  return {static_cast<int>(seconds / 3600 % 24), static_cast<int>(seconds / 60 % 60),
          static_cast<int>(seconds % 60), static_cast<int>(number % nominal)};
}

std::optional<Timecode> ParseTimecode(std::string_view text, bool* dropFrame) {
  if (text.size() != 11 || text[2] != ':' || text[5] != ':') return std::nullopt;
  if (text[8] != ':' && text[8] != ';' && text[8] != '.' && text[8] != ',') return std::nullopt;
  Timecode t;
  if (!TwoDigits(text, 0, &t.hours) || !TwoDigits(text, 3, &t.minutes) || !TwoDigits(text, 6, &t.seconds) ||
      !TwoDigits(text, 9, &t.frames)) {
    return std::nullopt;
  }
  *dropFrame = text[8] != ':';
  return t;
}

std::string FormatTimecode(const Timecode& t, bool dropFrame) {
  char text[48];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d%c%02d", t.hours, t.minutes, t.seconds,
                dropFrame ? ';' : ':', t.frames);
  return text;
}

}  // namespace qlnmedia::captions
