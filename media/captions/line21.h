// Line 21 captions (CTA-608): odd parity, and pop-on captions out of plain text.
#ifndef CAPTIONS_LINE21_H
#define CAPTIONS_LINE21_H

#include <cstdint>
#include <string_view>
#include <vector>

namespace qlnmedia::captions {

// Two bytes of one field, the first one in the high byte, both with odd parity.
using Pair = uint16_t;

inline constexpr Pair kNullPair = 0x8080;

// The byte with its top bit set so that the number of set bits is odd.
uint8_t WithOddParity(uint8_t byte);
Pair MakePair(uint8_t first, uint8_t second);

// The pairs of field 1, channel 1 that show `text` as a pop-on caption in place of what is shown: one pair
// for each frame, control codes doubled. Lines are separated by '\n'; the last one stands in `row` (1 to 15),
// those that do not fit above it are left out, and so are characters past the 32nd of a line and those
// outside ASCII.
std::vector<Pair> PopOnCaption(std::string_view text, int row = 15);

// The pairs that clear the screen.
std::vector<Pair> EraseCaption();

}  // namespace qlnmedia::captions

#endif
