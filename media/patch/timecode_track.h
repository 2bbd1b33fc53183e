// The timecode track that a patch of MP4 and MOV puts in or corrects.
#ifndef MEDIA_PATCH_TIMECODE_TRACK_H
#define MEDIA_PATCH_TIMECODE_TRACK_H

#include <memory>
#include <string>

#include "container/media_file.h"
#include "container/mp4/source.h"
#include "qlnmedia/patch.h"

namespace qlnmedia {

struct TimecodedInput {
  std::unique_ptr<mp4::Source> source;  // what is patched in the input's place; reads from the input
  std::string line;                     // what was done
  bool added = false;
};

// The input with the timecode of `options` in the track of its first H.264 or HEVC stream. `file` is the
// input that `in` describes; it must outlive the result. Throws Error where that cannot be.
TimecodedInput PutTimecodeTrack(const mp4::Source& file, const MediaFile& in, const PatchOptions& options);

}  // namespace qlnmedia

#endif
