// Follows one stream and hands each of its parts to the check that is for it.

#include "check/stream_checker.h"

#include <fmt/format.h>

#include <optional>

#include "check/config_head.h"
#include "units/access_unit.h"

namespace qlnmedia {

namespace {

// profile_idc of H.264.
constexpr uint8_t kBaseline = 66;
constexpr uint8_t kExtended = 88;

}  // namespace

StreamChecker::StreamChecker(const MediaStream& stream, FindingList& findings)
    : stream_(stream),
      findings_(findings),
      codec_(stream.coded.codec == VideoCodec::kH264 ? Codec::kH264 : Codec::kHevc),
      config_(ReadConfigRecord(codec_, stream.coded.privateData)),
      place_(codec_ == Codec::kH264 ? "the avcC" : "the hvcC"),
      hdr_(stream.index, {stream.mastering, stream.lightLevel}, findings) {
  if (!config_.problem.empty()) Add(FindingKind::kDamage, config_.problem, -1);
  if (!config_.box) return;
  for (const Bytes& unit : config_.units()) TakeSet(unit, -1);
  for (std::string& text : ConfigHeadFindings(config_)) Add(FindingKind::kSets, std::move(text), -1);
}

void StreamChecker::Take(const PacketView& packet) {
  const UnitRun run = TakeApart(packet.data, config_.framing);
  if (run.damaged()) Add(FindingKind::kDamage, "a length leads past the end of its frame", frames_);
  for (const Unit& unit : run.units) TakeSet(unit.bytes, frames_);
  for (std::string& text : OrderFindings(codec_, run.units, rules_))
    Add(FindingKind::kOrder, std::move(text), frames_);
  hdr_.Take(codec_, run.units, frames_);
  ++frames_;
}

void StreamChecker::Add(FindingKind kind, std::string text, int64_t frame) {
  findings_.Add({stream_.index, kind, std::move(text), frame, 1});
}

// Takes any unit; those of higher layers have a syntax of their own and are not looked at.
void StreamChecker::TakeSet(ByteSpan whole, int64_t frame) {
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
  if (news == SetHistory::News::kChanged)
    Add(FindingKind::kSets,
        fmt::format("{} {} of the stream differs from the one {}", name, key->id,
                    before < 0 ? "in " + place_ : "before it"),
        frame);
  if (IsSps(codec_, key->type)) TakeSps(unit, frame);
}

void StreamChecker::TakeSps(ByteSpan unit, int64_t frame) {
  const SpsFacts sps = *ReadSpsFacts(codec_, unit);
  if (codec_ == Codec::kH264) {
    rules_.twoFields = rules_.twoFields || !sps.h264.frameMbsOnly;
    rules_.anySliceOrder = rules_.anySliceOrder || unit[1] == kBaseline || unit[1] == kExtended;
  } else {
    rules_.twoFields = rules_.twoFields || sps.hevc.interlace[2];
  }
  CheckContainerFacts(stream_, sps, {frame < 0 ? place_ : "the stream", frame}, findings_);
}

}  // namespace qlnmedia
