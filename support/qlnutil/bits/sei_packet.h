// The finisher of SEI packets, which every SEI maker of the library uses.
#ifndef QLNUTIL_BITS_SEI_PACKET_H
#define QLNUTIL_BITS_SEI_PACKET_H

#include <cstdint>

#include "qlnutil/qlnbits.h"

namespace qln {

// No size byte to patch.
inline constexpr uint32_t kNoSizeByte = 0xFFFFFFFFu;

// Finishes the SEI packet in `source` and appends it to `destination` at its bitPos.
//
// source: a packet up to bitPos without emulation prevention: four bytes reserved for start code or length,
//   the NAL header, payload type and size, the payload. Its payload gets a stop bit and alignment where it
//   does not end on a byte boundary, then rbsp_trailing_bits; it needs two bytes of room behind bitPos.
// destination: never checked for room; one and a half times the source is always enough. Its bitPos is the
//   packet's end afterwards. The start code or length is stored at bitPos / 8 as it was on entry.
// sizeByte: index in the source of the byte that receives the payload size (its low 8 bits), or kNoSizeByte.
// lengthPrefix: the packet begins with its length in 4 bytes big-endian, instead of with 00 00 00 01.
// Without memory for a long packet the destination stays as it was.
void WriteSeiPacket(QLNBitState* source, QLNBitState* destination, uint32_t sizeByte, bool lengthPrefix);

}  // namespace qln

#endif
