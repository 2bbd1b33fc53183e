// What a stream between start codes begins with.
#ifndef MEDIA_PATCH_LIVE_HEAD_H
#define MEDIA_PATCH_LIVE_HEAD_H

#include <cstdint>
#include <optional>

#include "units/coded_stream.h"
#include "units/units.h"

namespace qlnmedia {

// Whoever joins a stream waits no longer for its parameter sets.
inline constexpr uint64_t kMostBeforeSets = uint64_t{8} << 20;
inline constexpr size_t kStartCodeBytes = 3;

// The place of the next 00 00 01 at or behind `from`; nothing where none is whole.
std::optional<size_t> NextStartCode(ByteSpan bytes, size_t from);

struct LiveHead {
  std::optional<VideoCodec> codec;  // as the first set of parameters shows it
  Bytes sets;                       // the parameter sets, with start codes
  bool whole = false;               // a picture stands behind them
};

// `codec` where it is known.
LiveHead ReadLiveHead(ByteSpan bytes, std::optional<VideoCodec> codec);

}  // namespace qlnmedia

#endif
