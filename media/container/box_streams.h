// Streams of an MP4 or MOV file in plain types as its boxes alone describe them, for work that opens no
// demuxer.
#ifndef MEDIA_CONTAINER_BOX_STREAMS_H
#define MEDIA_CONTAINER_BOX_STREAMS_H

#include <optional>
#include <vector>

#include "container/media_stream.h"
#include "container/mp4/movie.h"

namespace qlnmedia {

// One stream a track, in the order and with the indices that MediaFile gives them: of each which it is, its
// codec where that is H.264 or HEVC, whether it is encrypted, its size, its field order and its Dolby Vision
// configuration, as MediaFile's; no rates, no times, and of other streams nothing else. Nothing where boxes
// are not enough to tell that: where tracks are of a kind that is not known here, or where a demuxer makes
// streams of other things than tracks. Throws Error where `source` cannot be read.
std::optional<std::vector<MediaStream>> StreamsOfBoxes(const mp4::Source& source, const mp4::Layout& layout);

}  // namespace qlnmedia

#endif
