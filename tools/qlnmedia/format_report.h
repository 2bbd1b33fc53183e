// What the library knows of a video format, as a report: from a signal format word, or from a raster.
#ifndef TOOLS_QLNMEDIA_FORMAT_REPORT_H
#define TOOLS_QLNMEDIA_FORMAT_REPORT_H

#include <cstdint>
#include <optional>
#include <string>

#include "qlnmedia/report.h"
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

struct RationalRate {
  uint32_t rate;
  uint32_t scale;
};

// Reads "25", "29.97" or "30000/1001"; nothing for text that is no rate above 0 or needs more than 32 bits.
std::optional<RationalRate> ParseRate(const std::string& text);

// Reads a number in decimal or, behind "0x", hexadecimal; nothing for other text and for more than 32 bits.
std::optional<uint32_t> ParseNumber(const std::string& text);

// All that the library tells of a word; any word can be described.
Section DescribeFormat(QLNSignalFormat format);

// The word for a raster described, with a note where the word stands for something else than was asked.
Section DescribeRaster(const Raster& raster);

// The fact "signal_format" of a stream: word and name.
void AddSignalFormat(Section& section, const Raster& raster);

}  // namespace qlnmedia

#endif
