// The summary's line about high dynamic range.
#ifndef MEDIA_INSPECT_HDR_SUMMARY_H
#define MEDIA_INSPECT_HDR_SUMMARY_H

#include <vector>

#include "base/report.h"
#include "container/media_stream.h"
#include "hdr/stream_hdr.h"

namespace qlnmedia {

// What the first pictures of a stream say; of each kind the first that comes.
struct HdrSeen {
  StreamHdr values;
  bool dynamic = false;      // SMPTE ST 2094-40
  bool dolbyVision = false;  // metadata of Dolby Vision
  void Take(Codec codec, const std::vector<Unit>& units);
};

// Adds the object "hdr", null for pictures of standard range, and a line where there is something to say.
// Colour by its codes (ITU-T H.273).
void AddHdrSummary(Section& section, const MediaStream& stream, const HdrSeen& seen, uint32_t primaries,
                   uint32_t transfer);

}  // namespace qlnmedia

#endif
