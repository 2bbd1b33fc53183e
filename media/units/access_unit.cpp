// Puts units into access units and takes messages out of them.

#include "units/access_unit.h"

#include <algorithm>

namespace qlnmedia {

namespace {

// H.264: sequence parameter set extension, subset sequence parameter set.
bool IsSetExtension(Codec codec, int unitType) {
  return codec == Codec::kH264 && (unitType == h264::kSpsExtension || unitType == h264::kSubsetSps);
}

}  // namespace

bool IsFirstSlice(Codec codec, ByteSpan slice) { return BeginsPicture(codec, slice); }

size_t OutgrownUnit(const UnitRun& run, Framing framing) {
  if (framing.startCodes() || framing.lengthBytes >= 4) return 0;
  for (size_t i = 0; i < run.units.size();) {
    size_t bytes = 0;
    i = CoveredUnits(run.units, i, &bytes);
    if (bytes >> 8 * framing.lengthBytes != 0) return bytes;
  }
  return 0;
}

size_t FirstPictureUnit(Codec codec, const std::vector<Unit>& units) {
  for (size_t i = 0; i < units.size(); ++i) {
    const int type = UnitType(codec, units[i].bytes);
    if ((IsSlice(codec, type) && IsBaseLayer(codec, units[i].bytes)) ||
        (codec == Codec::kH264 && (type == h264::kPrefix || type == h264::kSliceExtension)))
      return i;
  }
  return units.size();
}

bool CompletesPicture(Codec codec, const std::vector<Unit>& units) {
  return FirstPictureUnit(codec, units) == units.size() &&
         std::any_of(units.begin(), units.end(),
                     [codec](const Unit& unit) { return IsSlice(codec, UnitType(codec, unit.bytes)); });
}

bool IsRandomAccess(Codec codec, const std::vector<Unit>& units) {
  for (const Unit& unit : units) {
    const int type = UnitType(codec, unit.bytes);
    if (codec == Codec::kHevc) {
      if (type >= hevc::kFirstIrap && type <= hevc::kLastIrap && IsBaseLayer(codec, unit.bytes)) return true;
    } else if (type == h264::kIdrSlice) {
      return true;
    } else if (type == h264::kSei) {
      for (const SeiMessage& message : ReadSeiMessages(codec, unit.bytes)) {
        if (message.type == sei::kRecoveryPoint) return true;
      }
    }
  }
  return false;
}

size_t SeiPlace(Codec codec, const std::vector<Unit>& units, size_t begin, size_t slice,
                std::initializer_list<int> inFront) {
  size_t place = begin;
  for (size_t i = begin; i < slice; ++i) {
    const int type = UnitType(codec, units[i].bytes);
    if (IsParameterSet(codec, type) || IsDelimiter(codec, type) || IsSetExtension(codec, type)) place = i + 1;
  }
  for (; place < slice && IsSei(codec, UnitType(codec, units[place].bytes)); ++place) {
    bool whole = false;
    const std::vector<SeiMessage> messages = ReadSeiMessages(codec, units[place].bytes, &whole);
    const bool mayPrecede =
        whole && std::all_of(messages.begin(), messages.end(), [&](const SeiMessage& message) {
          return std::find(inFront.begin(), inFront.end(), message.type) != inFront.end();
        });
    if (!mayPrecede) break;
  }
  return place;
}

void InsertSei(Codec codec, std::vector<Unit>& units, Bytes bytes) {
  InsertSei(units, FirstPictureUnit(codec, units), std::move(bytes));
}

void InsertSei(std::vector<Unit>& units, size_t at, Bytes bytes) {
  Unit unit;
  unit.bytes = std::move(bytes);
  // As the unit that follows. The zero byte that makes the first start code of an access unit a long one may
  // stand at the end of the packet in front.
  unit.startCodeBytes = at == units.size() ? 4 : units[at].startCodeBytes;
  units.insert(units.begin() + static_cast<std::ptrdiff_t>(at), std::move(unit));
}

SeiRemoval RemoveSeiMessages(Codec codec, Bytes& unit, const std::function<bool(const SeiMessage&)>& unwanted,
                             int* removed) {
  bool whole = false;
  std::vector<SeiMessage> messages = ReadSeiMessages(codec, unit, &whole);
  const size_t before = messages.size();
  std::erase_if(messages, unwanted);
  // A unit that breaks off would lose what stands behind its last whole message.
  if (messages.size() == before || !whole) return SeiRemoval::kUntouched;
  *removed += static_cast<int>(before - messages.size());
  if (messages.empty()) return SeiRemoval::kEmptied;
  unit = MakeSeiUnit(ByteSpan(unit).first(UnitHeaderBytes(codec)), messages);
  return SeiRemoval::kChanged;
}

int RemoveSei(Codec codec, std::vector<Unit>& units, const std::function<bool(const SeiMessage&)>& unwanted) {
  int removed = 0;
  std::erase_if(units, [&](Unit& unit) {
    return IsSei(codec, UnitType(codec, unit.bytes)) &&
           RemoveSeiMessages(codec, unit.bytes, unwanted, &removed) == SeiRemoval::kEmptied;
  });
  return removed;
}

}  // namespace qlnmedia
