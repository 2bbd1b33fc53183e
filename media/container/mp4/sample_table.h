// Samples of a track in decoding order, one at a time: from the tables of its `moov`, then from its
// fragments. Nothing is collected; what is held is a window of a few kilobytes on each table.
#ifndef MEDIA_CONTAINER_MP4_SAMPLE_TABLE_H
#define MEDIA_CONTAINER_MP4_SAMPLE_TABLE_H

#include <cstdint>
#include <optional>

#include "container/mp4/fragment.h"
#include "container/mp4/movie.h"

namespace qlnmedia::mp4 {

struct Sample {
  uint64_t number = 0;    // from 0, in decoding order, over the whole file
  uint64_t offset = 0;    // bytes from the file's begin
  uint32_t size = 0;      // bytes
  uint32_t duration = 0;  // this and the times in units of the track's timescale
  int64_t decodeTime = 0;
  int64_t compositionTime = 0;
  bool sync = false;
  uint32_t description = 1;  // 1-based
  bool inFile = true;        // false where the data reference names another file
  bool encrypted = false;    // by its description or its fragment
};

// Throws Error, naming sample and track, for a sample that is not all there.
void RequireSample(const Source& source, uint32_t trackId, const Sample& sample);
// Reads a sample's bytes, and throws as above.
void ReadSample(const Source& source, uint32_t trackId, const Sample& sample, Bytes& bytes);

// Chunks of a track with where they begin and how many samples they hold.
struct Chunk {
  uint64_t number = 0;  // from 0
  uint64_t offset = 0;
  uint64_t firstSample = 0;
  uint32_t samples = 0;
  uint32_t description = 1;
};

// Goes over the chunks that the tables of a `moov` name. Throws Error where `stsc` does not count
// upwards.
class ChunkCursor {
 public:
  ChunkCursor(const Source& source, const Track& track);
  bool Next(Chunk& chunk);

 private:
  const Track& track_;
  Reader runs_;
  Reader offsets_;
  uint64_t run_ = 0;        // of chunkRuns, whose first chunk was reached
  uint64_t nextRunAt_ = 0;  // the chunk (from 0) at which the next run begins
  Chunk chunk_;
  uint64_t next_ = 0;
  uint64_t nextSample_ = 0;
};

// Sizes of samples by number; steps forward are cheap.
class SizeCursor {
 public:
  SizeCursor(const Source& source, const Track& track) : sizes_(&track.sizes), reader_(source) {}
  uint32_t At(uint64_t sample);
  // Bytes of samples that stand behind each other.
  uint64_t Sum(uint64_t first, uint64_t count);

 private:
  const SizeTable* sizes_;
  Reader reader_;
};

// Samples that the tables of a `moov` name. Throws Error, with the place, where tables disagree.
class TableSamples {
 public:
  TableSamples(const Source& source, const Track& track);
  bool Next(Sample& sample);

 private:
  // A table of runs (count, value): the value of the next sample.
  class Runs {
   public:
    Runs(const Source& source, const Table& table) : table_(&table), reader_(source) {}
    uint32_t Next();

   private:
    const Table* table_;
    Reader reader_;
    uint64_t entry_ = 0;
    uint32_t left_ = 0;
    uint32_t value_ = 0;
  };

  const Source& source_;
  const Track& track_;
  ChunkCursor chunks_;
  SizeCursor sizes_;
  Runs durations_;
  Runs timeOffsets_;
  Reader sync_;
  uint64_t nextSync_ = 0;  // entry of stss
  Chunk chunk_;
  uint32_t leftInChunk_ = 0;
  uint64_t offset_ = 0;
  uint64_t next_ = 0;
  int64_t time_ = 0;
};

// All samples of a track, of all movies and fragments of a file. `layout` has to outlive it.
class TrackSamples {
 public:
  TrackSamples(const Source& source, const Layout& layout, uint32_t trackId);
  ~TrackSamples();
  // Throws Error where tables or fragments cannot be relied on.
  bool Next(Sample& sample);

 private:
  bool NextOfMovies(Sample& sample);
  bool NextOfFragments(Sample& sample);

  const Source& source_;
  const Layout& layout_;
  uint32_t trackId_;
  Reader reader_;
  size_t movie_ = 0;
  std::optional<TableSamples> table_;
  size_t fragment_ = 0;
  std::optional<Fragment> opened_;
  std::optional<RunSamples> run_;
  size_t traf_ = 0;
  size_t trun_ = 0;
  uint64_t offset_ = 0;  // of the run's next sample
  uint64_t next_ = 0;
  int64_t time_ = 0;
};

}  // namespace qlnmedia::mp4

#endif
