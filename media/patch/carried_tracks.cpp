// Pushes samples into stream editors, and gives back what they changed.

#include "patch/carried_tracks.h"

#include <fmt/format.h>

#include <deque>
#include <optional>
#include <set>
#include <utility>

#include "patch/container_facts.h"
#include "units/coded_stream.h"

namespace qlnmedia {

namespace {

// Of each sample at a time, while only the heads of units are looked at.
constexpr size_t kHeadBytes = 512;

// Colour, range, level and their like stand in parameter sets alone.
bool ChangesSetsOnly(const StreamChanges& changes) {
  StreamChanges others = changes;
  others.colour.reset();
  others.fullRange.reset();
  others.sampleAspect.reset();
  others.level.reset();
  others.highTier.reset();
  others.timing.reset();
  others.chromaLocation.reset();
  others.cropping.reset();
  return !others.beyondCaptions() && !others.replaceCaptions;
}

}  // namespace

class CarriedTracks::Editor final : public mp4::SampleEditor {
 public:
  Editor(EditedStream& edited, SampleUnits units, std::string where, bool setsOnly)
      : edited_(edited), units_(std::move(units)), where_(std::move(where)), setsOnly_(setsOnly) {}

  // From here on gives a track the size of pictures of each description that has its sets in its samples
  // alone.
  void FollowPictures(mp4::TrackChange& track) {
    track_ = &track;
    for (const mp4::PictureSize& picture : track.pictures) known_.insert(picture.description);
    config_ = ConfigOf(edited_.stream);
  }

  bool Wants(const mp4::Source& source, const mp4::Sample& sample) override {
    if (!setsOnly_ || !sample.inFile || sample.offset > source.size() ||
        sample.size > source.size() - sample.offset)
      return true;
    if (!reader_) reader_.emplace(source, kHeadBytes);
    return units_.MayHoldSets(*reader_, sample);
  }

  uint64_t headBytes() const override { return setsOnly_ ? kHeadBytes : 0; }

  void Take(const mp4::Sample& sample, mp4::ByteSpan bytes, mp4::SampleReturns& returns) override {
    SampleUnits::Given given;
    if (!units_.Take(sample, bytes, given)) return;
    // What is not given back in parts is read again.
    AccessUnit unit{given.cuts.empty() ? std::move(given.bytes) : given.bytes, sample.compositionTime,
                    sample.decodeTime, sample.sync};
    std::vector<Bytes> sets;
    if (track_ != nullptr && known_.count(sample.description) == 0) sets = UnitsIn(unit.data);
    waiting_.push_back({sample.number, sample.description, std::move(given), std::move(sets)});
    edited_.editor->Push(std::move(unit));
    GiveBack(returns);
  }

  void End(mp4::SampleReturns& returns) override {
    edited_.editor->Finish();
    GiveBack(returns);
  }

 private:
  struct Waiting {
    uint64_t number;
    uint32_t description;
    SampleUnits::Given given;
    std::vector<Bytes> units;  // where they are to be asked for the size of pictures
  };

  std::vector<Bytes> UnitsIn(ByteSpan data) const {
    std::vector<Bytes> units;
    for (Unit& unit : TakeApart(data, config_.framing).units) units.push_back(std::move(unit.bytes));
    return units;
  }

  void TakePictures(const Waiting& waiting, ByteSpan edited) {
    std::optional<mp4::PictureSize> size = PictureSizeOf(config_.codec, waiting.units, UnitsIn(edited));
    if (!size || !known_.insert(waiting.description).second) return;
    size->description = waiting.description;
    track_->pictures.push_back(*size);
  }

  void GiveBack(mp4::SampleReturns& returns) {
    while (std::optional<EditedUnit> edited = edited_.editor->Pull()) {
      const Waiting waiting = std::move(waiting_.front());
      waiting_.pop_front();
      if (!waiting.units.empty()) TakePictures(waiting, edited->unit.data);
      if (!edited->changed) {
        returns.Keep(waiting.number);
        continue;
      }
      const SampleUnits::Returned returned =
          units_.GiveBack(waiting.description, waiting.given, edited->unit.data, where_);
      edited_.borrowedSequenceSets += returned.sequenceSets;
      edited_.borrowedVideoSets += returned.videoSets;
      if (waiting.given.cuts.empty()) {
        returns.Replace(waiting.number, returned.bytes);
      } else {
        returns.ReplaceParts(waiting.number, returned.parts);
      }
    }
  }

  EditedStream& edited_;
  SampleUnits units_;
  std::string where_;
  bool setsOnly_;
  std::optional<mp4::Reader> reader_;
  std::deque<Waiting> waiting_;
  mp4::TrackChange* track_ = nullptr;
  std::set<uint32_t> known_;  // descriptions whose pictures are known
  ConfigRecord config_;
};

namespace {

// Those of the sample descriptions that hold parameter sets.
std::vector<mp4::PictureSize> PicturesOf(const TrackInput& in, unsigned index, const EditedStream& edited) {
  std::vector<mp4::PictureSize> pictures;
  const Codec codec = *UnitCodecOf(edited.stream.codec);
  std::vector<std::vector<uint8_t>> records = in.OtherPrivateData(index);
  records.insert(records.begin(), edited.stream.privateData);
  for (uint32_t i = 0; i < records.size(); ++i) {
    const StreamEditor& editor = i == 0 ? *edited.editor : *edited.others[i - 1];
    std::optional<mp4::PictureSize> size =
        PictureSizeOf(codec, ReadConfigRecord(codec, records[i]).units(),
                      ReadConfigRecord(codec, editor.privateData()).units());
    if (!size) continue;
    size->description = i + 1;
    pictures.push_back(*size);
  }
  return pictures;
}

}  // namespace

CarriedTracks::CarriedTracks(const TrackInput& in, EditedStreams& streams, const EditOptions& options) {
  change_.tracks.reserve(streams.streams().size());  // editors keep their places
  for (auto& [index, edited] : streams.streams()) {
    if (!streams.ChangesPictures(index)) continue;
    editors_.push_back(std::make_unique<Editor>(edited, in.UnitsOf(index),
                                                fmt::format("{}: stream {}", in.path(), index),
                                                ChangesSetsOnly(options) && !streams.HasCaptions(index)));
    mp4::TrackChange track{.trackId = in.TrackId(index), .samples = editors_.back().get()};
    if (UnitCodecOf(edited.stream.codec) && options.beyondCaptions()) {
      track.facts = FactsOf(options, edited.stream);
      const std::vector<uint32_t> boxes = in.RecordBoxes(index);
      for (uint32_t i = 0; i < boxes.size(); ++i) {
        const StreamEditor& editor = i == 0 ? *edited.editor : *edited.others[i - 1];
        if (boxes[i] != 0) track.privateData.push_back({i + 1, boxes[i], editor.privateData()});
      }
      if (options.cropping) track.pictures = PicturesOf(in, index, edited);
    }
    change_.tracks.push_back(std::move(track));
    if (options.cropping && UnitCodecOf(edited.stream.codec))
      editors_.back()->FollowPictures(change_.tracks.back());
  }
}

CarriedTracks::~CarriedTracks() = default;

}  // namespace qlnmedia
