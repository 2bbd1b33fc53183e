// Patches media segments, which are read with their initialization segment as one stream.
#ifndef MEDIA_PATCH_SEGMENT_FILES_H
#define MEDIA_PATCH_SEGMENT_FILES_H

#include "qlnmedia/patch.h"

namespace qlnmedia {

// As PatchFile, for options.in with options.initialization.
PatchResult PatchSegment(const PatchOptions& options);
// As PatchFile, from the folder or playlist options.in into the folder options.out.
PatchResult PatchSegments(const PatchOptions& options);

}  // namespace qlnmedia

#endif
