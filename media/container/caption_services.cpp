// Walks the program tables of a transport stream (ISO/IEC 13818-1 clause 2.4.4).

#include "container/caption_services.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <set>

namespace qlnmedia {

namespace {

constexpr size_t kPacketBytes = 188;
constexpr uint8_t kSync = 0x47;
constexpr int kAssociationTable = 0;  // packet identifier and table_id
constexpr int kMapTable = 2;
constexpr uint8_t kCaptionService = 0x86;  // descriptor_tag

size_t Length12(ByteSpan bytes, size_t at) { return (bytes[at] & 0x0FU) << 8 | bytes[at + 1]; }
int Identifier(ByteSpan bytes, size_t at) { return (bytes[at] & 0x1F) << 8 | bytes[at + 1]; }

// Packets as a file has them: the first one's place and how far they are apart.
struct Packets {
  size_t first = 0;
  size_t step = kPacketBytes;
};

std::optional<Packets> FindPackets(ByteSpan bytes) {
  constexpr size_t kInRow = 4;
  for (const size_t step : {kPacketBytes, size_t{192}, size_t{204}}) {
    for (size_t first = 0; first < step && first + (kInRow - 1) * step < bytes.size(); ++first) {
      bool all = true;
      for (size_t i = 0; all && i < kInRow; ++i) all = bytes[first + i * step] == kSync;
      if (all) return Packets{first, step};
    }
  }
  return {};
}

// The services of one descriptor's body.
std::vector<AnnouncedService> ReadServices(ByteSpan body) {
  constexpr size_t kServiceBytes = 6;
  if (body.empty() || (body.size() - 1) % kServiceBytes != 0 ||
      (body[0] & 0x1FU) != (body.size() - 1) / kServiceBytes)
    return {};
  std::vector<AnnouncedService> services;
  for (size_t at = 1; at < body.size(); at += kServiceBytes) {
    AnnouncedService service;
    for (size_t i = 0; i < 3; ++i) {
      const auto letter = static_cast<char>(body[at + i]);
      if (letter < ' ' || letter > '~') return {};
      service.language += letter;
    }
    const uint8_t kind = body[at + 3];
    const bool digital = (kind & 0x80) != 0;  // digital_cc, else line21_field
    service.name =
        digital ? fmt::format("service {}", kind & 0x3F) : fmt::format("line 21 field {}", (kind & 1) + 1);
    service.easyReader = (body[at + 4] & 0x80) != 0;
    service.wideAspectRatio = (body[at + 4] & 0x40) != 0;
    services.push_back(std::move(service));
  }
  return services;
}

void AppendServices(ByteSpan descriptors, std::vector<AnnouncedService>& services) {
  while (descriptors.size() >= 2) {
    const size_t size = std::min<size_t>(descriptors[1], descriptors.size() - 2);
    if (descriptors[0] == kCaptionService) {
      for (AnnouncedService& service : ReadServices(descriptors.subspan(2, size)))
        services.push_back(std::move(service));
    }
    descriptors = descriptors.subspan(2 + size);
  }
}

class ProgramTables {
 public:
  void Take(ByteSpan packet) {
    const int identifier = Identifier(packet, 1);
    if (identifier != kAssociationTable && maps_.count(identifier) == 0) return;
    size_t at = 4;
    if ((packet[3] & 0x10) == 0) return;  // no payload
    if ((packet[3] & 0x20) != 0) at += 1 + size_t{packet[4]};
    if (at >= packet.size()) return;
    Bytes& section = sections_[identifier];
    ByteSpan payload = packet.subspan(at);
    if ((packet[1] & 0x40) != 0) {
      // What is left of the section in front, and where the next one begins.
      const size_t behind = std::min<size_t>(1 + size_t{payload[0]}, payload.size());
      if (!section.empty()) Append(identifier, section, payload.subspan(1, behind - 1));
      section.clear();
      payload = payload.subspan(behind);
    } else if (section.empty()) {
      return;
    }
    Append(identifier, section, payload);
  }

  std::map<int, std::vector<AnnouncedService>> found;

 private:
  // One section a packet is taken, as tables are laid out; stuffing stands behind.
  void Append(int identifier, Bytes& section, ByteSpan bytes) {
    section.insert(section.end(), bytes.begin(), bytes.end());
    if (section.size() < 3 || section.size() < 3 + Length12(section, 1)) return;
    const ByteSpan whole(section.data(), 3 + Length12(section, 1));
    if (identifier == kAssociationTable) {
      TakeAssociations(whole);
    } else {
      TakeMap(whole);
    }
    section.clear();
  }

  void TakeAssociations(ByteSpan section) {
    constexpr size_t kMost = 1024;  // programs that are looked at
    constexpr size_t kHead = 8;
    constexpr size_t kCheck = 4;
    if (section[0] != kAssociationTable) return;
    for (size_t at = kHead; at + 4 + kCheck <= section.size() && maps_.size() < kMost; at += 4) {
      const bool network = (section[at] | section[at + 1]) == 0;
      if (!network) maps_.insert(Identifier(section, at + 2));
    }
  }

  void TakeMap(ByteSpan section) {
    constexpr size_t kHead = 12;
    constexpr size_t kCheck = 4;
    if (section[0] != kMapTable || section.size() < kHead + kCheck) return;
    const ByteSpan body = section.first(section.size() - kCheck);
    size_t at = std::min(kHead + Length12(body, 10), body.size());
    std::vector<AnnouncedService> ofProgram;
    AppendServices(body.subspan(kHead, at - kHead), ofProgram);
    while (at + 5 <= body.size()) {
      const size_t size = std::min(Length12(body, at + 3), body.size() - at - 5);
      std::vector<AnnouncedService> services = ofProgram;
      AppendServices(body.subspan(at + 5, size), services);
      if (!services.empty()) found[Identifier(body, at + 1)] = std::move(services);
      at += 5 + size;
    }
  }

  std::set<int> maps_;  // packet identifiers of program maps
  std::map<int, Bytes> sections_;
};

}  // namespace

std::map<int, std::vector<AnnouncedService>> AnnouncedServices(ByteSpan bytes) {
  const std::optional<Packets> packets = FindPackets(bytes);
  if (!packets) return {};
  ProgramTables tables;
  for (size_t at = packets->first; at + kPacketBytes <= bytes.size(); at += packets->step) {
    if (bytes[at] == kSync) tables.Take(bytes.subspan(at, kPacketBytes));
  }
  return std::move(tables.found);
}

std::vector<AnnouncedService> AnnouncedServicesOf(const MediaInput& input, int packetIdentifier) {
  constexpr size_t kBegin = size_t{1} << 20;  // program tables come several times a second
  Bytes begin;
  if (input.isPipe()) {
    const Bytes& kept = input.tape().head();
    begin.assign(kept.begin(), kept.begin() + static_cast<std::ptrdiff_t>(std::min(kept.size(), kBegin)));
  } else {
    begin.resize(kBegin);
    std::ifstream file(input.path(), std::ios::binary);
    file.read(reinterpret_cast<char*>(begin.data()), static_cast<std::streamsize>(begin.size()));
    begin.resize(static_cast<size_t>(std::max<std::streamsize>(file.gcount(), 0)));
  }
  std::map<int, std::vector<AnnouncedService>> all = AnnouncedServices(begin);
  return std::move(all[packetIdentifier]);
}

}  // namespace qlnmedia
