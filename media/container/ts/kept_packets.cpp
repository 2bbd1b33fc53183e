// By numbers that stand for all of a file, and side by side where they differ.

#include "container/ts/kept_packets.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>

#include "base/error.h"
#include "container/ts/row_reader.h"

namespace qlnmedia::ts {

namespace {

// The clock reference of a packet; empty where it has none.
ByteSpan ReferenceOf(const Row& row) {
  const uint8_t* const packet = row.packet();
  constexpr size_t kReferenceAt = 6, kReferenceBytes = 6;
  const bool has = (packet[3] & 0x20) != 0 && packet[4] > kReferenceBytes && (packet[5] & 0x10) != 0;
  return has ? ByteSpan(packet + kReferenceAt, kReferenceBytes) : ByteSpan();
}

bool GoesOn(int last, const Row& row) {
  return ((last + (row.hasPayload() ? 1 : 0)) & 0x0F) == row.counter();
}

// Rows of one file, those that may differ told apart.
class Rows {
 public:
  Rows(const mp4::Source& source, const std::set<uint16_t>& changed) : reader_(source), changed_(changed) {}

  // The next row that must be in both files.
  bool Next(Row& row) {
    while (reader_.Next(row)) {
      if (!row.isPacket) return true;
      const uint16_t identifier = row.identifier();
      if (identifier == kNullIdentifier) continue;
      if (changed_.count(identifier) == 0) return true;
      Look(row);
    }
    return false;
  }
  uint64_t at() const { return reader_.at(); }

  // Of the packets that change: their clock references, and places where their counters do not go on.
  std::map<uint16_t, std::deque<Bytes>> references;
  std::map<uint16_t, uint64_t> gaps;

 private:
  void Look(const Row& row) {
    const ByteSpan reference = ReferenceOf(row);
    if (!reference.empty()) references[row.identifier()].emplace_back(reference.begin(), reference.end());
    const auto last = last_.find(row.identifier());
    if (last != last_.end() && !GoesOn(last->second, row)) ++gaps[row.identifier()];
    last_[row.identifier()] = row.counter();
  }

  RowReader reader_;
  const std::set<uint16_t>& changed_;
  std::map<uint16_t, uint8_t> last_;
};

}  // namespace

void Digest::Mix(ByteSpan bytes) {
  constexpr uint64_t kFactor = 0x9E3779B97F4A7C15U;
  const auto mix = [](uint64_t& lane, uint64_t word) {
    lane = (lane ^ word) * kFactor;
    lane ^= lane >> 29;
  };
  const size_t size = bytes.size();
  std::array<uint64_t, 4> words{};
  constexpr size_t kPiece = sizeof words;
  for (; bytes.size() >= kPiece; bytes = bytes.subspan(kPiece)) {
    std::memcpy(words.data(), bytes.data(), kPiece);
    for (size_t i = 0; i < words.size(); ++i) mix(lanes_[i], words[i]);
  }
  words = {};
  if (!bytes.empty()) std::memcpy(words.data(), bytes.data(), bytes.size());
  for (size_t i = 0; i < words.size(); ++i) mix(lanes_[i], words[i] + size);
}

KeptPackets::KeptPackets(const std::set<uint16_t>& changed) : streamOf_(kNullIdentifier + 1) {
  for (const uint16_t identifier : changed) {
    streams_.emplace_back();
    streamOf_[identifier] = static_cast<uint16_t>(streams_.size());
  }
}

void KeptPackets::Take(const Row& row) {
  const uint16_t identifier = row.isPacket ? row.identifier() : uint16_t{0};
  const uint16_t place = row.isPacket ? streamOf_[identifier] : uint16_t{0};
  if (place == 0) {
    if (!row.isPacket || identifier != kNullIdentifier) others_.Mix(row.all());
    return;
  }
  Stream& stream = streams_[place - 1U];
  const ByteSpan reference = ReferenceOf(row);
  if (!reference.empty()) stream.references.Mix(reference);
  if (stream.counter >= 0 && !GoesOn(stream.counter, row)) ++stream.gaps;
  stream.counter = row.counter();
}

void RequireOthersKept(const mp4::Source& before, const KeptPackets& was, const mp4::Source& after,
                       const std::set<uint16_t>& changed, const std::string& name) {
  KeptPackets is(changed);
  RowReader rows(after);
  for (Row row; rows.Next(row);) is.Take(row);
  if (was == is) return;
  RequireOthersKept(before, after, changed, name);
  throw Error(name, "its packets are not the input's, and are when they are read again");
}

void RequireOthersKept(const mp4::Source& before, const mp4::Source& after, const std::set<uint16_t>& changed,
                       const std::string& name) {
  Rows was(before, changed);
  Rows is(after, changed);
  Row a;
  Row b;
  for (;;) {
    const bool more = was.Next(a);
    const uint64_t at = was.at() - (more ? a.size : 0);
    if (more != is.Next(b) || (more && !std::ranges::equal(a.all(), b.all())))
      throw Error(name, fmt::format("the packet at byte {} of the input is not in its place", at));
    if (!more) break;
    for (const uint16_t identifier : changed) {
      auto& old = was.references[identifier];
      auto& now = is.references[identifier];
      for (; !old.empty() && !now.empty(); old.pop_front(), now.pop_front()) {
        if (old.front() != now.front())
          throw Error(
              name, fmt::format("a clock reference of packet identifier {} is not the input's", identifier));
      }
    }
  }
  for (const uint16_t identifier : changed) {
    if (was.references[identifier] != is.references[identifier])
      throw Error(name, fmt::format("a clock reference of packet identifier {} is missing", identifier));
    if (was.gaps[identifier] != is.gaps[identifier])
      throw Error(name,
                  fmt::format("the continuity counters of packet identifier {} do not go on", identifier));
  }
}

}  // namespace qlnmedia::ts
