#include <algorithm>

#include "mutators/formats.h"

namespace qln::fuzz {

namespace {

constexpr uint8_t kSync = 0x47;
constexpr size_t kHeader = 4;

// Bytes of a row, and those in front of the packet in it.
struct Rows {
  size_t size;
  size_t front;
};

Rows RowsOf(const uint8_t* data, size_t size) {
  static constexpr Rows kRows[] = {{188, 0}, {192, 4}, {204, 0}};
  for (const Rows rows : kRows) {
    if (size > rows.front + rows.size && data[rows.front] == kSync && data[rows.front + rows.size] == kSync)
      return rows;
  }
  return kRows[0];
}

// CRC_32 of ISO/IEC 13818-1, Annex A.
uint32_t Checksum(const uint8_t* data, size_t size) {
  uint32_t value = 0xFFFFFFFF;
  for (size_t i = 0; i < size; ++i) {
    value ^= uint32_t{data[i]} << 24;
    for (int bit = 0; bit < 8; ++bit) value = value << 1 ^ ((value >> 31) != 0 ? 0x04C11DB7U : 0);
  }
  return value;
}

// The checksum of a section with the long form of header that begins and ends in this packet.
void Seal(uint8_t* packet, size_t size) {
  const bool starts = (packet[1] & 0x40) != 0 && (packet[3] & 0x10) != 0;
  size_t at = kHeader + ((packet[3] & 0x20) != 0 ? size_t{1} + packet[kHeader] : 0);
  if (!starts || at >= size) return;
  at += size_t{1} + packet[at];
  if (size < 3 || at >= size - 3 || (packet[at + 1] & 0x80) == 0) return;
  const size_t length = (size_t{packet[at + 1]} << 8 & 0xF00) | packet[at + 2];
  if (length < 9 || length > size - at - 3) return;
  const size_t end = at + 3 + length - 4;
  const uint32_t value = Checksum(packet + at, end - at);
  for (size_t i = 0; i < 4; ++i) packet[end + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

}  // namespace

Piece Packets::Read(const uint8_t* data, size_t size) const {
  const Rows rows = RowsOf(data, size);
  Piece whole;
  size_t at = 0;
  while (size - at >= rows.size && data[at + rows.front] == kSync) {
    Piece packet;
    packet.form = static_cast<int>(rows.size << 8 | rows.front);
    packet.name.assign(data + at, data + at + rows.front + kHeader);
    packet.rest.assign(data + at + rows.front + kHeader, data + at + rows.size);
    whole.parts.push_back(std::move(packet));
    at += rows.size;
  }
  whole.rest.assign(data + at, data + size);
  return whole;
}

void Packets::Write(const Piece& whole, Bytes& out) const {
  for (const Piece& packet : whole.parts) {
    const size_t begin = out.size();
    const size_t size = static_cast<size_t>(packet.form) >> 8;
    const size_t front = static_cast<size_t>(packet.form) & 0xFF;
    out.insert(out.end(), packet.name.begin(), packet.name.end());
    out.insert(out.end(), packet.rest.begin(), packet.rest.end());
    out.resize(begin + size, 0xFF);
    // A packet that counts an odd number keeps what it has.
    if ((out[begin + front + 3] & 1) == 0) Seal(out.data() + begin + front, 188);
  }
  out.insert(out.end(), whole.rest.begin(), whole.rest.end());
}

}  // namespace qln::fuzz
