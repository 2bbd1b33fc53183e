// The boxes of a timecode track.
#ifndef MEDIA_CONTAINER_MP4_TIMECODE_BOXES_H
#define MEDIA_CONTAINER_MP4_TIMECODE_BOXES_H

#include "container/mp4/timecode_track.h"

namespace qlnmedia::mp4 {

// A `trak` with the id that lasts as long as the video track and is edited as that is, with one sample of
// four bytes at `place`. Throws Error where the video track's headers are missing or break off.
Bytes TimecodeTrackBox(Reader& reader, const Movie& movie, const Track& video, const TimecodeFacts& facts,
                       uint32_t id, uint64_t place, bool quickTime);

}  // namespace qlnmedia::mp4

#endif
