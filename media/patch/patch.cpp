// Runs a patch: by the boxes of MP4 and MOV, which are carried, or through a muxer.

#include "patch/patch.h"

#include "patch/carried_file.h"
#include "patch/described_file.h"
#include "patch/in_place_file.h"
#include "patch/muxed_file.h"
#include "patch/segment_files.h"

namespace qlnmedia {

PatchResult PatchFile(const PatchOptions& options) {
  if (options.inPlace) return PatchInPlace(options);
  if (options.segments) return PatchSegments(options);
  if (!options.initialization.empty()) return PatchSegment(options);
  const DescribedFile in = OpenDescribed(options.in);
  in.media->RequireVideo();
  return in.media->isIso() ? PatchCarried(options, in) : PatchMuxed(options, *in.media);
}

}  // namespace qlnmedia
