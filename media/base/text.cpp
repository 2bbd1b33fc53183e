// Columns and printable text.

#include "base/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>

namespace qlnmedia {

size_t ColumnsOf(std::string_view text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(),
                                           [](char c) { return (static_cast<uint8_t>(c) & 0xC0) != 0x80; }));
}

std::string PadRight(std::string_view text, size_t width) {
  std::string padded(text);
  const size_t columns = ColumnsOf(text);
  if (columns < width) padded.append(width - columns, ' ');
  return padded;
}

std::string PadLeft(std::string_view text, size_t width) {
  const size_t columns = ColumnsOf(text);
  return std::string(columns < width ? width - columns : 0, ' ').append(text);
}

std::string Printable(std::string_view text) {
  std::string shown;
  for (const char c : text) {
    if (static_cast<uint8_t>(c) < 0x20 || c == 0x7F) {
      shown += fmt::format("\\x{:02X}", static_cast<uint8_t>(c));
    } else {
      shown += c;
    }
  }
  return shown;
}

}  // namespace qlnmedia
