// How both H.264 parameter set writers turn a unit in scratch memory into bytes of the output.
#ifndef QLNUTIL_H264_PARAMETER_SET_OUTPUT_H
#define QLNUTIL_H264_PARAMETER_SET_OUTPUT_H

#include <algorithm>
#include <cstdint>

#include "qlnutil/bits/emulation_prevention.h"
#include "qlnutil/bits/private_copy.h"
#include "qlnutil/h264/syntax_coders.h"

namespace qln {

// Bits of the longest code that the bit writer makes, for a value of 31 bits.
inline constexpr uint64_t kLongestCode = 2 * (31 + 24) - 1;

// Builds a unit with `writeUnit` (on a H264SetWriter) in at most `scratchSize` bytes of scratch memory, and
// appends it to `output` with emulation prevention. needed: a bound for the unit's bytes, so that no more
// than that is allocated, however large the told scratch is. False, with nothing written, when the unit
// does not fit the scratch or the output, and without memory.
template <class WriteUnit>
bool AppendUnit(uint64_t scratchSize, uint64_t needed, BitWriter& output, WriteUnit writeUnit) {
  const uint64_t room = std::min(scratchSize, needed);
  PrivateCopy scratch(room);
  if (!scratch.ok()) return false;
  H264SetWriter coder{{BitWriter(scratch.data(), room)}};
  writeUnit(coder);
  coder.bits.AlignZero();
  if (coder.bits.Overflowed()) return false;

  const uint64_t size = coder.bits.BytePos();
  PrivateCopy escaped(WorstEscapedSize(size));
  if (!escaped.ok()) return false;
  const uint64_t written = InsertEmulationPrevention(escaped.data(), WorstEscapedSize(size), scratch.data(),
                                                     size, kInsertionH264Writer);
  output.WriteBytes(escaped.data(), written);
  return !output.Overflowed();
}

// The exported form: appends to a host's state, whose `size` tells half the scratch. Returns false with the
// state untouched.
template <class Record>
bool WriteToState(QLNBitState* state, const Record& record,
                  bool (*write)(const Record& record, uint64_t scratchSize, BitWriter& output)) {
  const uint64_t scratchSize = 2 * static_cast<uint64_t>(std::max(state->size, 0));
  BitWriter output(*state);
  if (!write(record, scratchSize, output)) return false;
  state->bitPos = static_cast<uint32_t>(output.bitPos);
  return true;
}

}  // namespace qln

#endif
