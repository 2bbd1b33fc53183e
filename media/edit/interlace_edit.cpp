// Corrects the interlace signalling of HEVC streams (ITU-T H.265 clauses 7.4.4, D.3.3 and E.3.1).

#include "edit/interlace_edit.h"

#include <fmt/format.h>

#include <utility>

#include "base/error.h"
#include "edit/survey_facts.h"
#include "timing/hevc_timing.h"
#include "units/access_unit.h"
#include "units/unit_types.h"

namespace qlnmedia {

namespace {

constexpr int kVps = 32;
constexpr uint32_t kInterlacedScan = 0;
constexpr uint32_t kProgressiveScan = 1;
constexpr size_t kConstraintFlags = 6;  // byte of an hvcC with general_progressive_source_flag at its top

}  // namespace

InterlaceEdit::InterlaceEdit(const StreamDescription& stream, const ConfigRecord& config, bool interlaced,
                             const StreamSurvey* survey, std::string where, EditCounts& counts)
    : where_(std::move(where)),
      counts_(counts),
      interlaced_(interlaced),
      bottomFirst_(stream.bottomFirst) {  // the one that is displayed first
  if (config.codec != Codec::kHevc)
    Fail(fmt::format("is H.264, whose slices say themselves whether they are fields: --{} is for HEVC",
                     interlaced ? "interlaced" : "progressive"));
  for (const Bytes& unit : config.units()) TakeSps(unit);
  if (survey == nullptr) Fail("takes a survey of the stream to tell fields from frames");
  const StreamSurvey::Facts& facts = survey->facts();
  if (!facts.signs) Fail("the survey is one of another stream");
  RequireSigns(*facts.signs);
  if (interlaced_ && !facts.signs->everyPictureTold()) places_ = facts.captions.order.places;
}

void InterlaceEdit::Fail(const std::string& what, const std::string& advice) const {
  throw Error(where_, what, advice);
}

void InterlaceEdit::RequireSigns(const ScanSigns& signs) const {
  if (!interlaced_) {
    if (!signs.fields().empty()) Fail("its coded pictures are single fields: " + signs.fields());
    return;
  }
  if (!signs.frames().empty()) Fail("its coded pictures are frames: " + signs.frames());
  if (signs.fields().empty() && signs.likelyFields().empty())
    Fail("nothing says that its coded pictures are single fields",
         "--interlaced is for streams that code each field as a picture");
}

void InterlaceEdit::AddTo(SpsEdit& edit) const {
  edit.interlace = {!interlaced_, interlaced_, interlaced_};
  edit.frameOnly = !interlaced_;
  // Fields need their parity told; frames may go on saying what they are.
  if (interlaced_) edit.frameFieldInfo = true;
  edit.subLayers = true;
}

bool InterlaceEdit::ChangeVps(Bytes& unit) {
  if (UnitType(Codec::kHevc, unit) != kVps) return false;
  SpsEdit edit;
  AddTo(edit);
  std::optional<Bytes> edited = EditVps(unit, edit);
  if (!edited) Fail("a video parameter set breaks off and cannot be changed");
  if (*edited == unit) return false;
  unit = std::move(*edited);
  ++counts_.videoSets;
  return true;
}

void InterlaceEdit::ChangeHead(ConfigRecord& record) const {
  if (!record.box || record.head.size() <= kConstraintFlags) return;
  uint8_t& flags = record.head[kConstraintFlags];
  // progressive, interlaced, non-packed, frame-only
  flags = static_cast<uint8_t>((flags & 0x2F) | (interlaced_ ? 0x40 : 0x90));
}

void InterlaceEdit::TakeSps(ByteSpan unit) {
  if (!IsSps(Codec::kHevc, UnitType(Codec::kHevc, unit)) || !IsBaseLayer(Codec::kHevc, unit)) return;
  const std::optional<SpsFacts> sps = ReadSpsFacts(Codec::kHevc, unit);
  if (!sps) return;
  if (sps_ && sps_->id != sps->id &&
      (sps_->hevc.frameFieldInfo != sps->hevc.frameFieldInfo || !(sps_->hevc.delays == sps->hevc.delays)))
    Fail("has sequence parameter sets that lay out picture timing in different ways",
         "split the stream where they change");
  sps_ = sps;
}

uint32_t InterlaceEdit::PicStructOf(size_t number, size_t count, uint32_t place) const {
  const bool second = count == 2 ? number == 1 : place % 2 == 1;
  if (bottomFirst_) return second ? kTopBehindBottom : kBottomBeforeTop;
  return second ? kBottomBehindTop : kTopBeforeBottom;
}

bool InterlaceEdit::Change(std::vector<PictureUnits>& parts) {
  for (const PictureUnits& part : parts) {
    for (const Unit& unit : part.units) TakeSps(unit.bytes);
  }
  bool changed = false;
  for (PictureUnits& part : parts) {
    for (Unit& unit : part.units) changed = ChangeVps(unit.bytes) || changed;
  }
  const size_t packet = packets_++;
  const size_t count = CountPictures(parts);
  if (count > 2) Fail("a packet holds more than two pictures");
  if (count != 0 && !sps_) Fail("a picture comes before its sequence parameter set");
  const uint32_t place = packet < places_.size() ? places_[packet] : 0;
  for (size_t n = 0; n < count; ++n)
    changed = ChangePicture(parts[n], PicStructOf(n, count, place)) || changed;
  return changed;
}

bool InterlaceEdit::ChangePicture(PictureUnits& part, uint32_t picStruct) {
  std::vector<Unit>& units = part.units;
  const std::optional<PictureTimingPlace> timing = FindPictureTiming(part);
  if (!interlaced_ && !(timing && sps_->hevc.frameFieldInfo)) return false;
  if (!timing) {
    if (sps_->hevc.delays.present)
      Fail("has HRD parameters but a picture without picture timing, whose delays nobody knows");
    const size_t slice = part.slice();
    InsertSei(units,
              SeiPlace(Codec::kHevc, units, part.begin(), slice,
                       {sei::kActiveParameterSets, sei::kBufferingPeriod}),
              MakeFieldTimingUnit(picStruct, TemporalPlus1(units[slice].bytes)));
    ++counts_.timingsAdded;
    return true;
  }
  FrameFieldInfo info{picStruct, 0, false};
  if (sps_->hevc.frameFieldInfo) {
    const std::optional<FrameFieldInfo> was = ReadFrameFieldInfo(timing->content.payload);
    if (!was) Fail("a picture timing message breaks off");
    info = *was;
  }
  info.sourceScanType = interlaced_ ? kInterlacedScan : kProgressiveScan;
  std::optional<Bytes> payload =
      WithFrameFieldInfo(timing->content.payload, sps_->hevc.frameFieldInfo, sps_->hevc.delays, info);
  if (!payload)
    Fail(
        "a picture timing message breaks off, or is laid out in a way that the sequence parameter set does "
        "not tell");
  if (*payload == timing->content.payload) return false;
  bool whole = false;
  Bytes& unit = units[timing->unit].bytes;
  std::vector<SeiMessage> messages = ReadSeiMessages(Codec::kHevc, unit, &whole);
  if (!whole) Fail("an SEI unit with picture timing breaks off");
  messages[timing->message].payload = std::move(*payload);
  unit = MakeSeiUnit(ByteSpan(unit).first(2), messages);
  ++counts_.timingsChanged;
  return true;
}

}  // namespace qlnmedia
