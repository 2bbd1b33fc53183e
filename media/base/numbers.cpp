// Reads numbers and rates.

#include "base/numbers.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <system_error>

namespace qlnmedia {

std::optional<uint32_t> ParseNumber(const std::string& text) {
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  const char* const begin = text.data() + (hexadecimal ? 2 : 0);
  const char* const end = text.data() + text.size();
  uint32_t value = 0;
  const auto [stop, error] = std::from_chars(begin, end, value, hexadecimal ? 16 : 10);
  if (error != std::errc() || stop != end || begin == end) return std::nullopt;
  return value;
}

std::optional<RationalRate> ParseRate(const std::string& text) {
  std::optional<uint32_t> rate;
  std::optional<uint32_t> scale = 1;
  const size_t slash = text.find('/');
  const size_t point = text.find('.');
  if (text.starts_with("0x") || text.starts_with("0X")) return std::nullopt;
  if (slash != std::string::npos) {
    rate = ParseNumber(text.substr(0, slash));
    scale = ParseNumber(text.substr(slash + 1));
  } else if (point != std::string::npos) {
    const std::string decimals = text.substr(point + 1);
    if (decimals.empty() || decimals.size() > 9) return std::nullopt;
    rate = ParseNumber(text.substr(0, point) + decimals);
    for (size_t i = 0; i < decimals.size(); ++i) *scale *= 10;
  } else {
    rate = ParseNumber(text);
  }
  if (!rate || !scale || *rate == 0 || *scale == 0) return std::nullopt;
  return RationalRate{*rate, *scale};
}

std::string PlainNumber(double number) {
  std::string text = fmt::format("{:.{}f}", number, std::abs(number) < 1 ? 9 : 3);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.ends_with('.')) text.pop_back();
  return text;
}

}  // namespace qlnmedia
