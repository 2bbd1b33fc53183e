// Removes by type of unit, type of message, and provider.

#include "edit/unit_remover.h"

#include <algorithm>

#include "units/access_unit.h"

namespace qlnmedia {

namespace {

constexpr int kFillerPayload = 3;

bool IsFiller(Codec codec, int unitType) {
  return unitType == (codec == Codec::kH264 ? h264::kFiller : hevc::kFiller);
}

bool IsFrom(const T35Provider& provider, const Bytes& payload) {
  if (payload.empty() || payload[0] != provider.country) return false;
  if (!provider.provider) return true;
  return payload.size() >= 3 && (payload[1] << 8 | payload[2]) == *provider.provider;
}

}  // namespace

bool UnitRemover::IsUnwanted(int unitType) const {
  return (unwanted_.delimiters && IsDelimiter(codec_, unitType)) ||
         (unwanted_.filler && IsFiller(codec_, unitType)) ||
         (unwanted_.unspecified && IsUnspecified(codec_, unitType));
}

bool UnitRemover::IsUnwanted(const SeiMessage& message) const {
  if (unwanted_.filler && message.type == kFillerPayload) return true;
  if (std::count(unwanted_.messages.begin(), unwanted_.messages.end(), message.type) != 0) return true;
  return message.type == sei::kRegisteredUserData &&
         std::any_of(unwanted_.providers.begin(), unwanted_.providers.end(),
                     [&](const T35Provider& provider) { return IsFrom(provider, message.payload); });
}

bool UnitRemover::Keep(Bytes& unit) {
  const int type = UnitType(codec_, unit);
  if (IsUnwanted(type)) {
    ++counts_.unitsRemoved;
    return false;
  }
  if (!IsSei(codec_, type)) return true;
  int removed = 0;
  const SeiRemoval result = RemoveSeiMessages(
      codec_, unit, [this](const SeiMessage& message) { return IsUnwanted(message); }, &removed);
  counts_.messagesRemoved += removed;
  return result != SeiRemoval::kEmptied;
}

void UnitRemover::ChangePrivateData(ConfigRecord& config) {
  if (!unwanted_.any()) return;
  for (ConfigRecord::List& list : config.lists)
    std::erase_if(list.units, [this](Bytes& unit) { return !Keep(unit); });
  // Where units stand with start codes, they are those of the stream, and are counted there.
  const EditCounts counts = counts_;
  Change(config.startCodeUnits.units);
  counts_ = counts;
}

bool UnitRemover::Change(std::vector<Unit>& units) {
  if (!unwanted_.any()) return false;
  const int64_t before = counts_.unitsRemoved + counts_.messagesRemoved;
  std::vector<Unit> kept;
  kept.reserve(units.size());
  for (Unit& unit : units) {
    if (Keep(unit.bytes)) kept.push_back(std::move(unit));
  }
  const size_t gone = units.size() - kept.size();
  units = std::move(kept);
  // The first unit of an access unit has a zero byte in front of its start code (ITU-T H.264 clause B.1.2).
  if (gone != 0 && !units.empty()) units.front().startCodeBytes = 4;
  return counts_.unitsRemoved + counts_.messagesRemoved != before;
}

}  // namespace qlnmedia
