// What the boxes of an MP4 or MOV track say that demuxers resolve or pass over: its edit list, what its
// sample description holds, and the sets of higher HEVC layers.
#ifndef MEDIA_INSPECT_TRACK_BOXES_H
#define MEDIA_INSPECT_TRACK_BOXES_H

#include <optional>
#include <string>
#include <vector>

#include "base/report.h"
#include "container/media_file.h"
#include "container/mp4/source.h"
#include "units/units.h"

namespace qlnmedia {

struct TrackBoxes {
  // One entry of the edit list (ISO/IEC 14496-12 clause 8.6.6).
  struct Edit {
    double seconds = 0;
    std::optional<double> mediaTime;  // in seconds of the media; nothing for an empty edit
    double rate = 1;
  };
  std::vector<Edit> edits;
  std::vector<std::string> description;  // types of the boxes in a video track's first sample description
  std::vector<Bytes> layeredUnits;       // the units of its lhvC (ISO/IEC 14496-15 clause 9.6.3)
};

// Reads the boxes of the track of that id. What does not fit ends the reading; what was found stands.
TrackBoxes ReadTrackBoxes(const mp4::Source& source, uint32_t trackId);
// The same of a stream of a file; nothing where the file is no MP4 or MOV.
TrackBoxes ReadTrackBoxes(const MediaFile& file, const MediaStream& stream);

void AddTrackBoxes(Section& section, const TrackBoxes& boxes);

}  // namespace qlnmedia

#endif
