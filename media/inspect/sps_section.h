// What a sequence parameter set says of the pictures, in words and numbers, for the report of its set.
#ifndef MEDIA_INSPECT_SPS_SECTION_H
#define MEDIA_INSPECT_SPS_SECTION_H

#include "base/report.h"
#include "inspect/departures.h"

namespace qlnmedia {

// Adds profile, level and what follows from the elements of an SPS or of an H.264 subset SPS; of a VPS and of
// a set that breaks off, as far as they go. `stepLost` is true where the library's reading of an HEVC SPS
// leaves the stream's syntax.
void AddSetFacts(Section& section, const PublishedSet& published, bool stepLost);

// "8 luma, 8 chroma"
std::string BitDepthText(uint32_t luma, uint32_t chroma);

}  // namespace qlnmedia

#endif
