/// @file stream_values.h
/// Values of colour and HDR, as streams carry them, and the forms in which people write them.
#ifndef QLNMEDIA_STREAM_VALUES_H
#define QLNMEDIA_STREAM_VALUES_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "qlnmedia/api.h"
#include "qlnmedia/error.h"

namespace qlnmedia {

/// Codes of ITU-T H.273; 2 is "unspecified".
struct ColourCodes {
  uint8_t primaries = 2;  ///< colour_primaries, table 2
  uint8_t transfer = 2;   ///< transfer_characteristics, table 3
  uint8_t matrix = 2;     ///< matrix_coefficients, table 4
  /// Equal member by member.
  friend bool operator==(const ColourCodes&, const ColourCodes&) = default;
};

/// Mastering display colour volume: chromaticities in units of 0.00002 (at most 50000), luminances in units
/// of 0.0001 cd/m2.
struct MasteringDisplay {
  /// A chromaticity, CIE 1931.
  struct Point {
    uint16_t x = 0;  ///< in units of 0.00002
    uint16_t y = 0;  ///< in units of 0.00002
    /// Equal member by member.
    friend bool operator==(const Point&, const Point&) = default;
  };
  /// Primaries and white point.
  /// @{
  Point red, green, blue, white;
  /// @}
  uint32_t maxLuminance = 0;  ///< in units of 0.0001 cd/m2
  uint32_t minLuminance = 0;  ///< in units of 0.0001 cd/m2
  /// Equal member by member.
  friend bool operator==(const MasteringDisplay&, const MasteringDisplay&) = default;
};

/// Content light level in cd/m2.
struct LightLevel {
  uint16_t maxContent = 0;  ///< MaxCLL, cd/m2
  uint16_t maxAverage = 0;  ///< MaxFALL, cd/m2
  /// Equal member by member.
  friend bool operator==(const LightLevel&, const LightLevel&) = default;
};

/// Width to height of a sample (ITU-T H.264 and H.265 annex E table E-1); 0 to 0 for unspecified.
struct SampleAspect {
  uint32_t width = 0;   ///< 0 to 65535
  uint32_t height = 0;  ///< 0 to 65535
  /// Equal member by member.
  friend bool operator==(const SampleAspect&, const SampleAspect&) = default;
};

/// Samples cut off at the picture's sides, in luma samples of the frame.
struct Cropping {
  uint32_t left = 0;    ///< luma samples
  uint32_t right = 0;   ///< luma samples
  uint32_t top = 0;     ///< luma samples
  uint32_t bottom = 0;  ///< luma samples
  /// Equal member by member.
  friend bool operator==(const Cropping&, const Cropping&) = default;
};

/// Timing information of the VUI: pictures a second, numerator and denominator.
struct VuiTiming {
  uint32_t numerator = 0;    ///< pictures in `denominator` seconds
  uint32_t denominator = 0;  ///< seconds
  /// H.264 fixed_frame_rate_flag; where it is not set, it stays, or is 0 if it is new.
  std::optional<bool> fixed;
  /// Equal member by member.
  friend bool operator==(const VuiTiming&, const VuiTiming&) = default;
};

/// Who registered user data (ITU-T T.35) comes from.
struct T35Provider {
  uint8_t country = 0;               ///< itu_t_t35_country_code
  std::optional<uint16_t> provider;  ///< the two bytes behind it; nothing for all of the country
  /// Equal member by member.
  friend bool operator==(const T35Provider&, const T35Provider&) = default;
};

/// Units and messages that are taken out of a stream.
struct UnitRemoval {
  bool delimiters = false;             ///< access unit delimiters
  bool filler = false;                 ///< filler data units and filler payload messages
  bool unspecified = false;            ///< units of the types that the standards leave to others
  std::vector<int> messages;           ///< SEI messages by payloadType
  std::vector<T35Provider> providers;  ///< registered user data
  /// True if anything is to go.
  bool any() const { return delimiters || filler || unspecified || !messages.empty() || !providers.empty(); }
  /// Equal member by member.
  friend bool operator==(const UnitRemoval&, const UnitRemoval&) = default;
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

/// Reads "W:H", in lowest terms; "0:0" for unspecified. 65535 each at most.
/// @throws Error for anything else
QLNMEDIA_API SampleAspect ParseSampleAspect(const std::string& text);

/// Reads "4", "4.1", "1b".
/// @return ten times the number, 9 for 1b
/// @throws Error for anything else
QLNMEDIA_API uint32_t ParseLevel(const std::string& text);

/// Reads "high" or "main".
/// @return whether it is the high one
/// @throws Error for anything else
QLNMEDIA_API bool ParseTier(const std::string& text);

/// Reads a rate as ParseRate does, with ":fixed" behind it or not.
/// @throws Error for anything else
QLNMEDIA_API VuiTiming ParseVuiTiming(const std::string& text);

/// Reads 0 to 5.
/// @throws Error for anything else
QLNMEDIA_API uint32_t ParseChromaLocation(const std::string& text);

/// Reads "L,R,T,B" in luma samples.
/// @throws Error for anything else
QLNMEDIA_API Cropping ParseCropping(const std::string& text);

/// Reads words with commas between them: delimiters, filler, unspecified, sei:N or sei:NAME ("-" for a
/// blank), t35:CC or t35:CC:PPPP in hexadecimal digits.
/// @throws Error for anything else
QLNMEDIA_API UnitRemoval ParseRemoval(const std::string& text);

}  // namespace qlnmedia

#endif
