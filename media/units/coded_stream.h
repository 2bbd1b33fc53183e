// One coded video stream in plain types, as a container or a host hands it over: what is said of it, and its
// packets one after the other.
#ifndef MEDIA_UNITS_CODED_STREAM_H
#define MEDIA_UNITS_CODED_STREAM_H

#include <cstdint>

#include "base/rational.h"
#include "units/units.h"

namespace qlnmedia {

// A time that is not known.
inline constexpr int64_t kNoTime = INT64_MIN;

// The codecs whose pictures are told apart here.
enum class VideoCodec { kOther, kH264, kHevc, kMpeg2 };

struct StreamDescription {
  VideoCodec codec = VideoCodec::kOther;
  Bytes privateData;        // body of an avcC or hvcC box, units with start codes, or nothing
  Rational timeBase{1, 1};  // seconds in a unit of its packets' times
  Rational averageRate;     // pictures a second as the container tells or counts them
  Rational baseRate;        // the lowest rate at which all its times can stand
  bool raw = false;         // no container: packets have no times that mean anything
};

// A packet, or an access unit of a host; the bytes are the giver's.
struct PacketView {
  ByteSpan data;
  int64_t pts = kNoTime;  // presentation time in units of the stream's time base
  int64_t dts = kNoTime;  // decoding time
  bool key = false;       // the container marks it as a place where decoding can start
  int64_t position = -1;  // in the file, in bytes; -1 where nobody knows
};

}  // namespace qlnmedia

#endif
