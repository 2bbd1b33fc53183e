// The tokens of JSON text of the shape that commands are written in, faster than the tokenizer that takes
// any.
#ifndef QLNUTIL_MEDIACMD_JSON_SHAPE_H
#define QLNUTIL_MEDIACMD_JSON_SHAPE_H

#define JSMN_HEADER
#include <jsmn.h>

#include <string_view>

namespace qln {

inline constexpr int kOtherShape = -1000;  // no result of the tokenizer

// Fills `tokens` as jsmn_parse does and returns their number. text: at most INT_MAX characters. The shape:
// objects in objects from the first character to the last, with strings without backslashes, decimal numbers
// and objects as values, a comma behind each value, which may be missing behind an object and behind the last
// one, and blanks around a colon only. kOtherShape for other texts, wrong ones and those with more than
// `room` tokens among them; what stands in `tokens` is then of no use.
int TokensOfWrittenShape(std::string_view text, jsmntok_t* tokens, int room);

}  // namespace qln

#endif
