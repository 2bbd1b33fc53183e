// A transport stream whose pictures are patched as they come, packet by packet.
#ifndef MEDIA_PATCH_LIVE_TRANSPORT_H
#define MEDIA_PATCH_LIVE_TRANSPORT_H

#include "patch/live/raw.h"

namespace qlnmedia {

// Whether there are transport packets in a row where the source begins.
bool LooksLikeTransport(const LiveSource& source);

// As PatchLiveRaw.
std::vector<std::string> PatchLiveTransport(const LiveWork& work);

}  // namespace qlnmedia

#endif
