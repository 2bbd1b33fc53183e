// Reading the two-byte HEVC NAL header into a stream object.
#ifndef QLNUTIL_HEVC_NAL_HEADER_H
#define QLNUTIL_HEVC_NAL_HEADER_H

#include <cstdint>

#include "nalstream/nalstream.h"

namespace qln {

// Types of nal_unit_type (ITU-T H.265 table 7-1) that the library tells apart.
enum HevcNalType : uint32_t {
  kHevcNalVps = 32,
  kHevcNalSps = 33,
  kHevcNalPps = 34,
  kHevcNalAccessUnitDelimiter = 35,
  kHevcNalEndOfSequence = 36,
  kHevcNalEndOfBitstream = 37,
  kHevcNalFillerData = 38,
  kHevcNalPrefixSei = 39,
  kHevcNalSuffixSei = 40,
};

// Reads the header of one HEVC NAL unit (ITU-T H.265 clause 7.3.1.2) into stream->nal, and the SEI messages
// of a prefix SEI unit into stream->sei.
//
// stream: an object of h264_new. data: the header's first byte, no start code or length in front; may be null
// when size is 0 or less. size: the unit's bytes; nothing behind them is looked at, header bits that lie
// there are 0. The parsed pointer and size of the NAL record are cleared first; a prefix SEI sets them to
// stream->sei and 16. SEI reading begins at the header's second byte, so the messages are those of a unit
// with a one-byte header: users rely on nal_unit_type alone. Returns size; 0 for the types 41 to 63; -1 when
// size is 0 or less, when a byte above 3 stands behind an emulation prevention byte, when SEI reading ran
// past the unit's end, or without memory. The header fields are set in every case.
int32_t HevcReadNalUnit(h264_stream_t* stream, const uint8_t* data, int32_t size);

}  // namespace qln

#endif
