// Sorts pictures by a few that follow, and finds their rate by the first ones.

#include "check/following_captions.h"

#include <algorithm>

#include "units/access_unit.h"
#include "units/config_record.h"

namespace qlnmedia {

namespace {

constexpr size_t kFirst = 64;  // as many as are asked for pulldown

// What the first pictures tell of the order of all.
PicturePlaces PlacesOf(const StreamDescription& stream, const std::vector<PresentationKey>& keys) {
  PicturePlaces places;
  places.timeBase = stream.timeBase;
  places.pictures = static_cast<uint32_t>(keys.size());
  int64_t total = 0;
  for (size_t i = 1; i < keys.size(); ++i) {
    const int64_t step = keys[i].group == keys[i - 1].group ? keys[i].time - keys[i - 1].time : 0;
    places.steps.push_back(static_cast<uint32_t>(std::clamp<int64_t>(step, 0, UINT32_MAX)));
    total += places.steps.back();
  }
  if (total > 0)
    places.picturesPerSecond =
        static_cast<double>(places.steps.size()) / (static_cast<double>(total) * places.timeBase.value());
  return places;
}

}  // namespace

FollowingCaptions::FollowingCaptions(unsigned stream, const StreamDescription& description,
                                     FindingList& findings)
    : index_(stream), stream_(description), findings_(findings), keys_(description), shown_(description) {
  const std::optional<Codec> codec = UnitCodecOf(stream_.codec);
  if (!codec) return;
  const ConfigRecord config = ConfigOf(stream_);
  framing_ = config.framing;
  tracker_.emplace(*codec);
  for (const Bytes& unit : config.units()) tracker_->TakeSet(unit);
}

void FollowingCaptions::Take(const PacketView& packet, PacketUnits& apart, std::optional<double> seconds) {
  std::vector<CodedPicture> pictures;
  bool completes = false;
  if (tracker_) {
    const std::vector<Unit>& units = apart.In(tracker_->codec(), framing_).units;
    pictures = tracker_->Take(units);
    completes = CompletesPicture(tracker_->codec(), units);
  }
  const std::optional<PresentationKey> key = completes ? std::nullopt : keys_.Next(packet, pictures);
  const uint8_t fields = shown_.Take(packet.data);
  const uint8_t count = CaptionCount(CaptionsOf(stream_.codec, apart, framing_));
  if (key) {
    newest_ = {*key, packets_};
    pending_[*newest_] = {count, fields, seconds};
  } else if (newest_) {  // captions of a second field belong to its frame
    const auto frame = pending_.find(*newest_);
    if (frame != pending_.end()) frame->second.count = SumOfCounts(frame->second.count, count);
  }
  ++packets_;
  while (pending_.size() > PresentationOrder::kAhead) Settle();
}

// Hands over the picture that is shown first of those that are left.
void FollowingCaptions::Settle() {
  const auto front = pending_.begin();
  if (run_) {
    run_->Take(front->second);
  } else {
    first_.push_back({front->first.first, front->second});
  }
  pending_.erase(front);
  if (!run_ && first_.size() >= kFirst) Begin();
}

void FollowingCaptions::Begin() {
  std::vector<PresentationKey> keys;
  std::vector<uint8_t> fields;
  for (const Settled& one : first_) {
    keys.push_back(one.key);
    fields.push_back(one.picture.fields);
  }
  PicturePlaces places;
  if (keys_.timed()) places = PlacesOf(stream_, keys);
  const Pace pace = PaceOf(stream_, places);
  const std::optional<captions::Rate> fieldRate =
      shown_.any() ? RateOfFields(fields, places, pace.picturesPerSecond) : std::nullopt;
  run_.emplace(CaptionPace{index_, pace.picturesPerSecond, pace.rate, fieldRate}, findings_);
  for (const Settled& one : first_) run_->Take(one.picture);
  first_ = {};
}

void FollowingCaptions::Finish() {
  while (!pending_.empty()) Settle();
  if (!run_) Begin();
  run_->Finish();
}

}  // namespace qlnmedia
