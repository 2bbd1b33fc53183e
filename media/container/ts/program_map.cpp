// Reads and writes sections.

#include "container/ts/program_map.h"

#include <algorithm>

namespace qlnmedia::ts {

namespace {

constexpr size_t kSectionHead = 3;  // up to section_length
constexpr size_t kTableHead = 8;    // up to last_section_number
constexpr size_t kMapHead = 12;     // up to program_info_length
constexpr size_t kStreamHead = 5;
constexpr size_t kCrcBytes = 4;
constexpr size_t kMostSection = 1024;
constexpr uint8_t kAssociationTable = 0x00, kMapTable = 0x02;

size_t Twelve(ByteSpan bytes, size_t at) { return size_t{bytes[at] & 0x0FU} << 8 | bytes[at + 1]; }
uint16_t Thirteen(ByteSpan bytes, size_t at) {
  return static_cast<uint16_t>((bytes[at] & 0x1F) << 8 | bytes[at + 1]);
}

// Whether it is whole, of the table, and right.
bool IsRight(ByteSpan section, uint8_t table, size_t least) {
  if (section.size() < least + kCrcBytes || section[0] != table) return false;
  if (section.size() != kSectionHead + Twelve(section, 1)) return false;
  return SectionCrc(section) == 0;
}

// Calls `take` with type and identifier of each stream of a map.
template <class Take>
void ForStreams(ByteSpan section, const Take& take) {
  size_t at = kMapHead + Twelve(section, 10);
  while (at + kStreamHead + kCrcBytes <= section.size()) {
    take(section[at], Thirteen(section, at + 1));
    at += kStreamHead + Twelve(section, at + 3);
  }
}

}  // namespace

uint32_t SectionCrc(ByteSpan bytes) {
  uint32_t crc = 0xFFFFFFFF;
  for (const uint8_t byte : bytes) {
    crc ^= uint32_t{byte} << 24;
    for (int i = 0; i < 8; ++i) crc = crc << 1 ^ ((crc & 0x80000000) != 0 ? 0x04C11DB7U : 0U);
  }
  return crc;
}

std::optional<std::vector<Bytes>> SectionsOf(ByteSpan payload) {
  if (payload.empty() || payload[0] != 0) return {};  // pointer_field
  std::vector<Bytes> sections;
  payload = payload.subspan(1);
  while (!payload.empty() && payload[0] != kStuffing) {
    size_t size = payload.size();
    if (size >= kSectionHead) size = std::min(size, kSectionHead + Twelve(payload, 1));
    sections.emplace_back(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(size));
    payload = payload.subspan(size);
  }
  return sections;
}

bool IsWhole(const std::vector<Bytes>& sections) {
  if (sections.empty()) return true;
  const Bytes& last = sections.back();
  return last.size() >= kSectionHead && last.size() == kSectionHead + Twelve(last, 1);
}

std::set<uint16_t> MapsOf(ByteSpan section) {
  std::set<uint16_t> maps;
  if (!IsRight(section, kAssociationTable, kTableHead)) return maps;
  for (size_t at = kTableHead; at + 4 + kCrcBytes <= section.size(); at += 4) {
    const bool network = section[at] == 0 && section[at + 1] == 0;
    if (!network) maps.insert(Thirteen(section, at + 2));
  }
  return maps;
}

bool IsMapOf(ByteSpan section, uint16_t stream) {
  return IsRight(section, kMapTable, kMapHead) && StreamsOf(section).count(stream) != 0;
}

std::set<uint16_t> StreamsOf(ByteSpan section) {
  std::set<uint16_t> streams;
  if (!IsRight(section, kMapTable, kMapHead)) return streams;
  streams.insert(Thirteen(section, 8));  // PCR_PID
  ForStreams(section, [&streams](uint8_t, uint16_t stream) { streams.insert(stream); });
  return streams;
}

std::vector<MapStream> TypedStreamsOf(ByteSpan section) {
  std::vector<MapStream> streams;
  if (!IsRight(section, kMapTable, kMapHead)) return streams;
  ForStreams(section, [&streams](uint8_t type, uint16_t stream) { streams.push_back({type, stream}); });
  return streams;
}

std::optional<Bytes> WithStream(ByteSpan section, uint8_t streamType, uint16_t stream, ByteSpan descriptors) {
  Bytes map(section.begin(), section.end() - kCrcBytes);
  const size_t size = descriptors.size();
  map.insert(map.end(), {streamType, static_cast<uint8_t>(0xE0 | stream >> 8), static_cast<uint8_t>(stream),
                         static_cast<uint8_t>(0xF0 | size >> 8), static_cast<uint8_t>(size)});
  map.insert(map.end(), descriptors.begin(), descriptors.end());
  const size_t whole = map.size() + kCrcBytes;
  if (whole > kMostSection) return {};
  const size_t length = whole - kSectionHead;
  map[1] = static_cast<uint8_t>((map[1] & 0xF0) | length >> 8);
  map[2] = static_cast<uint8_t>(length);
  const int version = ((map[5] >> 1 & 0x1F) + 1) & 0x1F;
  map[5] = static_cast<uint8_t>((map[5] & 0xC1) | version << 1);
  const uint32_t crc = SectionCrc(map);
  for (const int shift : {24, 16, 8, 0}) map.push_back(static_cast<uint8_t>(crc >> shift));
  return map;
}

}  // namespace qlnmedia::ts
