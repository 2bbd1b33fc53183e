/// @file caption_packet.h
/// Caption distribution packets (SMPTE ST 334-2, CTA-708): the captions of one picture as SDI and hosts carry
/// them.
#ifndef QLNMEDIA_CAPTION_PACKET_H
#define QLNMEDIA_CAPTION_PACKET_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "qlnmedia/api.h"
#include "qlnmedia/caption_triplet.h"

namespace qlnmedia::captions {

/// The triplets of a caption distribution packet.
///
/// @param packet  the whole packet, from 0x96 to its checksum
/// @param reason  gets what is wrong, in a few words; may be null
/// @return nothing for bytes that are not such a packet: wrong identifier, length, section, counters or
///         checksum
QLNMEDIA_API std::optional<std::vector<Triplet>> TripletsOfPacket(std::span<const uint8_t> packet,
                                                                  std::string* reason = nullptr);

}  // namespace qlnmedia::captions

#endif
