// Captions into H.264 frames: the unit is built in one block, its place found by a short walk over the head
// of the frame.

#include <algorithm>

#include "kxutil/kxutil.h"
#include "qlnutil/inband/caption_packet.h"
#include "qlnutil/inband/frame_insert.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

constexpr uint32_t kMostTripletBytes = 30;
constexpr uint32_t kRoomAskedFor = 285;  // beside the triplets

// Places at or behind this offset are not used, and the scan for start codes ends there.
constexpr uint32_t kSearchEnd = 256;
// Where the unit goes when no place was found: right behind a delimiter with a 4-byte start code.
constexpr uint32_t kDefaultPlace = 6;

constexpr uint8_t kHeaderSps = 0x67;
constexpr uint8_t kHeaderPps = 0x68;
constexpr uint8_t kHeaderDelimiter = 0x09;

// Start code, NAL header, payload type and size, ATSC user data up to em_data.
constexpr uint8_t kUnitHead[] = {0,    0,   0,   1,   0x06, 0x04, 0,    0xB5, 0x00,
                                 0x31, 'G', 'A', '9', '4',  0x03, 0xC0, 0xFF};
constexpr uint32_t kUnitSize = 6;    // offset of payloadSize
constexpr uint32_t kUnitFlags = 15;  // offset of the flags with cc_count
constexpr uint32_t kUnitTail = 2;    // marker_bits, trailing byte

// Whole triplets to take from a packet that passed CheckCaptionPacket.
uint32_t TripletCount(const uint8_t* caption, uint32_t captionSize) {
  const uint32_t count = caption[kPacketDataCount];
  uint32_t bytes = count < kPacketOverhead ? 0 : std::min(count - kPacketOverhead, kMostTripletBytes);
  if (bytes + kPacketTriplets > captionSize) {
    bytes = captionSize > kPacketTriplets ? captionSize - kPacketTriplets : 0;
  }
  return bytes / 3;
}

// Bytes of the start code at `at`, 0 if there is none.
uint32_t StartCodeAt(const uint8_t* data, uint32_t size, uint32_t at) {
  if (size - at < 3 || data[at] != 0 || data[at + 1] != 0) return 0;
  if (data[at + 2] == 1) return 3;
  return size - at >= 4 && data[at + 2] == 0 && data[at + 3] == 1 ? 4 : 0;
}

uint32_t PlaceBehindStartCodes(const uint8_t* data, uint32_t size) {
  bool sps = false;
  bool pps = false;
  for (uint32_t at = 0; at < std::min(size, kSearchEnd);) {
    const uint32_t code = StartCodeAt(data, size, at);
    if (code == 0) {
      ++at;
      continue;
    }
    if (sps && pps) return at;
    at += code;
    if (at >= size) break;
    sps = sps || data[at] == kHeaderSps;
    pps = pps || data[at] == kHeaderPps;
  }
  return std::min(kDefaultPlace, size);
}

uint32_t PlaceBehindLengths(const uint8_t* data, uint32_t size) {
  bool sps = false;
  bool pps = false;
  uint64_t at = 0;
  while (!(sps && pps)) {
    if (at + 4 >= size) {
      at = size;
      break;
    }
    const uint8_t header = data[at + 4];
    if (header != kHeaderDelimiter && header != kHeaderSps && header != kHeaderPps) break;
    sps = sps || header == kHeaderSps;
    pps = pps || header == kHeaderPps;
    const uint64_t length =
        uint64_t{data[at]} << 24 | uint64_t{data[at + 1]} << 16 | uint64_t{data[at + 2]} << 8 | data[at + 3];
    at += 4 + length;
  }
  at = std::min<uint64_t>(at, size);
  return at >= kSearchEnd ? kDefaultPlace : static_cast<uint32_t>(at);
}

}  // namespace
}  // namespace qln

int32_t qlnutilAddAVCCaptions(DFrame* frame, const uint8_t* caption, uint32_t captionSize,
                              uint32_t lengthPrefix) {
  using namespace qln;
  if (frame == nullptr || frame->frameData == nullptr || caption == nullptr) return -1;
  if (captionSize == 0) return 0;
  if (CheckCaptionPacket(caption, captionSize) != 0) return -1;

  const uint32_t triplets = TripletCount(caption, captionSize);
  if (uint64_t{frame->frameSize} + 3 * triplets + kRoomAskedFor > frame->frameCapacity) {
    ErrOut("No Allocation for CC Data");
    return kNoRoom;
  }

  uint8_t unit[sizeof kUnitHead + kMostTripletBytes + kUnitTail];
  std::memcpy(unit, kUnitHead, sizeof kUnitHead);
  unit[kUnitFlags] = static_cast<uint8_t>(unit[kUnitFlags] | triplets);
  uint8_t* tail = unit + sizeof kUnitHead;
  if (triplets != 0) std::memcpy(tail, caption + kPacketTriplets, 3 * triplets);
  tail += 3 * triplets;
  *tail++ = 0xFF;
  *tail++ = 0x80;
  const uint32_t length = static_cast<uint32_t>(tail - unit);
  unit[kUnitSize] = static_cast<uint8_t>(length - 8);
  if (lengthPrefix != 0) unit[3] = static_cast<uint8_t>(length - 4);

  const uint32_t place = lengthPrefix != 0 ? PlaceBehindLengths(frame->frameData, frame->frameSize)
                                           : PlaceBehindStartCodes(frame->frameData, frame->frameSize);
  InsertBytes(frame, place, unit, length);
  frame->frameSize += length;
  return 0;
}
