// Reads ancillary data bit by bit.

#include "captions/anc_packets.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <iterator>
#include <utility>

#include "captions/bits.h"

namespace qlnmedia::captions {

namespace {

constexpr uint8_t kCaptions = 0x61;    // DID
constexpr uint8_t kPacketForm = 0x01;  // SDID: CDP
constexpr uint8_t kPairForm = 0x02;    // SDID: line 21
constexpr uint8_t kFirstField = 0x80;

// Bit 8 makes the number of set bits even, bit 9 is its opposite (ST 291).
bool HasParity(uint32_t word) {
  const bool odd = std::popcount(word & 0xFF) % 2 != 0;
  return (word >> 8 & 1) == (odd ? 1U : 0U) && (word >> 9 & 1) == (odd ? 0U : 1U);
}

constexpr const char* kWrongCount = "an ANC packet whose data count is wrong";

// Places of words: data identifier, secondary one or block number, count, user data.
enum : size_t { kDidAt, kSdidAt, kCountAt, kUserDataAt };

}  // namespace

std::optional<AncPacket> PacketOfWords(std::span<const uint16_t> words, bool tenBits, std::string* reason) {
  const auto refuse = [reason](const char* text) {
    *reason = text;
    return std::nullopt;
  };
  if (words.size() < kUserDataAt || (tenBits && !HasParity(words[kCountAt]))) return refuse(kWrongCount);
  const size_t end = kUserDataAt + (words[kCountAt] & 0xFF);
  if (words.size() < end + (tenBits ? 1 : 0)) return refuse(kWrongCount);
  uint32_t sum = 0;
  for (const uint16_t word : words.first(end)) sum += word;
  if (words.size() > end) {
    // The low nine bits of the sum of all words; bit 9 is the opposite of bit 8.
    sum &= tenBits ? 0x1FFU : 0xFFU;
    if (tenBits && (sum >> 8 & 1) == 0) sum |= 0x200U;
    if (words[end] != sum) return refuse("an ANC packet whose checksum is wrong");
  }
  if (tenBits && (!HasParity(words[kDidAt]) || !HasParity(words[kSdidAt])))
    return refuse("an ANC packet whose identifiers have wrong parity");
  AncPacket packet;
  packet.did = static_cast<uint8_t>(words[kDidAt]);
  packet.sdid = static_cast<uint8_t>(words[kSdidAt]);
  for (const uint16_t word : words.subspan(kUserDataAt, end - kUserDataAt))
    packet.words.push_back(static_cast<uint8_t>(word));
  return packet;
}

int FieldOfLine(int line, int pictureHeight, bool interlaced) {
  struct Raster {
    int heights[3];
    int second, last;  // lines of the second field
  };
  // The last lines of 1125 are those above a progressive picture, too.
  constexpr Raster kRasters[] = {
      {{480, 486, 512}, 266, 525}, {{576, 608, 576}, 313, 625}, {{1080, 1088, 1035}, 564, 1120}};
  for (const Raster& raster : kRasters) {
    if (std::find(std::begin(raster.heights), std::end(raster.heights), pictureHeight) ==
        std::end(raster.heights))
      continue;
    if (line >= raster.second && line <= raster.last) return 2;
    return interlaced && line > 0 && line < raster.second ? 1 : 0;
  }
  return 0;
}

std::vector<AncPacket> ReadSt2038(std::span<const uint8_t> payload, std::vector<std::string>* damage) {
  constexpr size_t kHeadBits = 60;  // up to data_count
  std::vector<AncPacket> packets;
  std::vector<uint16_t> words;
  BitReader bits(payload);
  while (bits.left() >= 8 && bits.Peek(8) != 0xFF) {
    if (bits.left() < kHeadBits || bits.Take(6) != 0) {
      damage->emplace_back("bytes that begin no ANC packet");
      return packets;
    }
    const bool c_not_y_channel_flag = bits.Take(1) != 0;
    const auto line_number = static_cast<int>(bits.Take(11));
    const auto horizontal_offset = static_cast<int>(bits.Take(12));
    words.clear();
    for (size_t i = 0; i < kUserDataAt; ++i) words.push_back(static_cast<uint16_t>(bits.Take(10)));
    const size_t count = words[kCountAt] & 0xFFU;
    if (!HasParity(words[kCountAt]) || bits.left() < (count + 1) * 10) {
      damage->emplace_back(kWrongCount);
      return packets;
    }
    for (size_t i = 0; i < count + 1; ++i) words.push_back(static_cast<uint16_t>(bits.Take(10)));
    bits.Align();
    std::string reason;
    std::optional<AncPacket> packet = PacketOfWords(words, true, &reason);
    if (!packet) {
      damage->push_back(std::move(reason));
      continue;
    }
    packet->chroma = c_not_y_channel_flag;
    packet->line = line_number;
    packet->offset = horizontal_offset;
    packets.push_back(std::move(*packet));
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
  const CcType field = (packet.words[0] & kFirstField) != 0 ? CcType::kField1 : CcType::kField2;
  return std::vector<Triplet>{{true, field, packet.words[1], packet.words[2]}};
}

}  // namespace qlnmedia::captions
