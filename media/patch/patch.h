// `qlnmedia patch`: changes what a stream and its container say, and leaves every coded slice as it is.
#ifndef MEDIA_PATCH_PATCH_H
#define MEDIA_PATCH_PATCH_H

#include <string>
#include <vector>

#include "patch/options.h"

namespace qlnmedia {

struct PatchOptions : EditOptions {
  std::string in;
  std::string out;
  bool dryRun = false;
  bool verify = false;
};

// What a run changed, one line each, as "stream 0: 12 parameter sets, avcC and container colour".
struct PatchResult {
  std::vector<std::string> lines;
};

// Patches a file. Throws Error where it cannot; the output then does not exist, or is what it was.
PatchResult PatchFile(const PatchOptions& options);

}  // namespace qlnmedia

#endif
