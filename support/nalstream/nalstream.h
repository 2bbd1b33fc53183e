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

#endif
