// Patches MKV, transport streams and raw streams, which a muxer writes again packet by packet.
#ifndef MEDIA_PATCH_MUXED_FILE_H
#define MEDIA_PATCH_MUXED_FILE_H

#include "container/media_file.h"
#include "qlnmedia/patch.h"

namespace qlnmedia {

// As PatchFile. `in` is options.in, opened and not read yet.
PatchResult PatchMuxed(const PatchOptions& options, MediaFile& in);

}  // namespace qlnmedia

#endif
