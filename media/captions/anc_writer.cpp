// Writes ancillary data bit by bit.

#include "captions/anc_writer.h"

#include <bit>
#include <cstdint>
#include <utility>

namespace qlnmedia::captions {

namespace {

class BitWriter {
 public:
  void Put(uint32_t value, int count) {
    for (int i = count - 1; i >= 0; --i) PutBit((value >> i & 1) != 0);
  }
  Bytes Take() {
    while (used_ != 0) PutBit(true);
    return std::move(bytes_);
  }

 private:
  void PutBit(bool bit) {
    if (used_ == 0) bytes_.push_back(0);
    if (bit) bytes_.back() = static_cast<uint8_t>(bytes_.back() | 0x80 >> used_);
    used_ = (used_ + 1) % 8;
  }

  Bytes bytes_;
  int used_ = 0;  // bits of the last byte
};

// Bit 8 makes the number of set bits even, bit 9 is its opposite.
uint32_t WithParity(uint8_t value) {
  const bool odd = std::popcount(value) % 2 != 0;
  return value | (odd ? 0x100U : 0x200U);
}

}  // namespace

Bytes WriteSt2038(const AncPacket& packet) {
  BitWriter bits;
  bits.Put(0, 6);
  bits.Put(packet.chroma ? 1 : 0, 1);                  // c_not_y_channel_flag
  bits.Put(static_cast<uint32_t>(packet.line), 11);    // line_number
  bits.Put(static_cast<uint32_t>(packet.offset), 12);  // horizontal_offset
  uint32_t sum = 0;
  const auto word = [&](uint8_t value) {
    sum += WithParity(value);
    bits.Put(WithParity(value), 10);
  };
  word(packet.did);
  word(packet.sdid);
  word(static_cast<uint8_t>(packet.words.size()));  // data_count
  for (const uint8_t value : packet.words) word(value);
  sum &= 0x1FF;
  bits.Put(sum | ((sum & 0x100) != 0 ? 0U : 0x200U), 10);  // checksum_word
  return bits.Take();
}

AncPacket AncOfCdp(Bytes cdp) {
  constexpr int kLine = 9;
  return {false, kLine, 0, 0x61, 0x01, std::move(cdp)};
}

}  // namespace qlnmedia::captions
