// The report of `qlnmedia inspect`.
#ifndef MEDIA_INSPECT_INSPECT_H
#define MEDIA_INSPECT_INSPECT_H

#include <string>

#include "base/report.h"

namespace qlnmedia {

struct InspectOptions {
  int frames = 3;      // coded frames of each video stream that are laid out
  bool units = false;  // every unit of those frames, with its header
};

// Reads a file and reports on it. Throws Error for a file that is missing, is no media, or has no video.
Section InspectFile(const std::string& path, const InspectOptions& options);

}  // namespace qlnmedia

#endif
