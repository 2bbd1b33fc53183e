// Reads a track's samples one by one; of what comes back only the bytes that differ are kept.

#include "container/mp4/sample_pass.h"

#include <algorithm>
#include <deque>
#include <optional>

namespace qlnmedia::mp4 {

namespace {

class Returns final : public SampleReturns {
 public:
  Returns(Edit& edit, uint32_t trackId) : edit_(edit), trackId_(trackId) {}

  void Given(const Sample& sample, const Bytes* bytes) {
    // Numbers only count upwards: behind the last that came back nothing in front of it is asked for.
    while (!waiting_.empty() && waiting_.front().number < next_) waiting_.pop_front();
    waiting_.push_back(sample);
    current_ = bytes;
  }
  void NoCurrent() { current_ = nullptr; }

  void Replace(uint64_t number, ByteSpan bytes) override {
    const Sample sample = TakeBack(number);
    const bool isCurrent = current_ != nullptr && waiting_.empty();
    const Bytes& old = isCurrent ? *current_ : Load(sample);
    if (std::equal(old.begin(), old.end(), bytes.begin(), bytes.end())) return;
    if (old.empty() || bytes.empty()) {
      throw edit_.source.Fault(sample.offset, Name(number) + " is empty, or would become so");
    }
    RequireMayChange(sample, bytes.size());
    edit_.samples.AddDifference(sample.offset, old, bytes);
    ++changed_;
  }

  void ReplaceParts(uint64_t number, std::span<const SamplePart> parts) override {
    const Sample sample = TakeBack(number);
    uint64_t size = sample.size;
    uint64_t end = 0;  // of the part before
    bool differs = false;
    for (const SamplePart& part : parts) {
      if (part.was.empty() || part.at < end || part.at > sample.size ||
          part.was.size() > sample.size - part.at)
        throw edit_.source.Fault(sample.offset, Name(number) + " came back in parts that it does not have");
      end = part.at + part.was.size();
      size += part.is.size();
      size -= part.was.size();
      differs = differs || part.was != part.is;
    }
    if (!differs) return;
    RequireMayChange(sample, size);
    for (const SamplePart& part : parts)
      edit_.samples.AddDifference(sample.offset + part.at, part.was, part.is);
    ++changed_;
  }

  uint64_t changed() const { return changed_; }

 private:
  Sample TakeBack(uint64_t number) {
    const auto found = std::find_if(waiting_.begin(), waiting_.end(),
                                    [=](const Sample& sample) { return sample.number == number; });
    if (number < next_ || found == waiting_.end()) {
      throw Error(edit_.source.name(), Name(number) + " came back out of order");
    }
    const Sample sample = *found;
    waiting_.erase(waiting_.begin(), found + 1);
    next_ = number + 1;
    return sample;
  }

  void RequireMayChange(const Sample& sample, uint64_t size) const {
    if (sample.encrypted) {
      throw edit_.source.Fault(sample.offset, Name(sample.number) + " is encrypted and cannot be changed");
    }
    if (size > UINT32_MAX) throw edit_.source.Fault(sample.offset, Name(sample.number) + " would pass 4 GiB");
  }

  std::string Name(uint64_t number) const {
    return "sample " + std::to_string(number + 1) + " of track " + std::to_string(trackId_);
  }

  const Bytes& Load(const Sample& sample) {
    loaded_.resize(sample.size);
    edit_.source.Read(sample.offset, loaded_);
    return loaded_;
  }

  Edit& edit_;
  uint32_t trackId_;
  std::deque<Sample> waiting_;
  const Bytes* current_ = nullptr;
  Bytes loaded_;
  uint64_t next_ = 0;
  uint64_t changed_ = 0;
};

// Marks splices, each of which must belong to one sample or chunk only.
class Claims {
 public:
  explicit Claims(const Edit& edit) : edit_(edit), taken_(edit.samples.size()) {}

  void TakeSample(uint64_t begin, uint64_t end, uint32_t trackId) {
    for (size_t i = edit_.samples.FirstReaching(begin); i < taken_.size() && edit_.samples.At(i).at < end;
         ++i) {
      if (taken_[i]) {
        throw edit_.source.Fault(
            begin, "a changed sample shares its bytes with another of track " + std::to_string(trackId));
      }
      taken_[i] = true;
    }
  }

  void RequireNoneIn(uint64_t begin, uint64_t end, uint32_t trackId) const {
    const size_t first = edit_.samples.FirstReaching(begin);
    if (first < taken_.size() && edit_.samples.At(first).at < end) {
      throw edit_.source.Fault(begin, "a changed sample overlaps data of track " + std::to_string(trackId));
    }
  }

 private:
  const Edit& edit_;
  std::vector<bool> taken_;
};

void RequireInMediaData(const Edit& edit) {
  Reader reader(edit.source);
  size_t next = 0;
  BoxLevel level = BoxLevel::Top(reader);
  for (Box box; level.Next(box) && next < edit.samples.size();) {
    if (box.type != FourCc("mdat")) continue;
    for (; next < edit.samples.size(); ++next) {
      const Splices::Splice splice = edit.samples.At(next);
      if (splice.at >= box.end) break;
      if (splice.at < box.body || splice.at + splice.removed > box.end) {
        throw edit.source.Fault(splice.at, "a changed sample is outside the media data ('mdat')");
      }
    }
  }
  if (next < edit.samples.size()) {
    throw edit.source.Fault(edit.samples.At(next).at, "a changed sample is outside the media data ('mdat')");
  }
}

// Packets of a hint track are made of parts of samples, by place and length, and would no longer be true.
void RequireNotHinted(const Edit& edit) {
  for (const Movie& movie : edit.layout.movies) {
    for (const Track& track : movie.tracks) {
      for (const uint32_t hinted : track.hinted) {
        if (track.handler != FourCc("hint") || edit.changedTracks.count(hinted) == 0) continue;
        throw edit.source.Fault(track.box.at,
                                "track " + std::to_string(track.id) +
                                    " is a hint track that names parts of the samples of track " +
                                    std::to_string(hinted));
      }
    }
  }
}

// Calls `take` with each stretch of a track's data that the tables of the movie name.
template <typename Take>
void ForEachChunk(const Source& source, const Track& track, Take take) {
  ChunkCursor chunks(source, track);
  SizeCursor sizes(source, track);
  for (Chunk chunk; chunks.Next(chunk) && chunk.firstSample < track.sizes.samples;) {
    if (!track.IsSelfContained(chunk.description)) continue;
    const uint64_t bytes = sizes.Sum(chunk.firstSample, chunk.samples);
    if (chunk.offset <= UINT64_MAX - bytes) take(chunk.offset, chunk.offset + bytes);
  }
}

// With each that the fragments name, and the number of its track.
template <typename Take>
void ForEachRun(const Source& source, const Layout& layout, Take take) {
  Reader reader(source);
  for (const uint64_t at : layout.fragments) {
    const Fragment fragment = ReadFragment(reader, at, layout.MovieOf(at));
    for (const TrackFragment& track : fragment.tracks) {
      for (const Run& run : track.runs) {
        if (run.dataAt < 0) continue;
        const auto begin = static_cast<uint64_t>(run.dataAt);
        take(track.trackId, begin, begin + run.dataBytes);
      }
    }
  }
}

// With each of both, but for tracks that cannot be relied on.
template <typename Take>
void ForEachStretch(const Source& source, const Layout& layout, Take take) {
  for (const Movie& movie : layout.movies) {
    for (const Track& track : movie.tracks) {
      if (!track.problem.empty()) continue;
      ForEachChunk(source, track, [&](uint64_t begin, uint64_t end) { take(track.id, begin, end); });
    }
  }
  ForEachRun(source, layout, take);
}

// Tells the source of samples' heads some way ahead of the pass: one after the other they would take a disk's
// whole time for finding a place once for each picture.
class HeadsAhead {
 public:
  HeadsAhead(const Edit& edit, uint32_t trackId, uint64_t headBytes) : edit_(edit), bytes_(headBytes) {
    if (bytes_ != 0) ahead_.emplace(edit.source, edit.layout, trackId);
  }

  // `number` is that of the sample that comes next.
  void GoTo(uint64_t number) {
    constexpr uint64_t kSamplesAhead = 256;
    for (Sample sample; ahead_ && next_ < number + kSamplesAhead; ++next_) {
      if (!ahead_->Next(sample)) {
        ahead_.reset();
        return;
      }
      if (sample.inFile) edit_.source.Announce(sample.offset, std::min<uint64_t>(sample.size, bytes_));
    }
  }

 private:
  const Edit& edit_;
  uint64_t bytes_;
  std::optional<TrackSamples> ahead_;
  uint64_t next_ = 0;
};

}  // namespace

SampleCounts RunSampleEditor(Edit& edit, uint32_t trackId, SampleEditor& editor,
                             const std::function<void(uint64_t)>& read) {
  TrackSamples samples(edit.source, edit.layout, trackId);
  Returns returns(edit, trackId);
  SampleCounts counts;
  Bytes bytes;
  uint64_t done = 0;
  HeadsAhead heads(edit, trackId, editor.headBytes());
  for (Sample sample; samples.Next(sample); ++counts.samples) {
    heads.GoTo(counts.samples);
    if (editor.Wants(edit.source, sample)) {
      ReadSample(edit.source, trackId, sample, bytes);
      returns.Given(sample, &bytes);
      editor.Take(sample, bytes, returns);
    }
    done += sample.size;
    read(done);
  }
  returns.NoCurrent();
  editor.End(returns);
  counts.changed = returns.changed();
  if (counts.changed != 0) edit.changedTracks.insert(trackId);
  return counts;
}

void RequireApart(const Edit& edit, const std::set<uint32_t>& edited) {
  if (edit.samples.empty()) return;
  RequireInMediaData(edit);
  RequireNotHinted(edit);
  Claims claims(edit);
  for (const uint32_t trackId : edited) {
    TrackSamples samples(edit.source, edit.layout, trackId);
    for (Sample sample; samples.Next(sample);) {
      claims.TakeSample(sample.offset, sample.offset + sample.size, trackId);
    }
  }
  for (const Movie& movie : edit.layout.movies) {
    for (const Track& track : movie.tracks) {
      if (edited.count(track.id) != 0) continue;
      track.Require();
      ForEachChunk(edit.source, track,
                   [&](uint64_t begin, uint64_t end) { claims.RequireNoneIn(begin, end, track.id); });
    }
  }
  ForEachRun(edit.source, edit.layout, [&](uint32_t trackId, uint64_t begin, uint64_t end) {
    if (edited.count(trackId) == 0) claims.RequireNoneIn(begin, end, trackId);
  });
}

void RequireBoxesApart(const Edit& edit) {
  if (edit.boxes.empty() || !edit.moves()) return;
  ForEachStretch(edit.source, edit.layout, [&edit](uint32_t trackId, uint64_t begin, uint64_t end) {
    const size_t first = edit.boxes.FirstReaching(begin);
    if (first == edit.boxes.size() || edit.boxes.At(first).at >= end) return;
    throw edit.source.Fault(begin, "data of track " + std::to_string(trackId) + " covers a box that changes");
  });
}

void RequireNoDataIn(const Source& source, const Layout& layout, uint64_t begin, uint64_t end) {
  ForEachStretch(source, layout, [&](uint32_t trackId, uint64_t from, uint64_t to) {
    if (from < end && to > begin)
      throw source.Fault(from,
                         "data of track " + std::to_string(trackId) + " stands where the change would go");
  });
}

BitRates MeasureBitRates(const Edit& edit, const Track& track, bool after) {
  __extension__ using Wide = unsigned __int128;
  const auto bytesOf = [&](const Sample& sample) -> uint64_t {
    return after ? edit.SampleSize(sample.offset, sample.size) : sample.size;
  };
  BitRates rates;
  uint64_t total = 0;
  uint64_t duration = 0;
  uint64_t second = 0;  // bytes from `oldest` to here
  uint64_t most = 0;
  TrackSamples samples(edit.source, edit.layout, track.id);
  TrackSamples behind(edit.source, edit.layout, track.id);
  Sample oldest;
  bool any = behind.Next(oldest);
  for (Sample sample; any && samples.Next(sample);) {
    const uint64_t bytes = bytesOf(sample);
    rates.buffer = std::max(rates.buffer, static_cast<uint32_t>(bytes));
    total += bytes;
    duration += sample.duration;
    second += bytes;
    while (oldest.number < sample.number && oldest.decodeTime <= sample.decodeTime &&
           static_cast<uint64_t>(sample.decodeTime) - static_cast<uint64_t>(oldest.decodeTime) >=
               track.timescale) {
      second -= bytesOf(oldest);
      behind.Next(oldest);
    }
    most = std::max(most, second);
  }
  rates.most = static_cast<uint32_t>(std::min<uint64_t>(most * 8, UINT32_MAX));
  if (duration != 0) {
    const Wide average = Wide{total} * 8 * track.timescale / duration;
    rates.average = static_cast<uint32_t>(std::min<Wide>(average, UINT32_MAX));
  }
  return rates;
}

}  // namespace qlnmedia::mp4
