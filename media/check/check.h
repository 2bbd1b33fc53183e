// `qlnmedia check`: where container, configuration record and stream disagree, and units out of order.
#ifndef MEDIA_CHECK_CHECK_H
#define MEDIA_CHECK_CHECK_H

#include <string>
#include <vector>

#include "base/progress.h"

namespace qlnmedia {

// One kind of disagreement; the same finding in later frames counts up.
struct Finding {
  unsigned stream = 0;
  std::string what;    // "colour", "range", "size", "rate", "interlace", "hdr", "sets", "order", "captions",
                       // "damage"
  std::string text;    // who says what
  int64_t frame = -1;  // the first coded frame that shows it; -1 for the stream as a whole
  int64_t count = 1;
};

// Reads the whole file. Throws Error for a file that cannot be read.
std::vector<Finding> CheckFile(const std::string& path, const ProgressCallback& progress = {});

}  // namespace qlnmedia

#endif
