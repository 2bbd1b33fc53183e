// Samples of closed caption tracks of MOV and MP4 (QuickTime File Format, closed captioning media): atoms
// `cdat` and `cdt2` with the pairs of line 21, or `ccdp` with caption distribution packets.
#ifndef CAPTIONS_CAPTION_SAMPLE_H
#define CAPTIONS_CAPTION_SAMPLE_H

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "captions/cdp.h"

namespace qlnmedia::captions {

// What one sample holds.
struct CaptionSample {
  std::vector<std::vector<Triplet>> pictures;  // one behind the other, which share the sample's time
  std::vector<CaptionPacket> packets;          // that pictures came in, where they did
};

// Reads a sample. A picture has a pair of each field that is there, or the triplets of a packet. Atoms of
// other types are passed over; an empty sample has no pictures. Nothing, with a reason, for atoms that do not
// fit the sample, for pairs that break off and for damaged packets.
std::optional<CaptionSample> ReadCaptionSample(std::span<const uint8_t> sample, std::string* reason);

// A sample with the valid pairs of line 21 among some triplets: those of field 1 in a `cdat`, a pair without
// characters where there are none, those of field 2 in a `cdt2` behind it. Other triplets are passed over.
Bytes WriteCaptionSample(std::span<const Triplet> triplets);

// How many bytes of such a sample are its `cdat`.
size_t FirstFieldBytes(std::span<const uint8_t> sample);

}  // namespace qlnmedia::captions

#endif
