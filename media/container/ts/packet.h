// Transport packets (ISO/IEC 13818-1 clause 2.4.3): how a file has them, their fields, and packets made anew
// around another payload.
#ifndef MEDIA_CONTAINER_TS_PACKET_H
#define MEDIA_CONTAINER_TS_PACKET_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "container/mp4/source.h"

namespace qlnmedia::ts {

using Bytes = mp4::Bytes;
using ByteSpan = mp4::ByteSpan;

inline constexpr size_t kPacketBytes = 188;
inline constexpr size_t kLongestRow = 204;
inline constexpr size_t kHeaderBytes = 4;
inline constexpr size_t kMostPayload = kPacketBytes - kHeaderBytes;
inline constexpr uint8_t kSync = 0x47;
inline constexpr uint8_t kStuffing = 0xFF;
// PES packets (clause 2.4.3.6): where PES_packet_length stands, and what it does not count.
inline constexpr size_t kPesLengthAt = 4;
inline constexpr size_t kPesBeforeLength = 6;
inline constexpr uint16_t kNullIdentifier = 0x1FFF;

// Packets of 188 bytes, of 192 with an arrival time in front (M2TS), of 204 with parity behind (DVB).
struct PacketForm {
  uint64_t begin = 0;  // of the first row in the file
  size_t row = kPacketBytes;
  size_t front = 0;  // bytes of a row in front of its packet
};

// By sync bytes in a row near the beginning; nothing where there are none.
std::optional<PacketForm> FindPacketForm(const mp4::Source& source);

// Room for a row.
using RowBytes = std::array<uint8_t, kLongestRow>;

// A row of a file, where it lies in memory: a packet with what stands around it, or bytes between packets.
struct Row {
  uint8_t* bytes = nullptr;  // kept by whoever made the row
  uint8_t size = 0;
  uint8_t front = 0;
  bool isPacket = false;

  uint8_t* packet() { return bytes + front; }
  const uint8_t* packet() const { return bytes + front; }
  ByteSpan all() const { return ByteSpan(bytes, size); }

  // Of a packet.
  uint16_t identifier() const { return static_cast<uint16_t>((packet()[1] & 0x1F) << 8 | packet()[2]); }
  bool startsUnit() const { return (packet()[1] & 0x40) != 0; }
  bool scrambled() const { return (packet()[3] & 0xC0) != 0; }
  bool hasPayload() const { return (packet()[3] & 0x10) != 0; }
  uint8_t counter() const { return packet()[3] & 0x0F; }
  void SetCounter(uint32_t counter) {
    packet()[3] = static_cast<uint8_t>((packet()[3] & 0xF0) | (counter & 0x0F));
  }
  // Where the payload begins; kPacketBytes where there is none.
  size_t payloadAt() const;
  ByteSpan payload() const { return ByteSpan(packet() + payloadAt(), kPacketBytes - payloadAt()); }
  // The bytes of the adaptation field, its length byte included, that mean something; 0 where all is
  // stuffing.
  size_t adaptationContent() const;
  // The most payload that fits beside these.
  size_t room() const { return kMostPayload - adaptationContent(); }

  // Puts another payload in. One of the size that is there leaves all else as it is; another one is fitted by
  // stuffing, and is no longer than room().
  void SetPayload(ByteSpan payload);
  // Makes it a null packet, of the same row.
  void MakeNull();
};

// The arrival time in front of a packet of M2TS, which is modulo kArrivalMask + 1.
inline constexpr uint32_t kArrivalMask = 0x3FFFFFFF;
uint32_t ArrivalTime(const Row& row);
void SetArrivalTime(Row& row, uint32_t time);

// Parity of a DVB packet (EN 300 744 clause 4.3.2: Reed-Solomon 204, 188), and whether a row has the right
// one.
std::array<uint8_t, 16> ParityOf(const uint8_t* packet);
bool HasParity(const Row& row);
void PutParity(Row& row);

}  // namespace qlnmedia::ts

#endif
