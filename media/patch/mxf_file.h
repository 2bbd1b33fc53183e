// Patches MXF files, which are carried over but for their pictures and what describes them.
#ifndef MEDIA_PATCH_MXF_FILE_H
#define MEDIA_PATCH_MXF_FILE_H

#include "container/media_file.h"
#include "qlnmedia/patch.h"

namespace qlnmedia {

// As PatchFile. `in` is options.in, opened.
PatchResult PatchMxf(const PatchOptions& options, MediaFile& in);

}  // namespace qlnmedia

#endif
