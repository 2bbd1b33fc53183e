// Reads frame packing arrangement messages.

#include "inspect/frame_packing.h"

#include <array>
#include <optional>

#include "qlnutil/qlnbits.h"
#include "units/access_unit.h"

namespace qlnmedia {

namespace {

// The name in the first such message of a unit; nothing where there is none.
std::optional<std::string> NameIn(Codec codec, const Bytes& unit) {
  if (!IsSei(codec, UnitType(codec, unit))) return {};
  for (const SeiMessage& message : ReadSeiMessages(codec, unit)) {
    if (message.type == sei::kFramePacking) return FramePackingName(message.payload);
  }
  return {};
}

std::optional<std::string> FindName(const CodedStream& stream) {
  for (const Bytes& unit : stream.config.units()) {
    if (auto name = NameIn(stream.codec, unit)) return name;
  }
  for (const CodedPacket& packet : stream.packets) {
    for (const Unit& unit : TakeApart(packet.data, stream.config.framing).units) {
      if (auto name = NameIn(stream.codec, unit.bytes)) return name;
    }
  }
  return {};
}

}  // namespace

std::string FramePackingName(ByteSpan payload) {
  // frame_packing_arrangement_type of table D-8.
  static constexpr std::array<const char*, 7> kTypes = {
      "checkerboard",   "alternating columns", "alternating lines", "side by side",
      "top and bottom", "alternating frames",  "one view"};
  Bytes bytes(payload.begin(), payload.end());
  bytes.push_back(0);
  QLNBitState state{bytes.data(), static_cast<int32_t>(payload.size()),
                    static_cast<uint32_t>(payload.size()) * 8, 0};
  ReadExponentialGolombCode(&state);    // frame_packing_arrangement_id
  if (ReadBit(&state) == 1) return {};  // frame_packing_arrangement_cancel_flag
  const uint32_t type = ReadBits(&state, 7);
  const bool quincunx = ReadBit(&state) == 1;
  const uint32_t interpretation = ReadBits(&state, 6);
  if (state.bitPos > state.bitLength) return {};
  std::string name = type < kTypes.size() ? kTypes[type] : "arrangement " + std::to_string(type);
  if (quincunx) name += ", quincunx";
  constexpr uint32_t kRightFirst = 2;  // content_interpretation_type
  if (interpretation == kRightFirst) name += ", right view first";
  return name;
}

void AddFramePacking(Section& section, const CodedStream& stream) {
  const std::optional<std::string> name = FindName(stream);
  if (name && !name->empty()) section.Add("frame_packing", "Frame packing", *name);
}

}  // namespace qlnmedia
