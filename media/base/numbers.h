// Numbers and rates as people write them.
#ifndef MEDIA_BASE_NUMBERS_H
#define MEDIA_BASE_NUMBERS_H

#include <cstdint>
#include <optional>
#include <string>

namespace qlnmedia {

struct RationalRate {
  uint32_t rate;
  uint32_t scale;
};

// Reads "25", "29.97" or "30000/1001"; nothing for text that is no rate above 0 or needs more than 32 bits.
std::optional<RationalRate> ParseRate(const std::string& text);

// Reads a number in decimal or, behind "0x", hexadecimal; nothing for other text and for more than 32 bits.
std::optional<uint32_t> ParseNumber(const std::string& text);

}  // namespace qlnmedia

#endif
