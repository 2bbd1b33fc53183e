// What the headers of an MPEG-2 stream say (ITU-T H.262 clause 6.2.2).
#ifndef MEDIA_INSPECT_MPEG2_FACTS_H
#define MEDIA_INSPECT_MPEG2_FACTS_H

#include <optional>
#include <string>
#include <vector>

#include "inspect/scan_facts.h"
#include "timing/timecode.h"

namespace qlnmedia {

struct Mpeg2Facts {
  std::string profile;  // empty where no sequence extension was read
  std::string level;
  ScanFacts scan;
  std::optional<ClockTime> timecode;  // of the first group of pictures
};

// The timecode of a group_of_pictures_header of at least eight bytes, start code included.
ClockTime ReadGroupTime(ByteSpan header);

// By its first packets in coding order.
Mpeg2Facts ReadMpeg2Facts(const std::vector<Bytes>& packets);

}  // namespace qlnmedia

#endif
