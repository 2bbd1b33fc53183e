// Stop bit, size byte, trailing bits, emulation prevention and prefix of an SEI packet.

#include "qlnutil/bits/sei_packet.h"

#include "qlnutil/bits/bit_writer.h"
#include "qlnutil/bits/emulation_prevention.h"
#include "qlnutil/bits/private_copy.h"

namespace qln {

void WriteSeiPacket(QLNBitState* source, QLNBitState* destination, uint32_t sizeByte, bool lengthPrefix) {
  BitWriter packet(*source);
  if (packet.bitPos % 8 != 0) packet.WriteTrailingBits();
  if (sizeByte != kNoSizeByte) source->data[sizeByte] = static_cast<uint8_t>(packet.BytePos() - sizeByte - 1);
  packet.WriteTrailingBits();
  source->bitPos = static_cast<uint32_t>(packet.bitPos);

  const size_t size = packet.BytePos();
  PrivateCopy escaped(WorstEscapedSize(size));
  if (!escaped.ok()) return;
  const size_t written = InsertEmulationPrevention(escaped.data(), WorstEscapedSize(size), source->data, size,
                                                   kInsertionSeiPacket);

  uint8_t* const start = destination->data + destination->bitPos / 8;
  BitWriter output(*destination);
  output.WriteBytes(escaped.data(), written);
  destination->bitPos = static_cast<uint32_t>(output.bitPos);

  const uint32_t prefix = lengthPrefix ? static_cast<uint32_t>(written - 4) : 1u;
  start[0] = static_cast<uint8_t>(prefix >> 24);
  start[1] = static_cast<uint8_t>(prefix >> 16);
  start[2] = static_cast<uint8_t>(prefix >> 8);
  start[3] = static_cast<uint8_t>(prefix);
}

}  // namespace qln
