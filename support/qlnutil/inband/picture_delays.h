// The two delays of a source's picture timing, which outlive the SEI unit that they came in.
#ifndef QLNUTIL_INBAND_PICTURE_DELAYS_H
#define QLNUTIL_INBAND_PICTURE_DELAYS_H

#include <cstdint>

#include "qlnutil/qlnhevc.h"

namespace qln {

struct PictureDelays {
  uint32_t auCpbRemovalDelay = 0;
  uint32_t picDpbOutputDelay = 0;
};

// Walks the messages of a prefix SEI unit of `size` bytes from its NAL header on, with emulation prevention
// as it stands, for pic_timing (ITU-T H.265 clause D.2.3), read by the widths of `sps`. Behind such a message
// the walk goes on from the last bit read, not from the message's end. Without one the delays stay.
void ReadPictureDelays(const uint8_t* unit, uint32_t size, const HevcSpsRecord& sps, PictureDelays* delays);

}  // namespace qln

#endif
