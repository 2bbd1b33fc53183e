// What a caption packet must be before it goes into a frame.

#include "qlnutil/inband/caption_packet.h"

#include "kxutil/kxutil.h"

namespace qln {

int32_t CheckCaptionPacket(const uint8_t* bytes, uint32_t size) {
  if (bytes == nullptr || size < kPacketSections) return -1;
  if (bytes[kPacketDid] != 0x61 || bytes[kPacketSdid] != 0x01 || bytes[kPacketIdentifier] != 0x96 ||
      bytes[kPacketIdentifier + 1] != 0x69 || bytes[kPacketDataCount] != bytes[kPacketCdpLength]) {
    return -1;
  }
  const uint32_t count = bytes[kPacketDataCount];
  if (count + 5 >= size) {
    ErrOut("ERROR: mfcc, declared size %d exceeds packet size %d ", count, size);
    return -1;
  }
  const uint8_t* const header = bytes + kPacketCounter;
  const uint8_t* const footer = bytes + count + 4;
  const bool countersDiffer = header[0] != footer[0] || header[1] != footer[1];
  if (countersDiffer) {
    ErrOut("ERROR: mfcc, counts don't match 0x%02X 0x%02X != 0x%02X 0x%02X  ", header[0], header[1],
           footer[0], footer[1]);
  }
  if (size < count + 7) {
    ErrOut("ERROR: mfcc, expectsize %d, calculated size %d ", size, count + 7);
    return -1;
  }
  if (countersDiffer) return -2;

  uint32_t sum = 0;
  for (uint32_t i = kPacketIdentifier; i < size - 1; ++i) sum += bytes[i];
  const uint8_t checksum = bytes[size - 1];
  if (((sum + checksum) & 0xFFu) == 0 || (sum & 0xFFu) == checksum) return 0;
  ErrOut("ERROR: mfcc, bad CC 708 Checksum ");
  return -3;
}

}  // namespace qln
