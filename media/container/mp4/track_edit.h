// A track of a `moov` while a file changes: its tables of sizes and places, and its sample descriptions.
#ifndef MEDIA_CONTAINER_MP4_TRACK_EDIT_H
#define MEDIA_CONTAINER_MP4_TRACK_EDIT_H

#include "container/mp4/edit.h"

namespace qlnmedia::mp4 {

// Decides how the track's sizes come out, and adds their growth and that of its descriptions.
void PlanTrack(Edit& edit, const Track& track);

// Adds to `widened` the tables of places that need 64 bits, and to edit.wider, which they stay in.
void WidenTrack(Edit& edit, const Track& track, std::vector<std::pair<uint64_t, int64_t>>& widened);

// Writes what is another in the track's boxes. Throws Error where the track cannot be relied on and
// something in it depends on what changed.
void WriteTrack(Edit& edit, const Track& track);

// `saio` of a `moov` or of a fragment; its places count from `base`, which comes out as `newBase`.
void WriteAuxiliaryOffsets(Edit& edit, Reader& reader, const Box& box, int64_t base, int64_t newBase);

// `subs`: of each changed sample that it names the parts of, the part in which the change stands gets its
// growth. `samples` gives offset and size of each sample that the box counts, in order.
class SampleSizes {
 public:
  virtual ~SampleSizes() = default;
  virtual bool Next(uint64_t& offset, uint32_t& size) = 0;
};
void WriteSubSamples(Edit& edit, Reader& reader, const Box& box, SampleSizes& samples);

}  // namespace qlnmedia::mp4

#endif
