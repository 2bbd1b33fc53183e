// Parameter sets by kind and id.

#include "check/set_history.h"

#include <algorithm>

#include "sets/sps_facts.h"
#include "units/access_unit.h"

namespace qlnmedia {

std::optional<SetKey> SetKeyOf(Codec codec, ByteSpan unit) {
  const int type = UnitType(codec, unit);
  if (IsSps(codec, type)) {
    const std::optional<SpsFacts> facts = ReadSpsFacts(codec, unit);
    if (!facts) return {};
    return SetKey{type, facts->id};
  }
  const size_t header = UnitHeaderBytes(codec);
  const Bytes payload = Unescape(unit.subspan(std::min(header, unit.size())));
  if (payload.empty()) return {};
  if (codec == Codec::kHevc && type == hevc::kVps) return SetKey{type, uint32_t{payload[0]} >> 4};
  // pic_parameter_set_id: a code number of few bits.
  uint32_t bits = 0;
  for (size_t i = 0; i < 4; ++i) bits = bits << 8 | (i < payload.size() ? payload[i] : 0);
  int zeros = 0;
  while (zeros < 9 && (bits >> (31 - zeros) & 1) == 0) ++zeros;
  if (zeros == 9) return {};
  return SetKey{type, (bits >> (31 - 2 * zeros)) - 1};
}

uint32_t LargestSetId(Codec codec, int type) {
  if (IsSps(codec, type)) return codec == Codec::kH264 ? 31 : 15;
  if (codec == Codec::kHevc && type == hevc::kVps) return 15;
  return codec == Codec::kH264 ? 255 : 63;
}

ByteSpan WithoutZeros(ByteSpan set) {
  while (!set.empty() && set.back() == 0) set = set.first(set.size() - 1);
  return set;
}

SetHistory::News SetHistory::Take(const SetKey& key, ByteSpan set, int64_t frame, int64_t* before) {
  const auto [known, added] = sets_.try_emplace(key);
  Known& last = known->second;
  if (!added && std::equal(last.bytes.begin(), last.bytes.end(), set.begin(), set.end())) return News::kKnown;
  if (!added && before != nullptr) *before = last.frame;
  last = {Bytes(set.begin(), set.end()), frame};
  return added ? News::kNew : News::kChanged;
}

}  // namespace qlnmedia
