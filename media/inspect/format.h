// What the library knows of a video format, as a report: from a signal format word, or from a raster.
#ifndef MEDIA_INSPECT_FORMAT_H
#define MEDIA_INSPECT_FORMAT_H

#include <cstdint>
#include <optional>
#include <string>

#include "base/report.h"
#include "qlnutil/qlnformat.h"

namespace qlnmedia {

// A raster with its rate; rate / scale frames per second.
struct Raster {
  uint32_t width = 0;
  int32_t height = 0;  // negative for a bottom-up image
  uint32_t rate = 0;
  uint32_t scale = 1;
  bool progressive = true;
};

// All that the library tells of a word; any word can be described.
Section DescribeFormat(QLNSignalFormat format);

// The word for a raster described, with a note where the word stands for something else than was asked.
Section DescribeRaster(const Raster& raster);

// The fact "signal_format" of a stream: word and name.
void AddSignalFormat(Section& section, const Raster& raster);

}  // namespace qlnmedia

#endif
