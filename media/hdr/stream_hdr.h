// Static HDR metadata of a stream, and the SEI that carry it.
#ifndef MEDIA_HDR_STREAM_HDR_H
#define MEDIA_HDR_STREAM_HDR_H

#include <optional>
#include <vector>

#include "hdr/values.h"
#include "units/units.h"

namespace qlnmedia {

struct StreamHdr {
  std::optional<MasteringDisplay> mastering;
  std::optional<LightLevel> lightLevel;
};

// What a frame's SEI say, found by the library.
StreamHdr HdrOf(Codec codec, const std::vector<Unit>& units);
// The SEI unit with the values, made by the library; empty where there are none.
Bytes MakeHdrUnit(Codec codec, const StreamHdr& hdr);

}  // namespace qlnmedia

#endif
