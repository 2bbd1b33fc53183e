// Takes a change through its steps: samples, descriptions, what grows, and then the boxes.

#include "container/mp4/carrier.h"

#include <algorithm>

#include "container/mp4/fragment_edit.h"
#include "container/mp4/index_edit.h"
#include "container/mp4/picture_size.h"
#include "container/mp4/track_edit.h"
#include "qlnmedia/progress.h"

namespace qlnmedia::mp4 {

namespace {

// Reading samples is about as much work as writing the file.
constexpr double kReadingPart = 0.5;

template <typename Take>
void ForEachTopBox(Reader& reader, Take take) {
  BoxLevel level = BoxLevel::Top(reader);
  for (Box box; level.Next(box);) take(box);
}

}  // namespace

Carrier::Carrier(const Source& source, const CarrierOptions& options)
    : source_(source), initialization_(options.initialization), spool_(options.scratchFolder) {
  std::shared_ptr<const Layout> initialization;
  if (initialization_ != nullptr) initialization = std::make_shared<Layout>(ReadLayout(*initialization_));
  layout_ = ReadLayout(source, std::move(initialization));
  edit_ = std::make_unique<Edit>(source_, layout_, spool_);
}

const Track* Carrier::FindTrack(uint32_t trackId) const {
  for (const Movie& movie : layout_.movies) {
    if (const Track* const track = movie.Find(trackId)) return track;
  }
  if (layout_.initialization == nullptr || !layout_.movies.empty()) return nullptr;
  for (const Movie& movie : layout_.initialization->movies) {
    if (const Track* const track = movie.Find(trackId)) return track;
  }
  return nullptr;
}

const Source& Carrier::described() const {
  return layout_.movies.empty() && initialization_ != nullptr ? *initialization_ : source_;
}

void Carrier::Report(double part) const {
  if (change_->progress && !change_->progress(part)) throw Cancelled();
}

Carrier::Counts Carrier::Prepare(const Change& change, bool keepPlaces) {
  change_ = &change;
  Counts counts;
  RequireTracks();
  PrepareSamples(counts);
  PrepareDescriptions(counts);
  PrepareShape(keepPlaces);
  WriteBoxes();
  const int64_t expected = edit_->samples.growth() + edit_->shape.growth();
  edit_->boxes.Seal(source_);
  RequireBoxesApart(*edit_);
  edit_->samples.Take(edit_->boxes);
  edit_->samples.Seal(source_);
  if (edit_->samples.growth() != expected) {
    throw Error(source_.name(), "the boxes grew by other than was planned; nothing was written");
  }
  return counts;
}

void Carrier::RequireTracks() const {
  for (const TrackChange& track : change_->tracks) {
    if (track.samples != nullptr && layout_.movies.empty() && layout_.initialization == nullptr) {
      throw Error(source_.name(), "a media segment without 'moov'",
                  "its initialization segment is needed as well");
    }
    if (FindTrack(track.trackId) == nullptr) {
      throw Error(source_.name(), "there is no track " + std::to_string(track.trackId));
    }
  }
}

void Carrier::PrepareSamples(Counts& counts) {
  std::set<uint32_t> edited;
  const auto total = static_cast<double>(std::max<uint64_t>(source_.size(), 1));
  uint64_t before = 0;
  for (const TrackChange& track : change_->tracks) {
    if (track.samples == nullptr) continue;
    if (!edited.insert(track.trackId).second) {
      throw Error(source_.name(), "track " + std::to_string(track.trackId) + " is to be changed twice");
    }
    uint64_t read = 0;
    const SampleCounts of = RunSampleEditor(*edit_, track.trackId, *track.samples, [&](uint64_t bytes) {
      read = bytes;
      Report(std::min(1.0, static_cast<double>(before + read) / total) * kReadingPart);
    });
    before += read;
    counts.samples += of.samples;
    counts.changedSamples += of.changed;
  }
  edit_->samples.Seal(source_);
  RequireApart(*edit_, edited);
}

void Carrier::PrepareDescriptions(Counts& counts) {
  for (const TrackChange& change : change_->tracks) {
    const bool grown = edit_->changedTracks.count(change.trackId) != 0;
    const bool wished = !change.privateData.empty() || change.facts.any() || !change.pictures.empty();
    if (!grown && !wished) continue;
    for (const Movie& movie : layout_.movies) {
      const Track* const track = movie.Find(change.trackId);
      if (track == nullptr) continue;
      track->Require();
      std::optional<BitRates> before;
      std::optional<BitRates> after;
      if (grown) {
        before = MeasureBitRates(*edit_, *track, false);
        after = MeasureBitRates(*edit_, *track, true);
      }
      for (uint32_t number = 1; number <= track->descriptions.size(); ++number) {
        const Description& description = track->descriptions[number - 1];
        const bool visual = track->video() && description.entry.bodySize() >= kVisualSampleEntryBytes;
        if (!visual) {
          if (!wished) continue;
          throw source_.Fault(description.entry.at,
                              "track " + std::to_string(track->id) + " is no video track");
        }
        const auto fresh = EditDescription(source_, layout_, *track, number, change,
                                           before ? &*before : nullptr, after ? &*after : nullptr);
        if (!fresh) continue;
        edit_->descriptions[description.entry.at] = *fresh;
        ++counts.descriptions;
      }
    }
  }
}

void Carrier::PrepareShape(bool keepPlaces) {
  for (const Movie& movie : layout_.movies) {
    for (const Track& track : movie.tracks) PlanTrack(*edit_, track);
  }
  if (keepPlaces && layout_.movies.size() == 1) edit_->apartFrom = layout_.movies.front().box.end;
  Reader reader(source_);
  if (!edit_->changedTracks.empty()) {
    for (const uint64_t at : layout_.fragments) {
      PlanFragment(*edit_, ReadFragment(reader, at, layout_.MovieOf(at)));
    }
  }
  std::vector<std::pair<uint64_t, int64_t>> widened;
  for (size_t had = SIZE_MAX; had != edit_->wider.size();) {
    had = edit_->wider.size();
    edit_->SetShape(widened);
    // Short of that no place needs more than 32 bits.
    if (!edit_->moves() || edit_->Map(source_.size()) <= UINT32_MAX) return;
    for (const Movie& movie : layout_.movies) {
      for (const Track& track : movie.tracks) WidenTrack(*edit_, track, widened);
    }
    ForEachTopBox(reader, [&](const Box& box) {
      if (box.type == FourCc("mfra")) WidenRandomAccess(*edit_, reader, box, widened);
      if (box.type != FourCc("mdat") || box.toEnd || box.wideHead() || edit_->wider.count(box.at) != 0)
        return;
      if (box.declared + static_cast<uint64_t>(edit_->Growth(box.at, box.end)) <= UINT32_MAX) return;
      edit_->wider.insert(box.at);
      widened.emplace_back(box.at + 4, 8);
    });
  }
}

void Carrier::WriteBoxes() {
  Reader reader(source_);
  for (const Movie& movie : layout_.movies) {
    for (const Track& track : movie.tracks) {
      WriteTrack(*edit_, track);
      for (const TrackChange& change : change_->tracks) {
        if (change.trackId == track.id) WritePictureSizes(*edit_, track, change.pictures);
      }
    }
    if (edit_->Growth(movie.box.at, movie.box.end) != 0) RequireBody(reader, movie.box, 0);
    edit_->PutBoxSize(reader, movie.box);
  }
  if (!edit_->moves()) return;
  const auto writeItems = [&](const std::vector<Box>& metas) {
    for (const Box& meta : metas) WriteItemLocations(*edit_, reader, meta);
  };
  writeItems(layout_.metas);
  for (const Movie& movie : layout_.movies) {
    writeItems(movie.metas);
    for (const Track& track : movie.tracks) writeItems(track.metas);
  }
  for (const uint64_t at : layout_.fragments) {
    WriteFragment(*edit_, ReadFragment(reader, at, layout_.MovieOf(at)));
  }
  Box index;
  ForEachTopBox(reader, [&](const Box& box) {
    if (box.type == FourCc("sidx")) WriteSegmentIndex(*edit_, reader, box);
    if (box.type == FourCc("ssix") && index.type == FourCc("sidx"))
      WriteSubsegmentIndex(*edit_, reader, box, index);
    if (box.type == FourCc("mfra")) WriteRandomAccess(*edit_, reader, box);
    if (box.type == FourCc("mdat")) edit_->PutBoxSize(reader, box);
    index = box;
  });
}

bool Carrier::resizesPictures() const {
  return std::any_of(change_->tracks.begin(), change_->tracks.end(),
                     [](const TrackChange& track) { return !track.pictures.empty(); });
}

void Carrier::Write(Sink& sink) const {
  const bool edited = std::any_of(change_->tracks.begin(), change_->tracks.end(),
                                  [](const TrackChange& track) { return track.samples != nullptr; });
  const double from = edited ? kReadingPart : 0;
  const auto total = static_cast<double>(std::max<uint64_t>(source_.size(), 1));
  splices().Apply(source_, 0, source_.size(), sink,
                  [&](uint64_t done) { Report(from + static_cast<double>(done) / total * (1 - from)); });
}

}  // namespace qlnmedia::mp4
