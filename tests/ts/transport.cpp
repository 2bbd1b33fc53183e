// By ISO/IEC 13818-1 clauses 2.4.3.2 to 2.4.3.7, and EN 300 744 clause 4.3.2.

#include "ts/transport.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace qln::test {

namespace {

// Multiplication in the field of 256 with x^8 + x^4 + x^3 + x^2 + 1, bit by bit.
uint8_t Multiply(uint8_t a, uint8_t b) {
  unsigned product = 0;
  for (unsigned bit = 0; bit < 8; ++bit) {
    if ((b >> bit & 1) != 0) product ^= unsigned{a} << bit;
  }
  for (unsigned bit = 15; bit >= 8; --bit) {
    if ((product >> bit & 1) != 0) product ^= 0x11Du << (bit - 8);
  }
  return static_cast<uint8_t>(product);
}

// A code word is one whose polynomial is zero at 1, 2, 4, ... 2^15.
bool IsCodeWord(const uint8_t* word) {
  uint8_t root = 1;
  for (int i = 0; i < 16; ++i, root = Multiply(root, 2)) {
    uint8_t value = 0;
    for (size_t k = 0; k < 204; ++k) value = static_cast<uint8_t>(Multiply(value, root) ^ word[k]);
    if (value != 0) return false;
  }
  return true;
}

// The 16 bytes that make a code word: the syndromes' equations solved by elimination.
Bytes Parity(const Bytes& packet) {
  uint8_t matrix[16][17] = {};
  uint8_t root = 1;
  for (auto& row : matrix) {
    uint8_t value = 0;
    for (const uint8_t byte : packet) value = static_cast<uint8_t>(Multiply(value, root) ^ byte);
    for (int k = 0; k < 16; ++k) value = Multiply(value, root);
    row[16] = value;
    uint8_t power = 1;
    for (int k = 15; k >= 0; --k, power = Multiply(power, root)) row[k] = power;
    root = Multiply(root, 2);
  }
  for (int column = 0; column < 16; ++column) {
    int pivot = column;
    while (matrix[pivot][column] == 0) ++pivot;
    std::swap(matrix[pivot], matrix[column]);
    uint8_t inverse = 1;
    while (Multiply(inverse, matrix[column][column]) != 1) ++inverse;
    for (uint8_t& value : matrix[column]) value = Multiply(value, inverse);
    for (int other = 0; other < 16; ++other) {
      const uint8_t factor = matrix[other][column];
      if (other == column || factor == 0) continue;
      for (int k = 0; k < 17; ++k)
        matrix[other][k] = static_cast<uint8_t>(matrix[other][k] ^ Multiply(factor, matrix[column][k]));
    }
  }
  Bytes parity;
  for (const auto& row : matrix) parity.push_back(row[16]);
  return parity;
}

}  // namespace

void TransportBuilder::Put(const Bytes& packet) {
  ASSERT_EQ(packet.size(), 188u);
  if (row_ == Row::kArrivalTime) {
    time_ += 1000;
    Raw({static_cast<uint8_t>(0x40 | (time_ >> 24 & 0x3F)), static_cast<uint8_t>(time_ >> 16),
         static_cast<uint8_t>(time_ >> 8), static_cast<uint8_t>(time_)});
  }
  Raw(packet);
  if (row_ == Row::kParity) Raw(Parity(packet));
}

void TransportBuilder::Packet(uint16_t identifier, bool start, const Bytes& payload, const Bytes& field) {
  uint8_t& counter = counters_[identifier];
  const size_t stuffed = 184 - payload.size();
  Bytes packet = {0x47, static_cast<uint8_t>((start ? 0x40 : 0) | identifier >> 8),
                  static_cast<uint8_t>(identifier),
                  static_cast<uint8_t>((stuffed != 0 ? 0x20 : 0) | (payload.empty() ? 0 : 0x10))};
  packet[3] = static_cast<uint8_t>(packet[3] | (payload.empty() ? (counter - 1) & 15 : counter));
  if (!payload.empty()) counter = (counter + 1) & 15;
  if (stuffed != 0) packet.push_back(static_cast<uint8_t>(stuffed - 1));
  if (stuffed > 1) {
    if (field.empty()) packet.push_back(0);
    packet.insert(packet.end(), field.begin(), field.end());
  }
  ASSERT_LE(packet.size() + payload.size(), 188u);
  packet.resize(188 - payload.size(), 0xFF);
  packet.insert(packet.end(), payload.begin(), payload.end());
  Put(packet);
}

void TransportBuilder::Null() {
  Bytes packet = {0x47, 0x1F, 0xFF, 0x10};
  packet.resize(188, 0xFF);
  Put(packet);
}

void TransportBuilder::Pes(uint16_t identifier, const Bytes& stream, uint64_t pts, bool length,
                           const Bytes& field, int nulls) {
  const size_t said = length ? stream.size() + 8 : 0;
  Bytes all = {0,
               0,
               1,
               0xE0,
               static_cast<uint8_t>(said >> 8),
               static_cast<uint8_t>(said),
               0x84,
               0x80,
               5,
               static_cast<uint8_t>(0x21 | (pts >> 29 & 0x0E)),
               static_cast<uint8_t>(pts >> 22),
               static_cast<uint8_t>(1 | pts >> 14),
               static_cast<uint8_t>(pts >> 7),
               static_cast<uint8_t>(1 | pts << 1)};
  all.insert(all.end(), stream.begin(), stream.end());
  bool first = true;
  for (size_t at = 0; at < all.size(); first = false) {
    const size_t room = first && !field.empty() ? 183 - field.size() : 184;
    const size_t part = std::min(room, all.size() - at);
    Packet(identifier, first,
           Bytes(all.begin() + static_cast<long>(at), all.begin() + static_cast<long>(at + part)),
           first ? field : Bytes());
    at += part;
    if (nulls-- > 0) Null();
  }
}

Bytes ClockReference(uint64_t base, uint16_t extension) {
  return {0x10,
          static_cast<uint8_t>(base >> 25),
          static_cast<uint8_t>(base >> 17),
          static_cast<uint8_t>(base >> 9),
          static_cast<uint8_t>(base >> 1),
          static_cast<uint8_t>((base & 1) << 7 | 0x7E | extension >> 8),
          static_cast<uint8_t>(extension)};
}

TransportRead ReadTransport(const Bytes& bytes, const std::vector<uint16_t>& identifiers, Row row) {
  TransportRead read;
  const size_t step = row == Row::kPlain ? 188 : row == Row::kArrivalTime ? 192 : 204;
  EXPECT_EQ(bytes.size() % step, 0u);
  std::map<uint16_t, Bytes> units;
  const auto finish = [&](uint16_t identifier) {
    Bytes& unit = units[identifier];
    if (unit.empty()) return;
    PesRead pes;
    EXPECT_EQ(Bytes(unit.begin(), unit.begin() + 3), (Bytes{0, 0, 1}));
    const size_t head = 9u + unit.at(8);
    pes.head.assign(unit.begin(), unit.begin() + static_cast<long>(head));
    pes.stream.assign(unit.begin() + static_cast<long>(head), unit.end());
    read.streams[identifier].packets.push_back(pes);
    unit.clear();
  };
  for (size_t at = 0; at + step <= bytes.size(); at += step, ++read.packets) {
    const uint8_t* const p = bytes.data() + at + (row == Row::kArrivalTime ? 4 : 0);
    if (row == Row::kArrivalTime)
      read.arrivalTimes.push_back((uint32_t{bytes[at]} & 0x3F) << 24 | uint32_t{bytes[at + 1]} << 16 |
                                  uint32_t{bytes[at + 2]} << 8 | bytes[at + 3]);
    if (row == Row::kParity) read.parityHolds = read.parityHolds && IsCodeWord(p);
    EXPECT_EQ(p[0], 0x47) << at;
    const auto identifier = static_cast<uint16_t>((p[1] & 0x1F) << 8 | p[2]);
    if (identifier == 0x1FFF) {
      ++read.nulls;
      continue;
    }
    if (std::find(identifiers.begin(), identifiers.end(), identifier) == identifiers.end()) {
      read.others.emplace_back(p, p + 188);
      continue;
    }
    StreamRead& stream = read.streams[identifier];
    const bool hasField = (p[3] & 0x20) != 0, hasPayload = (p[3] & 0x10) != 0;
    EXPECT_TRUE(hasField || hasPayload);
    stream.counters += "0123456789abcdef"[p[3] & 15];
    if (!hasPayload) stream.counters += '.';
    size_t payload = 4;
    if (hasField) {
      EXPECT_LE(p[4], hasPayload ? 182 : 183);
      if (!hasPayload) {
        EXPECT_EQ(p[4], 183);
      }
      payload = 5u + p[4];
      size_t used = 5;
      if (p[4] > 0) {
        used = 6;
        if ((p[5] & 0x10) != 0) {
          stream.references.emplace_back(p + 6, p + 12);
          used = 12;
        }
        if ((p[5] & 0x04) != 0) used += 1;
        if ((p[5] & 0x02) != 0) used += 1u + p[used];
        if ((p[5] & 0x01) != 0) used += 1u + p[used];
      }
      for (size_t i = used; i < payload; ++i) EXPECT_EQ(p[i], 0xFF) << "stuffing";
    }
    if (!hasPayload) continue;
    if ((p[1] & 0x40) != 0) finish(identifier);
    if ((p[1] & 0x40) == 0 && units[identifier].empty()) continue;  // begins in the middle
    units[identifier].insert(units[identifier].end(), p + payload, p + 188);
  }
  for (const uint16_t identifier : identifiers) finish(identifier);
  return read;
}

}  // namespace qln::test
