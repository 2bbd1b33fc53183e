// What callers inside the library ask before they convert a frame in place.
#ifndef QLNUTIL_H264_FRAME_CONVERSION_H
#define QLNUTIL_H264_FRAME_CONVERSION_H

#include <cstdint>

namespace qln {

// True when the buffer begins with a start code of 3 or 4 bytes, wholly inside it.
bool BeginsWithStartCode(const uint8_t* data, uint32_t size);

// The bytes by which qlnUtilh264MarkerToSize would make the frame longer: its start codes of 3 bytes. 0 for
// a frame that it would leave alone. A caller holds this against the capacity first.
uint32_t CountWidenedMarkers(const uint8_t* data, uint32_t size);

}  // namespace qln

#endif
