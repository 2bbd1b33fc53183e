// What stands in an HEVC caption SEI: a whole ANC packet, or line 21 pairs.
#ifndef QLNUTIL_INBAND_CAPTION_PAYLOAD_H
#define QLNUTIL_INBAND_CAPTION_PAYLOAD_H

#include <cstdint>

namespace qln {

// Finds captions in `size` bytes at `bytes`: exactly two bytes are a line 21 pair (a zero byte becomes 0x80);
// else 'a', 1, count, 0x96, 'i' begins a whole ANC packet, whose count must lie within the bytes that are
// left, and 'a', 2, count is followed by line 21 pairs: one for a count of 2 or 3, two for one of 4 or more,
// however large it is, where four bytes are there, else one.
//
// output: room for 262 bytes. Its first four become 0x80; a packet goes behind them (outputSize count + 7,
// flags 0x1000), line 21 pairs go over them (outputSize 2 or 4, flags 0x100 and 0x200). Returns 0 when
// captions were found, else -1 with outputSize and outputFlags 0; -1 with nothing touched for a null
// argument.
int32_t ParseCaptionPayload(const uint8_t* bytes, uint32_t size, uint32_t reserved, uint8_t* output,
                            uint32_t* outputSize, uint32_t* outputFlags);

}  // namespace qln

#endif
