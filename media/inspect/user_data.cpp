// Reads user data messages.

#include "inspect/user_data.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace qlnmedia {

namespace {

constexpr size_t kUuidBytes = 16;
// Shorter runs of letters may be anything.
constexpr size_t kLeastText = 8;

struct KnownMessage {
  std::vector<uint8_t> head;  // country code, provider code and what tells its messages apart
  const char* name;
};

// Country 0xB5 is the United States, 0x26 China; provider codes have two bytes there.
const std::vector<KnownMessage>& KnownMessages() {
  static const std::vector<KnownMessage> kMessages = {
      {{0xB5, 0x00, 0x31, 'G', 'A', '9', '4', 0x03}, "closed captions (ATSC A/53)"},
      {{0xB5, 0x00, 0x31, 'G', 'A', '9', '4', 0x06}, "bar data (ATSC A/53)"},
      {{0xB5, 0x00, 0x31, 'D', 'T', 'G', '1'}, "active format description (ETSI TS 101 154)"},
      {{0xB5, 0x00, 0x3C, 0x00, 0x01, 0x04}, "HDR10+ (SMPTE ST 2094-40)"},
      {{0xB5, 0x00, 0x3A, 0x00}, "SL-HDR (ETSI TS 103 433)"},
      {{0xB5, 0x00, 0x3B, 0x00, 0x00, 0x08, 0x00}, "Dolby Vision (ETSI TS 103 572)"},
      {{0x26, 0x00, 0x04, 0x00, 0x05}, "HDR Vivid (T/UWA 005.1)"},
  };
  return kMessages;
}

// The text behind the UUID, without the zeros at its end; nothing where it is no text.
std::optional<std::string> TextOf(ByteSpan payload) {
  if (payload.size() < kUuidBytes + kLeastText) return {};
  ByteSpan text = payload.subspan(kUuidBytes);
  while (!text.empty() && text.back() == 0) text = text.first(text.size() - 1);
  const auto printable = [](uint8_t c) {
    return (c >= 0x20 && c < 0x7F) || c == '\n' || c == '\t' || c == '\r';
  };
  if (text.size() < kLeastText || !std::all_of(text.begin(), text.end(), printable)) return {};
  return std::string(text.begin(), text.end());
}

std::optional<std::string> SettingsIn(Codec codec, const Bytes& unit) {
  if (!IsSei(codec, UnitType(codec, unit))) return {};
  for (const SeiMessage& message : ReadSeiMessages(codec, unit)) {
    if (message.type != sei::kUnregisteredUserData) continue;
    if (std::optional<std::string> text = TextOf(message.payload)) return text;
  }
  return {};
}

}  // namespace

std::string T35Name(ByteSpan payload) {
  for (const KnownMessage& known : KnownMessages()) {
    if (payload.size() >= known.head.size() &&
        std::equal(known.head.begin(), known.head.end(), payload.begin()))
      return known.name;
  }
  if (payload.size() < 3) return "cut off";
  return fmt::format("country 0x{:02X}, provider 0x{:02X}{:02X}", payload[0], payload[1], payload[2]);
}

void AddT35Messages(Section& frame, Codec codec, const UnitRun& run) {
  std::vector<std::vector<Cell>> rows;
  for (const Unit& unit : run.units) {
    if (!IsSei(codec, UnitType(codec, unit.bytes))) continue;
    for (const SeiMessage& message : ReadSeiMessages(codec, unit.bytes)) {
      if (message.type == sei::kRegisteredUserData)
        rows.push_back({Cell(T35Name(message.payload)), Cell(message.payload.size())});
    }
  }
  if (rows.empty()) return;
  frame.AddTable("t35", "ITU-T T.35", {{"name", "Message"}, {"size", "Bytes", true}}, std::move(rows));
}

void AddEncoderSettings(Section& section, const CodedStream& stream) {
  std::optional<std::string> text;
  for (const Bytes& unit : stream.config.units()) {
    if (!text) text = SettingsIn(stream.codec, unit);
  }
  for (const CodedPacket& packet : stream.packets) {
    if (text) break;
    for (const Unit& unit : TakeApart(packet.data, stream.config.framing).units) {
      if (!text) text = SettingsIn(stream.codec, unit.bytes);
    }
  }
  if (text) section.Add("encoder_settings", "Encoder settings", *text);
}

}  // namespace qlnmedia
