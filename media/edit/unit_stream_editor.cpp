// Edits packets of units.

#include "edit/unit_stream_editor.h"

#include <fmt/format.h>

#include <utility>

#include "base/error.h"
#include "units/access_unit.h"

namespace qlnmedia {

UnitStreamEditor::UnitStreamEditor(const StreamDescription& stream, const StreamChanges& changes,
                                   const StreamSurvey* survey, const std::string& where, EditCounts& counts)
    : where_(where),
      counts_(counts),
      ownMarks_(stream.ownMarks),
      privateData_(stream.privateData),
      config_(ConfigOf(stream)),
      codec_(config_.codec),
      tracker_(codec_),
      sets_(codec_, changes, config_.units(), where),
      remover_(codec_, changes.remove, counts),
      hdr_(codec_, changes, counts),
      adder_(changes.delimiters, changes.recoveryPoints, counts) {
  if (!config_.problem.empty()) Fail(config_.problem);
  if (changes.interlaced) {
    if (*changes.interlaced && !changes.timecode.empty())
      Fail("fields must be told before they can be given timecodes",
           "run --interlaced first and --timecode on its output");
    interlace_.emplace(stream, config_, *changes.interlaced, survey, where, counts);
    interlace_->AddTo(sets_.edit);
  }
  for (const Bytes& unit : config_.units()) tracker_.TakeSet(unit);
  if (!changes.timecode.empty()) {
    timecodes_.emplace(stream, config_, changes, where, counts);
    if (codec_ == Codec::kH264) sets_.edit.picStruct = true;
  }
  if (changes.ownTimecodes) {
    ownTimecodes_.emplace(stream, config_, changes, where, counts);
    if (codec_ == Codec::kH264) sets_.edit.picStruct = true;
  }
  if (changes.captionProvider || changes.replaceCaptions) captions_.emplace(changes, survey, where, counts);
  if (captions_ && captions_->needsPlaces()) captionOrder_.emplace(stream, changes, where);
  if (!config_.empty()) ChangePrivateData();
}

void UnitStreamEditor::Fail(const std::string& what, const std::string& advice) const {
  throw Error(where_, what, advice);
}

void UnitStreamEditor::ChangePrivateData() {
  const auto change = [this](Bytes& unit) {
    if (sets_.Change(unit))
      ++(IsSps(codec_, UnitType(codec_, unit)) ? counts_.privateSequenceSets : counts_.videoSets);
    if (interlace_) interlace_->ChangeVps(unit);
  };
  remover_.ChangePrivateData(config_);
  for (ConfigRecord::List& list : config_.lists) {
    for (Bytes& unit : list.units) {
      change(unit);
      if (unit.size() > 0xFFFF) Fail("a parameter set outgrows the configuration record");
    }
  }
  for (Unit& unit : config_.startCodeUnits.units) change(unit.bytes);
  hdr_.ChangePrivateData(config_);
  sets_.ChangeHead(config_);
  if (interlace_) interlace_->ChangeHead(config_);
  privateData_ = WriteConfigRecord(config_);
}

void UnitStreamEditor::Push(AccessUnit unit) {
  if (!unit.timecode.empty() && !ownTimecodes_)
    Fail("has a timecode with an access unit, which nobody announced", "set ownTimecodes");
  Waiting waiting;
  waiting.run = TakeApart(unit.data, config_.framing);
  waiting.changed = remover_.Change(waiting.run.units);
  if (waiting.changed && waiting.run.units.empty())
    Fail("has a packet that would be left without units", "leave --remove out");
  if (captions_) {
    captions_->NextPacket();
    waiting.changed = captions_->ChangeUnits(codec_, waiting.run.units) || waiting.changed;
  }
  if (unit.captions)
    waiting.changed = PutOwnCaptions(codec_, waiting.run.units, *unit.captions, counts_) || waiting.changed;
  waiting.parts = PartUnits(codec_, tracker_, std::move(waiting.run.units));
  Announce(unit, waiting.parts);
  waiting.unit = std::move(unit);
  // While it waits, its units are enough: they give the same bytes again.
  if (timecodes_) waiting.unit.data = {};
  queue_.push_back(std::move(waiting));
}

void UnitStreamEditor::Announce(const AccessUnit& unit, const std::vector<PictureUnits>& parts) {
  const PacketView packet{unit.data, unit.pts, unit.dts, unit.key, -1};
  if (timecodes_) timecodes_->Announce(packet, parts);
  if (captionOrder_) captionOrder_->Announce(packet, parts);
}

bool UnitStreamEditor::PlacesKnown() const {
  return finished_ || ((!timecodes_ || timecodes_->Ready()) && (!captionOrder_ || captionOrder_->Ready()));
}

bool UnitStreamEditor::PutCaptions(std::vector<PictureUnits>& parts) {
  if (!captionOrder_) return false;
  const std::optional<uint32_t> place = captionOrder_->Take();
  return place && captions_->PutAt(*place, codec_, parts);
}

void UnitStreamEditor::Change(Waiting& waiting) {
  std::vector<PictureUnits>& parts = waiting.parts;
  bool changed = PutCaptions(parts);
  changed = (timecodes_ && timecodes_->Change(parts)) || changed;
  if (!waiting.unit.timecode.empty()) changed = ownTimecodes_->Put(parts, waiting.unit.timecode) || changed;
  const UnitAdder::Added added = adder_.Add(parts, {waiting.unit.key, ownMarks_});
  waiting.unit.key = waiting.unit.key || added.start;
  // Picture timing is laid out as the sets of the source say, so it comes in front of them.
  changed = (interlace_ && interlace_->Change(parts)) || added.any || changed;
  std::vector<Unit>& units = waiting.run.units;
  units = JoinUnits(std::move(parts));
  for (Unit& unit : units) {
    if (!sets_.Change(unit.bytes)) continue;
    ++(IsSps(codec_, UnitType(codec_, unit.bytes)) ? counts_.sequenceSets : counts_.videoSets);
    changed = true;
  }
  changed = hdr_.Change(units, waiting.unit.key || IsRandomAccess(codec_, units)) || changed;
  waiting.changed = waiting.changed || changed;
}

std::optional<EditedUnit> UnitStreamEditor::Pull() {
  if (queue_.empty() || !PlacesKnown()) return {};
  Waiting waiting = std::move(queue_.front());
  queue_.pop_front();
  Change(waiting);
  EditedUnit edited{std::move(waiting.unit), waiting.changed};
  if (!edited.changed && !timecodes_) return edited;
  const size_t outgrown = OutgrownUnit(waiting.run, config_.framing);
  if (outgrown != 0)
    Fail(fmt::format("a unit of {} bytes does not fit its {}-byte length field", outgrown,
                     config_.framing.lengthBytes));
  edited.unit.data = PutTogether(waiting.run, config_.framing);
  return edited;
}

}  // namespace qlnmedia
