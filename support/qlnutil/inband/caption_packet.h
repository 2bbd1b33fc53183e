// The caption packet: an ANC packet with a caption distribution packet in it (SMPTE ST 291, ST 334-2), behind
// four bytes of prefix.
#ifndef QLNUTIL_INBAND_CAPTION_PACKET_H
#define QLNUTIL_INBAND_CAPTION_PACKET_H

#include <cstdint>

#include "qlnutil/qlnframe.h"

namespace qln {

// Offsets in a caption packet.
inline constexpr uint32_t kPacketDid = 4;
inline constexpr uint32_t kPacketSdid = 5;
inline constexpr uint32_t kPacketDataCount = 6;
inline constexpr uint32_t kPacketIdentifier = 7;
inline constexpr uint32_t kPacketCdpLength = 9;
inline constexpr uint32_t kPacketRate = 10;
inline constexpr uint32_t kPacketFlags = 11;
inline constexpr uint32_t kPacketCounter = 12;
inline constexpr uint32_t kPacketSections = 14;  // the ccdata section, without a time code section
inline constexpr uint32_t kPacketTriplets = 16;  // what follows cc_count there

// Bytes of the data count that are not triplets where the packet has no time code section: those up to
// cc_count without the footer's last two.
inline constexpr uint32_t kPacketOverhead = 7;

// Tells whether `size` bytes at `bytes` (may be null) are a whole caption packet.
//
// Returns 0 for a good packet, its checksum by either convention (all bytes sum to 0, or the checksum is the
// sum); -1 for a packet that is not one, silently, or one whose length does not fit ("ERROR: mfcc, declared
// size %d exceeds packet size %d ", "ERROR: mfcc, expectsize %d, calculated size %d "); -2 where the counters
// of header and footer differ ("ERROR: mfcc, counts don't match ..."); -3 for a bad checksum ("ERROR: mfcc,
// bad CC 708 Checksum ").
int32_t CheckCaptionPacket(const uint8_t* bytes, uint32_t size);

// CheckCaptionPacket on a frame's own packet; a captionSize that captionData cannot hold is refused unread.
inline int32_t CheckCaptionPacketOf(const DFrame& frame) {
  if (frame.captionSize > sizeof frame.captionData) return -1;
  return CheckCaptionPacket(frame.captionData, frame.captionSize);
}

}  // namespace qln

#endif
