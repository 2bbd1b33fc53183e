// Reads elements entry by entry, and their samples as words.

#include "captions/anc_element.h"

#include <algorithm>
#include <array>
#include <utility>

namespace qlnmedia::captions {

namespace {

constexpr size_t kCountBytes = 2;
constexpr size_t kEntryBytes = 14;  // up to the samples
constexpr size_t kAlignment = 4;    // of the samples of each entry

// Payload sample coding.
struct Coding {
  int bits = 0;
  bool luma = false, chroma = false;
  bool parityErrors = false;
};
constexpr uint8_t kEightBitLuma = 4, kEightBitChroma = 5;
constexpr std::array<Coding, 13> kCodings = {{{},
                                              {1, true, false, false},
                                              {1, false, true, false},
                                              {1, true, true, false},
                                              {8, true, false, false},
                                              {8, false, true, false},
                                              {8, true, true, false},
                                              {10, true, false, false},
                                              {10, false, true, false},
                                              {10, true, true, false},
                                              {8, true, false, true},
                                              {8, false, true, true},
                                              {8, true, true, true}}};

// Wrapping type; with kHorizontal the horizontal blanking interval.
enum Wrapping : uint8_t { kFrame = 1, kField1 = 2, kField2 = 3, kProgressive = 4, kHorizontal = 0x10 };

struct Entry {
  int line = 0;
  uint8_t wrapping = 0;
  uint8_t coding = 0;
  size_t samples = 0;
  std::span<const uint8_t> bytes;
};

uint32_t NumberAt(std::span<const uint8_t> bytes, size_t at, size_t count) {
  uint32_t number = 0;
  for (size_t i = 0; i < count; ++i) number = number << 8 | bytes[at + i];
  return number;
}

// Whether an entry could begin here.
bool LooksLikeEntry(std::span<const uint8_t> bytes) {
  return bytes.size() >= kEntryBytes && (bytes[2] & ~kHorizontal) >= kFrame &&
         (bytes[2] & ~kHorizontal) <= kProgressive && bytes[3] != 0 && bytes[3] < kCodings.size() &&
         NumberAt(bytes, 10, 4) == 1;
}

size_t BytesOf(const Coding& coding, size_t samples) {
  if (coding.bits == 1) return (samples + 7) / 8;
  return coding.bits == 8 ? samples : (samples + 2) / 3 * 4;
}

// Samples of eight bits, or of ten, three in 32 bits from the highest ones on.
std::vector<uint16_t> WordsOf(const Entry& entry, int bits) {
  std::vector<uint16_t> words;
  for (size_t i = 0; i < entry.samples; ++i) {
    if (bits == 8)
      words.push_back(entry.bytes[i]);
    else
      words.push_back(
          static_cast<uint16_t>(NumberAt(entry.bytes, i / 3 * 4, 4) >> (22 - 10 * (i % 3)) & 0x3FF));
  }
  return words;
}

// Every second sample, from one on.
std::vector<uint16_t> EverySecond(const std::vector<uint16_t>& words, size_t from) {
  std::vector<uint16_t> some;
  for (size_t i = from; i < words.size(); i += 2) some.push_back(words[i]);
  return some;
}

class Reading {
 public:
  explicit Reading(std::vector<std::string>* damage) : damage_(damage) {}

  void Take(const Entry& entry, AncElementKind kind) {
    const Coding coding = entry.coding < kCodings.size() ? kCodings[entry.coding] : Coding{};
    if (coding.bits == 0) return Damage("a line whose sample coding is not known");
    if (entry.bytes.size() < BytesOf(coding, entry.samples))
      return Damage("a line whose samples are not all there");
    if (coding.bits == 1) return;  // no packet has room in them
    const std::vector<uint16_t> words = WordsOf(entry, coding.bits);
    if (kind == AncElementKind::kPackets)
      TakePacket(words, entry, coding, !coding.luma);
    else
      TakeLine(words, entry, coding);
  }

  std::vector<AncPacket> packets;

 private:
  void Damage(const char* what) { damage_->emplace_back(what); }

  bool TakePacket(std::span<const uint16_t> words, const Entry& entry, const Coding& coding, bool chroma) {
    std::string reason;
    std::optional<AncPacket> packet = PacketOfWords(words, coding.bits == 10, &reason);
    if (!packet) {
      damage_->push_back(std::move(reason));
      return false;
    }
    packet->chroma = chroma;
    packet->line = entry.line;
    packet->parityErrors = coding.parityErrors;
    const uint8_t wrapping = entry.wrapping & static_cast<uint8_t>(~kHorizontal);
    packet->field = wrapping == kField1 ? 1 : wrapping == kField2 ? 2 : 0;
    packets.push_back(std::move(*packet));
    return true;
  }

  void TakeLine(const std::vector<uint16_t>& words, const Entry& entry, const Coding& coding) {
    if (TakeFlagged(words, entry, coding, !coding.luma)) return;
    // Packets of high definition stand in either kind of samples, of which every second one is.
    if (coding.luma && coding.chroma) {
      const bool luma = TakeFlagged(EverySecond(words, 1), entry, coding, false);
      if (TakeFlagged(EverySecond(words, 0), entry, coding, true) || luma) return;
    }
    constexpr uint8_t kCaptions = 0x61;
    if (words.size() < 3 || (words[0] & 0xFF) != kCaptions) return;
    std::string reason;
    if (PacketOfWords(words, coding.bits == 10, &reason)) TakePacket(words, entry, coding, !coding.luma);
  }

  // The packets behind data flags; whether there are some.
  bool TakeFlagged(const std::vector<uint16_t>& words, const Entry& entry, const Coding& coding,
                   bool chroma) {
    constexpr size_t kFlag = 3, kHead = 3;
    const int extra = coding.bits - 8;
    bool found = false;
    for (size_t at = 0; at + kFlag + kHead <= words.size();) {
      if (words[at] >> extra != 0 || words[at + 1] >> extra != 0xFF || words[at + 2] >> extra != 0xFF) {
        ++at;
        continue;
      }
      found = true;
      const std::span<const uint16_t> rest = std::span(words).subspan(at + kFlag);
      const size_t whole = kHead + (rest[2] & 0xFFU) + 1;
      const bool right = TakePacket(rest.first(std::min(whole, rest.size())), entry, coding, chroma);
      at += kFlag + (right ? whole : 0);
    }
    return found;
  }

  std::vector<std::string>* damage_;
};

void Put(Bytes& to, size_t value, size_t bytes) {
  while (bytes-- != 0) to.push_back(static_cast<uint8_t>(value >> 8 * bytes));
}

}  // namespace

std::vector<AncPacket> ReadAncElement(std::span<const uint8_t> element, AncElementKind kind,
                                      std::vector<std::string>* damage, size_t* used) {
  Reading reading(damage);
  const auto end = [&](size_t at) {
    if (used != nullptr) *used = at;
    return std::move(reading.packets);
  };
  const auto broken = [&] {
    damage->emplace_back("an element of ancillary data that breaks off");
    return end(element.size());
  };
  if (element.size() < kCountBytes) return broken();
  const size_t count = NumberAt(element, 0, kCountBytes);
  size_t at = kCountBytes;
  for (size_t i = 0; i < count; ++i) {
    const std::span<const uint8_t> rest = element.subspan(at);
    if (rest.size() < kEntryBytes) return broken();
    Entry entry{static_cast<int>(NumberAt(rest, 0, 2)), rest[2], rest[3], NumberAt(rest, 4, 2), {}};
    const size_t bytes = NumberAt(rest, 6, 4);
    if (NumberAt(rest, 10, 4) != 1 || bytes > rest.size() - kEntryBytes) return broken();
    entry.bytes = rest.subspan(kEntryBytes, bytes);
    reading.Take(entry, kind);
    at += kEntryBytes + bytes;
    // Some writers do not count what fills up the last 32 bits.
    const size_t fill = (kAlignment - bytes % kAlignment) % kAlignment;
    const bool more = i + 1 < count;
    if (fill != 0 && more && !LooksLikeEntry(element.subspan(at)) && fill <= element.size() - at &&
        LooksLikeEntry(element.subspan(at + fill)))
      at += fill;
  }
  return end(at);
}

Bytes WriteAncElement(const std::vector<AncPacket>& packets, bool progressive) {
  Bytes element;
  Put(element, packets.size(), kCountBytes);
  for (const AncPacket& packet : packets) {
    Bytes samples;
    samples.reserve(packet.words.size() + 2 * kAlignment);
    for (const size_t byte : {size_t{packet.did}, size_t{packet.sdid}, packet.words.size()})
      samples.push_back(static_cast<uint8_t>(byte));
    samples.insert(samples.end(), packet.words.begin(), packet.words.end());
    samples.push_back(AncChecksum(samples));
    Put(element, static_cast<size_t>(packet.line), 2);
    const Wrapping frame = progressive ? kProgressive : kFrame;
    element.push_back(packet.field == 1 ? kField1 : packet.field == 2 ? kField2 : frame);
    element.push_back(packet.chroma ? kEightBitChroma : kEightBitLuma);
    Put(element, samples.size(), 2);
    samples.resize((samples.size() + kAlignment - 1) / kAlignment * kAlignment);
    Put(element, samples.size(), 4);
    Put(element, 1, 4);
    element.insert(element.end(), samples.begin(), samples.end());
  }
  return element;
}

Bytes AncTrackWriter::Element(const std::vector<Triplet>& triplets) {
  constexpr int kLine = 9;            // the first that ST 334-1 has for them
  constexpr int kMostSegmented = 30;  // up to which an interface carries progressive frames as fields
  std::vector<AncPacket> packets;
  for (size_t at = 0; at < triplets.size(); at += kMostTriplets) {
    CaptionPacket packet;
    packet.rate = rate_;
    packet.counter = counter_++;
    const auto from = triplets.begin() + static_cast<std::ptrdiff_t>(at);
    packet.triplets.assign(from,
                           from + static_cast<std::ptrdiff_t>(std::min(kMostTriplets, triplets.size() - at)));
    AncPacket& anc = packets.emplace_back();
    anc.line = kLine;
    anc.did = 0x61;
    anc.sdid = 0x01;
    anc.words = WriteCdp(packet);
  }
  return WriteAncElement(packets, InfoOf(rate_).nominal > kMostSegmented);
}

}  // namespace qlnmedia::captions
