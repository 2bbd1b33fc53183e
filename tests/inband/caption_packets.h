// Caption packets for the tests, made field by field from the published layouts.
#ifndef TESTS_INBAND_CAPTION_PACKETS_H
#define TESTS_INBAND_CAPTION_PACKETS_H

#include <optional>

#include "support/test_support.h"

namespace qln::test {

struct PacketForm {
  uint16_t counter = 0x1234;
  bool timeCode = false;
  bool plainSum = false;                          // the checksum is the sum, instead of what makes the sum 0
  std::optional<uint8_t> ccCount = std::nullopt;  // other than the triplets that are there
};

// An ANC packet with a caption distribution packet, behind its prefix. triplets: 3 bytes each.
inline Bytes CaptionPacket(const Bytes& triplets, const PacketForm& form = {}) {
  const uint8_t high = static_cast<uint8_t>(form.counter >> 8);
  const uint8_t low = static_cast<uint8_t>(form.counter);
  Bytes cdp = {0x96, 0x69, 0, 0x4F, static_cast<uint8_t>(form.timeCode ? 0xC3 : 0x43), high, low};
  if (form.timeCode) cdp = Join({cdp, Hex("71 C1 D2 A3 B4")});
  cdp = Join(
      {cdp,
       {0x72, static_cast<uint8_t>(0xE0 | form.ccCount.value_or(static_cast<uint8_t>(triplets.size() / 3)))},
       triplets,
       {0x74, high, low, 0}});
  cdp[2] = static_cast<uint8_t>(cdp.size());
  uint32_t sum = 0;
  for (uint8_t byte : cdp) sum += byte;
  cdp.back() = static_cast<uint8_t>(form.plainSum ? sum : 0u - sum);
  return Join({{0x80, 0x80, 0x80, 0x80, 0x61, 0x01, cdp[2]}, cdp});
}

// `count` triplets with bytes that tell them apart.
inline Bytes Triplets(size_t count) {
  Bytes bytes;
  for (size_t i = 0; i < count; ++i) {
    bytes.push_back(0xFC);
    bytes.push_back(static_cast<uint8_t>(0x21 + i));
    bytes.push_back(static_cast<uint8_t>(0x41 + i));
  }
  return bytes;
}

}  // namespace qln::test

#endif
