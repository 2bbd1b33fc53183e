/// @file signal_format.h
/// What the library (qlnutil/qlnformat.h) knows of a video format, as a report: from a signal format word, or
/// from a raster and its rate.
#ifndef QLNMEDIA_SIGNAL_FORMAT_H
#define QLNMEDIA_SIGNAL_FORMAT_H

#include <cstdint>

#include "qlnmedia/api.h"
#include "qlnmedia/inspect.h"

namespace qlnmedia {

/// A raster with its rate; `rate` / `scale` frames a second.
struct Raster {
  uint32_t width = 0;       ///< pixels
  int32_t height = 0;       ///< lines; negative for a bottom-up image
  uint32_t rate = 0;        ///< frames in `scale` seconds; 0 for not known
  uint32_t scale = 1;       ///< see rate
  bool progressive = true;  ///< whole frames; else two fields
};

/// All that the library tells of a word; any word can be described.
QLNMEDIA_API Report ReportOnFormat(uint32_t word);

/// The word for a raster, described, with a note where it stands for something else than was asked.
QLNMEDIA_API Report ReportOnRaster(const Raster& raster);

}  // namespace qlnmedia

#endif
