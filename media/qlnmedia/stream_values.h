// Values of colour and HDR, as streams carry them.
#ifndef QLNMEDIA_STREAM_VALUES_H
#define QLNMEDIA_STREAM_VALUES_H

#include <cstdint>

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

}  // namespace qlnmedia

#endif
