// Streams and packets of libavformat in the plain types of coded video.
#ifndef MEDIA_CONTAINER_CODED_STREAM_H
#define MEDIA_CONTAINER_CODED_STREAM_H

#include <optional>

#include "container/libav_handles.h"
#include "container/media_file.h"
#include "units/coded_stream.h"
#include "units/config_record.h"

namespace qlnmedia {

// The codec of a stream that the library parses; nothing for all others.
std::optional<Codec> CodecOf(const AVStream& stream);

// A stream in plain types; `raw` as MediaFile::isRawStream tells it.
StreamDescription DescribeStream(const AVStream& stream, bool raw);
// The same with all that the container says of it.
StreamDescription DescribeStream(const MediaFile& file, unsigned index);
// A packet in plain types, valid as long as the packet.
PacketView ViewOf(const AVPacket& packet);

// The configuration record of a stream; an empty one where the library does not parse it.
ConfigRecord ConfigOf(const AVStream& stream);

}  // namespace qlnmedia

#endif
