// Sorts the pictures of a stream as they come.

#include "pictures/order_survey.h"

#include <algorithm>

#include "units/access_unit.h"

namespace qlnmedia {

namespace {

constexpr size_t kSettledAtOnce = 1024;  // with as many behind them, which is more than any stream reorders

}  // namespace

OrderSurvey::OrderSurvey(const StreamDescription& stream) : keys_(stream) {
  result_.timeBase = stream.timeBase;
  const std::optional<Codec> codec = UnitCodecOf(stream.codec);
  if (!codec) return;
  const ConfigRecord config = ConfigOf(stream);
  framing_ = config.framing;
  tracker_.emplace(*codec);
  for (const Bytes& unit : config.units()) tracker_->TakeSet(unit);
}

void OrderSurvey::Add(const PacketView& packet) {
  PacketUnits apart(packet.data);
  Add(packet, apart);
}

void OrderSurvey::Add(const PacketView& packet, PacketUnits& apart) {
  std::vector<CodedPicture> pictures;
  bool completes = false;
  if (tracker_) {
    const std::vector<Unit>& units = apart.In(tracker_->codec(), framing_).units;
    pictures = tracker_->Take(units);
    completes = CompletesPicture(tracker_->codec(), units);
  }
  const std::optional<PresentationKey> key = completes ? std::nullopt : keys_.Next(packet, pictures);
  if (key) pending_.push_back({*key, result_.places.size()});
  result_.places.push_back(kNoPlace);
  if (pending_.size() >= 2 * kSettledAtOnce) Settle(kSettledAtOnce);
}

void OrderSurvey::Settle(size_t count) {
  std::sort(pending_.begin(), pending_.end());
  for (size_t i = 0; i < count; ++i) {
    const auto& [key, packet] = pending_[i];
    result_.places[packet] = result_.pictures++;
    if (settled_ && keys_.timed()) {
      const int64_t step = key.group == settled_->group ? key.time - settled_->time : 0;
      result_.steps.push_back(static_cast<uint32_t>(std::clamp<int64_t>(step, 0, UINT32_MAX)));
      total_ += result_.steps.back();
    }
    settled_ = key;
  }
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(count));
}

PicturePlaces OrderSurvey::Finish() {
  Settle(pending_.size());
  const bool timed = keys_.timed();
  if (!timed) result_.steps.clear();
  if (timed && total_ > 0)
    result_.picturesPerSecond =
        static_cast<double>(result_.steps.size()) / (static_cast<double>(total_) * result_.timeBase.value());
  return std::move(result_);
}

}  // namespace qlnmedia
