// Holds two transport streams against each other, packet by packet.
#ifndef MEDIA_CONTAINER_TS_KEPT_PACKETS_H
#define MEDIA_CONTAINER_TS_KEPT_PACKETS_H

#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "container/mp4/source.h"
#include "container/ts/packet.h"

namespace qlnmedia::ts {

// Tells bytes from others; nobody forges packets against us.
class Digest {
 public:
  void Mix(ByteSpan bytes);
  bool operator==(const Digest&) const = default;

 private:
  std::array<uint64_t, 4> lanes_{};
};

// What must not change of a transport stream, in a few numbers, as its rows go by: packets of other
// identifiers than `changed`, null packets aside, in their order; and of the others their clock references
// and the places where counters do not go on.
class KeptPackets {
 public:
  explicit KeptPackets(const std::set<uint16_t>& changed);
  void Take(const Row& row);
  bool operator==(const KeptPackets& other) const {
    return others_ == other.others_ && streams_ == other.streams_;
  }

 private:
  struct Stream {
    Digest references;
    uint64_t gaps = 0;
    int counter = -1;  // of the last packet
    bool operator==(const Stream& other) const {
      return references == other.references && gaps == other.gaps;
    }
  };

  Digest others_;
  std::vector<Stream> streams_;
  std::vector<uint16_t> streamOf_;  // by identifier: place in streams_, plus 1
};

// Throws Error, naming `name`, where packets of other identifiers than `changed`, null packets aside, are not
// the same bytes in the same order; and where a packet of `changed` lost a clock reference, or has a counter
// that does not go on from the one in front of it though the input's did.
void RequireOthersKept(const mp4::Source& before, const mp4::Source& after, const std::set<uint16_t>& changed,
                       const std::string& name);
// The same where the rows of `before` have been looked at already: it is read only to name the place of a
// difference.
void RequireOthersKept(const mp4::Source& before, const KeptPackets& was, const mp4::Source& after,
                       const std::set<uint16_t>& changed, const std::string& name);

}  // namespace qlnmedia::ts

#endif
