// Printable text.

#include "base/text.h"

#include <fmt/format.h>

#include <cstdint>

namespace qlnmedia {

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
