// The frame rate by which the timecodes of a stream count.
#ifndef MEDIA_TIMING_TIMECODE_RATE_H
#define MEDIA_TIMING_TIMECODE_RATE_H

#include <optional>
#include <string>

#include "base/rational.h"
#include "sets/sps_facts.h"
#include "units/coded_stream.h"

namespace qlnmedia {

// What is known of a stream's frame rate; 0/1 for what is not.
struct KnownRates {
  Rational container{0, 1};  // packets a second, on average
  Rational guess{0, 1};      // packets a second, as their times suggest
  Rational stream{0, 1};     // frames a second by the VUI
  bool halves = false;       // packets may hold single fields
};

// The rate that a VUI gives: of frames, also where pictures are fields; 0/1 where it gives none (ITU-T H.264
// clause E.2.1, H.265 clause E.3.1).
Rational VuiFrameRate(Codec codec, const SpsFacts& sps);

// The rates of a stream; a raw one has no container's. `sps` is the first of the stream, if it is known.
KnownRates RatesOf(const StreamDescription& stream, Codec codec, const std::optional<SpsFacts>& sps);

// The rate to count by: the container's; where that is no rate that timecodes count by, as the average of a
// short clip may be, a near one that is. `asked` is the text of --rate, empty if it was not given. Throws
// Error for a text that is no rate, for one that contradicts what is known, and where nothing is known.
Rational TimecodeRate(const KnownRates& known, const std::string& asked);

}  // namespace qlnmedia

#endif
