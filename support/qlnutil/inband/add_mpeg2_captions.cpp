// Captions into MPEG-2 frames: a user data block in front of everything.

#include "kxutil/kxutil.h"
#include "qlnutil/inband/caption_packet.h"
#include "qlnutil/inband/frame_insert.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

constexpr uint32_t kRoomAskedFor = 285;  // beside the caption packet

// A zero byte, user_data_start_code, ATSC user data up to em_data.
constexpr uint8_t kBlockHead[] = {0, 0, 0, 1, 0xB2, 'G', 'A', '9', '4', 0x03, 0, 0xFF};
constexpr uint32_t kBlockCount = 10;  // offset of the count byte

}  // namespace
}  // namespace qln

int32_t qlnutilAddMPEG2Captions(DFrame* frame) {
  using namespace qln;
  if (frame == nullptr || frame->frameData == nullptr) return -1;
  if (CheckCaptionPacketOf(*frame) != 0) return -1;
  if (uint64_t{frame->frameSize} + frame->captionSize + kRoomAskedFor > frame->frameCapacity) {
    ErrOut("No Allocation for CC Data");
    return kNoRoom;
  }

  uint8_t block[sizeof kBlockHead + 256];
  std::memcpy(block, kBlockHead, sizeof kBlockHead);
  const uint32_t count = frame->captionData[kPacketDataCount];
  const uint32_t body = count < kPacketOverhead ? 0 : count - kPacketOverhead;
  block[kBlockCount] = static_cast<uint8_t>(body / 3);
  uint8_t* const bytes = block + sizeof kBlockHead;
  for (uint32_t i = 0; i < body; ++i) {
    // An ordinary packet ends two bytes before its count does here.
    bytes[i] =
        kPacketTriplets + i < frame->captionSize ? frame->captionData[kPacketTriplets + i] : uint8_t{0};
  }
  bytes[body] = 0xFF;

  const uint32_t length = static_cast<uint32_t>(sizeof kBlockHead) + body + 1;
  InsertBytes(frame, 0, block, length);
  frame->frameSize += length;
  return 0;
}
