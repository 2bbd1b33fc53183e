// Writing and reading caption distribution packets, section by section.

#include "captions/cdp.h"

#include <algorithm>
#include <utility>

#include "qlnmedia/caption_packet.h"

namespace qlnmedia::captions {
namespace {

constexpr uint8_t kTimeCodeSection = 0x71;
constexpr uint8_t kCcDataSection = 0x72;
constexpr uint8_t kServiceInfoSection = 0x73;
constexpr uint8_t kFooter = 0x74;
// Sections that later editions may bring, each with its length behind its identifier, which readers pass
// over.
constexpr uint8_t kFirstFuture = 0x75, kLastFuture = 0xEF;

constexpr uint8_t kTimeCodePresent = 0x80;
constexpr uint8_t kCcDataPresent = 0x40;
constexpr uint8_t kServiceInfoPresent = 0x20;
constexpr uint8_t kServiceInfoComplete = 0x1C;  // start, change and complete: the section tells all
constexpr uint8_t kServiceActive = 0x02;
constexpr uint8_t kReservedFlag = 0x01;

constexpr uint8_t kDid = 0x61;
constexpr uint8_t kSdid = 0x01;

uint8_t Bcd(int value) { return static_cast<uint8_t>(value / 10 << 4 | value % 10); }
// -1 for digits that are none.
int FromBcd(int digits) {
  return (digits >> 4) > 9 || (digits & 15) > 9 ? -1 : (digits >> 4) * 10 + (digits & 15);
}

void WriteTimeCode(const CaptionPacket& packet, Bytes* out) {
  const Timecode& t = *packet.timecode;
  // Rates above 30 count two pictures a frame: the frame's parity stands in the field flag.
  const bool pairs = InfoOf(packet.rate).nominal > 30;
  const int frames = pairs ? t.frames / 2 : t.frames;
  const bool odd = pairs && t.frames % 2 != 0;
  out->insert(out->end(), {kTimeCodeSection, static_cast<uint8_t>(0xC0 | Bcd(t.hours)),
                           static_cast<uint8_t>(0x80 | Bcd(t.minutes)),
                           static_cast<uint8_t>((odd ? 0x80 : 0) | Bcd(t.seconds)),
                           static_cast<uint8_t>((packet.dropFrame ? 0x80 : 0) | Bcd(frames))});
}

// Takes the bytes of one packet from front to back; reads behind the end give nothing and are remembered.
class Cursor {
 public:
  explicit Cursor(const Bytes& bytes) : bytes_(bytes) {}

  uint8_t Next() {
    if (at_ >= bytes_.size()) {
      short_ = true;
      return 0;
    }
    return bytes_[at_++];
  }
  uint16_t NextTwo() {
    const uint8_t high = Next();
    return static_cast<uint16_t>(high << 8 | Next());
  }
  bool isShort() const { return short_; }
  bool atEnd() const { return at_ == bytes_.size(); }

 private:
  const Bytes& bytes_;
  size_t at_ = 0;
  bool short_ = false;
};

// Leaves out a timecode whose digits are none: the captions beside it are what people want.
void ReadTimeCode(Cursor& cursor, CaptionPacket* packet) {
  const int hours = cursor.Next() & 0x3F;
  const int minutes = cursor.Next() & 0x7F;
  const int seconds = cursor.Next();
  const int frames = cursor.Next();
  Timecode t{FromBcd(hours), FromBcd(minutes), FromBcd(seconds & 0x7F), FromBcd(frames & 0x3F)};
  if (t.hours < 0 || t.minutes < 0 || t.seconds < 0 || t.frames < 0) return;
  if (InfoOf(packet->rate).nominal > 30) t.frames = t.frames * 2 + ((seconds & 0x80) != 0 ? 1 : 0);
  packet->dropFrame = (frames & 0x80) != 0;
  packet->timecode = t;
}

void ReadTriplets(Cursor& cursor, CaptionPacket* packet) {
  const int count = cursor.Next() & 0x1F;
  for (int i = 0; i < count; ++i) {
    const uint8_t head = cursor.Next();
    const uint8_t first = cursor.Next();
    const uint8_t second = cursor.Next();
    packet->triplets.push_back({(head & 4) != 0, static_cast<CcType>(head & 3), first, second});
  }
}

void ReadServiceInfo(Cursor& cursor, CaptionPacket* packet) {
  const uint8_t head = cursor.Next();
  packet->serviceInfo = {kServiceInfoSection, head};
  for (int i = 0; i < (head & 0x0F) * 7; ++i) packet->serviceInfo.push_back(cursor.Next());
}

}  // namespace

Bytes WriteCdp(const CaptionPacket& packet) {
  Bytes out = {0x96, 0x69, 0, static_cast<uint8_t>(InfoOf(packet.rate).cdpCode << 4 | 0x0F)};
  uint8_t flags = kCcDataPresent | kReservedFlag;
  if (packet.timecode) flags |= kTimeCodePresent;
  if (!packet.serviceInfo.empty()) flags |= kServiceInfoPresent | kServiceInfoComplete;
  if (packet.serviceActive) flags |= kServiceActive;
  const auto high = static_cast<uint8_t>(packet.counter >> 8);
  const auto low = static_cast<uint8_t>(packet.counter);
  out.insert(out.end(), {flags, high, low});
  if (packet.timecode) WriteTimeCode(packet, &out);
  const size_t count = std::min(packet.triplets.size(), kMostTriplets);
  out.insert(out.end(), {kCcDataSection, static_cast<uint8_t>(0xE0 | count)});
  for (size_t i = 0; i < count; ++i) {
    const Triplet& t = packet.triplets[i];
    out.insert(out.end(), {static_cast<uint8_t>(0xF8 | (t.valid ? 4 : 0) | static_cast<uint8_t>(t.type)),
                           t.first, t.second});
  }
  out.insert(out.end(), packet.serviceInfo.begin(), packet.serviceInfo.end());
  out.insert(out.end(), {kFooter, high, low, 0});
  out[2] = static_cast<uint8_t>(out.size());
  uint8_t sum = 0;
  for (const uint8_t byte : out) sum = static_cast<uint8_t>(sum + byte);
  out.back() = static_cast<uint8_t>(-sum);
  return out;
}

std::optional<CaptionPacket> ReadCdp(const Bytes& cdp, std::string* reason) {
  const auto refuse = [reason](const char* text) {
    *reason = text;
    return std::nullopt;
  };
  Cursor cursor(cdp);
  if (cursor.NextTwo() != 0x9669) return refuse("no cdp_identifier");
  if (cursor.Next() != cdp.size()) return refuse("cdp_length is not the packet's");
  const int code = cursor.Next() >> 4;
  if (code < 1 || code > kRateCount) return refuse("cdp_frame_rate is reserved");
  CaptionPacket packet;
  packet.rate = static_cast<Rate>(code - 1);
  packet.serviceActive = (cursor.Next() & kServiceActive) != 0;
  packet.counter = cursor.NextTwo();
  uint8_t section = cursor.Next();
  if (section == kTimeCodeSection) {
    ReadTimeCode(cursor, &packet);
    section = cursor.Next();
  }
  if (section == kCcDataSection) {
    ReadTriplets(cursor, &packet);
    section = cursor.Next();
  }
  if (section == kServiceInfoSection) {
    ReadServiceInfo(cursor, &packet);
    section = cursor.Next();
  }
  while (section >= kFirstFuture && section <= kLastFuture) {
    for (int left = cursor.Next(); left > 0; --left) cursor.Next();
    section = cursor.Next();
  }
  if (cursor.isShort()) return refuse("the packet is too short for its sections");
  if (section != kFooter) return refuse("a section is not known");
  if (cursor.NextTwo() != packet.counter) return refuse("the counters of header and footer differ");
  cursor.Next();
  if (cursor.isShort() || !cursor.atEnd()) return refuse("the footer is not the packet's end");
  uint8_t sum = 0;
  for (const uint8_t byte : cdp) sum = static_cast<uint8_t>(sum + byte);
  if (sum != 0) return refuse("the checksum is wrong");
  return packet;
}

Bytes WrapInAnc(const Bytes& cdp) {
  if (cdp.size() > 255) return {};
  Bytes anc = {kDid, kSdid, static_cast<uint8_t>(cdp.size())};
  anc.insert(anc.end(), cdp.begin(), cdp.end());
  return anc;
}

uint8_t AncChecksum(const Bytes& anc) {
  uint8_t sum = 0;
  for (const uint8_t byte : anc) sum = static_cast<uint8_t>(sum + byte);
  return sum;
}

std::optional<Bytes> UnwrapAnc(const Bytes& anc, std::string* reason) {
  const auto refuse = [reason](const char* text) {
    *reason = text;
    return std::nullopt;
  };
  if (anc.size() < 3) return refuse("the ANC packet is too short");
  if (anc[0] != kDid || anc[1] != kSdid) return refuse("the ANC packet holds no captions");
  const size_t end = size_t{3} + anc[2];
  if (anc.size() != end && anc.size() != end + 1) return refuse("the ANC packet's data count is wrong");
  const Bytes words(anc.begin(), anc.begin() + static_cast<std::ptrdiff_t>(end));
  if (anc.size() > end && anc.back() != AncChecksum(words)) return refuse("the ANC checksum is wrong");
  return Bytes(words.begin() + 3, words.end());
}

Bytes FramePacket(const Bytes& anc) {
  Bytes packet(4, 0x80);
  const size_t end = anc.size() < 3 ? anc.size() : std::min(anc.size(), size_t{3} + anc[2]);
  packet.insert(packet.end(), anc.begin(), anc.begin() + static_cast<std::ptrdiff_t>(end));
  return packet;
}

std::optional<std::vector<Triplet>> TripletsOfPacket(std::span<const uint8_t> packet, std::string* reason) {
  std::string unread;
  std::optional<CaptionPacket> read =
      ReadCdp({packet.begin(), packet.end()}, reason != nullptr ? reason : &unread);
  if (!read) return {};
  return std::move(read->triplets);
}

}  // namespace qlnmedia::captions
