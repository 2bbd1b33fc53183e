// Timecodes for pictures: what people write, and the SEI messages that carry it.
#ifndef MEDIA_TIMING_TIMECODE_H
#define MEDIA_TIMING_TIMECODE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/rational.h"
#include "pictures/picture_tracker.h"
#include "sets/sps_facts.h"
#include "units/coded_stream.h"
#include "units/units.h"

namespace qlnmedia {

// The timecode of a stream's first picture.
struct TimecodeStart {
  uint32_t count = 0;  // frames
  uint8_t type = 0;    // TcType
};

// How a type counts.
struct TimecodeCounting {
  uint32_t numbers = 0;  // frame numbers in a second
  bool drop = false;     // some are left out at the start of most minutes
};
// That of the name of a TcType; throws Error for any other text.
TimecodeCounting CountingNamed(const std::string& typeName);

// True for the rates that timecodes count frames by: 23.98 to 60.
bool IsTimecodeRate(Rational rate);

// Reads "HH:MM:SS:FF", ";" in front of the frames for drop-frame. `typeName` is the name of a TcType, or
// empty for the one that the rate asks for. Throws Error for a text that is no timecode, for one that is no
// time of day or does not exist, and for drop-frame at rates that do not know it.
TimecodeStart ParseTimecode(const std::string& text, const std::string& typeName, Rational rate);

// A clock timestamp as a message carries it.
struct ClockTime {
  uint32_t hours = 0;
  uint32_t minutes = 0;
  uint32_t seconds = 0;
  uint32_t frames = 0;
  bool drop = false;     // counting_type 4 or 6: the first numbers of most minutes are left out
  bool dropped = false;  // cnt_dropped_flag: numbers were left out right in front of this one
  bool whole = false;    // hours, minutes and seconds are all there
  // "HH:MM:SS:FF", ";" in front of the frames for drop-frame.
  std::string Text() const;
};

// What pic_timing (ITU-T H.264 clause D.1.3) holds beside the clock.
struct PictureTiming {
  uint32_t cpbRemovalDelay = 0;
  uint32_t dpbOutputDelay = 0;
  uint32_t picStruct = 0;
  bool clocks[3] = {};         // clock_timestamp_flag
  bool fieldBased[3] = {};     // nuit_field_based_flag
  uint32_t scanTypes[3] = {};  // ct_type
  ClockTime times[3];
};

// Reads a payload as the SPS says it is laid out; nothing where it breaks off.
std::optional<PictureTiming> ReadPictureTiming(const Bytes& payload, const SpsFacts& sps);
// A payload with the clock of `count` in every timestamp that `timing` has, or in the first if it has none;
// for an SPS whose pic_struct_present_flag is 1. Counts go on past midnight: the clock begins at 00 again,
// and the count of a whole day says that time does not go on there.
Bytes MakePictureTiming(const PictureTiming& timing, const SpsFacts& sps, uint32_t count, uint8_t tcType);

// The clock timestamps of a time_code payload (ITU-T H.265 clause D.2.27) that are there; as many as stand in
// front of the place where it breaks off.
std::vector<ClockTime> ReadTimeCode(const Bytes& payload);
// The first whole clock among the messages of a picture's units; nothing where there is none.
std::optional<ClockTime> ReadClock(Codec codec, const std::vector<Unit>& units, const SpsFacts& sps);
// A time_code SEI unit of HEVC for a picture of the given temporal layer, made by the library. Where `field`,
// the picture is a field, and frames are counted by units of two ticks (ITU-T H.265 clause D.3.27). `count`
// as above.
Bytes MakeHevcTimecodeUnit(uint32_t count, uint8_t tcType, bool field = false, uint32_t temporalId = 0);

// Finds out whether the timecode of a stream leaves numbers out, from its first packets in coding order: by
// the first clock of H.264 picture timing, HEVC time code, or an MPEG-2 group of pictures (ITU-T H.262 clause
// 6.2.2.6, drop_frame_flag).
class DropFrameFinder {
 public:
  explicit DropFrameFinder(const StreamDescription& stream);
  void Add(ByteSpan packet);
  // Nothing where no clock was found.
  std::optional<bool> dropFrame() const { return dropFrame_; }

 private:
  VideoCodec codec_;
  Framing framing_;
  std::optional<PictureTracker> tracker_;  // nothing for MPEG-2
  size_t packets_ = 0;
  std::optional<bool> dropFrame_;
};

}  // namespace qlnmedia

#endif
