// The picture rates that caption packets know (CTA-708, SMPTE ST 334-2), and timecode at each of them.
#ifndef CAPTIONS_FRAME_RATE_H
#define CAPTIONS_FRAME_RATE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qlnmedia::captions {

// In the order of cdp_frame_rate, whose first code is 1.
enum class Rate { k23_976, k24, k25, k29_97, k30, k50, k59_94, k60 };
inline constexpr int kRateCount = 8;

struct RateInfo {
  const char* name;
  int nominal;    // pictures that timecode counts in a second
  int numerator;  // pictures a second as a fraction
  int denominator;
  uint8_t cdpCode;        // cdp_frame_rate
  int triplets;           // cc_count of every picture
  bool dropFrameAllowed;  // timecode may be drop-frame
};

const RateInfo& InfoOf(Rate rate);

// The rate of `numerator` / `denominator` pictures a second, if it is one of the eight.
std::optional<Rate> RateOf(int64_t numerator, int64_t denominator);

struct Timecode {
  int hours = 0;
  int minutes = 0;
  int seconds = 0;
  int frames = 0;

  friend bool operator==(const Timecode&, const Timecode&) = default;
};

// Pictures from 00:00:00:00, at `nominal` pictures a second; drop-frame skips 2 numbers (4 at 60) each minute
// but each tenth. Nothing for digits out of range and for numbers that drop-frame skips.
std::optional<int64_t> PictureOf(const Timecode& timecode, int nominal, bool dropFrame);

// The reverse; counts wrap after 24 hours.
Timecode TimecodeOf(int64_t picture, int nominal, bool dropFrame);

// Reads "HH:MM:SS:FF"; ';', '.' or ',' in front of the frames means drop-frame. Nothing for any other text.
std::optional<Timecode> ParseTimecode(std::string_view text, bool* dropFrame);

// The text of a timecode, with ';' in front of the frames for drop-frame.
std::string FormatTimecode(const Timecode& timecode, bool dropFrame);

}  // namespace qlnmedia::captions

#endif
