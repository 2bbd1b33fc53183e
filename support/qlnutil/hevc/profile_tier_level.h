// profile_tier_level() (ITU-T H.265 clause 7.3.3), which VPS and SPS have in common.
#ifndef QLNUTIL_HEVC_PROFILE_TIER_LEVEL_H
#define QLNUTIL_HEVC_PROFILE_TIER_LEVEL_H

#include <cstdint>

#include "qlnutil/bits/bit_reader.h"
#include "qlnutil/bits/bit_writer.h"
#include "qlnutil/qlnhevc.h"

namespace qln {

// Reads the block and folds it into config (null allowed): the greatest tier, profile and level so far, this
// block's profile space, compatibility and constraint flags. maxSubLayersMinus1: 0 to 7, or 0xFFFFFFFF (read
// past the end), which counts as 0. reservedPairs grows by the reserved pairs of bits that are not 00, each
// of which the caller reports. Returns 0.
int32_t HevcReadProfileTierLevel(BitReader& in, uint32_t maxSubLayersMinus1, HevcConfigRecord* config,
                                 HevcProfileTierLevel& block, uint32_t& reservedPairs);

// Writes the block. The four words of the general source flags are folded into the record's 48-bit member
// first, so that a caller changes the stream's flags by those words alone. The 44 bits behind a sub-layer's
// flags are written as 0. maxSubLayersMinus1 drives its loops whole; sub-layers beyond the arrays count as
// zeros. Returns 0.
int32_t HevcWriteProfileTierLevel(BitWriter& out, uint32_t maxSubLayersMinus1, HevcProfileTierLevel& block);

}  // namespace qln

#endif
