// One movie fragment (`moof`, ISO/IEC 14496-12 clause 8.8) taken apart by place, and the samples of its runs.
#ifndef MEDIA_CONTAINER_MP4_FRAGMENT_H
#define MEDIA_CONTAINER_MP4_FRAGMENT_H

#include <cstdint>
#include <optional>
#include <vector>

#include "container/mp4/movie.h"

namespace qlnmedia::mp4 {

// A `trun`.
struct Run {
  Box box;
  uint8_t version = 0;
  uint32_t flags = 0;
  uint32_t samples = 0;
  uint64_t dataOffsetAt = 0;  // of the field; 0 where there is none
  int32_t dataOffset = 0;
  uint64_t firstFlagsAt = 0;  // of first_sample_flags; 0 where there is none
  uint64_t entriesAt = 0;
  uint8_t entryBytes = 0;  // of one sample's fields; may be 0
  int64_t dataAt = 0;      // where the first sample stands, in bytes from the file's begin
  uint64_t dataBytes = 0;

  bool hasSizes() const { return (flags & 0x200) != 0; }
  // Of a sample's size in its entry.
  uint8_t sizeColumn() const { return (flags & 0x100) != 0 ? 4 : 0; }
};

// A `traf`.
struct TrackFragment {
  Box box;
  Box header;  // tfhd
  uint32_t trackId = 0;
  uint32_t flags = 0;
  int64_t base = 0;           // of data offsets, whoever says so
  uint64_t baseAt = 0;        // of the field base_data_offset; 0 where there is none
  uint64_t sizeAt = 0;        // of default_sample_size; 0 where there is none
  bool baseIsMoof = false;    // otherwise, without a field, it is where the data of the one before ended
  FragmentDefaults defaults;  // with what the header says over those of the movie
  std::optional<uint64_t> decodeTime;  // tfdt
  std::vector<Run> runs;
  std::vector<Box> auxiliaryOffsets;  // saio
  std::vector<Box> subSamples;        // subs
  std::vector<Box> metas;             // with meco
  bool encrypted = false;             // it holds `senc` or what came before it
};

struct Fragment {
  Box box;
  std::vector<Box> metas;  // with meco
  std::vector<TrackFragment> tracks;
};

// Reads the fragment at a place. `movie` gives defaults; null where there is none. Throws Error where it
// cannot be relied on.
Fragment ReadFragment(Reader& reader, uint64_t at, const Movie* movie);

struct RunSample {
  uint32_t size = 0;
  uint32_t duration = 0;
  uint32_t flags = 0;
  int64_t timeOffset = 0;
};

// Samples of one run, one at a time.
class RunSamples {
 public:
  RunSamples(const Source& source, const TrackFragment& track, const Run& run)
      : reader_(source), track_(track), run_(run) {}
  bool Next(RunSample& sample);

 private:
  Reader reader_;
  const TrackFragment& track_;
  const Run& run_;
  uint32_t next_ = 0;
};

}  // namespace qlnmedia::mp4

#endif
