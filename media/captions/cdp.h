// Caption distribution packets (SMPTE ST 334-2, CTA-708) in ANC packets (SMPTE ST 291, ST 334-1).
#ifndef CAPTIONS_CDP_H
#define CAPTIONS_CDP_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "qlnmedia/caption_triplet.h"
#include "timing/frame_rate.h"

namespace qlnmedia::captions {

using Bytes = std::vector<uint8_t>;

struct CaptionPacket {
  Rate rate = Rate::k29_97;
  uint16_t counter = 0;
  std::optional<Timecode> timecode;
  bool dropFrame = false;         // of the timecode
  std::vector<Triplet> triplets;  // at most kMostTriplets are written
  bool serviceActive = true;      // caption_service_active
  Bytes serviceInfo;              // a whole ccsvcinfo section, 0x73 first; empty for none

  friend bool operator==(const CaptionPacket&, const CaptionPacket&) = default;
};

// The caption distribution packet, from 0x96 to its checksum.
Bytes WriteCdp(const CaptionPacket& packet);

// Reads a caption distribution packet. Nothing, with a reason, for bytes that are not one: wrong identifier,
// length, section, counters or checksum. Sections behind the footer's id are not known and refused.
std::optional<CaptionPacket> ReadCdp(const Bytes& cdp, std::string* reason);

// DID 0x61, SDID 0x01, data count, user data words: the ANC packet up to the word in front of its checksum.
// Empty for more than 255 bytes.
Bytes WrapInAnc(const Bytes& cdp);

// The low 8 bits of the ANC packet's checksum.
uint8_t AncChecksum(const Bytes& anc);

// The user data words of such an ANC packet; a checksum may follow them, and must then be right. Nothing,
// with a reason, for bytes that are not one.
std::optional<Bytes> UnwrapAnc(const Bytes& anc, std::string* reason);

// What a frame's caption fields take: four bytes of prefix and the ANC packet without its checksum.
Bytes FramePacket(const Bytes& anc);

}  // namespace qlnmedia::captions

#endif
