// A raw H.264 or HEVC stream that is patched as it comes, access unit by access unit.
#ifndef MEDIA_PATCH_LIVE_RAW_H
#define MEDIA_PATCH_LIVE_RAW_H

#include <functional>
#include <string>
#include <vector>

#include "container/live/ends.h"
#include "patch/live/stream.h"

namespace qlnmedia {

// What a live patch of any container is given; all is kept by the caller.
struct LiveWork {
  const PatchOptions& options;
  LiveSource& source;
  mp4::Sink& sink;
  LiveCaptions* captions;  // null where none go into pictures
  LiveReport report;
  std::function<void(uint64_t at)> progress;
};

// Reads the stream to its end and returns what was changed, one line each. Throws Error before anything is
// written where the stream cannot be patched in that way.
std::vector<std::string> PatchLiveRaw(const LiveWork& work);

}  // namespace qlnmedia

#endif
