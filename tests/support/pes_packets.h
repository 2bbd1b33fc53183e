// PES packets of transport streams put together by hand (ISO/IEC 13818-1 clause 2.4.3.6).
#ifndef TESTS_SUPPORT_PES_PACKETS_H
#define TESTS_SUPPORT_PES_PACKETS_H

#include <cstdint>
#include <string>

#include "support/program_tables.h"

namespace qln::test {

// A PES packet in one transport packet: stream_id, time in units of 90 kHz, payload.
inline Bytes PesPacket(int identifier, uint8_t id, int64_t pts, const Bytes& payload, int counter) {
  Bytes pes = {0, 0, 1, id, 0, static_cast<uint8_t>(8 + payload.size()), 0x84, 0x80, 5};
  pes.push_back(static_cast<uint8_t>(0x21 | (pts >> 29 & 0x0E)));
  for (const int shift : {22, 7}) {
    pes.push_back(static_cast<uint8_t>(pts >> shift));
    pes.push_back(static_cast<uint8_t>((pts >> (shift - 7) << 1 & 0xFE) | 1));
  }
  AppendBytes(pes, payload);
  Bytes packet = {0x47, static_cast<uint8_t>(0x40 | identifier >> 8), static_cast<uint8_t>(identifier),
                  static_cast<uint8_t>(0x30 | (counter & 15))};
  packet.push_back(static_cast<uint8_t>(183 - pes.size()));
  if (packet.back() != 0) packet.push_back(0);
  packet.resize(188 - pes.size(), 0xFF);
  AppendBytes(packet, pes);
  return packet;
}

// A picture of MPEG-2, 16 by 16, all intra, with its sequence header: frame_rate_code (ITU-T H.262 table
// 6-4), and whether its first field is shown once more; those of a pulldown are interlaced sequences.
inline Bytes SmallPicture(int rateCode, int fields = 2, bool topFirst = true) {
  Bytes picture =
      Hex("000001B3 010010 10 FFFFE0 00 000001B5 148200010000 00000100 000FFFF8 000001B5 8FFFF30180 "
          "00000101 13F000");
  picture[7] = static_cast<uint8_t>(picture[7] | rateCode);
  constexpr size_t kFlags = 37;
  picture[kFlags] = static_cast<uint8_t>((topFirst ? 0x80 : 0) | (fields == 3 ? 2 : 0) | 1);
  return picture;
}

}  // namespace qln::test

#endif
