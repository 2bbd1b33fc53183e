// Static HDR metadata in the units of the streams, as containers and SEI messages both hold it.
#ifndef MEDIA_UNITS_STATIC_HDR_H
#define MEDIA_UNITS_STATIC_HDR_H

#include <cstdint>

namespace qlnmedia {

// Mastering display colour volume: chromaticities in units of 0.00002, luminances in units of 0.0001 cd/m2.
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

// Content light level in cd/m2.
struct LightLevel {
  uint16_t maxContent = 0;
  uint16_t maxAverage = 0;
  friend bool operator==(const LightLevel&, const LightLevel&) = default;
};

}  // namespace qlnmedia

#endif
