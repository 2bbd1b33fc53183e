// What the library knows of a video format, as a report: from a signal format word, or from a raster.
#ifndef MEDIA_INSPECT_FORMAT_H
#define MEDIA_INSPECT_FORMAT_H

#include "base/report.h"
#include "qlnmedia/signal_format.h"
#include "qlnutil/qlnformat.h"

namespace qlnmedia {

// All that the library tells of a word; any word can be described.
Section DescribeFormat(QLNSignalFormat format);

// The word for a raster described, with a note where the word stands for something else than was asked.
Section DescribeRaster(const Raster& raster);

// The fact "signal_format" of a stream: word and name, null where no word is of its raster, scan and rate.
void AddSignalFormat(Section& section, const Raster& raster);

}  // namespace qlnmedia

#endif
