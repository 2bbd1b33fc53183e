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

// What a VPS, an SPS or an H.264 subset SPS says that its stream is, by the standards' names; empty texts
// where the set breaks off before it does.
struct SetProfile {
  std::string profile;
  std::string level;
  std::string tier;  // HEVC only
};
SetProfile ProfileOf(const PublishedSet& published);
// The same of a set that stands alone.
SetProfile ProfileOf(Codec codec, const Bytes& unit);

// "8 luma, 8 chroma"
std::string BitDepthText(uint32_t luma, uint32_t chroma);

}  // namespace qlnmedia

#endif
