// A Matroska or WebM stream whose pictures are patched as they come, element by element.
#ifndef MEDIA_PATCH_LIVE_MATROSKA_H
#define MEDIA_PATCH_LIVE_MATROSKA_H

#include "patch/live/raw.h"

namespace qlnmedia {

// As PatchLiveRaw. What comes out tells neither the size of its segment nor of its clusters, since these are
// not known when they begin, and has no index: what names places behind the first cluster becomes Void.
std::vector<std::string> PatchLiveMatroska(const LiveWork& work);

}  // namespace qlnmedia

#endif
