// Patches MKV and WebM, whose bytes are carried over but for what changes.
#ifndef MEDIA_PATCH_MATROSKA_FILE_H
#define MEDIA_PATCH_MATROSKA_FILE_H

#include "container/media_file.h"
#include "qlnmedia/patch.h"

namespace qlnmedia {

// As PatchFile. `in` is options.in, opened and not read yet.
PatchResult PatchMatroska(const PatchOptions& options, const MediaFile& in);

}  // namespace qlnmedia

#endif
