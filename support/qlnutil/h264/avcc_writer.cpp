// Builds an avcC box (ISO/IEC 14496-15) from the units that stand at the stride of a frame's first one.

#include <cstring>

#include "qlnutil/h264/start_code.h"
#include "qlnutil/qlnh264.h"

namespace {

// Version 1, 4-byte lengths, one SPS; profile, compatibility and level are filled in later.
constexpr uint8_t kBoxHead[] = {0, 0, 0, 0, 'a', 'v', 'c', 'C', 1, 0, 0, 0, 0xFF, 0xE1};
constexpr size_t kProfileOffset = 9;

// A unit's length in 2 bytes, its low 16 bits, and all its bytes.
uint8_t* PutSet(uint8_t* at, const uint8_t* unit, uint64_t size) {
  at[0] = static_cast<uint8_t>(size >> 8);
  at[1] = static_cast<uint8_t>(size);
  std::memcpy(at + 2, unit, size);
  return at + 2 + size;
}

}  // namespace

uint32_t qlnutilGetAvcc(const DFrame* frame, uint8_t* output) {
  if (frame == nullptr || output == nullptr) return 0;
  std::memcpy(output, kBoxHead, sizeof kBoxHead);
  uint8_t* at = output + sizeof kBoxHead;

  const uint8_t* unit = frame->frameData;
  const uint8_t* const end = unit == nullptr ? nullptr : unit + frame->frameSize;
  bool hasSps = false;
  bool hasPps = false;
  // The one size that is taken from the frame; no later unit's own is read.
  uint64_t size = end - unit >= 4 ? qln::LoadBigEndian32(unit) : 0;
  while (end - unit > 4) {
    if (size == 1) {
      const uint8_t* const code = qln::FindLongStartCode(unit + 4, end);
      size = static_cast<uint64_t>(code == end ? end - unit : code - (unit + 4));
    }
    if (size + 4 > static_cast<uint64_t>(end - unit)) break;
    const uint32_t type = unit[4] % 32u;
    if (type == 7 && !hasSps) {
      for (size_t i = 0; i < 3; ++i)
        output[kProfileOffset + i] = end - unit > 5 + static_cast<ptrdiff_t>(i) ? unit[5 + i] : 0;
      at = PutSet(at, unit + 4, size);
      hasSps = true;
    } else if (type == 8 && !hasPps) {
      *at++ = 1;
      at = PutSet(at, unit + 4, size);
      hasPps = true;
    }
    unit += size + 4;
  }
  const uint32_t boxSize = static_cast<uint32_t>(at - output);
  qln::StoreBigEndian32(output, boxSize);
  return boxSize;
}
