// Patches MP4 and MOV where they stand.
#ifndef MEDIA_PATCH_IN_PLACE_FILE_H
#define MEDIA_PATCH_IN_PLACE_FILE_H

#include "qlnmedia/patch.h"

namespace qlnmedia {

// As PatchFile, with options.inPlace.
PatchResult PatchInPlace(const PatchOptions& options);

}  // namespace qlnmedia

#endif
