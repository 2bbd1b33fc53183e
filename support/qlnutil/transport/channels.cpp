// Channel masks, one bit a channel from bit 0 up, and the case of fourcc words.

#include <bit>
#include <cstdint>

#include "qlnutil/qlntransport.h"

uint32_t totalChannels(uint32_t mask) { return static_cast<uint32_t>(std::popcount(mask)); }

uint32_t isolateChannel(uint32_t mask, uint32_t index) {
  for (; mask != 0 && index != 0; --index) mask &= mask - 1;
  return mask & (0u - mask);
}

uint32_t findChannel(uint32_t mask, uint32_t* remaining, uint32_t index) {
  const uint32_t channel = isolateChannel(mask, index);
  if (remaining != nullptr) *remaining = mask & ~channel;
  return channel == 0 ? 0xFFFFFFFFu : static_cast<uint32_t>(std::countr_zero(channel));
}

namespace {

// Turns the case bit of each byte that lies from `first` to `first` + 25.
uint32_t TurnCase(uint32_t fourcc, uint32_t first) {
  for (uint32_t shift = 0; shift < 32; shift += 8) {
    const uint32_t byte = fourcc >> shift & 0xFFu;
    if (byte >= first && byte < first + 26) fourcc ^= 0x20u << shift;
  }
  return fourcc;
}

}  // namespace

uint32_t fourccToLower(uint32_t fourcc) { return TurnCase(fourcc, 'A'); }

uint32_t fourccToUpper(uint32_t fourcc) { return TurnCase(fourcc, 'a'); }
