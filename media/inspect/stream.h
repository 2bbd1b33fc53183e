// What the container says of a file and of each of its streams, for the report of `qlnmedia inspect`.
#ifndef MEDIA_INSPECT_STREAM_H
#define MEDIA_INSPECT_STREAM_H

#include "base/report.h"
#include "container/media_file.h"

namespace qlnmedia {

// The section "container" of the report.
void AddContainer(Section& report, const MediaFile& file);

// "1.2 MB" and "0:00:01.400".
std::string SizeText(int64_t bytes);
std::string DurationText(double seconds);

// One more section in the report's list "streams", with what every kind of stream has; the section is
// returned, and the coded side of the stream goes into it.
Section& AddStream(Section& report, const MediaStream& stream);

}  // namespace qlnmedia

#endif
