// The tables of CTA-608's character sets, and UTF-8.

#include "captions/line21_characters.h"

#include <algorithm>
#include <iterator>

#include "captions/transliteration_table.h"

namespace qlnmedia::captions {

namespace {

constexpr uint8_t kSpecialSet = 0x11;
constexpr uint8_t kFirstExtendedSet = 0x12;
constexpr uint8_t kSecondExtendedSet = 0x13;
constexpr uint8_t kFirstSpecial = 0x30;
constexpr uint8_t kFirstExtended = 0x20;
constexpr char32_t kApostrophe = 0x2019;

// Basic characters are ASCII but for these.
struct BasicPlace {
  uint8_t code;
  char32_t character;
};
constexpr BasicPlace kBasicPlaces[] = {
    {0x27, kApostrophe}, {0x2A, 0x00E1}, {0x5C, 0x00E9}, {0x5E, 0x00ED}, {0x5F, 0x00F3}, {0x60, 0x00FA},
    {0x7B, 0x00E7},      {0x7C, 0x00F7}, {0x7D, 0x00D1}, {0x7E, 0x00F1}, {0x7F, 0x2588},
};

// 0x11 0x30 and on. The tenth is the transparent space.
constexpr char32_t kSpecial[16] = {
    0x00AE, 0x00B0, 0x00BD, 0x00BF, 0x2122, 0x00A2, 0x00A3, 0x266A,
    0x00E0, 0x00A0, 0x00E8, 0x00E2, 0x00EA, 0x00EE, 0x00F4, 0x00FB,
};

// 0x12 0x20 and on: Spanish, French and signs.
constexpr char32_t kExtended2[32] = {
    0x00C1, 0x00C9, 0x00D3, 0x00DA, 0x00DC, 0x00FC, 0x2018, 0x00A1, 0x002A, 0x0027, 0x2014,
    0x00A9, 0x2120, 0x2022, 0x201C, 0x201D, 0x00C0, 0x00C2, 0x00C7, 0x00C8, 0x00CA, 0x00CB,
    0x00EB, 0x00CE, 0x00CF, 0x00EF, 0x00D4, 0x00D9, 0x00F9, 0x00DB, 0x00AB, 0x00BB,
};
constexpr char kInstead2[] = "AEOUUu'!.'-Cs.\"\"AACEEEeIIiOUuU<>";

// 0x13 0x20 and on: Portuguese, German, Danish and corners.
constexpr char32_t kExtended3[32] = {
    0x00C3, 0x00E3, 0x00CD, 0x00CC, 0x00EC, 0x00D2, 0x00F2, 0x00D5, 0x00F5, 0x007B, 0x007D,
    0x005C, 0x005E, 0x005F, 0x007C, 0x007E, 0x00C4, 0x00E4, 0x00D6, 0x00F6, 0x00DF, 0x00A5,
    0x00A4, 0x00A6, 0x00C5, 0x00E5, 0x00D8, 0x00F8, 0x250C, 0x2510, 0x2514, 0x2518,
};
constexpr char kInstead3[] = "AaIIiOoOo()/'-/-AaOosY$/AaOo++++";

template <size_t kSize>
std::optional<uint8_t> PlaceIn(const char32_t (&table)[kSize], char32_t character) {
  const auto* const found = std::find(std::begin(table), std::end(table), character);
  if (found == std::end(table)) return {};
  return static_cast<uint8_t>(found - std::begin(table));
}

}  // namespace

std::optional<Line21Code> Line21CodeOf(char32_t character) {
  if (character == U'\'') character = kApostrophe;
  for (const BasicPlace& place : kBasicPlaces) {
    if (place.character == character) return Line21Code{0, place.code, 0};
  }
  const bool ascii = character >= 0x20 && character < 0x7F;
  if (ascii && BasicCharacter(static_cast<uint8_t>(character)) == character)
    return Line21Code{0, static_cast<uint8_t>(character), 0};
  const auto codeAt = [](uint8_t first, uint8_t place) { return static_cast<uint8_t>(first + place); };
  if (const auto place = PlaceIn(kSpecial, character))
    return Line21Code{kSpecialSet, codeAt(kFirstSpecial, *place), 0};
  if (const auto place = PlaceIn(kExtended2, character))
    return Line21Code{kFirstExtendedSet, codeAt(kFirstExtended, *place),
                      static_cast<uint8_t>(kInstead2[*place])};
  if (const auto place = PlaceIn(kExtended3, character))
    return Line21Code{kSecondExtendedSet, codeAt(kFirstExtended, *place),
                      static_cast<uint8_t>(kInstead3[*place])};
  return {};
}

char32_t BasicCharacter(uint8_t code) {
  for (const BasicPlace& place : kBasicPlaces) {
    if (place.code == code) return place.character;
  }
  return code;
}

char32_t PairCharacter(uint8_t set, uint8_t code) {
  if (set == kSpecialSet && code >= kFirstSpecial && code < kFirstSpecial + std::size(kSpecial))
    return kSpecial[code - kFirstSpecial];
  if (code < kFirstExtended || code >= kFirstExtended + std::size(kExtended2)) return 0;
  if (set == kFirstExtendedSet) return kExtended2[code - kFirstExtended];
  return set == kSecondExtendedSet ? kExtended3[code - kFirstExtended] : 0;
}

std::u32string Transliterated(char32_t character) {
  if (Line21CodeOf(character)) return {character};
  const auto* const found =
      std::lower_bound(std::begin(kTransliterations), std::end(kTransliterations), character,
                       [](const Transliteration& a, char32_t b) { return a.character < b; });
  if (found != std::end(kTransliterations) && found->character == character)
    return std::u32string(found->text);
  return U"?";
}

std::optional<std::u32string> FromUtf8(std::string_view text) {
  std::u32string characters;
  for (size_t at = 0; at < text.size();) {
    const auto first = static_cast<uint8_t>(text[at++]);
    const int more = first < 0x80 ? 0 : first < 0xC2 ? -1 : first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
    if (more < 0 || first > 0xF4) return {};
    char32_t character = more == 0 ? first : first & (0x3FU >> more);
    for (int i = 0; i < more; ++i, ++at) {
      if (at >= text.size() || (static_cast<uint8_t>(text[at]) & 0xC0) != 0x80) return {};
      character = character << 6 | (static_cast<uint8_t>(text[at]) & 0x3FU);
    }
    constexpr char32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
    const bool surrogate = character >= 0xD800 && character < 0xE000;
    if (character < kLeast[more] || surrogate || character > 0x10FFFF) return {};
    characters += character;
  }
  return characters;
}

void AppendUtf8(char32_t character, std::string* text) {
  const auto rest = [&](int shift) { *text += static_cast<char>(0x80 | (character >> shift & 0x3F)); };
  if (character < 0x80) {
    *text += static_cast<char>(character);
  } else if (character < 0x800) {
    *text += static_cast<char>(0xC0 | character >> 6);
    rest(0);
  } else if (character < 0x10000) {
    *text += static_cast<char>(0xE0 | character >> 12);
    rest(6);
    rest(0);
  } else {
    *text += static_cast<char>(0xF0 | character >> 18);
    rest(12);
    rest(6);
    rest(0);
  }
}

std::string ToUtf8(std::u32string_view text) {
  std::string bytes;
  for (const char32_t character : text) AppendUtf8(character, &bytes);
  return bytes;
}

}  // namespace qlnmedia::captions
