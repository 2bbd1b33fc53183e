// Takes a change through its steps: frames, track entries, and what follows from them.

#include "container/mkv/carrier.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "container/mkv/shape.h"
#include "container/mkv/track_edit.h"
#include "qlnmedia/progress.h"

namespace qlnmedia::mkv {

namespace {

// Reading frames is about as much work as writing the file.
constexpr double kReadingPart = 0.5;

}  // namespace

Carrier::Carrier(const Source& source, const std::string& scratchFolder)
    : source_(source), layout_(mkv::ReadLayout(source)), spool_(scratchFolder), contents_(spool_) {}

void Carrier::Report(double part) const {
  if (change_->progress && !change_->progress(part)) throw Cancelled();
}

FrameCounts Carrier::Prepare(const mp4::Change& change) {
  change_ = &change;
  std::set<uint64_t> tracks;
  for (const mp4::TrackChange& track : change.tracks) {
    if (layout_.tracks.count(track.trackId) == 0)
      throw Error(source_.name(), fmt::format("there is no track {}", track.trackId));
    if (!tracks.insert(track.trackId).second)
      throw Error(source_.name(), fmt::format("track {} is to be changed twice", track.trackId));
  }
  const auto total = static_cast<double>(std::max<uint64_t>(source_.size(), 1));
  const FrameCounts counts = RunFrameEditors(source_, layout_, change, contents_, [&](uint64_t at) {
    Report(static_cast<double>(at) / total * kReadingPart);
  });
  for (const mp4::TrackChange& track : change.tracks) ChangeEntries(track);
  contents_.Seal(source_);
  PutShape(source_, layout_, contents_, spool_);
  return counts;
}

void Carrier::ChangeEntries(const mp4::TrackChange& change) {
  if (change.privateData.empty() && change.pictures.empty() && !change.facts.any()) return;
  for (const Entry& entry : layout_.tracks.at(change.trackId)) {
    const Element& element = entry.element;
    const Bytes fresh = ChangedEntry(source_, entry, layout_.segments[entry.segment].limits, change);
    contents_.AddDifference(element.at, Reader(source_).Run(element.at, element.end - element.at), fresh);
  }
}

void Carrier::Write(mp4::Sink& sink) const {
  const auto total = static_cast<double>(std::max<uint64_t>(source_.size(), 1));
  contents_.Apply(source_, 0, source_.size(), sink, [&](uint64_t done) {
    Report(kReadingPart + static_cast<double>(done) / total * (1 - kReadingPart));
  });
}

}  // namespace qlnmedia::mkv
