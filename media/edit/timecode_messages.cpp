// Makes or changes the message of one picture.

#include "edit/timecode_messages.h"

#include "base/error.h"
#include "timing/timecode.h"
#include "units/access_unit.h"
#include "units/unit_types.h"

namespace qlnmedia {

namespace {

constexpr int kTimeCode = 136;

// pic_struct of a picture by table D-1 of ITU-T H.264.
uint32_t PicStructOf(const CodedPicture& picture) {
  if (picture.head->field) return picture.head->bottom ? 2 : 1;
  const OrderCount& order = picture.order;
  return order.top == order.bottom ? 0 : order.top < order.bottom ? 3 : 4;
}

// What messages stand where: SEI units whole, of the others only which they are.
std::vector<Bytes> Outline(const std::vector<Unit>& units) {
  std::vector<Bytes> outline;
  for (const Unit& unit : units) {
    const int type = UnitType(Codec::kHevc, unit.bytes);
    Bytes& entry = outline.emplace_back(IsSei(Codec::kHevc, type) ? unit.bytes : Bytes());
    for (const int fact : {type, unit.startCodeBytes, unit.trailingZeros})
      entry.push_back(static_cast<uint8_t>(fact));
  }
  return outline;
}

}  // namespace

bool TimecodeMessages::Put(std::vector<Unit>& units, const CodedPicture& picture, uint32_t count,
                           uint8_t type) const {
  if (codec_ == Codec::kH264) return PutH264(units, picture, count, type);
  const std::vector<Bytes> before = Outline(units);
  RemoveSei(codec_, units, [](const SeiMessage& message) { return message.type == kTimeCode; });
  InsertSei(
      codec_, units,
      MakeHevcTimecodeUnit(count, type, picture.head->sps->hevc.interlace[2], picture.head->temporalId));
  return Outline(units) != before;
}

bool TimecodeMessages::PutH264(std::vector<Unit>& units, const CodedPicture& picture, uint32_t count,
                               uint8_t type) const {
  const SpsFacts& sps = *picture.head->sps;
  const uint32_t picStruct = PicStructOf(picture);
  bool found = false;
  bool changed = false;
  for (Unit& unit : units) {
    if (!IsSei(codec_, UnitType(codec_, unit.bytes))) continue;
    bool whole = false;
    std::vector<SeiMessage> messages = ReadSeiMessages(codec_, unit.bytes, &whole);
    bool here = false;
    for (SeiMessage& message : messages) {
      if (message.type != sei::kPictureTiming) continue;
      std::optional<PictureTiming> timing = ReadPictureTiming(message.payload, sps);
      if (!timing || !whole) throw Error(where_, "a picture timing message breaks off");
      if (!sps.h264.picStruct) timing->picStruct = picStruct;
      Bytes payload = MakePictureTiming(*timing, sps, count, type);
      here = here || payload != message.payload;
      message.payload = std::move(payload);
      found = true;
    }
    if (here) unit.bytes = MakeSeiUnit(ByteSpan(unit.bytes).first(1), messages);
    changed = changed || here;
  }
  if (found) return changed;
  if (sps.h264.hrd)
    throw Error(where_, "has HRD parameters but a picture without picture timing, whose delays nobody knows");
  PictureTiming timing;
  timing.picStruct = picStruct;
  const Bytes header{6};
  InsertSei(codec_, units,
            MakeSeiUnit(header, {{sei::kPictureTiming, MakePictureTiming(timing, sps, count, type)}}));
  return true;
}

}  // namespace qlnmedia
