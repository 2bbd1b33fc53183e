// Looks at captions beside the pictures.

#include "check/caption_streams.h"

#include <fmt/format.h>

#include <utility>

#include "base/error.h"
#include "container/anc_file.h"

namespace qlnmedia {

namespace {

constexpr uint8_t kCaptions = 0x61, kPacketForm = 0x01;

}  // namespace

AncCheck::AncCheck(unsigned stream, FindingList& findings)
    : stream_(stream),
      findings_(findings),
      packets_([this](int64_t place, FindingKind kind, const std::string& what, Severity severity) {
        findings_.Add(stream_, kind, what, place, severity);
      }) {}

void AncCheck::Take(const std::vector<captions::AncPacket>& packets, const std::vector<std::string>& damage) {
  for (const std::string& what : damage) findings_.Add(stream_, FindingKind::kDamage, what, number_);
  for (const captions::AncPacket& packet : packets) {
    if (packet.parityErrors)
      findings_.Add(stream_, FindingKind::kDamage, "an ANC packet that was recorded with wrong parity",
                    number_, Severity::kWarning);
    std::string reason;
    std::optional<captions::Rate> rate;
    if (packet.did != kCaptions) continue;
    if (packet.sdid != kPacketForm) {
      captions::CaptionsOfAnc(packet, &rate, &reason);
    } else if (const auto read = captions::ReadCdp(packet.words, &reason)) {
      packets_.Take(number_, *read);
      continue;
    } else {
      packets_.Skip();
      reason = "a damaged caption packet (CDP): " + reason;
    }
    if (!reason.empty()) findings_.Add(stream_, FindingKind::kDamage, reason, number_);
  }
  ++number_;
}

CaptionStreamCheck::CaptionStreamCheck(const MediaFile& file, FindingList& findings)
    : file_(file), findings_(findings), reader_(file) {
  for (const unsigned stream : FindAncStreams(file)) ancillary_.try_emplace(stream, stream, findings);
  if (file.isIso() && !file.isPipe()) tracks_ = FindCaptionTracks(mp4::FileSource(file.path()));
}

void CaptionStreamCheck::Take(const MediaPacket& packet) {
  const auto found = ancillary_.find(packet.stream);
  if (found == ancillary_.end()) return;
  std::vector<std::string> damage;
  const std::vector<captions::AncPacket> packets = reader_.Take(packet, &damage);
  found->second.Take(packets, damage);
}

void CaptionStreamCheck::Finish() {
  for (auto& [stream, check] : ancillary_) check.Finish();
  for (const CaptionTrackPlace& place : tracks_) CheckTrack(place);
}

void CaptionStreamCheck::CheckTrack(const CaptionTrackPlace& place) {
  const TellFault tell = [&](int64_t at, FindingKind kind, const std::string& what, Severity severity) {
    findings_.Add(place.stream, kind, what, at, severity);
  };
  CaptionPacketCheck packets(tell);
  PairCheck fields[] = {PairCheck(tell, 1), PairCheck(tell, 2)};
  const auto seen = [&](uint64_t number, const captions::CaptionSample* sample) {
    const auto at = static_cast<int64_t>(number);
    if (sample == nullptr) return packets.Skip();
    for (const captions::CaptionPacket& packet : sample->packets) packets.Take(at, packet);
    if (!sample->packets.empty()) return;
    for (const auto& picture : sample->pictures) {
      for (const captions::Triplet& t : picture)
        fields[t.type == captions::CcType::kField2].Take(at, t.first, t.second);
    }
  };
  std::vector<std::string> damage;
  try {
    ReadCaptionTrackOf(mp4::FileSource(file_.path()), place, {}, &damage, seen);
  } catch (const NotApplicable&) {  // a track that is empty
  } catch (const Error& error) {
    damage.emplace_back(error.what());
  }
  packets.Finish();
  for (PairCheck& field : fields) field.Finish();
  const std::string where = fmt::format("stream {}: ", place.stream);
  for (const std::string& line : damage) {
    const bool named = line.compare(0, where.size(), where) == 0;
    findings_.Add(place.stream, FindingKind::kDamage,
                  fmt::format("{} track: {}", place.format, named ? line.substr(where.size()) : line), -1);
  }
}

void CheckAncFile(std::string_view file, FindingList& findings) {
  AncCheck check(0, findings);
  const auto reason = ReadAncElements(
      file, [&check](const AncFileElement& element) { check.Take(element.packets, element.damage); });
  if (reason) findings.Add(0, FindingKind::kDamage, *reason, -1);
  check.Finish();
}

}  // namespace qlnmedia
