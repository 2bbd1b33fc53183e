// Program maps of a transport stream that goes on, and what changes in them.
#ifndef MEDIA_PATCH_LIVE_PROGRAM_TABLES_H
#define MEDIA_PATCH_LIVE_PROGRAM_TABLES_H

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <vector>

#include "container/ts/packet.h"
#include "container/ts/program_map.h"

namespace qlnmedia {

// stream_type of ISO/IEC 13818-1 table 2-34.
inline constexpr uint8_t kAvcStreamType = 0x1B, kHevcStreamType = 0x24;

// Puts the sections of program tables together.
class ProgramTables {
 public:
  // Takes a packet, and calls `take` with each program map that it completes, and that map's identifier.
  void Take(const ts::Row& row, const std::function<void(uint16_t map, const ts::Bytes& section)>& take);
  // The identifiers of all program maps that were named.
  const std::set<uint16_t>& maps() const { return maps_; }

 private:
  std::map<uint16_t, ts::Bytes> open_;  // payloads of the sections that are not whole
  std::set<uint16_t> maps_;
};

// What a newer program map says otherwise.
struct ProgramChange {
  enum class Kind {
    kMoved,    // `before` goes on as `identifier`
    kNew,      // `identifier` was not there
    kGone,     // `identifier` is no more there
    kRetyped,  // `identifier` is of another type, which is `type`
  };
  Kind kind = Kind::kNew;
  uint16_t identifier = 0;
  uint16_t before = 0;
  uint8_t type = 0;  // of now; of what is gone the one that it had
};

// Holds each program map against the one in front of it.
class ProgramWatch {
 public:
  // The changes that a packet brings. One stream that goes and one of its type that comes in the same map are
  // one that moved.
  std::vector<ProgramChange> Take(const ts::Row& row);

 private:
  std::vector<ProgramChange> Changes(uint16_t map, const ts::Bytes& section);

  ProgramTables tables_;
  std::map<uint16_t, std::vector<ts::MapStream>> streams_;  // by map
};

}  // namespace qlnmedia

#endif
