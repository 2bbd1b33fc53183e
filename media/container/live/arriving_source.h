// A source whose bytes are still on their way.
#ifndef MEDIA_CONTAINER_LIVE_ARRIVING_SOURCE_H
#define MEDIA_CONTAINER_LIVE_ARRIVING_SOURCE_H

#include <cstdint>

#include "container/mp4/source.h"

namespace qlnmedia {

class ArrivingSource : public mp4::Source {
 public:
  // How many bytes from `at` on have come: at least `least`, for which it waits, unless the source ends
  // before.
  virtual uint64_t Available(uint64_t at, uint64_t least) const = 0;
};

// The same of any source: all bytes of others are there.
inline uint64_t AvailableOf(const mp4::Source& source, uint64_t at, uint64_t least) {
  if (const auto* const arriving = dynamic_cast<const ArrivingSource*>(&source))
    return arriving->Available(at, least);
  return at < source.size() ? source.size() - at : 0;
}

}  // namespace qlnmedia

#endif
