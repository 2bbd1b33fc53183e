// Counters, marks and lengths (ISO/IEC 13818-1 clauses 2.4.3.2 to 2.4.3.7).

#include "container/ts/damage.h"

namespace qlnmedia::ts {

Damage::Damage(const std::set<uint16_t>& identifiers) : streamOf_(kNullIdentifier + 1) {
  for (const uint16_t identifier : identifiers) {
    if (identifier >= kNullIdentifier) continue;
    streams_.emplace_back().identifier = identifier;
    streamOf_[identifier] = static_cast<uint16_t>(streams_.size());
  }
}

void Damage::Take(const Row& row) {
  const uint16_t place = row.isPacket ? streamOf_[row.identifier()] : uint16_t{0};
  if (place == 0) return;
  Stream& stream = streams_[place - 1U];
  const uint8_t* const packet = row.packet();
  const bool jumps = (packet[3] & 0x20) != 0 && packet[4] != 0 && (packet[5] & 0x80) != 0;
  const int expected = (stream.counter + (row.hasPayload() ? 1 : 0)) & 0x0F;
  const bool gap = stream.counter >= 0 && !jumps && expected != row.counter();
  const bool failed = (packet[1] & 0x80) != 0;
  stream.counter = row.counter();
  if (stream.isPes && (gap || failed)) last_ = found_ = stream.identifier;
  if (!row.hasPayload()) return;
  if (row.startsUnit()) Begin(stream, row.payload());
  stream.came += row.payload().size();
  ++stream.packets;
}

void Damage::Begin(Stream& stream, ByteSpan payload) {
  End(stream);
  constexpr size_t kBeforeLength = 6;
  stream.isPes = payload.size() >= kBeforeLength && payload[0] == 0 && payload[1] == 0 && payload[2] == 1;
  const uint64_t length = stream.isPes ? uint64_t{payload[4]} << 8 | payload[5] : 0;
  stream.length = length == 0 ? 0 : length + kBeforeLength;
  stream.came = 0;
  stream.packets = 0;
}

// One that ends within its only packet may have bytes behind it.
void Damage::End(Stream& stream) {
  if (!stream.isPes || stream.length == 0 || stream.came == stream.length) return;
  if (stream.packets == 1 && stream.came > stream.length) return;
  last_ = found_ = stream.identifier;
}

std::optional<uint16_t> Damage::Finish() {
  for (Stream& stream : streams_) End(stream);
  return last_;
}

}  // namespace qlnmedia::ts
