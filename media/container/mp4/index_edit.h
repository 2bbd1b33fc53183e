// Boxes that name places of the file beside its tracks, while it changes: segment indexes, the random access
// index at the end, and items.
#ifndef MEDIA_CONTAINER_MP4_INDEX_EDIT_H
#define MEDIA_CONTAINER_MP4_INDEX_EDIT_H

#include "container/mp4/edit.h"

namespace qlnmedia::mp4 {

// `sidx`, and the `ssix` that stands behind it.
void WriteSegmentIndex(Edit& edit, Reader& reader, const Box& sidx);
void WriteSubsegmentIndex(Edit& edit, Reader& reader, const Box& ssix, const Box& sidx);

// `mfra` with its `tfra` and `mfro`. The first adds what needs 64 bits, as WidenTrack does.
void WidenRandomAccess(Edit& edit, Reader& reader, const Box& mfra,
                       std::vector<std::pair<uint64_t, int64_t>>& widened);
void WriteRandomAccess(Edit& edit, Reader& reader, const Box& mfra);

// `iloc` of a `meta`.
void WriteItemLocations(Edit& edit, Reader& reader, const Box& meta);

}  // namespace qlnmedia::mp4

#endif
