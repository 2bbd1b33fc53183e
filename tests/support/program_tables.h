// Program tables of transport streams put together by hand (ISO/IEC 13818-1 clause 2.4.4), one section a
// packet or over several.
#ifndef TESTS_SUPPORT_PROGRAM_TABLES_H
#define TESTS_SUPPORT_PROGRAM_TABLES_H

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace qln::test {

struct MappedStream {
  uint8_t type;
  int identifier;
  Bytes descriptors = {};
};

inline void AppendBytes(Bytes& to, const Bytes& from) { to.insert(to.end(), from.begin(), from.end()); }

inline Bytes Descriptor(uint8_t tag, const Bytes& body) {
  Bytes out = {tag, static_cast<uint8_t>(body.size())};
  AppendBytes(out, body);
  return out;
}

// table_id, length, five bytes of head, body and CRC_32.
inline Bytes TableSection(uint8_t table, const Bytes& body) {
  const size_t length = 5 + body.size() + 4;
  Bytes out = {table, static_cast<uint8_t>(0xB0 | length >> 8), static_cast<uint8_t>(length), 0, 1, 0xC1, 0,
               0};
  AppendBytes(out, body);
  uint32_t crc = 0xFFFFFFFF;
  for (const uint8_t byte : out) {
    for (int bit = 7; bit >= 0; --bit)
      crc = crc << 1 ^ ((crc >> 31 ^ (byte >> bit & 1)) != 0 ? 0x04C11DB7u : 0u);
  }
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(crc >> shift));
  return out;
}

inline Bytes AssociationTable(int mapIdentifier) {
  return TableSection(
      0, {0, 1, static_cast<uint8_t>(0xE0 | mapIdentifier >> 8), static_cast<uint8_t>(mapIdentifier)});
}

inline Bytes MapTable(const std::vector<MappedStream>& streams, const Bytes& ofProgram = {}) {
  const auto place = [](int identifier) {
    return Bytes{static_cast<uint8_t>(0xE0 | identifier >> 8), static_cast<uint8_t>(identifier)};
  };
  const auto length = [](size_t bytes) {
    return Bytes{static_cast<uint8_t>(0xF0 | bytes >> 8), static_cast<uint8_t>(bytes)};
  };
  Bytes body = place(streams.front().identifier);
  AppendBytes(body, length(ofProgram.size()));
  AppendBytes(body, ofProgram);
  for (const MappedStream& stream : streams) {
    body.push_back(stream.type);
    AppendBytes(body, place(stream.identifier));
    AppendBytes(body, length(stream.descriptors.size()));
    AppendBytes(body, stream.descriptors);
  }
  return TableSection(2, body);
}

// The packets of 188 bytes that carry a section.
inline Bytes TablePackets(int identifier, const Bytes& section) {
  Bytes rest = {0};  // pointer_field
  AppendBytes(rest, section);
  Bytes out;
  for (size_t at = 0, count = 0; at < rest.size(); ++count) {
    Bytes packet = {0x47, static_cast<uint8_t>((at == 0 ? 0x40 : 0) | identifier >> 8),
                    static_cast<uint8_t>(identifier), static_cast<uint8_t>(0x10 | (count & 15))};
    const size_t size = std::min(rest.size() - at, size_t{184});
    packet.insert(packet.end(), rest.begin() + static_cast<std::ptrdiff_t>(at),
                  rest.begin() + static_cast<std::ptrdiff_t>(at + size));
    packet.resize(188, 0xFF);
    AppendBytes(out, packet);
    at += size;
  }
  return out;
}

}  // namespace qln::test

#endif
