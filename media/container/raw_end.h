// The end of a raw H.264 or HEVC stream: whether the file stops inside its last unit.
#ifndef MEDIA_CONTAINER_RAW_END_H
#define MEDIA_CONTAINER_RAW_END_H

#include <string>

#include "container/media_file.h"
#include "units/units.h"

namespace qlnmedia {

// A note where the file ends early: what the container shows, and for a raw stream what its last units show.
// Of a raw stream the first and last megabytes are looked at; where they do not hold the last picture, or the
// decoder cannot take it, nothing is said. Throws Error for a file that cannot be read.
std::string EndNote(const MediaFile& file);

// The same for a raw stream's bytes: those of its beginning and of its end, overlapping or all of it.
std::string RawEndNote(ByteSpan head, ByteSpan tail, Codec codec);

}  // namespace qlnmedia

#endif
