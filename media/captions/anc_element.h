// Elements of ancillary data as MXF carries them (SMPTE ST 436): the ancillary packets, or the lines of the
// vertical blanking interval, of one picture.
#ifndef CAPTIONS_ANC_ELEMENT_H
#define CAPTIONS_ANC_ELEMENT_H

#include <span>
#include <string>
#include <vector>

#include "captions/anc_packets.h"

namespace qlnmedia::captions {

enum class AncElementKind {
  kPackets,  // each entry is a packet without its data flag
  kLines,    // each entry is the samples of a line
};

// The packets of an element, in their order. Lines are searched for packets behind their data flag (SMPTE ST
// 291), or with nothing in front; others, as waveforms of line 21 and teletext, are passed over. `damage`
// takes a line for each packet that is not right and left out; where an entry does not fit the element, so is
// all behind it. `used`, if given, gets how many bytes the element takes.
std::vector<AncPacket> ReadAncElement(std::span<const uint8_t> element, AncElementKind kind,
                                      std::vector<std::string>* damage, size_t* used = nullptr);

// An element of packets, in samples of eight bits with their checksums; of packets without a field
// `progressive` tells whether their frame is one.
Bytes WriteAncElement(const std::vector<AncPacket>& packets, bool progressive);

// Makes the elements of pictures in presentation order, each with its triplets in caption distribution
// packets: a file of nothing else is what programs that wrap essence in MXF take.
class AncTrackWriter {
 public:
  explicit AncTrackWriter(Rate rate) : rate_(rate) {}
  // An element, with no packet for a picture without captions.
  Bytes Element(const std::vector<Triplet>& triplets);

 private:
  Rate rate_;
  uint16_t counter_ = 0;
};

}  // namespace qlnmedia::captions

#endif
