// Picture timing of HEVC (ITU-T H.265 clause D.2.3): what it says of frames and fields.
#ifndef MEDIA_TIMING_HEVC_TIMING_H
#define MEDIA_TIMING_HEVC_TIMING_H

#include <cstdint>
#include <optional>

#include "sets/sps_facts.h"
#include "units/units.h"

namespace qlnmedia {

// pic_struct of table D.2 for a field and the one that it makes a frame with.
enum FieldPicStruct : uint32_t {
  kBottomBehindTop = 10,
  kTopBehindBottom = 9,
  kTopBeforeBottom = 11,
  kBottomBeforeTop = 12,
};
// True for single fields, false for whole frames.
bool IsFieldPicStruct(uint32_t picStruct);

struct FrameFieldInfo {
  uint32_t picStruct = 0;
  uint32_t sourceScanType = 2;  // 0 interlaced, 1 progressive, 2 unknown
  bool duplicate = false;
  friend bool operator==(const FrameFieldInfo&, const FrameFieldInfo&) = default;
};

// Reads it from a payload that begins with it: that of a stream whose SPS says frame_field_info_present_flag.
// Nothing for a payload that breaks off.
std::optional<FrameFieldInfo> ReadFrameFieldInfo(ByteSpan payload);

// The payload with `info` in the place of what it has (`hadInfo`) or in front of its delays, which stay.
// Nothing where the payload breaks off, or holds more than the sets tell how to read.
std::optional<Bytes> WithFrameFieldInfo(const Bytes& payload, bool hadInfo, const HevcDelays& delays,
                                        const FrameFieldInfo& info);

// A picture timing unit without delays for a field of an interlaced source, made by the library.
Bytes MakeFieldTimingUnit(uint32_t picStruct, uint8_t temporalPlus1);

}  // namespace qlnmedia

#endif
