// Patches transport streams, whose packets are carried over but for those of the pictures that change.
#ifndef MEDIA_PATCH_TRANSPORT_FILE_H
#define MEDIA_PATCH_TRANSPORT_FILE_H

#include "container/media_file.h"
#include "qlnmedia/patch.h"

namespace qlnmedia {

// As PatchFile. `in` is options.in, opened.
PatchResult PatchTransport(const PatchOptions& options, MediaFile& in);

}  // namespace qlnmedia

#endif
