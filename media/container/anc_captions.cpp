// Reads ancillary data streams packet by packet.

#include "container/anc_captions.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "base/error.h"
#include "captions/anc_element.h"
#include "container/libav_handles.h"
#include "container/service_info.h"

namespace qlnmedia {

namespace {

constexpr uint32_t kRegistered =
    'V' | 'A' << 8 | 'N' << 16 | 'C' << 24;  // first character in the lowest byte
constexpr uint8_t kCaptions = 0x61, kPacketForm = 0x01;

std::optional<unsigned> FirstVideo(const MediaFile& file) {
  for (const MediaStream& stream : file.streams()) {
    if (stream.movingPictures) return stream.index;
  }
  return {};
}

// As libavformat names what stands in a data track.
bool IsOfType(const MediaStream& stream, std::string_view type) {
  return stream.kind == StreamKind::kData &&
         std::any_of(stream.tags.begin(), stream.tags.end(), [type](const Tag& tag) {
           return tag.name == "data_type" && tag.text.find(type) != std::string::npos;
         });
}
bool IsElementTrack(const MediaStream& stream) { return IsOfType(stream, "smpte_436"); }
bool IsLineTrack(const MediaStream& stream) { return IsOfType(stream, "vbi_smpte_436"); }

// What the element of MXF that begins at a place holds: of the data items of a generic container (SMPTE ST
// 379-1) the third byte of its number.
captions::AncElementKind KindAt(const mp4::Source& source, int64_t position) {
  constexpr uint64_t kTypeAt = 14;
  constexpr uint8_t kLines = 0x01;
  mp4::Reader reader(source, 16);
  const auto at = static_cast<uint64_t>(std::max<int64_t>(position, 0));
  const bool lines = at + kTypeAt < reader.size() && reader.U8(at + kTypeAt) == kLines;
  return lines ? captions::AncElementKind::kLines : captions::AncElementKind::kPackets;
}

// Packets of other streams are not read, where the demuxer can leave them.
void ReadOnly(MediaFile& file, unsigned stream, std::optional<unsigned> video) {
  AVFormatContext* const context = file.context();
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    if (i != stream && i != video) context->streams[i]->discard = AVDISCARD_ALL;
  }
}

// The pictures a second of MXF, whose data tracks go by the frame.
std::optional<captions::Rate> RateOfFrames(const MediaStream& stream) {
  const Rational frame = stream.coded.timeBase;
  return captions::RateOf(frame.denominator, frame.numerator);
}

}  // namespace

std::vector<unsigned> FindAncStreams(const MediaFile& file) {
  std::vector<unsigned> found;
  for (const MediaStream& stream : file.streams()) {
    if ((file.isTransportStream() && stream.tag == kRegistered) || (file.isMxf() && IsElementTrack(stream)))
      found.push_back(stream.index);
  }
  return found;
}

AncStreamReader::AncStreamReader(const MediaFile& file) : mxf_(file.isMxf()) {
  if (mxf_ && !file.isPipe()) source_ = std::make_unique<mp4::FileSource>(file.path());
  for (const MediaStream& stream : file.streams()) {
    if (mxf_ && file.isPipe() && IsLineTrack(stream)) lines_.insert(stream.index);
  }
  const std::optional<unsigned> video = FirstVideo(file);
  if (!video) return;
  const MediaStream& pictures = file.streams()[*video];
  height_ = pictures.height;
  interlaced_ = pictures.fieldOrder > kProgressive;
}

AncStreamReader::~AncStreamReader() = default;

std::vector<captions::AncPacket> AncStreamReader::Take(const MediaPacket& packet,
                                                       std::vector<std::string>* damage) {
  using captions::AncElementKind;
  if (mxf_) {
    const AncElementKind ofTrack =
        lines_.count(packet.stream) != 0 ? AncElementKind::kLines : AncElementKind::kPackets;
    const AncElementKind kind = source_ == nullptr ? ofTrack : KindAt(*source_, packet.view.position);
    return captions::ReadAncElement(packet.view.data, kind, damage);
  }
  std::vector<captions::AncPacket> packets = captions::ReadSt2038(packet.view.data, damage);
  for (captions::AncPacket& one : packets) one.field = captions::FieldOfLine(one.line, height_, interlaced_);
  return packets;
}

AncGathering::AncGathering(const MediaFile& file, unsigned stream)
    : file_(file), stream_(stream), video_(file.isMxf() ? std::nullopt : FirstVideo(file)), reader_(file) {}

double AncGathering::SecondsOf(const MediaPacket& packet) const {
  return static_cast<double>(packet.view.pts) * file_.streams()[packet.stream].coded.timeBase.value();
}

void AncGathering::Take(const MediaPacket& packet) {
  const bool timed = packet.view.pts != kNoTime;
  if (packet.stream == video_ && timed)
    first_ = first_ ? std::min(*first_, SecondsOf(packet)) : SecondsOf(packet);
  if (packet.stream != stream_) return;
  const std::string place = fmt::format("packet {} at byte {}", contents_.packets++, packet.view.position);
  std::vector<std::string> damaged;
  const std::vector<captions::AncPacket> packets = reader_.Take(packet, &damaged);
  for (const std::string& what : damaged) damage_.Add(place, what);
  if (!timed) damage_.Add(place, "a packet without a time");
  Add(packets, place, timed ? std::optional(SecondsOf(packet)) : std::nullopt);
}

void AncGathering::Add(const std::vector<captions::AncPacket>& packets, const std::string& place,
                       std::optional<double> seconds) {
  TimedTriplets timed;
  bool second = !packets.empty();
  for (const captions::AncPacket& packet : packets) {
    Count(packet);
    std::string reason;
    const auto read = captions::CaptionsOfAnc(packet, &contents_.rate, &reason);
    if (!reason.empty()) damage_.Add(place, reason);
    if (!read) continue;
    timed.triplets.insert(timed.triplets.end(), read->begin(), read->end());
    second = second && packet.field == 2;
    Announced(packet);
  }
  if (timed.triplets.empty() || !seconds) return;
  timed.seconds = *seconds;
  timed.secondField = second;
  contents_.captions.push_back(std::move(timed));
}

void AncGathering::Count(const captions::AncPacket& packet) {
  AncKind& kind = contents_.kinds[{packet.did, packet.sdid, packet.chroma}];
  ++kind.count;
  kind.lines.insert(packet.line);
  if (packet.field != 0) kind.fields.insert(packet.field);
}

void AncGathering::Announced(const captions::AncPacket& packet) {
  std::string reason;
  if (packet.did != kCaptions || packet.sdid != kPacketForm) return;
  const std::optional<captions::CaptionPacket> read = captions::ReadCdp(packet.words, &reason);
  if (!read || read->serviceInfo.empty()) return;
  for (AnnouncedService& service : ServicesOfSection(read->serviceInfo)) {
    const bool known = std::any_of(contents_.services.begin(), contents_.services.end(),
                                   [&](const auto& other) { return other.name == service.name; });
    if (!known) contents_.services.push_back(std::move(service));
  }
}

AncContents AncGathering::Finish() {
  damage_.Tell(fmt::format("stream {}", stream_), &contents_.damage);
  if (!contents_.rate && file_.isMxf()) contents_.rate = RateOfFrames(file_.streams()[stream_]);
  if (contents_.captions.empty()) return std::move(contents_);
  const double begin = file_.isMxf() ? 0 : first_.value_or(contents_.captions.front().seconds);
  for (TimedTriplets& one : contents_.captions) one.seconds -= begin;
  return std::move(contents_);
}

AncContents ReadAncContents(const MediaInput& input, unsigned stream, const ProgressCallback& progress,
                            uint64_t most) {
  MediaFile file(input);
  ReadOnly(file, stream, file.isMxf() ? std::nullopt : FirstVideo(file));
  AncGathering gathering(file, stream);
  Progress meter(progress, "reading", file.sizeBytes());
  for (MediaPacket packet; gathering.packets() < most && file.Next(packet);) {
    meter.At(packet.view.position);
    gathering.Take(packet);
  }
  meter.Done();
  return gathering.Finish();
}

captions::CaptionTrack TrackOfAnc(AncContents contents, const std::string& path, unsigned stream,
                                  std::optional<captions::Rate> asked, std::vector<std::string>* damage) {
  const std::string where = fmt::format("stream {}", stream);
  damage->insert(damage->end(), contents.damage.begin(), contents.damage.end());
  if (contents.captions.empty()) throw NotApplicable(path, where + " has no captions");
  return TrackOfTimes(std::move(contents.captions),
                      asked ? *asked : contents.rate.value_or(captions::Rate::k29_97), path + ": " + where);
}

}  // namespace qlnmedia
