// Runs a sample editor over a track and keeps what it changed as splices.
#ifndef MEDIA_CONTAINER_MP4_SAMPLE_PASS_H
#define MEDIA_CONTAINER_MP4_SAMPLE_PASS_H

#include <functional>

#include "container/mp4/change.h"
#include "container/mp4/edit.h"

namespace qlnmedia::mp4 {

struct SampleCounts {
  uint64_t samples = 0;
  uint64_t changed = 0;
};

// `read` is called with the number of bytes of the track that were read so far.
SampleCounts RunSampleEditor(Edit& edit, uint32_t trackId, SampleEditor& editor,
                             const std::function<void(uint64_t)>& read);

// Throws Error, with the place, where a changed sample is outside the media data, or shares changed bytes
// with another sample or with a chunk of another track. `edited` are the tracks that an editor went over.
void RequireApart(const Edit& edit, const std::set<uint32_t>& edited);

// Throws Error, with the place, where data of a track covers a box that changes. The boxes of `edit` are
// sealed.
void RequireBoxesApart(const Edit& edit);

// Throws Error, with the place, where data of any track stands between two places.
void RequireNoDataIn(const Source& source, const Layout& layout, uint64_t begin, uint64_t end);

// What the samples of a track are, before or after the change.
BitRates MeasureBitRates(const Edit& edit, const Track& track, bool after);

}  // namespace qlnmedia::mp4

#endif
