// nalstream: what the stream code needs below it: a start code search and the stream object of NAL headers.
//
// The names are those that stream code traditionally goes by; the behaviour is safe on any input. Nothing
// here leaves libqlnutil.
#ifndef NALSTREAM_NALSTREAM_H
#define NALSTREAM_NALSTREAM_H

#include <cstddef>
#include <cstdint>

// Finds the next NAL unit of a byte stream (ITU-T H.264 and H.265, Annex B).
//
// A unit begins behind 00 00 01 and ends in front of 00 00 00 or 00 00 01, or at the end of the data. No byte
// outside the buffer is looked at.
// buffer, size: the bytes to search; size below 0 counts as 0.
// start, end: set to the unit's first byte and the byte behind it, as offsets into buffer.
// Returns the unit's size; 0 with both offsets 0 when no start code is left; 0 with both offsets behind the
// first start code for an empty unit; for a size below 4 the size itself, with both offsets 0.
int find_nal_unit(const uint8_t* buffer, int size, int* start, int* end);

// One SEI message as the stream object keeps it.
struct sei_t {
  int payloadType;
  int payloadSize;  // bytes at data: never more than the unit held, whatever size was coded
  uint8_t* data;    // owned by the stream object; null when payloadSize is 0
};

// The NAL record of a stream object.
struct HevcNalHeader {
  uint32_t forbidden_zero_bit;
  uint32_t nal_unit_type;
  uint32_t nuh_layer_id;
  uint32_t nuh_temporal_id;  // nuh_temporal_id_plus1 minus 1; 0xFFFFFFFF for a coded 0
  void* parsed;              // what was parsed behind the header: the stream's sei, or null
  int sizeof_parsed;         // its size in bytes
};

// A stream object. The NAL record comes first: that is what its users rely on.
struct h264_stream_t {
  HevcNalHeader* nal;
  sei_t* sei;  // the last SEI message that was read
};

// Makes a stream object with an empty NAL record and no SEI payload. Returns null without memory.
// The caller frees it with h264_free.
h264_stream_t* h264_new();

// Frees a stream object and what it owns; null is allowed.
void h264_free(h264_stream_t* stream);

// Reads the SEI messages of an unescaped payload (ITU-T H.265 clause 7.3.5) until only trailing bits are
// left; the last message stays in stream->sei. Bytes behind the payload read as 0, payload sizes are bounded
// by what is there, and nothing outside rbsp is looked at.
// Returns the position in bytes that reading came to, trailing bits included: above size when it ran past
// the end; -1 without memory, with an empty SEI.
int64_t read_sei_rbsp(h264_stream_t* stream, const uint8_t* rbsp, int size);

#endif
