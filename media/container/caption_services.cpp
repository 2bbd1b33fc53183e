// Walks the program tables of a transport stream (ISO/IEC 13818-1 clause 2.4.4) and the events of ATSC A/65.

#include "container/caption_services.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <set>

#include "base/read_error.h"
#include "container/service_info.h"

namespace qlnmedia {

namespace {

constexpr size_t kPacketBytes = 188;
constexpr uint8_t kSync = 0x47;
constexpr int kAssociationTable = 0;  // packet identifier and table_id
constexpr int kMapTable = 2;
constexpr uint8_t kCaptionService = 0x86;  // descriptor_tag

size_t Length12(ByteSpan bytes, size_t at) { return (bytes[at] & 0x0FU) << 8 | bytes[at + 1]; }
int Identifier(ByteSpan bytes, size_t at) { return (bytes[at] & 0x1F) << 8 | bytes[at + 1]; }
int Number16(ByteSpan bytes, size_t at) { return bytes[at] << 8 | bytes[at + 1]; }

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

constexpr size_t kServiceBytes = 6;

// One service; nothing where its language is none.
std::optional<AnnouncedService> ReadService(ByteSpan bytes) {
  AnnouncedService service;
  for (size_t i = 0; i < 3; ++i) {
    const auto letter = static_cast<char>(bytes[i]);
    if (letter < ' ' || letter > '~') return {};
    service.language += letter;
  }
  const bool digital = (bytes[3] & 0x80) != 0;  // digital_cc, else line21_field
  service.name = digital ? fmt::format("service {}", bytes[3] & 0x3F)
                         : fmt::format("line 21 field {}", (bytes[3] & 1) + 1);
  service.easyReader = (bytes[4] & 0x80) != 0;
  service.wideAspectRatio = (bytes[4] & 0x40) != 0;
  return service;
}

// The services of one descriptor's body.
std::vector<AnnouncedService> ReadServices(ByteSpan body) {
  if (body.empty() || (body.size() - 1) % kServiceBytes != 0 ||
      (body[0] & 0x1FU) != (body.size() - 1) / kServiceBytes)
    return {};
  std::vector<AnnouncedService> services;
  for (size_t at = 1; at < body.size(); at += kServiceBytes) {
    std::optional<AnnouncedService> service = ReadService(body.subspan(at, kServiceBytes));
    if (!service) return {};
    services.push_back(std::move(*service));
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

// Events of ATSC A/65 (PSIP): which services the one has that is on, by the source that carries it.
class EventTables {
 public:
  static constexpr int kBase = 0x1FFB;  // packet identifier of the master guide and the channels

  bool Wants(int identifier) const { return identifier == kBase || events_.count(identifier) != 0; }

  void Take(int identifier, ByteSpan section) {
    constexpr uint8_t kGuide = 0xC7;
    constexpr uint8_t kTerrestrial = 0xC8;
    constexpr uint8_t kCable = 0xC9;
    constexpr uint8_t kEvents = 0xCB;
    constexpr size_t kCheck = 4;
    if (section.size() < kHead + kCheck) return;
    const ByteSpan body = section.first(section.size() - kCheck);
    const uint8_t table = section[0];
    if (identifier != kBase) {
      if (table == kEvents) TakeEvents(body);
    } else if (table == kGuide) {
      TakeGuide(body);
    } else if (table == kTerrestrial || table == kCable) {
      TakeChannels(body);
    }
  }

  // By program_number.
  std::map<int, std::vector<AnnouncedService>> OfPrograms() const {
    std::map<int, std::vector<AnnouncedService>> found;
    for (const auto& [program, source] : sources_) {
      const auto services = services_.find(source);
      if (services != services_.end()) found[program] = services->second;
    }
    return found;
  }

 private:
  static constexpr size_t kHead = 10;  // with protocol_version and a count

  // Where the events stand of the three hours that run; clause 6.2.
  void TakeGuide(ByteSpan body) {
    constexpr size_t kEntry = 11;
    constexpr int kFirstEvents = 0x0100;
    for (size_t at = kHead + 1; at + kEntry <= body.size(); at += kEntry + Length12(body, at + 9)) {
      if (Number16(body, at) == kFirstEvents) events_.insert(Identifier(body, at + 2));
    }
  }

  // Clauses 6.3.1 and 6.3.2, which lay out both kinds alike.
  void TakeChannels(ByteSpan body) {
    constexpr size_t kEntry = 32;
    for (size_t at = kHead; at + kEntry <= body.size(); at += kEntry + (Length12(body, at + 30) & 0x3FF))
      sources_[Number16(body, at + 24)] = Number16(body, at + 28);
  }

  // Clause 6.5. The first event that tells services is taken; later ones have not begun.
  void TakeEvents(ByteSpan body) {
    constexpr size_t kEntry = 10;  // up to title_length
    const int source = Number16(body, 3);
    for (size_t at = kHead; at + kEntry <= body.size() && services_.count(source) == 0;) {
      at += kEntry + body[at + 9];
      if (at + 2 > body.size()) return;
      const size_t size = std::min(Length12(body, at), body.size() - at - 2);
      std::vector<AnnouncedService> services;
      AppendServices(body.subspan(at + 2, size), services);
      if (!services.empty()) services_[source] = std::move(services);
      at += 2 + size;
    }
  }

  std::set<int> events_;                                   // packet identifiers
  std::map<int, int> sources_;                             // source_id by program_number
  std::map<int, std::vector<AnnouncedService>> services_;  // by source_id
};

class ProgramTables {
 public:
  void Take(ByteSpan packet) {
    const int identifier = Identifier(packet, 1);
    if (identifier != kAssociationTable && maps_.count(identifier) == 0 && !events_.Wants(identifier)) return;
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

  // By the packet identifier of streams. What events tell goes to the pictures of a program whose map tells
  // nothing.
  std::map<int, std::vector<AnnouncedService>> Found() {
    for (auto& [program, services] : events_.OfPrograms()) {
      const auto pictures = pictures_.find(program);
      if (pictures == pictures_.end()) continue;
      for (const int identifier : pictures->second) found_.try_emplace(identifier, services);
    }
    return std::move(found_);
  }

 private:
  // Sections follow each other; stuffing stands behind the last.
  void Append(int identifier, Bytes& section, ByteSpan bytes) {
    constexpr uint8_t kStuffing = 0xFF;
    section.insert(section.end(), bytes.begin(), bytes.end());
    while (section.size() >= 3 && section[0] != kStuffing) {
      const size_t size = 3 + Length12(section, 1);
      if (section.size() < size) return;
      const ByteSpan whole(section.data(), size);
      if (identifier == kAssociationTable) {
        TakeAssociations(whole);
      } else if (maps_.count(identifier) != 0) {
        TakeMap(whole);
      } else {
        events_.Take(identifier, whole);
      }
      section.erase(section.begin(), section.begin() + static_cast<std::ptrdiff_t>(size));
    }
    if (!section.empty() && section[0] == kStuffing) section.clear();
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
      if (!services.empty()) found_[Identifier(body, at + 1)] = std::move(services);
      if (IsPictures(body[at])) pictures_[Number16(body, 3)].insert(Identifier(body, at + 1));
      at += 5 + size;
    }
  }

  // stream_type of MPEG-2, H.264 and HEVC.
  static bool IsPictures(uint8_t type) { return type == 0x02 || type == 0x1B || type == 0x24; }

  std::set<int> maps_;  // packet identifiers of program maps
  std::map<int, Bytes> sections_;
  std::map<int, std::set<int>> pictures_;  // packet identifiers by program_number
  std::map<int, std::vector<AnnouncedService>> found_;
  EventTables events_;
};

}  // namespace

std::map<int, std::vector<AnnouncedService>> AnnouncedServices(ByteSpan bytes) {
  const std::optional<Packets> packets = FindPackets(bytes);
  if (!packets) return {};
  ProgramTables tables;
  for (size_t at = packets->first; at + kPacketBytes <= bytes.size(); at += packets->step) {
    if (bytes[at] == kSync) tables.Take(bytes.subspan(at, kPacketBytes));
  }
  return tables.Found();
}

std::vector<AnnouncedService> ServicesOfSection(ByteSpan section) {
  constexpr size_t kHead = 2, kNumber = 1;  // caption_service_number in front of each
  std::vector<AnnouncedService> services;
  for (size_t at = kHead; at + kNumber + kServiceBytes <= section.size(); at += kNumber + kServiceBytes) {
    std::optional<AnnouncedService> service = ReadService(section.subspan(at + kNumber, kServiceBytes));
    if (service) services.push_back(std::move(*service));
  }
  return services;
}

std::vector<AnnouncedService> AnnouncedServicesOf(const MediaInput& input, int packetIdentifier) {
  constexpr size_t kBegin = size_t{4} << 20;  // all tables come at least twice a second
  Bytes begin;
  if (input.isPipe()) {
    const Bytes& kept = input.tape().head();
    begin.assign(kept.begin(), kept.begin() + static_cast<std::ptrdiff_t>(std::min(kept.size(), kBegin)));
  } else {
    begin.resize(kBegin);
    std::ifstream file(input.path(), std::ios::binary);
    file.read(reinterpret_cast<char*>(begin.data()), static_cast<std::streamsize>(begin.size()));
    if (!file.is_open() || file.bad()) throw ReadError(input.path(), "cannot be read");
    begin.resize(static_cast<size_t>(std::max<std::streamsize>(file.gcount(), 0)));
  }
  std::map<int, std::vector<AnnouncedService>> all = AnnouncedServices(begin);
  return std::move(all[packetIdentifier]);
}

}  // namespace qlnmedia
