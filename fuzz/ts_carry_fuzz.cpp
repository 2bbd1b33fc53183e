// Transport streams in memory: whatever their packets say, a change of nothing is the input, and what was
// changed comes out of the same packets while all others are those of the input.

#include <array>
#include <vector>

#include "container/mp4/memory_sink.h"
#include "container/ts/carrier.h"
#include "container/ts/damage.h"
#include "container/ts/kept_packets.h"
#include "container/ts/program_map.h"
#include "container/ts/stream_addition.h"
#include "fuzz_input.h"
#include "mutators/formats.h"

namespace {

using qlnmedia::mp4::MemorySink;
using qlnmedia::mp4::MemorySource;
using namespace qlnmedia::ts;

constexpr uint16_t kIdentifier = 0x100;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

// The elementary stream's bytes PES packet by PES packet, as clause 2.4.3.6 has them.
std::vector<Bytes> StreamOf(const Bytes& bytes) {
  const MemorySource source(bytes);
  RowReader rows(source);
  std::vector<Bytes> packets;
  for (Row row; rows.Next(row);) {
    if (!row.isPacket || row.identifier() != kIdentifier) continue;
    if (row.startsUnit() && row.hasPayload()) packets.emplace_back();
    if (packets.empty()) continue;
    const ByteSpan payload = row.payload();
    packets.back().insert(packets.back().end(), payload.begin(), payload.end());
  }
  for (Bytes& packet : packets) {
    const bool isPes =
        packet.size() >= 9 && packet[0] == 0 && packet[1] == 0 && packet[2] == 1 && packet[6] >> 6 == 2;
    const size_t head = isPes ? size_t{9} + packet[8] : packet.size();
    const size_t length = isPes ? size_t{packet[4]} << 8 | packet[5] : 0;
    const size_t end = length == 0 ? packet.size() : std::min(packet.size(), length + 6);
    packet = head >= end ? Bytes()
                         : Bytes(packet.begin() + static_cast<std::ptrdiff_t>(head),
                                 packet.begin() + static_cast<std::ptrdiff_t>(end));
  }
  return packets;
}

Bytes Carried(const Bytes& bytes, const std::vector<Bytes>& was, const std::vector<Bytes>& is) {
  const MemorySource source(bytes);
  MemorySink sink;
  Carrier carrier(source, &sink, {kIdentifier});
  for (size_t i = 0; i < was.size(); ++i) {
    if (!was[i].empty()) carrier.Take(kIdentifier, was[i], is[i]);
  }
  carrier.Finish();
  RequireOthersKept(source, MemorySource(sink.bytes()), {kIdentifier}, "out");
  return sink.bytes();
}

// The same by the packets that the carrier itself shows.
Bytes CarriedAsShown(const Bytes& bytes, const std::vector<Bytes>& was, const std::vector<Bytes>& is) {
  const MemorySource source(bytes);
  MemorySink sink;
  KeptPackets kept({kIdentifier});
  Damage damage({kIdentifier});
  Carrier carrier(source, &sink, {kIdentifier}, [&](const Row& row) {
    kept.Take(row);
    damage.Take(row);
  });
  size_t next = 0;
  for (PesView pes; carrier.Next(pes); ++next) {
    while (next < was.size() && was[next].empty()) ++next;
    Expect(next < was.size() && pes.stream == was[next]);
    if (is[next] == was[next]) {
      carrier.Keep(kIdentifier, 1);
    } else {
      const ByteSpan all = is[next];
      const size_t half = all.size() / 2;
      carrier.Replace(kIdentifier, 1, std::array{all.first(half), all.subspan(half)});
    }
  }
  carrier.Finish();
  damage.Finish();
  RequireOthersKept(source, kept, MemorySource(sink.bytes()), {kIdentifier}, "out");
  return sink.bytes();
}

// A stream more beside that one: tables are taken apart whatever they say, and what a map becomes is a map.
void TakeAddition(const Bytes& bytes) {
  const MemorySource source(bytes);
  if (const auto sections = SectionsOf(bytes)) {
    for (Bytes section : *sections) {
      MapsOf(section);
      if (section.size() < 4) continue;
      const uint32_t crc = SectionCrc(ByteSpan(section).first(section.size() - 4));
      for (size_t i = 0; i < 4; ++i)
        section[section.size() - 4 + i] = static_cast<uint8_t>(crc >> (24 - 8 * i));
      MapsOf(section);
      if (!IsMapOf(section, kIdentifier)) continue;
      const auto map = WithStream(section, 0x06, 0x200, Bytes{0x05, 0x01, 0x00});
      Expect(!map || SectionCrc(*map) == 0);
    }
  }
  StreamAddition addition(source, kIdentifier, 0x06, {0x05, 0x01, 0x00});
  MemorySink sink;
  uint64_t at = 0;
  const auto next = [&at, &bytes](PlacedPes& pes) {
    pes = {at, at + 500, Bytes(at % 400 + 1, 7)};
    at += 700;
    return pes.from < bytes.size();
  };
  addition.Write(next, &sink, [](uint64_t) {});
  Expect(sink.bytes().size() >= bytes.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::Input input(data, size);
  uint32_t seed = input.Number(4);
  if (size < 4) return 0;
  const Bytes bytes(data + 4, data + size);
  try {
    TakeAddition(bytes);
  } catch (const qlnmedia::Error&) {
    // refused
  }
  try {
    const std::vector<Bytes> was = StreamOf(bytes);
    Expect(Carried(bytes, {}, {}) == bytes);
    Expect(Carried(bytes, was, was) == bytes);
    std::vector<Bytes> is = was;
    for (Bytes& packet : is) {
      seed = seed * 1664525 + 1013904223;
      if (packet.empty() || (seed >> 30) == 0) continue;
      const size_t at = (seed >> 8) % packet.size();
      const auto place = packet.begin() + static_cast<std::ptrdiff_t>(at);
      if ((seed >> 30) == 1) {
        packet.erase(place, packet.end());
      } else {
        packet.insert(place, (seed >> 12) % 700, 0x55);
      }
    }
    const Bytes carried = Carried(bytes, was, is);
    Expect(CarriedAsShown(bytes, was, is) == carried);
    const std::vector<Bytes> comes = StreamOf(carried);
    Expect(comes.size() == is.size());
    for (size_t i = 0; i < is.size(); ++i) Expect(comes[i] == is[i]);
  } catch (const qlnmedia::Error&) {
    // refused
  }
  return 0;
}

QLN_FUZZ_BY_PIECES(qln::fuzz::Packets(), 4)
