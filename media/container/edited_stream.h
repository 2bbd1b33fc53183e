// Puts an edited stream into libavformat's hands: its parameters, its packets.
#ifndef MEDIA_CONTAINER_EDITED_STREAM_H
#define MEDIA_CONTAINER_EDITED_STREAM_H

#include <array>
#include <cstdint>
#include <optional>

#include "container/libav_handles.h"
#include "qlnmedia/stream_values.h"
#include "units/units.h"

namespace qlnmedia {

// What the container shall say of a stream; what is not set stays.
struct OutputParameters {
  Bytes privateData;  // empty to leave it as it is
  std::optional<ColourCodes> colour;
  std::optional<bool> fullRange;
  std::optional<SampleAspect> sampleAspect;
  std::optional<MasteringDisplay> mastering;
  std::optional<LightLevel> lightLevel;
  std::optional<std::array<uint32_t, 2>> size;  // width and height
  std::optional<bool> interlaced;
  bool bottomFirst = false;  // of interlaced pictures
};

// Changes the parameters of an output's stream, before its header is written.
void SetParameters(AVStream* out, const OutputParameters& parameters);

// Replaces the bytes of a packet; its times, flags and side data stay.
void ReplacePacketData(AVPacket* packet, const Bytes& data);

}  // namespace qlnmedia

#endif
