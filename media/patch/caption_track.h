// The closed caption track that a patch of MP4 and MOV puts in.
#ifndef MEDIA_PATCH_CAPTION_TRACK_H
#define MEDIA_PATCH_CAPTION_TRACK_H

#include <memory>
#include <string>
#include <vector>

#include "container/media_file.h"
#include "container/mp4/source.h"
#include "qlnmedia/patch.h"

namespace qlnmedia {

struct CaptionedInput {
  std::unique_ptr<mp4::Source> source;  // what is patched in the input's place; reads from the input
  std::vector<std::string> lines;       // what was done
};

// The input with the captions of `options` in a `c608` track: a sample for each picture of its first video
// stream, of whatever codec, in presentation order; at more than 30 pictures a second for each two, since
// line 21 has 30 frames a second. `file` is the input that `in` describes; it must outlive the result. Throws
// Error where that cannot be.
CaptionedInput PutCaptionTrack(const mp4::Source& file, const MediaFile& in, const PatchOptions& options);

}  // namespace qlnmedia

#endif
