// The stream of ancillary data with captions that a patch of transport streams puts in.
#ifndef MEDIA_PATCH_CAPTION_STREAM_H
#define MEDIA_PATCH_CAPTION_STREAM_H

#include "container/media_file.h"
#include "qlnmedia/patch.h"

namespace qlnmedia {

// Puts the captions of `options` into an ancillary data stream (SMPTE ST 2038) beside the first video stream,
// of whatever codec: a PES packet with a caption distribution packet for each picture, in the order of their
// times. `in` is options.in, opened. As PatchFile.
PatchResult PatchCaptionStream(const PatchOptions& options, MediaFile& in);

}  // namespace qlnmedia

#endif
