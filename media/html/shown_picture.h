// One packet of a coded video stream as a page shows it: a picture, or the second field of one.
#ifndef MEDIA_HTML_SHOWN_PICTURE_H
#define MEDIA_HTML_SHOWN_PICTURE_H

#include <cstdint>
#include <string>
#include <vector>

#include "html/unit_blocks.h"

namespace qlnmedia::html {

// Where decoding can begin.
enum class Entry : uint8_t { kNone, kIdr, kCra, kBla, kRecoveryPoint, kGroup };

// How a packet's pictures are coded; the two fields of a frame may share a packet.
enum class Structure : uint8_t { kUnknown, kFrame, kTopField, kBottomField, kTopThenBottom, kBottomThenTop };

// What is known of a packet, bit by bit.
enum PictureFlags : uint8_t {
  kMarkedKey = 1,  // by the container, or by whom it was read
  kNoPts = 2,
  kNoDts = 4,
  kSecondField = 8,  // of the frame of the packet before
  kNoPicture = 16,   // units without a slice
  kNoPosition = 32,
  kDamagedUnits = 64  // bytes that belong to no unit
};

struct ShownPicture {
  uint8_t flags = 0;
  uint8_t slices = 0;  // SliceKinds of the first picture, and those of the second in the upper four bits
  Entry entry = Entry::kNone;
  Structure structure = Structure::kUnknown;
  uint8_t picStruct = 0;         // plus 1, of picture timing; 0 where nothing says it
  uint32_t clock = 0;            // PackedClock
  std::vector<ShownUnit> units;  // whose bytes are those of the reader's last packet
};

}  // namespace qlnmedia::html

#endif
