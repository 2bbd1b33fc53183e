// The search for an ANC packet or line 21 pairs in an SEI payload.

#include "qlnutil/inband/caption_payload.h"

#include <cstring>

#include "qlnutil/qlnframe.h"

namespace qln {
namespace {

constexpr uint8_t kNoPair = 0x80;  // a line 21 byte without content: odd parity only

}  // namespace

int32_t ParseCaptionPayload(const uint8_t* bytes, uint32_t size, uint32_t /*reserved*/, uint8_t* output,
                            uint32_t* outputSize, uint32_t* outputFlags) {
  if (bytes == nullptr || output == nullptr || outputSize == nullptr || outputFlags == nullptr) return -1;
  *outputSize = 0;
  *outputFlags = 0;
  std::memset(output, kNoPair, 4);
  if (size == 2) {
    for (uint32_t i = 0; i < 2; ++i) output[i] = bytes[i] == 0 ? kNoPair : bytes[i];
    *outputSize = 2;
    *outputFlags = QLN_CAPTION_LINE21_FIRST;
    return 0;
  }
  if (size < 6) return -1;

  for (; size > 4; ++bytes, --size) {
    if (bytes[0] != 'a') continue;
    const uint32_t count = bytes[2];
    if (bytes[1] == 1 && bytes[3] == 0x96 && bytes[4] == 'i' && count + 3 <= size) {
      std::memcpy(output + 4, bytes, count + 3);
      *outputSize = count + 7;
      *outputFlags = QLN_CAPTION_ANC;
      return 0;
    }
    if (bytes[1] == 2 && count >= 2) {
      std::memcpy(output, bytes + 3, 2);
      *outputSize = 2;
      *outputFlags = QLN_CAPTION_LINE21_FIRST;
      if (count >= 4 && size >= 7) {
        std::memcpy(output + 2, bytes + 5, 2);
        *outputSize = 4;
        *outputFlags |= QLN_CAPTION_LINE21_SECOND;
      }
      return 0;
    }
  }
  return -1;
}

}  // namespace qln
