// Streams of libavformat in plain types.
#ifndef MEDIA_CONTAINER_DESCRIBE_STREAM_H
#define MEDIA_CONTAINER_DESCRIBE_STREAM_H

#include "container/libav_handles.h"
#include "container/media_stream.h"

namespace qlnmedia {

// What the container itself describes; to be taken before the stream is looked into, which overwrites it.
ContainerColour DescribeContainerColour(const AVStream& stream);

// All else, and `colour`. `raw` is true where there is no container, `described` where the container has
// places for colour, range and size.
MediaStream DescribeMediaStream(const AVStream& stream, const ContainerColour& colour, bool raw,
                                bool described);

// A stream as failures name it: "stream 1 (audio, mp2)".
std::string StreamText(const AVStream& stream);

// A dictionary of libavformat in its order.
std::vector<Tag> DescribeTags(const AVDictionary* dictionary);

}  // namespace qlnmedia

#endif
