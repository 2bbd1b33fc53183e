// Presentation order out of times, picture order counts, or temporal references.

#include "qlnmedia/picture_places.h"

#include <algorithm>
#include <tuple>

#include "qlnmedia/coded_stream.h"
#include "qlnmedia/mpeg2_units.h"

namespace qlnmedia {

namespace {

constexpr int64_t kTemporalReferences = 1024;

}  // namespace

PictureOrder::PictureOrder(const AVStream& stream, bool raw)
    : timeBase_(stream.time_base), raw_(raw), codec_(stream.codecpar->codec_id) {
  if (codec_ == AV_CODEC_ID_MPEG2VIDEO) return;  // a packet holds both fields, and its own order
  const ConfigRecord config = ConfigOf(stream);
  framing_ = config.framing;
  tracker_.emplace(codec_ == AV_CODEC_ID_H264 ? Codec::kH264 : Codec::kHevc);
  for (const Bytes& unit : config.units()) tracker_->TakeSet(unit);
}

PictureOrder::Key PictureOrder::KeyOfUnits(const AVPacket& packet) {
  const UnitRun run = TakeApart(ByteSpan(packet.data, static_cast<size_t>(packet.size)), framing_);
  const std::vector<TrackedPicture> pictures = tracker_->Take(run.units);
  const size_t number = packets_++;
  if (pictures.empty() ? raw_ : pictures[0].secondField) return {0, 0, SIZE_MAX};
  if (!raw_) return {0, packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts, number};
  const OrderCount& order = pictures[0].order;
  return {order.group, std::min(order.top, order.bottom), number};
}

PictureOrder::Key PictureOrder::KeyOfMpeg2(ByteSpan data) {
  const size_t number = packets_++;
  const Mpeg2Picture picture = ReadMpeg2Picture(data);
  if (!picture.found) return {0, 0, SIZE_MAX};
  // References begin anew with a group of pictures, and wrap in streams that have none.
  if (picture.beginsGroup || picture.temporalReference + kTemporalReferences / 2 < lastOrder_) ++group_;
  lastOrder_ = picture.temporalReference;
  return {group_, picture.temporalReference, number};
}

void PictureOrder::Add(const AVPacket& packet) {
  const ByteSpan data(packet.data, static_cast<size_t>(packet.size));
  Key key{};
  if (codec_ != AV_CODEC_ID_MPEG2VIDEO)
    key = KeyOfUnits(packet);
  else if (raw_ || packet.pts == AV_NOPTS_VALUE)
    key = KeyOfMpeg2(data);
  else
    key = {0, packet.pts, packets_++};
  if (key.packet != SIZE_MAX) keys_.push_back(key);
}

PicturePlaces PictureOrder::Finish() const {
  std::vector<Key> sorted = keys_;
  std::sort(sorted.begin(), sorted.end(), [](const Key& a, const Key& b) {
    return std::tie(a.group, a.order, a.packet) < std::tie(b.group, b.order, b.packet);
  });
  PicturePlaces result;
  result.places.assign(packets_, kNoPlace);
  for (const Key& key : sorted) result.places[key.packet] = result.pictures++;
  if (!raw_ && sorted.size() > 1 && sorted.back().order > sorted.front().order)
    result.picturesPerSecond =
        static_cast<double>(sorted.size() - 1) /
        (static_cast<double>(sorted.back().order - sorted.front().order) * av_q2d(timeBase_));
  return result;
}

}  // namespace qlnmedia
