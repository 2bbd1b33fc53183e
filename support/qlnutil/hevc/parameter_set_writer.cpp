// The end of every HEVC parameter set writer.

#include "qlnutil/hevc/parameter_set_writer.h"

#include <cstring>

#include "qlnutil/bits/emulation_prevention.h"

namespace qln {

uint32_t HevcUnitWriter::Finish(BitWriter bits, uint8_t* output) const {
  bits.WriteTrailingBits();
  if (bits.Overflowed()) return 0;
  uint8_t escaped[QLN_HEVC_UNIT_SIZE];
  const size_t size =
      InsertEmulationPrevention(escaped, sizeof escaped, area_, bits.BytePos(), kInsertionHevcWriter);
  if (size == kDoesNotFit) return 0;
  std::memcpy(output, escaped, size);
  return static_cast<uint32_t>(size);
}

}  // namespace qln
