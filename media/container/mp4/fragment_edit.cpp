// Rewrites a `moof` in memory, which it is small enough for, and puts the difference into the file.

#include "container/mp4/fragment_edit.h"

#include <utility>

#include "container/mp4/index_edit.h"
#include "container/mp4/memory_sink.h"
#include "container/mp4/track_edit.h"

namespace qlnmedia::mp4 {

namespace {

// Goes over the samples of a run with their places.
template <typename Take>
void ForEachSample(const Edit& edit, const TrackFragment& track, const Run& run, Take take) {
  RunSamples samples(edit.source, track, run);
  auto offset = static_cast<uint64_t>(run.dataAt);
  for (RunSample sample; samples.Next(sample); offset += sample.size) take(offset, sample);
}

uint64_t NewSize(const Edit& edit, uint64_t offset, const RunSample& sample) {
  const uint64_t size = edit.SampleSize(offset, sample.size);
  if (size > UINT32_MAX) throw edit.source.Fault(offset, "a sample would pass 4 GiB");
  return size;
}

// What becomes of sizes that stand in front of the runs and not in them.
struct DefaultSizes {
  bool newDefault = false;  // all samples without a size of their own have the same new one
  uint64_t size = 0;
  std::vector<bool> columns;  // by run: it gets sizes of its own
};

DefaultSizes PlanDefaultSizes(const Edit& edit, const TrackFragment& track) {
  DefaultSizes out;
  out.columns.resize(track.runs.size());
  bool any = false;
  bool equal = true;
  for (size_t i = 0; i < track.runs.size(); ++i) {
    if (track.runs[i].hasSizes()) continue;
    ForEachSample(edit, track, track.runs[i], [&](uint64_t offset, const RunSample& sample) {
      const uint64_t size = NewSize(edit, offset, sample);
      equal = equal && (!any || size == out.size);
      out.size = size;
      any = true;
      if (size != sample.size) out.columns[i] = true;
    });
  }
  if (any && equal && track.sizeAt != 0 && out.size != track.defaults.size) {
    out.newDefault = true;
    out.columns.assign(track.runs.size(), false);
  }
  return out;
}

bool Changes(const Edit& edit, const TrackFragment& track) {
  return edit.changedTracks.count(track.trackId) != 0;
}

class TrackFragmentWriter {
 public:
  TrackFragmentWriter(Edit& edit, Reader& reader, const TrackFragment& track, int64_t newBase)
      : edit_(edit), reader_(reader), track_(track), newBase_(newBase) {}

  // Gives where the data of the track fragment ends afterwards.
  int64_t Write() {
    if (track_.baseAt != 0) {
      const uint64_t origin = edit_.Map(edit_.source.OriginOf(track_.box.at));
      edit_.PutNumber(reader_, track_.baseAt, 8, static_cast<uint64_t>(newBase_) - origin,
                      "base_data_offset");
    }
    DefaultSizes sizes;
    sizes.columns.resize(track_.runs.size());
    if (Changes(edit_, track_)) sizes = PlanDefaultSizes(edit_, track_);
    if (sizes.newDefault) edit_.PutNumber(reader_, track_.sizeAt, 4, sizes.size, "default_sample_size");
    int64_t at = newBase_;
    for (size_t i = 0; i < track_.runs.size(); ++i) {
      const Run& run = track_.runs[i];
      const int64_t start = Place(run.dataAt);
      if (run.dataOffsetAt == 0 && start != at) {
        throw edit_.source.Fault(run.box.at, "a run of samples does not begin where the one before ends");
      }
      WriteRun(run, sizes.columns[i], start - newBase_);
      edit_.PutBoxSize(reader_, run.box);
      at = Place(run.dataAt + static_cast<int64_t>(run.dataBytes));
    }
    for (const Box& box : track_.auxiliaryOffsets) {
      WriteAuxiliaryOffsets(edit_, reader_, box, track_.base, newBase_);
    }
    if (Changes(edit_, track_)) WriteParts();
    edit_.PutBoxSize(reader_, track_.box);
    return at;
  }

 private:
  // Places outside the file are left alone.
  int64_t Place(int64_t at) const {
    return at < 0 ? at : static_cast<int64_t>(edit_.Map(static_cast<uint64_t>(at)));
  }

  uint32_t NewDataOffset(const Run& run, int64_t offset) const {
    const bool outside = run.dataAt < 0 || static_cast<uint64_t>(run.dataAt) > edit_.source.size();
    if (outside) return static_cast<uint32_t>(run.dataOffset);
    if (offset > INT32_MAX || offset < INT32_MIN) {
      throw edit_.source.Fault(run.dataOffsetAt, "data_offset would not fit its 32 bits");
    }
    return static_cast<uint32_t>(static_cast<int32_t>(offset));
  }

  void WriteRun(const Run& run, bool column, int64_t offset) {
    if (!column) {
      if (run.dataOffsetAt != 0) {
        edit_.PutNumber(reader_, run.dataOffsetAt, 4, NewDataOffset(run, offset), "data_offset");
      }
      if (!run.hasSizes() || !Changes(edit_, track_)) return;
      uint64_t at = run.entriesAt + run.sizeColumn();
      ForEachSample(edit_, track_, run, [&](uint64_t place, const RunSample& sample) {
        edit_.PutNumber(reader_, at, 4, NewSize(edit_, place, sample), "sample_size");
        at += run.entryBytes;
      });
      return;
    }
    Bytes fresh = NumberBytes(uint64_t{run.version} << 24 | run.flags | 0x200, 4);
    PutNumber(fresh, run.samples, 4);
    if (run.dataOffsetAt != 0) PutNumber(fresh, NewDataOffset(run, offset), 4);
    if (run.firstFlagsAt != 0) PutNumber(fresh, reader_.U32(run.firstFlagsAt), 4);
    uint64_t at = run.entriesAt;
    ForEachSample(edit_, track_, run, [&](uint64_t place, const RunSample& sample) {
      const size_t before = run.sizeColumn();
      if (before != 0) PutNumber(fresh, reader_.U32(at), 4);
      PutNumber(fresh, NewSize(edit_, place, sample), 4);
      for (size_t field = before; field < run.entryBytes; field += 4)
        PutNumber(fresh, reader_.U32(at + field), 4);
      at += run.entryBytes;
    });
    edit_.boxes.Add(run.box.body, static_cast<uint32_t>(at - run.box.body), fresh);
  }

  // Sizes and places of all samples of a track fragment, for `subs`.
  class AllSizes final : public SampleSizes {
   public:
    AllSizes(const Source& source, const TrackFragment& track) : source_(source), track_(track) {}
    bool Next(uint64_t& offset, uint32_t& size) override {
      for (; run_ < track_.runs.size(); ++run_, samples_.reset()) {
        if (!samples_) {
          samples_.emplace(source_, track_, track_.runs[run_]);
          at_ = static_cast<uint64_t>(track_.runs[run_].dataAt);
        }
        RunSample sample;
        if (!samples_->Next(sample)) continue;
        offset = at_;
        size = sample.size;
        at_ += size;
        return true;
      }
      return false;
    }

   private:
    const Source& source_;
    const TrackFragment& track_;
    size_t run_ = 0;
    std::optional<RunSamples> samples_;
    uint64_t at_ = 0;
  };

  void WriteParts() {
    for (const Box& box : track_.subSamples) {
      AllSizes sizes(edit_.source, track_);
      WriteSubSamples(edit_, reader_, box, sizes);
    }
  }

  Edit& edit_;
  Reader& reader_;
  const TrackFragment& track_;
  int64_t newBase_;
};

bool IsElsewhere(const Edit& edit, const Fragment& fragment, const TrackFragment& track) {
  const Movie* const movie = edit.layout.MovieOf(fragment.box.at);
  const Track* const of = movie == nullptr ? nullptr : movie->Find(track.trackId);
  return of != nullptr && !of->IsSelfContained(track.defaults.description);
}

}  // namespace

void PlanFragment(Edit& edit, const Fragment& fragment) {
  for (const TrackFragment& track : fragment.tracks) {
    if (!Changes(edit, track)) continue;
    const DefaultSizes sizes = PlanDefaultSizes(edit, track);
    for (size_t i = 0; i < track.runs.size(); ++i) {
      if (sizes.columns[i])
        edit.fixedGrowth.emplace_back(track.runs[i].box.body, 4 * int64_t{track.runs[i].samples});
    }
  }
}

void WriteFragment(Edit& edit, const Fragment& fragment) {
  Reader reader(edit.source);
  Spool scratch;
  Splices outer = std::exchange(edit.boxes, Splices(scratch));
  const auto moofAt = static_cast<int64_t>(edit.Map(fragment.box.at));
  int64_t dataEnd = moofAt;
  for (const Box& meta : fragment.metas) WriteItemLocations(edit, reader, meta);
  for (const TrackFragment& track : fragment.tracks) {
    for (const Box& meta : track.metas) WriteItemLocations(edit, reader, meta);
    if (IsElsewhere(edit, fragment, track)) {
      edit.PutBoxSize(reader, track.box);
      continue;
    }
    int64_t base = track.baseIsMoof ? moofAt : dataEnd;
    if (track.baseAt != 0) base = static_cast<int64_t>(edit.Map(static_cast<uint64_t>(track.base)));
    dataEnd = TrackFragmentWriter(edit, reader, track, base).Write();
  }
  edit.PutBoxSize(reader, fragment.box);
  Splices local = std::exchange(edit.boxes, std::move(outer));
  if (local.empty()) return;
  local.Seal(edit.source);
  MemorySink fresh;
  local.Apply(edit.source, fragment.box.at, fragment.box.end, fresh, [](uint64_t) {});
  edit.boxes.AddDifference(fragment.box.at, reader.Run(fragment.box.at, fragment.box.size()), fresh.bytes());
}

}  // namespace qlnmedia::mp4
