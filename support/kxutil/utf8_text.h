// What a byte text is: UTF-8, and characters that an XML document can hold.
#ifndef KXUTIL_UTF8_TEXT_H
#define KXUTIL_UTF8_TEXT_H

#include <cstdint>
#include <string_view>

namespace qln {

// The character at `offset`, which is moved behind it; 0xFFFFFFFF if the bytes there are no UTF-8 (RFC 3629:
// the shortest form, no surrogates, at most U+10FFFF).
inline uint32_t NextCharacter(std::string_view text, size_t& offset) {
  constexpr uint32_t kNone = 0xFFFFFFFFu;
  const auto byteAt = [text](size_t i) { return uint32_t{static_cast<unsigned char>(text[i])}; };
  const uint32_t lead = byteAt(offset++);
  if (lead < 0x80) return lead;
  const size_t following = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
  if (lead < 0xC2 || lead > 0xF4 || text.size() - offset < following) return kNone;
  uint32_t character = lead & (0x3Fu >> following);
  for (size_t i = 0; i < following; ++i) {
    const uint32_t byte = byteAt(offset++);
    if (byte >> 6 != 2) return kNone;
    character = character << 6 | (byte & 0x3F);
  }
  const bool tooLong = (following == 2 && character < 0x800) || (following == 3 && character < 0x10000);
  const bool surrogate = character >= 0xD800 && character < 0xE000;
  return tooLong || surrogate || character > 0x10FFFF ? kNone : character;
}

inline bool IsUtf8(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    if (NextCharacter(text, i) == 0xFFFFFFFFu) return false;
  }
  return true;
}

// Whether an attribute of an XML 1.0 document can hold the text (XML 1.0, production 2).
inline bool IsXmlText(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    const uint32_t c = NextCharacter(text, i);
    const bool allowed =
        c == '\t' || c == '\n' || c == '\r' || (c >= 0x20 && c < 0xFFFE) || (c >= 0x10000 && c <= 0x10FFFF);
    if (!allowed) return false;
  }
  return true;
}

}  // namespace qln

#endif
