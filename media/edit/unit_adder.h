// Puts access unit delimiters and recovery points into the pictures that lack them. The library makes the
// H.264 units; those of HEVC, which it has no maker for, are made here.
#ifndef MEDIA_EDIT_UNIT_ADDER_H
#define MEDIA_EDIT_UNIT_ADDER_H

#include <string>
#include <vector>

#include "pictures/picture_tracker.h"

namespace qlnmedia {

// What is known of a packet besides its units.
struct PacketMark {
  bool key = false;  // marked as a place where decoding can start
  // The mark is the container's own; otherwise it was found in the stream, and says nothing new.
  bool byContainer = false;
};

class UnitAdder {
 public:
  UnitAdder(Codec codec, bool delimiters, bool recoveryPoints)
      : codec_(codec), delimiters_(delimiters), recoveryPoints_(recoveryPoints), tracker_(codec) {}

  // Shows it a parameter set that stands outside the packets.
  void TakeSet(ByteSpan unit) { tracker_.TakeSet(unit); }

  // Adds what is missing in the units of one packet. Returns true where decoding can start at the packet and
  // that had to be said: a recovery point went in.
  bool Add(std::vector<Unit>& units, PacketMark mark);

  // Units put in so far.
  int added() const { return delimitersAdded_ + recoveryPointsAdded_; }
  // What was done, a piece of text each.
  std::vector<std::string> Summary() const;

 private:
  bool NeedsRecoveryPoint(const std::vector<Unit>& units, const CodedPicture& picture, PacketMark mark);
  bool HasDelimiter(const std::vector<Unit>& units, const CodedPicture& picture) const;
  Unit MakeDelimiter(const std::vector<Unit>& units, const CodedPicture& picture) const;

  Codec codec_;
  bool delimiters_;
  bool recoveryPoints_;
  PictureTracker tracker_;
  int delimitersAdded_ = 0;
  int recoveryPointsAdded_ = 0;
  int intraLeft_ = 0;  // intra pictures of which nothing says that decoding can start there
};

// An H.264 delimiter for a picture of these SliceKinds; 0 stands for any.
Bytes MakeH264Delimiter(unsigned kinds);
Bytes MakeHevcDelimiter(unsigned kinds, uint8_t temporalPlus1);
// A recovery point at this very picture, header and all.
Bytes MakeH264RecoveryPoint();
Bytes MakeHevcRecoveryPoint(uint8_t temporalPlus1);

}  // namespace qlnmedia

#endif
