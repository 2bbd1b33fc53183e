// One coded video stream in plain types, and its units.
#ifndef MEDIA_UNITS_CODED_STREAM_H
#define MEDIA_UNITS_CODED_STREAM_H

#include <optional>

#include "qlnmedia/coded_stream.h"
#include "units/config_record.h"
#include "units/units.h"

namespace qlnmedia {

// The codec whose units these are; nothing for MPEG-2 and others.
std::optional<Codec> UnitCodecOf(VideoCodec codec);

// The private data taken apart, with the framing of the stream's packets; an empty one where it has no units.
ConfigRecord ConfigOf(const StreamDescription& stream);

}  // namespace qlnmedia

#endif
