// What the three HEVC parameter set writers share: a bounded work area, the NAL header, trailing bits and
// the insertion of emulation prevention.
#ifndef QLNUTIL_HEVC_PARAMETER_SET_WRITER_H
#define QLNUTIL_HEVC_PARAMETER_SET_WRITER_H

#include <cstdint>

#include "qlnutil/bits/bit_writer.h"
#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/qlnhevc.h"

namespace qln {

// One unit on its way through a writer, at most QLN_HEVC_UNIT_SIZE bytes with its emulation prevention. A
// unit that grows beyond is not put out at all: a caller sees the 0 and keeps what it had.
class HevcUnitWriter {
 public:
  // Writes the header: the type, layer 0, temporal id 0.
  explicit HevcUnitWriter(HevcNalType type) {
    BitWriter(area_, sizeof area_).WriteBits(kHeaderBits, static_cast<uint32_t>(type) << 9 | 1u);
  }

  // A writer behind the header.
  BitWriter bits() { return BitWriter(area_, sizeof area_, kHeaderBits); }

  // Ends the unit at the writer's position with its trailing bits and copies it to output with emulation
  // prevention in place. Returns its size in bytes; 0, with nothing put out, where it does not fit.
  uint32_t Finish(BitWriter bits, uint8_t* output) const;

 private:
  static constexpr int32_t kHeaderBits = 16;
  uint8_t area_[QLN_HEVC_UNIT_SIZE] = {};
};

}  // namespace qln

#endif
