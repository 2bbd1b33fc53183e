/// @file numbers.h
/// Numbers and rates as people write them.
#ifndef QLNMEDIA_NUMBERS_H
#define QLNMEDIA_NUMBERS_H

#include <cstdint>
#include <optional>
#include <string>

#include "qlnmedia/api.h"

namespace qlnmedia {

/// `rate` / `scale` pictures a second; neither is 0.
struct RationalRate {
  uint32_t rate;   ///< pictures in `scale` seconds
  uint32_t scale;  ///< seconds
};

/// Reads "25", "29.97" or "30000/1001"; nothing for text that is no rate above 0 or needs more than 32 bits.
QLNMEDIA_API std::optional<RationalRate> ParseRate(const std::string& text);

/// Reads a number in decimal or, behind "0x", hexadecimal; nothing for other text and for more than 32 bits.
QLNMEDIA_API std::optional<uint32_t> ParseNumber(const std::string& text);

}  // namespace qlnmedia

#endif
