// Ancillary data packets (SMPTE ST 291), as transport streams carry them (SMPTE ST 2038), and the captions in
// them (SMPTE ST 334-1, ST 334-2).
#ifndef CAPTIONS_ANC_PACKETS_H
#define CAPTIONS_ANC_PACKETS_H

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "captions/cdp.h"

namespace qlnmedia::captions {

// One packet; of each word the low eight bits.
struct AncPacket {
  bool chroma = false;  // in the colour difference samples
  int line = 0;
  int offset = 0;  // of its first word, in samples
  uint8_t did = 0;
  uint8_t sdid = 0;
  Bytes words;                // user data
  int field = 0;              // 1 or 2; 0 for a frame, and where nothing tells it
  bool parityErrors = false;  // whoever recorded it says that parity was wrong

  friend bool operator==(const AncPacket&, const AncPacket&) = default;
};

// A packet of its words, from the data identifier up to the checksum. Words of eight bits have no parity, and
// may end in front of the checksum. Nothing, with a reason, for words that are none.
std::optional<AncPacket> PacketOfWords(std::span<const uint16_t> words, bool tenBits, std::string* reason);

// The field that a line of the frame belongs to, by the lines of a picture: 2 for lines of the second field
// of rasters of 525, 625 and 1125 lines (ITU-R BT.656, SMPTE ST 274), which no progressive one has ancillary
// data in; else 1 where the frame is interlaced, and 0 for all others.
int FieldOfLine(int line, int pictureHeight, bool interlaced);

// The packets of one PES packet's payload, in their order, up to its stuffing. `damage` takes a line for each
// packet that is not right: one whose checksum or identifiers are wrong is left out; where its length cannot
// be relied on, or no packet begins, so is all behind it.
std::vector<AncPacket> ReadSt2038(std::span<const uint8_t> payload, std::vector<std::string>* damage);

// The captions of a packet: a caption distribution packet, whose rate goes into `rate`, or one pair of line
// 21 with its field. Nothing for packets that hold something else, and, with a reason, for damaged ones.
std::optional<std::vector<Triplet>> CaptionsOfAnc(const AncPacket& packet, std::optional<Rate>* rate,
                                                  std::string* reason);

}  // namespace qlnmedia::captions

#endif
