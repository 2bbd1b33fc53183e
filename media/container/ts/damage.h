// Packets of elementary streams that are cut off or damaged, as their headers show it.
#ifndef MEDIA_CONTAINER_TS_DAMAGE_H
#define MEDIA_CONTAINER_TS_DAMAGE_H

#include <cstdint>
#include <optional>
#include <set>
#include <vector>

#include "container/ts/packet.h"

namespace qlnmedia::ts {

class Damage {
 public:
  // Of these alone, and only as far as they hold PES packets.
  explicit Damage(const std::set<uint16_t>& identifiers);

  // The next row of the file.
  void Take(const Row& row);
  // The stream of which damage was found since this was asked last, or nothing.
  std::optional<uint16_t> TakeFound() {
    const std::optional<uint16_t> found = found_;
    found_.reset();
    return found;
  }
  // Behind the last one. The stream that was found damaged last: a counter does not go on, a packet is
  // marked, or a PES packet is not as long as it says.
  std::optional<uint16_t> Finish();

 private:
  struct Stream {
    uint16_t identifier = 0;
    bool isPes = false;  // since the last packet that starts a unit
    int counter = -1;
    uint64_t length = 0;  // of the PES packet, its head included; 0 where it does not say it
    uint64_t came = 0;
    uint64_t packets = 0;  // of it
  };
  void Begin(Stream& stream, ByteSpan payload);
  void End(Stream& stream);

  std::vector<Stream> streams_;
  std::vector<uint16_t> streamOf_;  // by identifier: place in streams_, plus 1
  std::optional<uint16_t> last_, found_;
};

}  // namespace qlnmedia::ts

#endif
