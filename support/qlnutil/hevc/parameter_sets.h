// The parameter set readers behind the exported ones, for callers inside the library: they tell a refused
// unit from a failure that left everything as it was, and hand out what they have to report instead of saying
// it.
#ifndef QLNUTIL_HEVC_PARAMETER_SETS_H
#define QLNUTIL_HEVC_PARAMETER_SETS_H

#include <cstdint>

#include "qlnutil/qlnhevc.h"

namespace qln {

// What a reader has to report: reserved bits of the profile first, then at most one message more.
struct HevcReports {
  enum class Shape : uint8_t { kNone, kLocated, kLocatedNumber, kFourNumbers, kSixNumbers };
  uint32_t reservedPairs = 0;  // pairs of reserved bits that are not 00
  Shape shape = Shape::kNone;  // of the message; what it has is set, the rest is not
  int line;                    // of its source location, in the located shapes
  const char* format;
  uint32_t numbers[6];

  void Give() const;
};

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

// As the exported readers, but for the messages, which the caller gives.
HevcRead HevcReadVps(QLNBitState* state, HevcVpsRecord* vps, HevcConfigRecord* config, uint32_t lengthBits,
                     HevcReports& reports);
HevcRead HevcReadSps(QLNBitState* state, HevcSpsRecord* sps, HevcConfigRecord* config, uint32_t lengthBits,
                     HevcReports& reports);
HevcRead HevcReadPps(QLNBitState* state, HevcPpsRecord* pps, HevcConfigRecord* config, uint32_t lengthBits,
                     HevcReports& reports);

}  // namespace qln

#endif
