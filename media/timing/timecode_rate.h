// The frame rate by which the timecodes of a stream count.
#ifndef MEDIA_TIMING_TIMECODE_RATE_H
#define MEDIA_TIMING_TIMECODE_RATE_H

#include <optional>
#include <string>
#include <vector>

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

// What --rate takes for the rate that a file of uneven pictures is made for.
inline constexpr const char* kNominalRate = "nominal";

// The rate that a VUI gives: of frames, also where pictures are fields; 0/1 where it gives none (ITU-T H.264
// clause E.2.1, H.265 clause E.3.1).
Rational VuiFrameRate(Codec codec, const SpsFacts& sps);

// Pictures a second by the timing information of an HEVC video parameter set; 0/1 where it has none.
Rational VpsPictureRate(ByteSpan vps);

// The rates of a stream; a raw one has no container's. The first sets of its private data tell the stream's:
// the VUI, in HEVC else the VPS.
KnownRates RatesOf(const StreamDescription& stream, Codec codec, const std::vector<Bytes>& sets);

// The rate of timecodes that a file of another average is made for: the one that stream or times name, where
// the average is near, else the nearest whole one within three parts in a hundred. Nothing where there is
// none.
std::optional<Rational> NominalRate(const KnownRates& known);

// The rate to count by: the container's; where that is no rate that timecodes count by, as the average of a
// short clip may be, a near one that is. `asked` is the text of --rate, empty if it was not given;
// kNominalRate stands for NominalRate. Throws Error for a text that is no rate, for one that contradicts what
// is known, where nothing is known, and, naming the nominal rate, where an average is no rate but has one.
Rational TimecodeRate(const KnownRates& known, const std::string& asked);

}  // namespace qlnmedia

#endif
