// The parameter sets that a stream shows one after the other.
#ifndef MEDIA_CHECK_SET_HISTORY_H
#define MEDIA_CHECK_SET_HISTORY_H

#include <cstdint>
#include <map>
#include <optional>
#include <utility>

#include "units/units.h"

namespace qlnmedia {

// Kind and id of a parameter set.
struct SetKey {
  int type = 0;
  uint32_t id = 0;
  friend auto operator<=>(const SetKey&, const SetKey&) = default;
};

// Nothing for a set too short to have an id.
std::optional<SetKey> SetKeyOf(Codec codec, ByteSpan unit);
// The largest id of a kind of set.
uint32_t LargestSetId(Codec codec, int type);

// A set without the zero bytes behind it, which say nothing.
ByteSpan WithoutZeros(ByteSpan set);

class SetHistory {
 public:
  enum class News { kNew, kKnown, kChanged };
  // Takes a set that was met in `frame` (-1: in the private data). `before`, if given, gets the frame in
  // which the set that it replaces stood.
  News Take(const SetKey& key, ByteSpan set, int64_t frame, int64_t* before = nullptr);

 private:
  struct Known {
    Bytes bytes;
    int64_t frame;
  };
  std::map<SetKey, Known> sets_;
};

}  // namespace qlnmedia

#endif
