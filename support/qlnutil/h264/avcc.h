// The avcC reader behind the exported one.
#ifndef QLNUTIL_H264_AVCC_H
#define QLNUTIL_H264_AVCC_H

#include <cstdint>

#include "qlnutil/qlnh264.h"

namespace qln {

// Reads a box whose length nobody told, as qlnutilReadAvcc does with at most 512 bytes. No byte is looked at
// that the walk over its counts and lengths does not come to.
uint32_t ReadAvccOfUnknownLength(const uint8_t* box, H264SpsRecord* sps, H264PpsRecord* pps);

}  // namespace qln

#endif
