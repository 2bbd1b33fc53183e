// Steps through the tables of a track side by side.

#include "container/mp4/sample_table.h"

#include <algorithm>

namespace qlnmedia::mp4 {

namespace {

// Times come out of the file, so that their sum may be anything.
int64_t Later(int64_t time, int64_t by) {
  return static_cast<int64_t>(static_cast<uint64_t>(time) + static_cast<uint64_t>(by));
}

}  // namespace

ChunkCursor::ChunkCursor(const Source& source, const Track& track)
    : track_(track), runs_(source), offsets_(source, 1 << 14) {}

bool ChunkCursor::Next(Chunk& chunk) {
  const Table& runs = track_.chunkRuns;
  if (next_ == track_.chunkOffsets.count || runs.count == 0) return false;
  while (next_ >= nextRunAt_ && run_ < runs.count) {
    const uint64_t at = runs.at + 12 * run_;
    const uint64_t first = runs_.U32(at);
    if (first == 0 || first - 1 != nextRunAt_) {
      throw runs_.source().Fault(at, "box 'stsc' begins a run at chunk " + std::to_string(first) +
                                         " and not at " + std::to_string(nextRunAt_ + 1));
    }
    chunk_.samples = runs_.U32(at + 4);
    chunk_.description = runs_.U32(at + 8);
    ++run_;
    nextRunAt_ = track_.chunkOffsets.count;
    if (run_ < runs.count) {
      const uint64_t next = runs_.U32(runs.at + 12 * run_);
      if (next <= first) {
        throw runs_.source().Fault(runs.at + 12 * run_, "box 'stsc' names chunk " + std::to_string(next) +
                                                            " behind chunk " + std::to_string(first));
      }
      nextRunAt_ = next - 1;
    }
  }
  const size_t width = track_.wideOffsets() ? 8 : 4;
  chunk_.offset = offsets_.Number(track_.chunkOffsets.at + width * next_, width);
  chunk_.number = next_++;
  chunk_.firstSample = nextSample_;
  nextSample_ += chunk_.samples;
  chunk = chunk_;
  return true;
}

uint32_t SizeCursor::At(uint64_t sample) {
  if (sizes_->uniform != 0) return sizes_->uniform;
  if (sizes_->bits == 4) {
    const uint8_t two = reader_.U8(sizes_->at + sample / 2);
    return sample % 2 == 0 ? two >> 4 : two & 15U;
  }
  const size_t width = sizes_->bits / 8U;
  return static_cast<uint32_t>(reader_.Number(sizes_->at + sample * width, width));
}

uint64_t SizeCursor::Sum(uint64_t first, uint64_t count) {
  const uint64_t end = std::min<uint64_t>(first + count, sizes_->samples);
  if (first >= end) return 0;
  if (sizes_->uniform != 0) return (end - first) * sizes_->uniform;
  uint64_t sum = 0;
  for (uint64_t i = first; i < end; ++i) sum += At(i);
  return sum;
}

uint32_t TableSamples::Runs::Next() {
  while (left_ == 0) {
    if (entry_ == table_->count) return value_;  // what is left has the last value
    left_ = reader_.U32(table_->at + 8 * entry_);
    value_ = reader_.U32(table_->at + 8 * entry_ + 4);
    ++entry_;
  }
  --left_;
  return value_;
}

TableSamples::TableSamples(const Source& source, const Track& track)
    : source_(source),
      track_(track),
      chunks_(source, track),
      sizes_(source, track),
      durations_(source, track.durations),
      timeOffsets_(source, track.timeOffsets),
      sync_(source) {
  track.Require();
}

bool TableSamples::Next(Sample& sample) {
  if (next_ == track_.sizes.samples) return false;
  while (leftInChunk_ == 0) {
    if (!chunks_.Next(chunk_)) {
      throw source_.Fault(track_.chunkRuns.box.at, "track " + std::to_string(track_.id) + " has sizes of " +
                                                       std::to_string(track_.sizes.samples) +
                                                       " samples and chunks for " + std::to_string(next_));
    }
    leftInChunk_ = chunk_.samples;
    offset_ = chunk_.offset;
  }
  --leftInChunk_;
  sample.number = next_;
  sample.offset = offset_;
  sample.size = sizes_.At(next_);
  sample.duration = durations_.Next();
  sample.decodeTime = time_;
  const uint32_t timeOffset = track_.timeOffsets.count != 0 ? timeOffsets_.Next() : 0;
  // Version 0 says that offsets are not negative, but QuickTime writes negative ones under it.
  sample.compositionTime = Later(time_, static_cast<int32_t>(timeOffset));
  sample.description = chunk_.description;
  sample.inFile = track_.IsSelfContained(chunk_.description);
  sample.encrypted = track_.IsEncrypted(chunk_.description);
  sample.sync = !track_.syncSamples.there();
  while (nextSync_ < track_.syncSamples.count) {
    const uint32_t sync = sync_.U32(track_.syncSamples.at + 4 * nextSync_);
    if (sync > next_ + 1) break;
    sample.sync = sample.sync || sync == next_ + 1;
    ++nextSync_;
  }
  if (offset_ > UINT64_MAX - sample.size) {
    throw source_.Fault(track_.chunkOffsets.box.at, "a chunk stands beyond every file");
  }
  offset_ += sample.size;
  time_ = Later(time_, sample.duration);
  ++next_;
  return true;
}

TrackSamples::TrackSamples(const Source& source, const Layout& layout, uint32_t trackId)
    : source_(source), layout_(layout), trackId_(trackId), reader_(source) {}

TrackSamples::~TrackSamples() = default;

bool TrackSamples::Next(Sample& sample) {
  if (!NextOfMovies(sample) && !NextOfFragments(sample)) return false;
  sample.number = next_++;
  return true;
}

bool TrackSamples::NextOfMovies(Sample& sample) {
  for (; movie_ < layout_.movies.size(); ++movie_, table_.reset()) {
    const Track* const track = layout_.movies[movie_].Find(trackId_);
    if (track == nullptr) continue;
    if (!table_) table_.emplace(source_, *track);
    if (!table_->Next(sample)) continue;
    time_ = Later(sample.decodeTime, sample.duration);
    return true;
  }
  return false;
}

bool TrackSamples::NextOfFragments(Sample& sample) {
  while (fragment_ < layout_.fragments.size()) {
    const Movie* const movie = layout_.MovieOf(layout_.fragments[fragment_]);
    if (!opened_) {
      opened_ = ReadFragment(reader_, layout_.fragments[fragment_], movie);
      traf_ = trun_ = 0;
    }
    for (; traf_ < opened_->tracks.size(); ++traf_, trun_ = 0) {
      const TrackFragment& traf = opened_->tracks[traf_];
      if (traf.trackId != trackId_) continue;
      for (; trun_ < traf.runs.size(); ++trun_, run_.reset()) {
        const Run& run = traf.runs[trun_];
        if (!run_) {
          run_.emplace(source_, traf, run);
          offset_ = static_cast<uint64_t>(run.dataAt);
          if (trun_ == 0 && traf.decodeTime) time_ = static_cast<int64_t>(*traf.decodeTime);
        }
        RunSample of;
        if (!run_->Next(of)) continue;
        const Track* const track = movie == nullptr ? nullptr : movie->Find(trackId_);
        sample.offset = offset_;
        sample.size = of.size;
        offset_ += of.size;
        sample.duration = of.duration;
        sample.decodeTime = time_;
        sample.compositionTime = Later(time_, of.timeOffset);
        sample.sync = (of.flags & 0x10000) == 0;  // sample_is_non_sync_sample
        sample.description = traf.defaults.description;
        sample.inFile = track == nullptr || track->IsSelfContained(sample.description);
        sample.encrypted = traf.encrypted || (track != nullptr && track->IsEncrypted(sample.description));
        time_ = Later(time_, of.duration);
        return true;
      }
    }
    opened_.reset();
    ++fragment_;
  }
  return false;
}

void RequireSample(const Source& source, uint32_t trackId, const Sample& sample) {
  if (!sample.inFile) {
    throw source.Fault(0, "samples of track " + std::to_string(trackId) + " stand in another file");
  }
  if (sample.offset > source.size() || sample.size > source.size() - sample.offset) {
    throw source.Fault(sample.offset, "sample " + std::to_string(sample.number + 1) + " of track " +
                                          std::to_string(trackId) + " is outside the file");
  }
}

void ReadSample(const Source& source, uint32_t trackId, const Sample& sample, Bytes& bytes) {
  RequireSample(source, trackId, sample);
  bytes.resize(sample.size);
  source.Read(sample.offset, bytes);
}

}  // namespace qlnmedia::mp4
