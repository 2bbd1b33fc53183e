// Captions out of SEI units, into the caption part of a frame.

#include <cstring>

#include "kxutil/kxutil.h"
#include "qlnutil/bits/bit_reader.h"
#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/inband/caption_packet.h"
#include "qlnutil/inband/caption_payload.h"
#include "qlnutil/inband/unit_walk.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

constexpr uint32_t kH264BitLimit = 4096;
constexpr uint32_t kProviderAtsc = 49;
constexpr uint32_t kIdentifierGa94 = 0x47413934;
constexpr uint8_t kUserDataRegistered = 4;
constexpr uint32_t kHevcPayload = 7;  // offset of what is searched in an HEVC unit
constexpr uint8_t kCcDataSection = 0x72;
constexpr uint8_t kFooterSection = 0x74;

// cdp_frame_rate with its reserved bits, by the rate field of a signal format.
uint8_t CdpRateByte(uint32_t rate) {
  switch (rate) {
    case 23:
      return 0x1F;
    case 24:
      return 0x2F;
    case 25:
      return 0x3F;
    case 30:
      return 0x5F;
    case 50:
      return 0x6F;
    case 59:
      return 0x7F;
    case 60:
      return 0x8F;
    default:
      return 0x4F;
  }
}

// A reader whose every bit behind `size` bytes reads as zero, which makes a test fail: no value ends in a
// byte of zeros.
class UserDataReader {
 public:
  UserDataReader(const uint8_t* sei, uint32_t size) : reader_(sei, size, kH264BitLimit) {}

  // Whether the next `count` bits (whole bytes) are there and equal `value`.
  bool Next(int32_t count, uint32_t value) { return reader_.ReadBits(count) == value; }
  uint32_t Read(int32_t count) { return reader_.ReadBits(count); }
  void Skip(uint32_t count) { reader_.SkipBits(count); }

 private:
  BitReader reader_;
};

uint8_t SumOf(const uint8_t* from, const uint8_t* to) {
  uint32_t sum = 0;
  while (from < to) sum += *from++;
  return static_cast<uint8_t>(sum);
}

// The whole packet around `count` triplets, which come out of `reader`. Returns its size.
uint32_t BuildPacket(UserDataReader& reader, uint32_t count, uint32_t rate, uint8_t* packet) {
  const uint8_t length = static_cast<uint8_t>(12 + 3 * count);
  const uint8_t head[kPacketTriplets] = {0x80,
                                         0x80,
                                         0x80,
                                         0x80,
                                         0x61,
                                         0x01,
                                         length,
                                         0x96,
                                         0x69,
                                         length,
                                         CdpRateByte(rate),
                                         0x43,
                                         0x00,
                                         0x02,
                                         kCcDataSection,
                                         static_cast<uint8_t>(count | 0xE0u)};
  std::memcpy(packet, head, sizeof head);
  uint8_t* next = packet + kPacketTriplets;
  for (uint32_t i = 0; i < 3 * count; ++i) *next++ = static_cast<uint8_t>(reader.Read(8));
  *next++ = kFooterSection;
  *next = SumOf(packet + kPacketIdentifier, next);
  ++next;
  *next = SumOf(packet + kPacketDataCount, next);
  ++next;
  return static_cast<uint32_t>(next - packet);
}

// Writes the sequence counter and the checksum of the packet that was found.
void RenewPacket(uint16_t* counter, DFrameCaptionPart* caption) {
  uint8_t* const packet = caption->captionData;
  const uint32_t found = caption->captionSize;
  const auto at = [&](uint32_t index) { return index < found ? packet[index] : uint8_t{0}; };
  // The search has seen the identifiers of the ANC packet, and those of the CDP where the packet has room for
  // them.
  if (at(kPacketIdentifier) != 0x96 || at(kPacketIdentifier + 1) != 0x69 ||
      at(kPacketDataCount) != at(kPacketCdpLength)) {
    ErrOut("ERROR: mfcc, bad start or size 0x%02X 0x%02X 0x%02X 0x%02X 0x%02X 0x%02X ", at(4), at(5), at(6),
           at(7), at(8), at(9));
    return;
  }
  const uint32_t length = packet[kPacketDataCount];
  uint8_t value[2] = {at(kPacketCounter), at(kPacketCounter + 1)};
  if (counter != nullptr) {
    value[0] = static_cast<uint8_t>(*counter >> 8);
    value[1] = static_cast<uint8_t>(*counter);
    *counter = static_cast<uint16_t>(*counter + 1);
  }
  std::memcpy(packet + kPacketCounter, value, 2);
  std::memcpy(packet + length + 4, value, 2);
  caption->captionSize = length + 7;
  uint8_t* const checksum = packet + length + 6;
  *checksum = static_cast<uint8_t>(0u - SumOf(packet + kPacketIdentifier, checksum));
}

}  // namespace
}  // namespace qln

int32_t qlnUtilReadH264CaptionsSEI(const uint8_t* sei, uint32_t size, uint32_t rate, uint32_t /*reserved*/,
                                   DFrameCaptionPart* caption) {
  using namespace qln;
  if (caption == nullptr) return 0;
  caption->captionFlags = 0;
  caption->captionSize = 0;
  if (sei == nullptr) return 0;

  UserDataReader reader(sei, size);
  if (!reader.Next(8, 6) || !reader.Next(8, kUserDataRegistered)) return 0;
  reader.Skip(16);  // payload size, country
  if (!reader.Next(16, kProviderAtsc) || !reader.Next(32, kIdentifierGa94) || !reader.Next(8, 3)) return 0;
  reader.Skip(3);
  const uint32_t count = reader.Read(5);
  if (!reader.Next(8, 255)) return 0;

  caption->captionSize = BuildPacket(reader, count, rate, caption->captionData);
  caption->captionFlags = QLN_CAPTION_ANC;
  return 0;
}

int32_t qlnUtilReadHevcCaptionsSEI(const uint8_t* sei, uint32_t size, uint32_t reserved, uint16_t* counter,
                                   DFrameCaptionPart* caption) {
  using namespace qln;
  if (caption == nullptr) return 0;
  caption->captionFlags = 0;
  caption->captionSize = 0;
  if (sei == nullptr || size < kHevcPayload) return 0;
  if (HevcUnitType(sei[0]) != kHevcNalPrefixSei || sei[2] != kUserDataRegistered) return 0;
  ParseCaptionPayload(sei + kHevcPayload, size - kHevcPayload, reserved, caption->captionData,
                      &caption->captionSize, &caption->captionFlags);
  if ((caption->captionFlags & QLN_CAPTION_ANC) == 0) return 0;
  RenewPacket(counter, caption);
  return 0;
}
