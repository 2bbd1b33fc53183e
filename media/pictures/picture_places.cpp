// Presentation order out of times, picture order counts, or temporal references.

#include "pictures/picture_places.h"

#include <algorithm>
#include <tuple>

#include "container/coded_stream.h"
#include "units/mpeg2.h"

namespace qlnmedia {

namespace {

constexpr int64_t kTemporalReferences = 1024;
constexpr size_t kSettledAtOnce = 1024;  // with as many behind them, which is more than any stream reorders

}  // namespace

PictureOrder::PictureOrder(const AVStream& stream, bool raw)
    : timed_(!raw), codec_(stream.codecpar->codec_id) {
  result_.timeBase = stream.time_base;
  if (codec_ == AV_CODEC_ID_MPEG2VIDEO) return;  // a packet holds both fields, and its own order
  const ConfigRecord config = ConfigOf(stream);
  framing_ = config.framing;
  tracker_.emplace(codec_ == AV_CODEC_ID_H264 ? Codec::kH264 : Codec::kHevc);
  for (const Bytes& unit : config.units()) tracker_->TakeSet(unit);
}

PictureOrder::Key PictureOrder::KeyOfTimes(const AVPacket& packet) {
  // Decoding times go back only where one recording ends and another begins.
  if (packet.dts != AV_NOPTS_VALUE) {
    const bool anew = lastDecoding_ != INT64_MIN &&
                      static_cast<double>(lastDecoding_ - packet.dts) * av_q2d(result_.timeBase) > 1;
    if (anew) ++group_;
    lastDecoding_ = packet.dts;
  }
  if (packet.pts != AV_NOPTS_VALUE)
    lastOrder_ = packet.pts;
  else if (packet.dts != AV_NOPTS_VALUE)
    lastOrder_ = packet.dts;
  return {group_, lastOrder_, result_.places.size()};
}

std::optional<PictureOrder::Key> PictureOrder::KeyOfUnits(const AVPacket& packet) {
  const UnitRun run = TakeApart(ByteSpan(packet.data, static_cast<size_t>(packet.size)), framing_);
  const std::vector<TrackedPicture> pictures = tracker_->Take(run.units);
  if (pictures.empty() ? !timed_ : pictures[0].secondField) return {};
  if (timed_) return KeyOfTimes(packet);
  const OrderCount& order = pictures[0].order;
  return Key{order.group, std::min(order.top, order.bottom), result_.places.size()};
}

std::optional<PictureOrder::Key> PictureOrder::KeyOfMpeg2(ByteSpan data) {
  timed_ = false;  // for good: the two kinds of order do not mix
  const Mpeg2Picture picture = ReadMpeg2Picture(data);
  if (!picture.found) return {};
  // References begin anew with a group of pictures, and wrap in streams that have none.
  if (picture.beginsGroup || picture.temporalReference + kTemporalReferences / 2 < lastOrder_) ++group_;
  lastOrder_ = picture.temporalReference;
  return Key{group_, picture.temporalReference, result_.places.size()};
}

void PictureOrder::Add(const AVPacket& packet) {
  std::optional<Key> key;
  if (codec_ != AV_CODEC_ID_MPEG2VIDEO)
    key = KeyOfUnits(packet);
  else if (!timed_ || packet.pts == AV_NOPTS_VALUE)
    key = KeyOfMpeg2(ByteSpan(packet.data, static_cast<size_t>(packet.size)));
  else
    key = KeyOfTimes(packet);
  result_.places.push_back(kNoPlace);
  if (key) pending_.push_back(*key);
  if (pending_.size() >= 2 * kSettledAtOnce) Settle(kSettledAtOnce);
}

void PictureOrder::Settle(size_t count) {
  std::sort(pending_.begin(), pending_.end(), [](const Key& a, const Key& b) {
    return std::tie(a.group, a.order, a.packet) < std::tie(b.group, b.order, b.packet);
  });
  for (size_t i = 0; i < count; ++i) {
    const Key& key = pending_[i];
    result_.places[key.packet] = result_.pictures++;
    if (settled_ && timed_) {
      const int64_t step = key.group == settled_->group ? key.order - settled_->order : 0;
      result_.steps.push_back(static_cast<uint32_t>(std::clamp<int64_t>(step, 0, UINT32_MAX)));
      total_ += result_.steps.back();
    }
    settled_ = key;
  }
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(count));
}

PicturePlaces PictureOrder::Finish() {
  Settle(pending_.size());
  if (!timed_) result_.steps.clear();
  if (timed_ && total_ > 0)
    result_.picturesPerSecond =
        static_cast<double>(result_.steps.size()) / (static_cast<double>(total_) * av_q2d(result_.timeBase));
  return std::move(result_);
}

}  // namespace qlnmedia
