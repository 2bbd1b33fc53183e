// Runs a patch: by the boxes of MP4 and MOV, which are carried, or through a muxer.

#include "patch/patch.h"

#include "container/media_file.h"
#include "patch/carried_file.h"
#include "patch/muxed_file.h"

namespace qlnmedia {

PatchResult PatchFile(const PatchOptions& options) {
  MediaFile in(options.in);
  in.RequireVideo();
  return in.isIso() ? PatchCarried(options, in) : PatchMuxed(options, in);
}

}  // namespace qlnmedia
