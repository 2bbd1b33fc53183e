// Pushes samples into stream editors, and gives back what they changed.

#include "patch/carried_tracks.h"

#include <fmt/format.h>

#include <deque>
#include <optional>
#include <utility>

#include "patch/container_facts.h"

namespace qlnmedia {

namespace {

// Of each sample at a time, while only the heads of units are looked at.
constexpr size_t kHeadBytes = 512;

// Colour and range stand in parameter sets alone.
bool ChangesSetsOnly(const StreamChanges& changes) {
  StreamChanges others = changes;
  others.colour.reset();
  others.fullRange.reset();
  return !others.beyondCaptions() && !others.replaceCaptions;
}

}  // namespace

class CarriedTracks::Editor final : public mp4::SampleEditor {
 public:
  Editor(EditedStream& edited, SampleUnits units, std::string where, bool setsOnly)
      : edited_(edited), units_(std::move(units)), where_(std::move(where)), setsOnly_(setsOnly) {}

  bool Wants(const mp4::Source& source, const mp4::Sample& sample) override {
    if (!setsOnly_ || !sample.inFile || sample.offset > source.size() ||
        sample.size > source.size() - sample.offset)
      return true;
    if (!reader_) reader_.emplace(source, kHeadBytes);
    return units_.MayHoldSets(*reader_, sample);
  }

  void Take(const mp4::Sample& sample, mp4::ByteSpan bytes, mp4::SampleReturns& returns) override {
    SampleUnits::Given given;
    if (!units_.Take(sample, bytes, given)) return;
    AccessUnit unit{std::move(given.bytes), sample.compositionTime, sample.decodeTime, sample.sync};
    given.bytes.clear();
    waiting_.push_back({sample.number, sample.description, std::move(given)});
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
  };

  void GiveBack(mp4::SampleReturns& returns) {
    while (std::optional<EditedUnit> edited = edited_.editor->Pull()) {
      const Waiting waiting = std::move(waiting_.front());
      waiting_.pop_front();
      if (!edited->changed) continue;
      const SampleUnits::Returned returned =
          units_.GiveBack(waiting.description, waiting.given, edited->unit.data, where_);
      edited_.borrowedSequenceSets += returned.sequenceSets;
      edited_.borrowedVideoSets += returned.videoSets;
      returns.Replace(waiting.number, returned.bytes);
    }
  }

  EditedStream& edited_;
  SampleUnits units_;
  std::string where_;
  bool setsOnly_;
  std::optional<mp4::Reader> reader_;
  std::deque<Waiting> waiting_;
};

CarriedTracks::CarriedTracks(const CarriedInput& in, EditedStreams& streams, const EditOptions& options) {
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
    }
    change_.tracks.push_back(std::move(track));
  }
}

CarriedTracks::~CarriedTracks() = default;

}  // namespace qlnmedia
