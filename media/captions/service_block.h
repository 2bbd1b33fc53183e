// Digital captions (CTA-708): service blocks in caption channel packets.
#ifndef CAPTIONS_SERVICE_BLOCK_H
#define CAPTIONS_SERVICE_BLOCK_H

#include <cstdint>
#include <string_view>
#include <vector>

#include "captions/cdp.h"

namespace qlnmedia::captions {

// Data of one caption service: its number (1 to 63) and up to 31 bytes of commands and text.
struct ServiceBlock {
  int service = 1;
  Bytes data;
};

// A caption channel packet: a header with the sequence number (low 2 bits) and the size, the blocks, and a
// zero byte where the size would be odd. Empty where the blocks need more than the 127 bytes that a packet
// holds, and for a block that does not exist.
Bytes MakeChannelPacket(int sequence, const std::vector<ServiceBlock>& blocks);

// The packet's triplets: the first one starts it, the others go on.
std::vector<Triplet> TripletsOf(const Bytes& channelPacket);

// The commands that show `text` (ASCII, '\n' between rows) in window 0 of a service in place of what is
// shown, as blocks of at most 31 bytes.
std::vector<ServiceBlock> ShowText(std::string_view text, int service = 1);

}  // namespace qlnmedia::captions

#endif
