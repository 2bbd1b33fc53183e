// Reads an output's boxes and tables back and holds them against the input: what was written is what was
// planned, whoever planned it. The media data itself is not read.
#ifndef MEDIA_CONTAINER_MP4_LAYOUT_CHECK_H
#define MEDIA_CONTAINER_MP4_LAYOUT_CHECK_H

#include <string>

#include "container/mp4/carrier.h"

namespace qlnmedia::mp4 {

struct LayoutChecked {
  uint64_t boxes = 0;
  uint64_t tracks = 0;
  uint64_t samples = 0;  // of all tracks
};

// `output` is what a prepared carrier wrote, and `name` what messages call it. Throws Error with the first
// difference, unless
// - the same boxes stand in the same order, with the same bytes but for sizes and places, and for records and
//   facts of sample descriptions;
// - each track has the same samples with the same times, durations, sync marks and descriptions;
// - each sample stands where the change has moved it to, as long as the change has made it.
LayoutChecked CheckLayout(const Carrier& carrier, const Source& output, const std::string& name);

// The same of a file that is changed where it stands: `planned` is what it will be. Each box but the movie
// and free space keeps its place, and so does each sample.
LayoutChecked CheckLayoutInPlace(const Carrier& carrier, const Source& planned, const std::string& name);

}  // namespace qlnmedia::mp4

#endif
