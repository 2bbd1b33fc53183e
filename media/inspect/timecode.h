// What inspect says of the timecodes in a stream.
#ifndef MEDIA_INSPECT_TIMECODE_H
#define MEDIA_INSPECT_TIMECODE_H

#include <optional>
#include <vector>

#include "inspect/coded_frames.h"
#include "pictures/picture_tracker.h"
#include "timing/timecode.h"

namespace qlnmedia {

// Reads the clock timestamps of the packets that a report lays out: H.264 picture timing, HEVC time code. Of
// several in one picture, or of the two fields in a packet, the first whole one counts.
class StreamTimecodes {
 public:
  explicit StreamTimecodes(const CodedStream& stream);
  // The timecode that is first in presentation order.
  const std::optional<ClockTime>& first() const { return first_; }
  // The same as the stream's `timecode`.
  void AddToStream(Section& section) const;
  // That of packet `number`.
  void AddToFrame(Section& frame, size_t number) const;

 private:
  Codec codec_;
  std::vector<std::optional<ClockTime>> times_;  // of each packet
  std::optional<ClockTime> first_;
};

}  // namespace qlnmedia

#endif
