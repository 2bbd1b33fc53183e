// Static HDR metadata of a container's stream and of a frame's SEI.
#ifndef MEDIA_HDR_STREAM_HDR_H
#define MEDIA_HDR_STREAM_HDR_H

#include <optional>
#include <vector>

#include "container/libav_handles.h"
#include "hdr/values.h"
#include "units/units.h"

namespace qlnmedia {

struct StreamHdr {
  std::optional<MasteringDisplay> mastering;
  std::optional<LightLevel> lightLevel;
};

// What the container's boxes say.
StreamHdr ContainerHdr(const AVStream& stream);
// Sets the container's side data.
void SetContainerMastering(AVStream* stream, const MasteringDisplay& display);
void SetContainerLightLevel(AVStream* stream, const LightLevel& level);

// What a frame's SEI say, found by the library.
StreamHdr HdrOf(Codec codec, const std::vector<Unit>& units);
// The SEI unit with the values, made by the library; empty where there are none.
Bytes MakeHdrUnit(Codec codec, const StreamHdr& hdr);

}  // namespace qlnmedia

#endif
