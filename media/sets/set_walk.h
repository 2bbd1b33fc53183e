// Walks sequence parameter sets by the published syntax (ITU-T H.264 clauses 7.3.2.1.1 and E.1.1, H.265
// clauses 7.3.2.2 and E.2.1) and notes what they say and where the editable elements stand.
#ifndef MEDIA_SETS_SET_WALK_H
#define MEDIA_SETS_SET_WALK_H

#include "sets/set_edit.h"
#include "sets/set_reader.h"

namespace qlnmedia {

// Where the editable elements stand.
struct Places {
  uint32_t vuiFlag = 0;
  uint32_t signalStart = 0;  // video_signal_type_present_flag
  uint32_t signalEnd = 0;    // behind colour_description
  uint32_t videoFormat = 5;
  uint32_t picStruct = 0;
  std::vector<uint32_t> sourceFlags;  // HEVC general_progressive_source_flag, then those of the sub-layers
  uint32_t fieldSeq = 0;
};

struct Walk {
  SpsSummary summary;
  Places places;
};

// The front of vui_parameters() up to the chroma location, which both codecs share.
void ReadVuiFront(SetReader& in, Walk& walk);

// Each false for a set that breaks off or holds what no decoder takes.
bool WalkH264Sps(SetReader& in, Walk& walk);
bool WalkHevcSps(SetReader& in, Walk& walk);
bool WalkHevcVps(SetReader& in, Walk& walk);

}  // namespace qlnmedia

#endif
