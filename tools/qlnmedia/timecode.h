// Timecodes for pictures: what people write, and the SEI messages that carry it.
#ifndef TOOLS_QLNMEDIA_TIMECODE_H
#define TOOLS_QLNMEDIA_TIMECODE_H

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "qlnmedia/libav_handles.h"
#include "qlnmedia/set_edit.h"
#include "qlnmedia/units.h"

namespace qlnmedia {

// The timecode of a stream's first picture.
struct TimecodeStart {
  uint32_t count = 0;  // frames
  uint8_t type = 0;    // TcType
};

// Reads "HH:MM:SS:FF", ";" in front of the frames for drop-frame. `typeName` is the name of a TcType, or
// empty for the one that the rate asks for. Throws ToolError for a text that is no timecode, for one that
// does not exist, and for drop-frame at rates that do not know it.
TimecodeStart ParseTimecode(const std::string& text, const std::string& typeName, AVRational rate);

// What pic_timing (ITU-T H.264 clause D.1.3) holds beside the clock.
struct PictureTiming {
  uint32_t cpbRemovalDelay = 0;
  uint32_t dpbOutputDelay = 0;
  uint32_t picStruct = 0;
  bool clocks[3] = {};         // clock_timestamp_flag
  bool fieldBased[3] = {};     // nuit_field_based_flag
  uint32_t scanTypes[3] = {};  // ct_type
};

// Reads a payload as the SPS says it is laid out; nothing where it breaks off.
std::optional<PictureTiming> ReadPictureTiming(const Bytes& payload, const SpsSummary& sps);
// A payload with the clock of `count` in every timestamp that `timing` has, or in the first if it has none;
// for an SPS whose pic_struct_present_flag is 1.
Bytes MakePictureTiming(const PictureTiming& timing, const SpsSummary& sps, uint32_t count, uint8_t tcType);

// A time_code SEI unit of HEVC, made by the library.
Bytes MakeHevcTimecodeUnit(uint32_t count, uint8_t tcType);

// Gives pictures that come in coding order their place in presentation order, looking a bounded number of
// pictures ahead: no stream reorders by more.
class PresentationOrder {
 public:
  void Add(int64_t time) { pending_.push_back(time); }
  bool empty() const { return pending_.empty(); }
  bool ready() const { return pending_.size() > kAhead; }
  // Place of the picture that was added first, from 0; takes it out.
  uint32_t Take();

 private:
  static constexpr size_t kAhead = 32;
  std::deque<int64_t> pending_;
  std::deque<int64_t> taken_;  // the last kAhead
  uint32_t count_ = 0;
};

}  // namespace qlnmedia

#endif
