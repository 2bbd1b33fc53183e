// The timecode that a container begins with, held against that of the stream's first picture.
#ifndef MEDIA_CHECK_TIMECODE_H
#define MEDIA_CHECK_TIMECODE_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "check/finding_list.h"
#include "container/media_stream.h"
#include "pictures/picture_tracker.h"
#include "timing/timecode.h"
#include "units/units.h"

namespace qlnmedia {

class TimecodeChecker {
 public:
  // Both must outlive this. `sets` are those of the private data.
  TimecodeChecker(const MediaStream& stream, Codec codec, const std::vector<Bytes>& sets,
                  FindingList& findings);

  // Takes the units of the next frame, in coding order.
  void Take(const std::vector<Unit>& units, const PacketView& packet);
  void Finish();

 private:
  const MediaStream& stream_;
  FindingList& findings_;
  Codec codec_;
  PictureTracker tracker_;
  std::string said_;  // by the container; empty where there is nothing to compare
  size_t packets_ = 0;
  std::optional<int64_t> firstTime_;  // of the picture that is shown first, of those looked at
  std::optional<ClockTime> first_;    // its clock, where it has one
};

}  // namespace qlnmedia

#endif
