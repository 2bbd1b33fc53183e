// Both files are read side by side.

#include "container/ts/kept_packets.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <map>

#include "base/error.h"
#include "container/ts/row_reader.h"

namespace qlnmedia::ts {

namespace {

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
    const uint8_t* const packet = row.packet();
    constexpr size_t kReferenceAt = 6, kReferenceBytes = 6;
    const bool hasFlags = (packet[3] & 0x20) != 0 && packet[4] > kReferenceBytes;
    if (hasFlags && (packet[5] & 0x10) != 0)
      references[row.identifier()].emplace_back(packet + kReferenceAt,
                                                packet + kReferenceAt + kReferenceBytes);
    const auto last = last_.find(row.identifier());
    const uint8_t next = row.hasPayload() ? 1 : 0;
    if (last != last_.end() && ((last->second + next) & 0x0F) != row.counter()) ++gaps[row.identifier()];
    last_[row.identifier()] = row.counter();
  }

  RowReader reader_;
  const std::set<uint16_t>& changed_;
  std::map<uint16_t, uint8_t> last_;
};

}  // namespace

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
