// Patches MP4 and MOV, whose bytes are carried over but for what changes.
#ifndef MEDIA_PATCH_CARRIED_FILE_H
#define MEDIA_PATCH_CARRIED_FILE_H

#include "patch/described_file.h"
#include "qlnmedia/patch.h"

namespace qlnmedia {

// As PatchFile. `in` is options.in, opened.
PatchResult PatchCarried(const PatchOptions& options, const DescribedFile& in);

}  // namespace qlnmedia

#endif
