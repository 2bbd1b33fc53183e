// Orders pictures and gives each the message that holds its timecode.

#include "edit/timecode_edit.h"

#include <algorithm>
#include <utility>

#include "base/error.h"
#include "timing/timecode_rate.h"
#include "units/access_unit.h"
#include "units/unit_types.h"

namespace qlnmedia {

namespace {

// pic_struct of an HEVC picture; nothing where no picture timing says it.
std::optional<int> HevcPicStruct(const std::vector<Unit>& units, const SpsFacts& sps) {
  if (!sps.hevc.frameFieldInfo) return {};
  for (const Unit& unit : units) {
    if (UnitType(Codec::kHevc, unit.bytes) != 39) continue;
    for (const SeiMessage& message : ReadSeiMessages(Codec::kHevc, unit.bytes)) {
      if (message.type == sei::kPictureTiming && !message.payload.empty()) return message.payload[0] >> 4;
    }
  }
  return {};
}

}  // namespace

TimecodeEdit::TimecodeEdit(const StreamDescription& stream, const ConfigRecord& config,
                           const StreamChanges& changes, std::string where, EditCounts& counts)
    : where_(std::move(where)),
      counts_(counts),
      codec_(config.codec),
      messages_(codec_, where_),
      keys_(stream),
      order_(changes.reorder) {
  Rational rate;
  if (changes.timecodeType.empty() || !changes.rate.empty())
    rate = TimecodeRate(RatesOf(stream, codec_, config.units()), changes.rate);
  start_ = ParseTimecode(changes.timecode, changes.timecodeType, rate);
}

void TimecodeEdit::Fail(const std::string& what, const std::string& advice) const {
  throw Error(where_, what, advice);
}

void TimecodeEdit::Announce(const PacketView& packet, const std::vector<PictureUnits>& parts) {
  std::vector<CodedPicture> frames;
  for (const PictureUnits& part : parts) {
    if (!part.picture || !part.picture->head || part.picture->secondField) continue;
    if (!frames.empty()) Fail("has two frames in one packet, which would share one time");
    if (keys_.timed() && packet.pts == kNoTime)
      Fail("has a picture without a presentation time", "remux it with times first");
    frames.push_back(*part.picture);
  }
  frames_.push_back(!frames.empty());
  if (!frames.empty() && !order_.Add(keys_.Next(packet, frames).value()))
    Fail("has a picture that comes later than the reorder depth allows that the stream declares",
         "patch a file of it");
}

bool TimecodeEdit::Ready() const { return order_.ready() || (!frames_.empty() && !frames_.front()); }

bool TimecodeEdit::Change(std::vector<PictureUnits>& parts) {
  frames_.pop_front();
  bool changed = false;
  bool found = false;
  bool slices = false;
  for (PictureUnits& part : parts) {
    slices = slices || FirstPictureUnit(codec_, part.units) < part.units.size();
    if (!part.picture || !part.picture->head) continue;
    const uint32_t frame = FrameOf(*part.picture, part.units);
    found = true;
    if (!messages_.Put(part.units, *part.picture, start_.count + frame, start_.type)) continue;
    ++counts_.timecodes;
    changed = true;
  }
  if (!found && slices) Fail("a picture comes before its parameter sets, or its slices break off");
  return changed;
}

uint32_t TimecodeEdit::FrameOf(const CodedPicture& picture, const std::vector<Unit>& units) {
  if (picture.secondField) return frame_;
  frame_ = order_.Take();
  if (codec_ == Codec::kH264) return frame_;
  const bool field = picture.head->sps->hevc.interlace[2];
  if (field != fields_.value_or(field))
    Fail("changes between frames and single fields", "leave --timecode out");
  fields_ = field;
  if (field) {
    CheckParity(frame_, picture, units);
    frame_ /= 2;
  }
  return frame_;
}

// Two fields make a frame of an HEVC stream when they follow each other in output order, top and bottom
// (ITU-T H.265 clause D.3.3). A field without its other half would put all that follow into wrong frames.
void TimecodeEdit::CheckParity(uint32_t place, const CodedPicture& picture, const std::vector<Unit>& units) {
  const std::optional<int> picStruct = HevcPicStruct(units, *picture.head->sps);
  const bool top = picStruct == 1 || picStruct == 9 || picStruct == 11;
  const bool bottom = picStruct == 2 || picStruct == 10 || picStruct == 12;
  if (!top && !bottom)
    Fail("codes fields, and one does not say whether it is a top or a bottom field", "leave --timecode out");
  const bool evenIsBottom = bottom == (place % 2 == 0);
  if (!evenIsBottom_) evenIsBottom_ = evenIsBottom;
  if (*evenIsBottom_ != evenIsBottom)
    Fail("has a field without its other half, so that fields cannot be counted as frames",
         "leave --timecode out");
}

}  // namespace qlnmedia
