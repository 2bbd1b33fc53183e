// A TrackEntry with other private data and other facts of its pictures.
#ifndef MEDIA_CONTAINER_MKV_TRACK_EDIT_H
#define MEDIA_CONTAINER_MKV_TRACK_EDIT_H

#include "container/mkv/layout.h"
#include "container/mp4/change.h"

namespace qlnmedia::mkv {

// The entry's bytes, head included, as they become. What the change does not name is as it was; an element
// that is there keeps its place and, where the value fits, its width, and one that comes in stands behind its
// siblings. Checksums in it follow. Throws Error, with the place, for an entry that is longer than makes
// sense.
Bytes ChangedEntry(const Source& source, const Entry& entry, const Limits& limits,
                   const mp4::TrackChange& change);

}  // namespace qlnmedia::mkv

#endif
