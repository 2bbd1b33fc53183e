// Captions and timecodes of single access units.

#include "edit/own_values.h"

#include <algorithm>
#include <utility>

#include "base/error.h"
#include "captions/units.h"
#include "timing/timecode.h"
#include "timing/timecode_rate.h"
#include "units/access_unit.h"
#include "units/mpeg2.h"

namespace qlnmedia {

namespace {

// As many as a picture can carry.
std::vector<captions::Triplet> Fitting(std::vector<captions::Triplet> triplets) {
  if (triplets.size() > captions::kMostTriplets) triplets.resize(captions::kMostTriplets);
  return triplets;
}

bool HasCaptions(Codec codec, const std::vector<Unit>& units) {
  return std::any_of(units.begin(), units.end(), [codec](const Unit& unit) {
    if (!IsSei(codec, UnitType(codec, unit.bytes))) return false;
    const std::vector<SeiMessage> messages = ReadSeiMessages(codec, unit.bytes);
    return std::any_of(messages.begin(), messages.end(), IsCaptionMessage);
  });
}

}  // namespace

bool PutOwnCaptions(Codec codec, std::vector<Unit>& units, const std::vector<captions::Triplet>& triplets,
                    EditCounts& counts) {
  const size_t first = FirstPictureUnit(codec, units);
  if (first == units.size() || HasCaptions(codec, units)) return false;
  InsertSei(codec, units, MakeCaptionUnit(codec, units[first].bytes, Fitting(triplets)));
  ++counts.captions;
  return true;
}

Bytes PutOwnCaptions(ByteSpan data, const std::vector<captions::Triplet>& triplets, EditCounts& counts) {
  size_t slice = data.size();
  for (const Mpeg2Unit& unit : Mpeg2Units(data)) {
    const ByteSpan bytes = data.subspan(unit.at, unit.size);
    if (unit.code == kMpeg2UserData && captions::ReadUserData(bytes.subspan(4)))
      return {data.begin(), data.end()};
    if (IsMpeg2Slice(unit.code)) slice = std::min(slice, unit.at);
  }
  Bytes out(data.begin(), data.end());
  if (slice == data.size()) return out;
  const Bytes captionData = captions::MakePictureUserData(Fitting(triplets));
  out.insert(out.begin() + static_cast<std::ptrdiff_t>(slice), captionData.begin(), captionData.end());
  ++counts.captions;
  return out;
}

OwnTimecodes::OwnTimecodes(const StreamDescription& stream, const ConfigRecord& config,
                           const StreamChanges& changes, std::string where, EditCounts& counts)
    : where_(std::move(where)),
      counts_(counts),
      type_(changes.timecodeType),
      messages_(config.codec, where_) {
  if (!changes.timecode.empty())
    throw Error(where_, "shall count timecodes, and have those of its access units", "leave one of them out");
  if (type_.empty() || !changes.rate.empty())
    rate_ = TimecodeRate(RatesOf(stream, config.codec, config.units()), changes.rate);
}

bool OwnTimecodes::Put(std::vector<PictureUnits>& parts, const std::string& timecode) {
  const TimecodeStart value = ParseTimecode(timecode, type_, rate_);
  bool changed = false;
  for (PictureUnits& part : parts) {
    if (!part.picture) continue;
    if (!part.picture->head)
      throw Error(where_, "a picture comes before its parameter sets, or its slices break off");
    if (!messages_.Put(part.units, *part.picture, value.count, value.type)) continue;
    ++counts_.timecodes;
    changed = true;
  }
  return changed;
}

}  // namespace qlnmedia
