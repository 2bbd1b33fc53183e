// Reads caption messages out of packets and puts them in presentation order.

#include "qlnmedia/caption_reader.h"

#include <algorithm>
#include <cmath>

#include "qlnmedia/access_unit.h"
#include "qlnmedia/coded_stream.h"
#include "qlnmedia/mpeg2_units.h"
#include "qlnmedia/progress.h"
#include "qlnmedia/tool_error.h"

namespace qlnmedia {

namespace captions = qln::captions;

namespace {

void Append(std::optional<Triplets>& all, const std::optional<Triplets>& more) {
  if (!more) return;
  if (!all) all.emplace();
  all->insert(all->end(), more->begin(), more->end());
}

// The known rate that is nearest, within one part in two hundred.
std::optional<captions::Rate> NearestRate(double picturesPerSecond) {
  std::optional<captions::Rate> best;
  double bestDistance = 0.005;
  for (int i = 0; i < captions::kRateCount; ++i) {
    const captions::RateInfo& info = captions::InfoOf(static_cast<captions::Rate>(i));
    const double distance = std::fabs(picturesPerSecond * info.denominator / info.numerator - 1);
    if (distance >= bestDistance) continue;
    bestDistance = distance;
    best = static_cast<captions::Rate>(i);
  }
  return best;
}

}  // namespace

bool MayHaveCaptions(const AVStream& stream) {
  return CodecOf(stream).has_value() ||
         (MediaFile::IsVideo(stream) && stream.codecpar->codec_id == AV_CODEC_ID_MPEG2VIDEO);
}

std::optional<Triplets> CaptionsOf(AVCodecID codecId, ByteSpan data, const ConfigRecord& config) {
  std::optional<Triplets> all;
  if (codecId == AV_CODEC_ID_MPEG2VIDEO) {
    for (const Mpeg2Unit& unit : Mpeg2Units(data)) {
      if (unit.code == kMpeg2UserData)
        Append(all, captions::ReadUserData(data.subspan(unit.at + 4, unit.size - 4)));
    }
    return all;
  }
  const Codec codec = codecId == AV_CODEC_ID_H264 ? Codec::kH264 : Codec::kHevc;
  for (const Unit& unit : TakeApart(data, config.framing).units) {
    if (!IsSei(codec, UnitType(codec, unit.bytes))) continue;
    for (const SeiMessage& message : ReadSeiMessages(codec, unit.bytes)) {
      if (message.type == captions::kRegisteredUserData)
        Append(all, captions::ReadRegisteredUserData(message.payload));
    }
  }
  return all;
}

size_t StreamCaptions::captioned() const {
  return static_cast<size_t>(
      std::count_if(pictures.begin(), pictures.end(), [](const auto& p) { return p.has_value(); }));
}

std::vector<Triplets> StreamCaptions::triplets() const {
  std::vector<Triplets> all;
  for (const std::optional<Triplets>& picture : pictures) all.push_back(picture.value_or(Triplets()));
  return all;
}

double PictureRate(const AVStream& stream, const PicturePlaces& order) {
  // Times of a clip of few pictures may be rounded coarsely; a wrong rate is further off than that.
  for (const AVRational rate : {stream.avg_frame_rate, stream.r_frame_rate}) {
    if (!captions::RateOf(rate.num, rate.den)) continue;
    if (order.picturesPerSecond == 0 || std::fabs(order.picturesPerSecond / av_q2d(rate) - 1) < 0.03)
      return av_q2d(rate);
  }
  return order.picturesPerSecond;
}

StreamCaptions ReadStreamCaptions(const std::string& path, size_t packets) {
  MediaFile file(path);
  file.RequireVideo();
  StreamCaptions result;
  while (result.stream < file.context()->nb_streams &&
         !MayHaveCaptions(*file.context()->streams[result.stream]))
    ++result.stream;
  if (result.stream == file.context()->nb_streams)
    throw ToolError(path, "has no H.264, HEVC or MPEG-2 stream");
  const AVStream& stream = *file.context()->streams[result.stream];
  const ConfigRecord config = ConfigOf(stream);
  PictureOrder order(stream, file.isRawStream());
  std::vector<std::optional<Triplets>> coded;
  const PacketHandle packet(av_packet_alloc());
  if (packet == nullptr) throw std::bad_alloc();
  Progress progress("reading", file.sizeBytes());
  while (coded.size() < packets && file.Read(packet.get())) {
    progress.At(packet->pos);
    if (packet->stream_index != static_cast<int>(result.stream)) continue;
    order.Add(*packet);
    coded.push_back(CaptionsOf(stream.codecpar->codec_id,
                               ByteSpan(packet->data, static_cast<size_t>(packet->size)), config));
  }
  progress.Done();
  result.order = order.Finish();
  result.picturesPerSecond = PictureRate(stream, result.order);
  result.rate = NearestRate(result.picturesPerSecond);
  result.pictures.resize(result.order.pictures);
  uint32_t frame = 0;
  for (size_t i = 0; i < coded.size(); ++i) {
    // Captions of a second field belong to its frame.
    if (result.order.places[i] != kNoPlace) frame = result.order.places[i];
    if (frame < result.pictures.size()) Append(result.pictures[frame], coded[i]);
  }
  return result;
}

}  // namespace qlnmedia
