// Replaces HDR messages.

#include "edit/hdr_changes.h"

#include "hdr/stream_hdr.h"
#include "units/access_unit.h"

namespace qlnmedia {

namespace {

constexpr int kMasteringDisplay = 137;
constexpr int kContentLightLevel = 144;

}  // namespace

HdrChanges::HdrChanges(Codec codec, const StreamChanges& changes, EditCounts& counts)
    : codec_(codec),
      mastering_(changes.mastering.has_value()),
      lightLevel_(changes.lightLevel.has_value()),
      unit_(MakeHdrUnit(codec, {changes.mastering, changes.lightLevel})),
      counts_(counts) {}

bool HdrChanges::IsUnwanted(const SeiMessage& message) const {
  return (mastering_ && message.type == kMasteringDisplay) ||
         (lightLevel_ && message.type == kContentLightLevel);
}

void HdrChanges::ChangePrivateData(ConfigRecord& config) {
  const auto unwanted = [this](const SeiMessage& message) { return IsUnwanted(message); };
  for (ConfigRecord::List& list : config.lists) {
    std::erase_if(list.units, [&](Bytes& unit) {
      int removed = 0;
      const bool emptied = IsSei(codec_, UnitType(codec_, unit)) &&
                           RemoveSeiMessages(codec_, unit, unwanted, &removed) == SeiRemoval::kEmptied;
      counts_.hdrMessagesRemoved += removed;
      return emptied;
    });
  }
  // Where units stand with start codes, they are those of the stream, and are counted there.
  RemoveSei(codec_, config.startCodeUnits.units, unwanted);
}

bool HdrChanges::Change(std::vector<Unit>& units, bool randomAccess) {
  if (unit_.empty()) return false;
  const int removed =
      RemoveSei(codec_, units, [this](const SeiMessage& message) { return IsUnwanted(message); });
  counts_.hdrMessagesRemoved += removed;
  if (!randomAccess || FirstPictureUnit(codec_, units) == units.size()) return removed != 0;
  InsertSei(codec_, units, unit_);
  ++counts_.hdrUnits;
  return true;
}

}  // namespace qlnmedia
