// Joins payloads to sections, and compares lists of streams.

#include "patch/live/program_tables.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace qlnmedia {

namespace {

using Streams = std::vector<ts::MapStream>;

const ts::MapStream* Find(const Streams& streams, uint16_t identifier) {
  const auto found = std::find_if(streams.begin(), streams.end(), [identifier](const ts::MapStream& one) {
    return one.identifier == identifier;
  });
  return found == streams.end() ? nullptr : &*found;
}

// current_next_indicator: a table that is not in force yet says nothing of now.
bool IsInForce(ts::ByteSpan section) {
  constexpr size_t kVersionAt = 5;
  return section.size() > kVersionAt && (section[kVersionAt] & 1) != 0;
}

}  // namespace

void ProgramTables::Take(const ts::Row& row,
                         const std::function<void(uint16_t map, const ts::Bytes& section)>& take) {
  if (!row.isPacket || !row.hasPayload()) return;
  const uint16_t identifier = row.identifier();
  if (identifier != 0 && maps_.count(identifier) == 0) return;
  constexpr size_t kMostOpen = size_t{64} << 10;  // some dozens of the largest sections
  ts::Bytes& open = open_[identifier];
  const ts::ByteSpan payload = row.payload();
  if (row.startsUnit() || open.size() > kMostOpen) open.clear();
  if (!row.startsUnit() && open.empty()) return;
  open.insert(open.end(), payload.begin(), payload.end());
  const std::optional<std::vector<ts::Bytes>> sections = ts::SectionsOf(open);
  if (!sections || !ts::IsWhole(*sections)) return;
  for (const ts::Bytes& section : *sections) {
    if (identifier == 0) {
      const std::set<uint16_t> maps = ts::MapsOf(section);
      maps_.insert(maps.begin(), maps.end());
    } else if (!ts::StreamsOf(section).empty()) {
      take(identifier, section);
    }
  }
  open.clear();
}

std::vector<ProgramChange> ProgramWatch::Take(const ts::Row& row) {
  std::vector<ProgramChange> changes;
  tables_.Take(row, [&](uint16_t map, const ts::Bytes& section) {
    for (const ProgramChange& one : Changes(map, section)) changes.push_back(one);
  });
  return changes;
}

std::vector<ProgramChange> ProgramWatch::Changes(uint16_t map, const ts::Bytes& section) {
  using Kind = ProgramChange::Kind;
  std::vector<ProgramChange> changes;
  if (!IsInForce(section)) return changes;
  Streams now = ts::TypedStreamsOf(section);
  const auto [place, first] = streams_.try_emplace(map, now);
  if (first) return changes;
  const Streams before = std::exchange(place->second, now);
  for (const ts::MapStream& old : before) {
    const ts::MapStream* const same = Find(now, old.identifier);
    if (same != nullptr && same->type != old.type)
      changes.push_back({Kind::kRetyped, old.identifier, 0, same->type});
    if (same != nullptr) continue;
    const auto heir = std::find_if(now.begin(), now.end(), [&](const ts::MapStream& one) {
      return one.type == old.type && Find(before, one.identifier) == nullptr;
    });
    if (heir == now.end()) {
      changes.push_back({Kind::kGone, old.identifier, 0, old.type});
      continue;
    }
    changes.push_back({Kind::kMoved, heir->identifier, old.identifier, old.type});
    now.erase(heir);
  }
  for (const ts::MapStream& one : now) {
    if (Find(before, one.identifier) == nullptr) changes.push_back({Kind::kNew, one.identifier, 0, one.type});
  }
  return changes;
}

}  // namespace qlnmedia
