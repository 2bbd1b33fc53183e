// Holds two Matroska files against each other, element by element: what was written is what was asked for.
#ifndef MEDIA_CONTAINER_MKV_KEPT_ELEMENTS_H
#define MEDIA_CONTAINER_MKV_KEPT_ELEMENTS_H

#include <functional>
#include <set>
#include <string>

#include "container/mkv/frame_pass.h"

namespace qlnmedia::mkv {

struct ElementsChecked {
  uint64_t elements = 0;
  uint64_t frames = 0;  // that were compared
};

// Whether a frame of a track that changes, as it was and as it is, encodings undone, holds what it must.
using FrameKept = std::function<bool(uint64_t track, const mp4::Sample& sample, ByteSpan was, ByteSpan is)>;

// Throws Error, naming `name`, with the place of the first difference, unless
// - the same elements stand in the same order, with the same bytes but for sizes, places, checksums, frames
// of
//   the tracks `changed`, and of their entries what a change may name;
// - what names a cluster, a block or another part of its segment names it where it now stands;
// - a checksum holds that held.
// Without `frames` neither these are read, nor long bodies, nor checksums of clusters.
ElementsChecked RequireElementsKept(const Source& before, const Source& after,
                                    const std::set<uint64_t>& changed, const std::string& name,
                                    const FrameKept& frames);

}  // namespace qlnmedia::mkv

#endif
