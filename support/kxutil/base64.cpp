// Base64 with line feeds (RFC 4648, section 4).

#include "kxutil/kxutil.h"

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr uint64_t kLineLength = 72;  // a multiple of 4, so that a line ends behind a whole group

uint64_t TextLength(uint32_t sourceLength) {
  const uint64_t characters = (uint64_t{sourceLength} + 2) / 3 * 4;
  return characters + characters / kLineLength;
}

}  // namespace

int32_t base64_encode(const void* source, uint32_t length, uint32_t* size, char* output) {
  if ((source == nullptr && length != 0) || size == nullptr || output == nullptr) return -1;
  const uint64_t textLength = TextLength(length);
  if (textLength >= *size) return -1;

  const uint8_t* const bytes = static_cast<const uint8_t*>(source);
  char* next = output;
  uint64_t column = 0;
  for (uint64_t i = 0; i < length; i += 3) {
    const uint64_t left = length - i;
    const uint32_t group = uint32_t{bytes[i]} << 16 | (left > 1 ? uint32_t{bytes[i + 1]} << 8 : 0u) |
                           (left > 2 ? uint32_t{bytes[i + 2]} : 0u);
    *next++ = kAlphabet[group >> 18];
    *next++ = kAlphabet[group >> 12 & 63];
    *next++ = left > 1 ? kAlphabet[group >> 6 & 63] : '=';
    *next++ = left > 2 ? kAlphabet[group & 63] : '=';
    column += 4;
    if (column == kLineLength) {
      *next++ = '\n';
      column = 0;
    }
  }
  *next = '\0';
  *size = static_cast<uint32_t>(textLength);
  return 0;
}
