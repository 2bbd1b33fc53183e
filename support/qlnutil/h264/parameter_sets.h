// The parameter set readers and writers behind the exported ones, for callers inside the library: they take
// units that run past the bytes at hand, and outputs with a capacity.
#ifndef QLNUTIL_H264_PARAMETER_SETS_H
#define QLNUTIL_H264_PARAMETER_SETS_H

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "qlnutil/bits/bit_writer.h"
#include "qlnutil/bits/private_copy.h"
#include "qlnutil/qlnh264.h"

namespace qln {

// A unit from its NAL header on, as a frame's prefix announces it: the bytes at `data` that there are, zero
// bytes behind them up to `size`.
struct UnitBytes {
  const uint8_t* data;
  uint64_t size;
  uint64_t available;

  // The bytes of a caller's state; a size below 0 counts as 0.
  static UnitBytes Of(const QLNBitState& state) {
    const uint64_t size = static_cast<uint64_t>(std::max(state.size, 0));
    return {state.data, size, size};
  }
  // A unit of `size` bytes at `data`, of which those in front of `end` exist: one at least.
  static UnitBytes UpTo(const uint8_t* data, uint64_t size, const uint8_t* end) {
    return {data, size, std::min<uint64_t>(size, static_cast<uint64_t>(end - data))};
  }

  // Fills `count` bytes at `destination`, count at most `size`.
  void CopyTo(uint8_t* destination, uint64_t count) const {
    const uint64_t real = std::min(count, available);
    if (real != 0) std::memcpy(destination, data, real);
    std::memset(destination + real, 0, count - real);
  }
};

// As the exported readers, without their refusals. *bitPos moves behind the parsed data. False, with nothing
// touched, without memory.
bool ReadSps(const UnitBytes& unit, uint32_t bitLength, uint32_t* bitPos, H264SpsRecord* sps);
bool ReadPps(const UnitBytes& unit, uint32_t bitLength, uint32_t* bitPos, H264PpsRecord* pps);

// As the exported writers: the unescaped unit takes at most `scratchSize` bytes, and the escaped one goes to
// `output`. False, with nothing written, when either does not fit, and without memory.
bool WriteSps(const H264SpsRecord& sps, uint64_t scratchSize, BitWriter& output);
bool WritePps(const H264PpsRecord& pps, uint64_t scratchSize, BitWriter& output);

}  // namespace qln

#endif
