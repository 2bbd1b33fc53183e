// Reads ancillary data bit by bit.

#include "captions/anc_packets.h"

#include <bit>
#include <cstddef>
#include <utility>

namespace qlnmedia::captions {

namespace {

constexpr uint8_t kCaptions = 0x61;    // DID
constexpr uint8_t kPacketForm = 0x01;  // SDID: CDP
constexpr uint8_t kPairForm = 0x02;    // SDID: line 21
constexpr uint8_t kField1 = 0x80;

class Bits {
 public:
  explicit Bits(std::span<const uint8_t> data) : data_(data) {}
  size_t left() const { return data_.size() * 8 - at_; }
  // The caller has seen that there are as many.
  uint32_t Take(int count) {
    uint32_t value = 0;
    for (int i = 0; i < count; ++i, ++at_) value = value << 1 | (data_[at_ / 8] >> (7 - at_ % 8) & 1U);
    return value;
  }
  uint32_t Peek(int count) {
    const size_t at = at_;
    const uint32_t value = Take(count);
    at_ = at;
    return value;
  }
  void Align() { at_ = (at_ + 7) / 8 * 8; }

 private:
  std::span<const uint8_t> data_;
  size_t at_ = 0;
};

// Bit 8 makes the number of set bits even, bit 9 is its opposite (ST 291).
bool HasParity(uint32_t word) {
  const bool odd = std::popcount(word & 0xFF) % 2 != 0;
  return (word >> 8 & 1) == (odd ? 1U : 0U) && (word >> 9 & 1) == (odd ? 0U : 1U);
}

}  // namespace

std::vector<AncPacket> ReadSt2038(std::span<const uint8_t> payload, std::vector<std::string>* damage) {
  constexpr size_t kHeadBits = 60;  // up to data_count
  std::vector<AncPacket> packets;
  Bits bits(payload);
  while (bits.left() >= 8 && bits.Peek(8) != 0xFF) {
    if (bits.left() < kHeadBits || bits.Take(6) != 0) {
      damage->emplace_back("bytes that begin no ANC packet");
      return packets;
    }
    AncPacket packet;
    packet.chroma = bits.Take(1) != 0;                // c_not_y_channel_flag
    packet.line = static_cast<int>(bits.Take(11));    // line_number
    packet.offset = static_cast<int>(bits.Take(12));  // horizontal_offset
    const uint32_t did = bits.Take(10);
    const uint32_t sdid = bits.Take(10);
    const uint32_t data_count = bits.Take(10);
    const size_t count = data_count & 0xFF;
    if (!HasParity(data_count) || bits.left() < (count + 1) * 10) {
      damage->emplace_back("an ANC packet whose data count is wrong");
      return packets;
    }
    packet.did = static_cast<uint8_t>(did);
    packet.sdid = static_cast<uint8_t>(sdid);
    uint32_t sum = did + sdid + data_count;
    for (size_t i = 0; i < count; ++i) {
      const uint32_t user_data_word = bits.Take(10);
      sum += user_data_word;
      packet.words.push_back(static_cast<uint8_t>(user_data_word));
    }
    // The low nine bits of the sum of all words; bit 9 is the opposite of bit 8.
    sum &= 0x1FF;
    const uint32_t checksum_word = bits.Take(10);
    bits.Align();
    if (checksum_word != (sum | ((sum >> 8 & 1) != 0 ? 0U : 0x200U)))
      damage->emplace_back("an ANC packet whose checksum is wrong");
    else if (!HasParity(did) || !HasParity(sdid))
      damage->emplace_back("an ANC packet whose identifiers have wrong parity");
    else
      packets.push_back(std::move(packet));
  }
  return packets;
}

std::optional<std::vector<Triplet>> CaptionsOfAnc(const AncPacket& packet, std::optional<Rate>* rate,
                                                  std::string* reason) {
  reason->clear();
  if (packet.did != kCaptions) return {};
  if (packet.sdid == kPacketForm) {
    std::optional<CaptionPacket> read = ReadCdp(packet.words, reason);
    if (!read) return {};
    *rate = read->rate;
    return std::move(read->triplets);
  }
  if (packet.sdid != kPairForm) return {};
  if (packet.words.size() != 3) {
    *reason = "a line 21 packet that has not three words";
    return {};
  }
  const CcType field = (packet.words[0] & kField1) != 0 ? CcType::kField1 : CcType::kField2;
  return std::vector<Triplet>{{true, field, packet.words[1], packet.words[2]}};
}

}  // namespace qlnmedia::captions
