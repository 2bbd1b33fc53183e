// The kind of container that an output has: the input's, also where its name says another.
#ifndef MEDIA_CONTAINER_CONTAINER_KIND_H
#define MEDIA_CONTAINER_CONTAINER_KIND_H

#include <string>

#include "container/libav_handles.h"
#include "container/media_file.h"

namespace qlnmedia {

// The kind of container that `in` is, by the name of libavformat's muxer; throws Error for one that is not
// written.
std::string OutputFormatOf(const MediaFile& in);

// Throws Error for an output that cannot be written at all: the input `in` itself, or no ordinary file.
void RequireWritable(const std::string& in, const std::string& path);
// The same, and for one that is named as another kind of container. Gives its name as above.
std::string RequireOutput(const MediaFile& in, const std::string& path);

// Throws Error where the ending of `path` is known for another kind of container than `format`, a muxer's
// name. An ending that `in` has itself is always taken, and so is one that is not known.
void RequireEndingOf(const std::string& format, const MediaFile& in, const std::string& path);

}  // namespace qlnmedia

#endif
