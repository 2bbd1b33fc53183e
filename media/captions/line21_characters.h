// The characters of line 21 captions (CTA-608: basic, special and extended sets) as Unicode, and back.
#ifndef CAPTIONS_LINE21_CHARACTERS_H
#define CAPTIONS_LINE21_CHARACTERS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qlnmedia::captions {

// How a character is sent on channel 1: a basic one as a byte of its own; a special one as a pair (0x11,
// code); an extended one as a pair (0x12 or 0x13, code) behind a basic one that it takes the place of, and
// that decoders without the extended sets go on showing.
struct Line21Code {
  uint8_t set = 0;      // 0 for a basic character, else the pair's first byte
  uint8_t code = 0;     // without parity
  uint8_t instead = 0;  // of an extended one: the basic code in front of it

  friend bool operator==(const Line21Code&, const Line21Code&) = default;
};

// Nothing for a character that is in none of the sets. Apostrophes of either form are the basic one, a space
// that does not break the transparent one.
std::optional<Line21Code> Line21CodeOf(char32_t character);

// The character of a basic code, 0x20 to 0x7F.
char32_t BasicCharacter(uint8_t code);
// The character of the second byte of a pair: of the special set (0x30 to 0x3F), or of the extended sets 0x12
// and 0x13 (0x20 to 0x3F). 0 for other bytes.
char32_t PairCharacter(uint8_t set, uint8_t code);

// What stands for a character that line 21 lacks, in characters that it has: letters without their marks,
// signs in ASCII; "?" where nothing is known. The character itself where line 21 has it.
std::u32string Transliterated(char32_t character);

// UTF-8 as characters; nothing for text that is not UTF-8 (RFC 3629).
std::optional<std::u32string> FromUtf8(std::string_view text);
void AppendUtf8(char32_t character, std::string* text);
std::string ToUtf8(std::u32string_view text);

}  // namespace qlnmedia::captions

#endif
