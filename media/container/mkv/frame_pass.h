// Runs editors over the frames of tracks and keeps what they changed as splices.
#ifndef MEDIA_CONTAINER_MKV_FRAME_PASS_H
#define MEDIA_CONTAINER_MKV_FRAME_PASS_H

#include <functional>

#include "container/mkv/block.h"
#include "container/mp4/change.h"
#include "container/mp4/splices.h"

namespace qlnmedia::mkv {

// What an editor is told of a frame. It stands in the file as it is (`inFile`) unless its track encodes
// frames.
mp4::Sample SampleOf(const BlockView& view, size_t frame, uint64_t number);
// A frame with its track's encodings undone.
Bytes ReadFrame(const Source& source, const BlockView& view, size_t frame);

struct FrameCounts {
  uint64_t frames = 0;
  uint64_t changed = 0;
};

// Goes over the file once. `read` is called with how far. Sizes of blocks are not changed yet.
FrameCounts RunFrameEditors(const Source& source, const Layout& layout, const mp4::Change& change,
                            mp4::Splices& contents, const std::function<void(uint64_t)>& read);

}  // namespace qlnmedia::mkv

#endif
