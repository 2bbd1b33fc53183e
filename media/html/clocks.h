// The timecodes of a stream's pictures, packed, and the places where they jump.
#ifndef MEDIA_HTML_CLOCKS_H
#define MEDIA_HTML_CLOCKS_H

#include <cstdint>
#include <vector>

#include "timing/timecode.h"

namespace qlnmedia::html {

// A clock as one number above 0: hours, minutes and seconds in six bits each, frames in nine, drop-frame in
// one, and 1 more. 0 is no clock.
uint32_t PackedClock(const ClockTime& time);
ClockTime UnpackedClock(uint32_t packed);

// The pictures whose clock does not go on from the last one before it, by their places. `clocks` are packed,
// in presentation order; pictures without one are counted. `rate` is that of the pictures, 0 where it is not
// known. Where each number stands on two pictures, as at 50 and 60 pictures a second it may, that is no jump.
std::vector<uint32_t> ClockJumps(const std::vector<uint32_t>& clocks, double rate);

}  // namespace qlnmedia::html

#endif
