// What stands in front of the first cluster of a Matroska stream that is read as it comes.
#ifndef MEDIA_CONTAINER_MKV_LIVE_HEAD_H
#define MEDIA_CONTAINER_MKV_LIVE_HEAD_H

#include <optional>

#include "container/mkv/layout.h"
#include "container/mp4/change.h"

namespace qlnmedia::mkv {

// Waits for the element that begins at a place, and all of it but for segments and clusters. Nothing where
// the source ends before that. Throws Error for what is no element, and for one that is longer than makes
// sense.
std::optional<Element> AwaitElement(const Source& source, uint64_t at, const Limits& limits);

// From the beginning up to the first cluster. Throws Error where the source ends before.
Bytes ReadLiveHead(const Source& source);

// The head with a change of its tracks, and as a stream without an end has it: the segment's size is not
// told, and indexes that name places behind the head become Void. `layout` is that of the head.
Bytes MakeLiveHead(const Bytes& head, const mp4::Change& change, const std::string& name);

// An element's size that says that it is not told, in so many bytes.
Bytes UnknownSize(size_t bytes);
// A Void element of so many bytes, 2 at least.
Bytes VoidOf(size_t bytes);

}  // namespace qlnmedia::mkv

#endif
