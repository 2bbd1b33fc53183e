// Values of colour and HDR, as streams carry them, and the forms in which people write them.
#ifndef QLNMEDIA_STREAM_VALUES_H
#define QLNMEDIA_STREAM_VALUES_H

#include <cstdint>
#include <string>

#include "qlnmedia/api.h"
#include "qlnmedia/error.h"

namespace qlnmedia {

/// Codes of ITU-T H.273; 2 is "unspecified".
struct ColourCodes {
  uint8_t primaries = 2;
  uint8_t transfer = 2;
  uint8_t matrix = 2;
  friend bool operator==(const ColourCodes&, const ColourCodes&) = default;
};

/// Mastering display colour volume: chromaticities in units of 0.00002 (at most 50000), luminances in units
/// of 0.0001 cd/m2.
struct MasteringDisplay {
  struct Point {
    uint16_t x = 0;
    uint16_t y = 0;
    friend bool operator==(const Point&, const Point&) = default;
  };
  Point red, green, blue, white;
  uint32_t maxLuminance = 0;
  uint32_t minLuminance = 0;
  friend bool operator==(const MasteringDisplay&, const MasteringDisplay&) = default;
};

/// Content light level in cd/m2.
struct LightLevel {
  uint16_t maxContent = 0;
  uint16_t maxAverage = 0;
  friend bool operator==(const LightLevel&, const LightLevel&) = default;
};

/// Reads "p3", "bt2020" (1000 and 0.0001 cd/m2 both), or "G(x,y)B(x,y)R(x,y)WP(x,y)L(max,min)" in the units
/// of MasteringDisplay.
/// @throws Error for anything else, and for values out of their range
QLNMEDIA_API MasteringDisplay ParseMasteringDisplay(const std::string& text);

/// Reads "MAX,AVERAGE" in cd/m2.
/// @throws Error for anything else
QLNMEDIA_API LightLevel ParseLightLevel(const std::string& text);

/// Reads a name (bt709, bt601-525, bt601-625, bt2020-pq, bt2020-hlg, p3-pq) or "P:T:M", the three codes in
/// decimal.
/// @throws Error for anything else
QLNMEDIA_API ColourCodes ParseColour(const std::string& text);

}  // namespace qlnmedia

#endif
