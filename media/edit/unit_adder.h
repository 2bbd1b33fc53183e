// Puts access unit delimiters and recovery points into the pictures that lack them. The library makes the
// H.264 units; those of HEVC, which it has no maker for, are made here.
#ifndef MEDIA_EDIT_UNIT_ADDER_H
#define MEDIA_EDIT_UNIT_ADDER_H

#include <vector>

#include "edit/picture_units.h"
#include "qlnmedia/stream_editor.h"

namespace qlnmedia {

// What is known of a packet besides its units.
struct PacketMark {
  bool key = false;  // marked as a place where decoding can start
  // The mark is the container's own; otherwise it was found in the stream, and says nothing new.
  bool byContainer = false;
};

class UnitAdder {
 public:
  // Counts what it does in `counts`, which must outlive it.
  UnitAdder(bool delimiters, bool recoveryPoints, EditCounts& counts)
      : delimiters_(delimiters), recoveryPoints_(recoveryPoints), counts_(counts) {}

  struct Added {
    bool any = false;
    bool start =
        false;  // decoding can start at the packet, and that had to be said: a recovery point went in
  };
  // Adds what is missing in the pictures of one packet.
  Added Add(std::vector<PictureUnits>& parts, PacketMark mark);

 private:
  bool NeedsRecoveryPoint(const PictureUnits& part, PacketMark mark);

  bool delimiters_;
  bool recoveryPoints_;
  EditCounts& counts_;
};

// An H.264 delimiter for a picture of these SliceKinds; 0 stands for any.
Bytes MakeH264Delimiter(unsigned kinds);
Bytes MakeHevcDelimiter(unsigned kinds, uint8_t temporalPlus1);
// A recovery point at this very picture, header and all.
Bytes MakeH264RecoveryPoint();
Bytes MakeHevcRecoveryPoint(uint8_t temporalPlus1);

}  // namespace qlnmedia

#endif
