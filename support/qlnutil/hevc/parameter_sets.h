// The parameter set readers behind the exported ones, for callers inside the library: they tell a refused
// unit from a failure that left everything as it was.
#ifndef QLNUTIL_HEVC_PARAMETER_SETS_H
#define QLNUTIL_HEVC_PARAMETER_SETS_H

#include <cstdint>

#include "qlnutil/qlnhevc.h"

namespace qln {

// How a reader ended.
struct HevcRead {
  enum class End : uint8_t {
    kNothingToRead,  // null state or record, or an empty state; nothing was touched
    kNoMemory,       // for the unit's copy, or a state of negative size; nothing was touched
    kRefused,        // the record holds what was read up to there
    kRead,
  };
  End end;
  uint64_t bytes = 0;  // where a unit was read: the position behind its trailing bits, unescaped

  // What the exported readers return.
  constexpr uint64_t Exported() const {
    if (end == End::kRead) return bytes;
    return end == End::kNothingToRead ? 0 : QLN_HEVC_REFUSED;
  }
};

// As the exported readers.
HevcRead HevcReadVps(QLNBitState* state, HevcVpsRecord* vps, HevcConfigRecord* config, uint32_t lengthBits);
HevcRead HevcReadSps(QLNBitState* state, HevcSpsRecord* sps, HevcConfigRecord* config, uint32_t lengthBits);
HevcRead HevcReadPps(QLNBitState* state, HevcPpsRecord* pps, HevcConfigRecord* config, uint32_t lengthBits);

}  // namespace qln

#endif
