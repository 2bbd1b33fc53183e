// Service blocks, caption channel packets, and the few commands that show a text.

#include "captions/service_block.h"

#include <algorithm>

#include "captions/service_codes.h"

namespace qlnmedia::captions {
namespace {

constexpr size_t kMostBlockBytes = 31;
constexpr size_t kMostPacketBytes = 128;  // header included

constexpr uint8_t kEndOfText = 0x03;

void AppendDefineWindow(int rows, Bytes* out) {
  // Visible, rows and columns unlocked; anchored by its lower middle point at 90% of the height; 32 columns;
  // predefined window and pen style 1.
  out->insert(out->end(), {kDefineWindow0, 0x20, static_cast<uint8_t>(0x80 | 90), 50,
                           static_cast<uint8_t>(7 << 4 | (rows - 1)), 31, 0x09});
}

}  // namespace

Bytes MakeChannelPacket(int sequence, const std::vector<ServiceBlock>& blocks) {
  Bytes packet = {0};
  for (const ServiceBlock& block : blocks) {
    if (block.service < 1 || block.service > 63 || block.data.size() > kMostBlockBytes) return {};
    const bool extended = block.service >= kExtendedService;
    packet.push_back(static_cast<uint8_t>((extended ? kExtendedService : block.service) << 5 |
                                          static_cast<int>(block.data.size())));
    if (extended) packet.push_back(static_cast<uint8_t>(block.service));
    packet.insert(packet.end(), block.data.begin(), block.data.end());
  }
  if (packet.size() % 2 != 0) packet.push_back(0);  // a null block header
  if (packet.size() > kMostPacketBytes) return {};
  packet[0] = static_cast<uint8_t>((sequence & 3) << 6 | static_cast<int>(packet.size() / 2 % 64));
  return packet;
}

std::vector<Triplet> TripletsOf(const Bytes& channelPacket) {
  std::vector<Triplet> triplets;
  for (size_t i = 0; i + 1 < channelPacket.size(); i += 2) {
    triplets.push_back({true, i == 0 ? CcType::kServiceStart : CcType::kServiceData, channelPacket[i],
                        channelPacket[i + 1]});
  }
  return triplets;
}

std::vector<ServiceBlock> ShowText(std::string_view text, int service) {
  Bytes commands = {kDeleteWindows, 0xFF};
  const auto rows = static_cast<int>(std::count(text.begin(), text.end(), '\n')) + 1;
  AppendDefineWindow(std::clamp(rows, 1, 12), &commands);
  for (const char c : text) {
    if (c == '\n') {
      commands.push_back(kCarriageReturn);
    } else if (c >= 0x20 && c < 0x7F) {
      commands.push_back(static_cast<uint8_t>(c));
    }
  }
  commands.push_back(kEndOfText);
  std::vector<ServiceBlock> blocks;
  for (size_t at = 0; at < commands.size();) {
    // A command stays whole in its block; the two that are longer than a byte stand in front of the text.
    const size_t size = std::min(commands.size() - at, kMostBlockBytes);
    const auto from = commands.begin() + static_cast<std::ptrdiff_t>(at);
    blocks.push_back({service, Bytes(from, from + static_cast<std::ptrdiff_t>(size))});
    at += size;
  }
  return blocks;
}

}  // namespace qlnmedia::captions
