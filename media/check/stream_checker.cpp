// Follows one stream and hands each of its parts to the check that is for it.

#include "check/stream_checker.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "check/config_head.h"
#include "sets/set_elements.h"
#include "units/access_unit.h"

namespace qlnmedia {

namespace {

// profile_idc of H.264.
constexpr uint32_t kBaseline = 66;
constexpr uint32_t kExtended = 88;

// gaps_in_frame_num_value_allowed_flag of an H.264 SPS.
bool AllowsGaps(ByteSpan sps) {
  const SetElements set = ListSetElements(Codec::kH264, sps);
  const SetElement* const flag = set.Find("gaps_in_frame_num_value_allowed_flag");
  return flag != nullptr && flag->value != 0;
}

// Whether a frame begins a coded video sequence by its own kind: IDR, BLA. Of a CRA picture its place
// decides.
bool BeginsSequence(Codec codec, const std::vector<Unit>& units) {
  return std::any_of(units.begin(), units.end(), [codec](const Unit& unit) {
    const int type = UnitType(codec, unit.bytes);
    return codec == Codec::kH264 ? type == h264::kIdrSlice : type >= hevc::kFirstIrap && type < hevc::kCra;
  });
}

// Whether a packet has nothing but the end of a sequence or stream, and what may follow a picture.
bool EndsOnly(Codec codec, const std::vector<Unit>& units) {
  const auto is = [&](bool (*holds)(Codec, int)) {
    return [codec, holds](const Unit& unit) { return holds(codec, UnitType(codec, unit.bytes)); };
  };
  return std::any_of(units.begin(), units.end(), is(IsEnd)) &&
         std::all_of(units.begin(), units.end(), is(FollowsPicture));
}

}  // namespace

StreamChecker::StreamChecker(const MediaStream& stream, FindingList& findings)
    : stream_(stream),
      findings_(findings),
      codec_(stream.coded.codec == VideoCodec::kH264 ? Codec::kH264 : Codec::kHevc),
      config_(ReadConfigRecord(codec_, stream.coded.privateData)),
      place_(codec_ == Codec::kH264 ? "the avcC" : "the hvcC"),
      hdr_(stream, findings),
      timecode_(stream, codec_, config_.units(), findings) {
  if (stream.encrypted)
    Add(FindingKind::kEncryption, "the samples are encrypted: what is in them is not judged", -1);
  if (!config_.problem.empty()) Add(FindingKind::kDamage, config_.problem, -1);
  for (const Bytes& unit : config_.units()) frameNumbers_.TakeSet(unit);
  if (!config_.box) return;
  for (const Bytes& unit : config_.units()) TakeSet(unit, -1, false);
  for (std::string& text : ConfigHeadFindings(config_)) Add(FindingKind::kSets, std::move(text), -1);
}

void StreamChecker::Take(const PacketView& packet, PacketUnits& apart) {
  if (stream_.encrypted) return;
  // What ends the stream, or the sequence in front, may come as a packet of its own, and so may slices of
  // higher layers: they are part of the frame before them.
  const std::vector<Unit> units = UnitsOf(apart.In(codec_, config_.framing), frames_);
  const bool frame = frames_ == 0 || !(EndsOnly(codec_, units) || CompletesPicture(codec_, units));
  const int64_t number = frame ? frames_ : frames_ - 1;
  const bool entry = BeginsSequence(codec_, units);
  for (const Unit& unit : units) TakeSet(unit.bytes, number, entry);
  if (!units.empty()) {
    for (std::string& text : OrderFindings(codec_, units, rules_))
      Add(FindingKind::kOrder, std::move(text), number);
  }
  if (codec_ == Codec::kH264) {
    for (std::string& text : frameNumbers_.Take(units, gapsAllowed_))
      Add(FindingKind::kDamage, std::move(text), number);
  }
  hdr_.Take(codec_, units, number);
  timecode_.Take(units, packet);
  if (frame) ++frames_;
}

void StreamChecker::Finish() {
  hdr_.Finish();
  timecode_.Finish();
}

std::vector<Unit> StreamChecker::UnitsOf(const UnitRun& run, int64_t frame) {
  if (run.units.empty()) {
    Add(FindingKind::kDamage,
        config_.framing.startCodes() ? "a frame holds no start code"
                                     : "a frame holds no NAL units: its first length leads past its end",
        frame);
    return {};
  }
  if (run.damaged()) Add(FindingKind::kDamage, "a length leads past the end of its frame", frame);
  if (config_.framing.startCodes()) return run.units;
  std::vector<Unit> units;
  bool joined = false;  // with the unit in front
  for (const Unit& unit : run.units) {
    if (unit.bytes.empty() && unit.trailingZeros == 0) {
      Add(FindingKind::kDamage, "a unit of length 0", frame);
      continue;
    }
    if (unit.join == Join::kBegins || (unit.join == Join::kContinues && !joined))
      Add(FindingKind::kDamage, "one length covers several units with start codes between them", frame);
    joined = unit.join != Join::kNone;
    units.push_back(unit);
  }
  return units;
}

void StreamChecker::Add(FindingKind kind, std::string text, int64_t frame) {
  findings_.Add(stream_.index, kind, std::move(text), frame);
}

// Takes any unit; those of higher layers have a syntax of their own and are not looked at.
void StreamChecker::TakeSet(ByteSpan whole, int64_t frame, bool entry) {
  if (!IsParameterSet(codec_, UnitType(codec_, whole)) || !IsBaseLayer(codec_, whole)) return;
  const ByteSpan unit = WithoutZeros(whole);
  const std::optional<SetKey> key = SetKeyOf(codec_, unit);
  const std::string name = UnitTypeName(codec_, UnitType(codec_, unit));
  if (!key || key->id > LargestSetId(codec_, key->type)) {
    Add(FindingKind::kDamage, name + (key ? " has an id that does not exist" : " breaks off"), frame);
    return;
  }
  int64_t before = -1;
  const SetHistory::News news = sets_.Take(*key, unit, frame, &before);
  if (news == SetHistory::News::kKnown) return;
  if (news == SetHistory::News::kChanged) AddChange(*key, name, before, frame, entry);
  if (IsSps(codec_, key->type)) TakeSps(unit, frame);
}

// A stream that has its sets in front of its pictures alone may change them: those of a sequence where
// decoding begins anew, those of pictures at any picture (ITU-T H.264 clause 7.4.1.2.1, H.265
// clause 7.4.2.4.2).
void StreamChecker::AddChange(const SetKey& key, const std::string& name, int64_t before, int64_t frame,
                              bool entry) {
  std::string text = fmt::format("{} {} of the stream differs from the one {}", name, key.id,
                                 before < 0 ? "in " + place_ : "before it");
  const bool pictures = key.type == (codec_ == Codec::kH264 ? h264::kPps : hevc::kPps);
  if (before < 0 || config_.box || !(entry || pictures))
    return Add(FindingKind::kSets, std::move(text), frame);
  text += entry ? ", where a sequence begins" : ", as it may at a picture";
  findings_.Add(stream_.index, FindingKind::kSets, std::move(text), frame, Severity::kNote);
}

void StreamChecker::TakeSps(ByteSpan unit, int64_t frame) {
  const SpsFacts sps = *ReadSpsFacts(codec_, unit);
  if (codec_ == Codec::kH264) {
    rules_.twoFields = rules_.twoFields || !sps.h264.frameMbsOnly;
    rules_.anySliceOrder = rules_.anySliceOrder || sps.profile == kBaseline || sps.profile == kExtended;
    gapsAllowed_ = gapsAllowed_ || AllowsGaps(unit);
  } else {
    rules_.twoFields = rules_.twoFields || sps.hevc.interlace[2];
  }
  hdr_.TakeSps(sps);
  CheckContainerFacts(stream_, sps, {frame < 0 ? place_ : "the stream", frame}, findings_);
}

}  // namespace qlnmedia
