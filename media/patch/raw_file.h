// Patches raw streams, whose packets stand one behind the other and nothing else with them.
#ifndef MEDIA_PATCH_RAW_FILE_H
#define MEDIA_PATCH_RAW_FILE_H

#include "container/media_file.h"
#include "qlnmedia/patch.h"

namespace qlnmedia {

// As PatchFile. `in` is options.in, opened and not read yet. Throws Error for a container of a kind that is
// not written.
PatchResult PatchRaw(const PatchOptions& options, MediaFile& in);

}  // namespace qlnmedia

#endif
