// The real encodes that the parse and scan rows run over, made by ffmpeg with x264 and x265 and kept in the
// build folder. A row that runs over all of them is named "row:stream".
#ifndef BENCH_BENCH_STREAMS_H
#define BENCH_BENCH_STREAMS_H

#include <span>
#include <string>
#include <vector>

#include "bench_support.h"

namespace qln::bench {

struct Stream {
  const char* name;
  const char* file;  // in the build folder
  const char* size;  // of the test picture
  const char* rate;
  int pictures;
  const char* encoder;     // what ffmpeg is asked for
  const char* parameters;  // the encoder's own
  bool isMp4;              // length form, read through libavformat
  uint32_t width;          // as coded, for the check of what was parsed
  uint32_t height;
};

// 1080p in four slices with full VUI and HRD; interlaced with field decoding at every macroblock pair; intra
// pictures of 10 bits in 4:2:2 with scaling lists, eight slices; and a picture a slice in MP4.
std::span<const Stream> H264Streams();

// 1080p HDR10 with its SEI; fields as pictures of their own; four slices.
std::span<const Stream> HevcStreams();

// Encodes at the rate of everyday viewing by x264 in a slice and in four, and by x265: for frames as they
// come.
std::span<const Stream> OrdinaryStreams();

// With HRD parameters, which the library reads in a short form of its own: its reader runs past the end.
const Stream& HevcStreamWithHrd();

// The NAL units of a stream, in order.
const std::vector<Bytes>& UnitsOf(const Stream& stream);

// The stream with a start code in front of each unit.
const Bytes& ByteStreamOf(const Stream& stream);

// The pictures of a stream as its encoder wrote them: in MP4 with a size in front of each unit, else with
// start codes of three and four bytes; and the configuration record of MP4.
const std::vector<Bytes>& SamplesOf(const Stream& stream);
const Bytes& ConfigurationOf(const Stream& stream);

// The first unit for which `isWanted` holds. Ends the program when there is none.
template <class Predicate>
const Bytes& FirstUnit(const Stream& stream, Predicate isWanted) {
  for (const Bytes& unit : UnitsOf(stream)) {
    if (isWanted(unit)) return unit;
  }
  Require(false, stream.name);
  return UnitsOf(stream)[0];
}

inline uint32_t H264Type(const Bytes& unit) { return unit[0] & 31u; }
inline uint32_t HevcType(const Bytes& unit) { return unit[0] >> 1 & 63u; }

// Units behind each other in one of the two forms.
Bytes WithStartCodes(std::span<const Bytes> units);
Bytes WithLengths(std::span<const Bytes> units);

}  // namespace qln::bench

#endif
