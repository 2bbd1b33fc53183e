// What a container says of its streams, held against what it said before.
#ifndef MEDIA_CONTAINER_SAME_STREAMS_H
#define MEDIA_CONTAINER_SAME_STREAMS_H

#include <string>
#include <vector>

#include "container/libav_handles.h"
#include "container/media_file.h"

namespace qlnmedia {

// Throws Error, naming the stream and what would be lost, where the file `written` does not hold the
// streams, programs and chapters of `in` as they are there: codec, container tag, private data, disposition,
// tags, side data, and of pictures size, shape, colour, rate and field order as `wanted`, what the muxer was
// told, has them. What a muxer leaves out without a word shows here. Returns what came out otherwise and
// takes nothing away, a line each: tags that came in, names that are spelled otherwise, durations in tags.
std::vector<std::string> RequireSameStreams(const MediaFile& in, const AVFormatContext& wanted,
                                            const std::string& written);

}  // namespace qlnmedia

#endif
