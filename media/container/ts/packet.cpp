// Fields of packets, stuffing, and parity.

#include "container/ts/packet.h"

#include <algorithm>
#include <cstring>

#include "container/live/arriving_source.h"

namespace qlnmedia::ts {

namespace {

constexpr uint64_t kSearched = 64 << 10;
constexpr uint64_t kSyncsInRow = 5;
constexpr uint8_t kAdaptation = 0x20, kPayload = 0x10;

bool HasAdaptation(const uint8_t* packet) { return (packet[3] & kAdaptation) != 0; }

// The field x^8 + x^4 + x^3 + x^2 + 1 of the code, by logarithms.
struct Field {
  std::array<uint8_t, 512> power{};
  std::array<uint8_t, 256> logarithm{};
};
constexpr Field MakeField() {
  Field field;
  unsigned value = 1;
  for (unsigned i = 0; i < 255; ++i) {
    field.power[i] = field.power[i + 255] = static_cast<uint8_t>(value);
    field.logarithm[value] = static_cast<uint8_t>(i);
    value <<= 1;
    if ((value & 0x100) != 0) value ^= 0x11D;
  }
  return field;
}
constexpr Field kField = MakeField();

constexpr uint8_t Times(uint8_t a, uint8_t b) {
  return a == 0 || b == 0 ? uint8_t{0}
                          : kField.power[static_cast<size_t>(kField.logarithm[a]) + kField.logarithm[b]];
}

constexpr size_t kParityBytes = 16;
// (x - 1)(x - a) ... (x - a^15), highest power first, without its leading 1.
constexpr std::array<uint8_t, kParityBytes> MakeGenerator() {
  std::array<uint8_t, kParityBytes + 1> product{1};
  for (size_t root = 0; root < kParityBytes; ++root) {
    for (size_t i = root + 1; i > 0; --i)
      product[i] = static_cast<uint8_t>(product[i] ^ Times(product[i - 1], kField.power[root]));
  }
  std::array<uint8_t, kParityBytes> generator{};
  for (size_t i = 0; i < kParityBytes; ++i) generator[i] = product[i + 1];
  return generator;
}
constexpr std::array<uint8_t, kParityBytes> kGenerator = MakeGenerator();

}  // namespace

namespace {

std::optional<PacketForm> FormOf(ByteSpan bytes) {
  for (const size_t row : {size_t{188}, size_t{192}, size_t{204}}) {
    const uint64_t syncs = std::min<uint64_t>(kSyncsInRow, std::max<uint64_t>(bytes.size() / row, 1));
    for (size_t first = 0; first + (syncs - 1) * row + kPacketBytes <= bytes.size(); ++first) {
      bool all = true;
      for (uint64_t i = 0; all && i < syncs; ++i) all = bytes[first + i * row] == kSync;
      if (!all) continue;
      constexpr size_t kArrivalTime = 4;
      if (row != 192) return PacketForm{first, row, 0};
      return PacketForm{first >= kArrivalTime ? first - kArrivalTime : first + row - kArrivalTime, row,
                        kArrivalTime};
    }
  }
  return {};
}

}  // namespace

std::optional<PacketForm> FindPacketForm(const mp4::Source& source) {
  for (uint64_t least = (kSyncsInRow + 1) * kLongestRow;; least *= 2) {
    const uint64_t there = std::min(AvailableOf(source, 0, least), kSearched);
    Bytes bytes(static_cast<size_t>(there));
    source.Read(0, bytes);
    const std::optional<PacketForm> form = FormOf(bytes);
    if (form || there < least || there == kSearched) return form;
  }
}

size_t Row::payloadAt() const {
  const uint8_t* const p = packet();
  if (!hasPayload()) return kPacketBytes;
  const size_t at = kHeaderBytes + (HasAdaptation(p) ? size_t{1} + p[4] : 0);
  return std::min(at, kPacketBytes);
}

size_t Row::adaptationContent() const {
  const uint8_t* const p = packet();
  if (!HasAdaptation(p)) return 0;
  const size_t length = std::min<size_t>(p[4], kMostPayload - 1);
  const uint8_t flags = length == 0 ? uint8_t{0} : p[5];
  if (flags == 0) return 0;
  // Clock references, splice countdown, private data, extension: clause 2.4.3.4.
  size_t used =
      1 + ((flags & 0x10) != 0 ? 6u : 0u) + ((flags & 0x08) != 0 ? 6u : 0u) + ((flags & 0x04) != 0 ? 1u : 0u);
  for (const uint8_t counted : {uint8_t{0x02}, uint8_t{0x01}}) {
    if ((flags & counted) != 0) used += 1 + (used < length ? size_t{p[5 + used]} : 0);
  }
  return 1 + std::min(used, length);
}

void Row::SetPayload(ByteSpan payload) {
  uint8_t* const p = packet();
  if (payload.size() != kPacketBytes - payloadAt()) {
    const size_t content = adaptationContent();
    const size_t field = kMostPayload - payload.size();
    p[3] = static_cast<uint8_t>((p[3] & 0xCF) | (field != 0 ? kAdaptation : 0) |
                                (payload.empty() ? 0 : kPayload));
    if (field != 0) p[4] = static_cast<uint8_t>(field - 1);
    if (field > 1 && content == 0) p[5] = 0;
    const size_t meant = std::max<size_t>(content, std::min<size_t>(field, 2));
    std::memset(p + kHeaderBytes + meant, kStuffing, field - meant);
  }
  if (!payload.empty()) std::memcpy(p + kPacketBytes - payload.size(), payload.data(), payload.size());
}

void Row::MakeNull() {
  uint8_t* const p = packet();
  p[0] = kSync;
  p[1] = kNullIdentifier >> 8;
  p[2] = kNullIdentifier & 0xFF;
  p[3] = kPayload;
  std::memset(p + kHeaderBytes, kStuffing, kMostPayload);
}

uint32_t ArrivalTime(const Row& row) {
  return static_cast<uint32_t>(mp4::LoadNumber(row.bytes, 4)) & kArrivalMask;
}

void SetArrivalTime(Row& row, uint32_t time) {
  row.bytes[0] = static_cast<uint8_t>((row.bytes[0] & 0xC0) | (time >> 24 & 0x3F));
  for (size_t i = 1; i < 4; ++i) row.bytes[i] = static_cast<uint8_t>(time >> (24 - 8 * i));
}

std::array<uint8_t, 16> ParityOf(const uint8_t* packet) {
  std::array<uint8_t, kParityBytes> rest{};
  for (size_t i = 0; i < kPacketBytes; ++i) {
    const uint8_t factor = packet[i] ^ rest[0];
    for (size_t k = 0; k + 1 < kParityBytes; ++k)
      rest[k] = static_cast<uint8_t>(rest[k + 1] ^ Times(factor, kGenerator[k]));
    rest[kParityBytes - 1] = Times(factor, kGenerator[kParityBytes - 1]);
  }
  return rest;
}

bool HasParity(const Row& row) {
  if (row.size != kPacketBytes + kParityBytes || row.front != 0) return false;
  const std::array<uint8_t, kParityBytes> parity = ParityOf(row.packet());
  return std::equal(parity.begin(), parity.end(), row.packet() + kPacketBytes);
}

void PutParity(Row& row) {
  const std::array<uint8_t, kParityBytes> parity = ParityOf(row.packet());
  std::copy(parity.begin(), parity.end(), row.packet() + kPacketBytes);
}

}  // namespace qlnmedia::ts
