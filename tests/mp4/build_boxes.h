// Boxes and small movies put together by hand, so that a test can have any shape that a file may have.
#ifndef TESTS_MP4_BUILD_BOXES_H
#define TESTS_MP4_BUILD_BOXES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

namespace qln::test::mp4 {

using Bytes = std::vector<uint8_t>;

Bytes Number(uint64_t value, size_t bytes);
Bytes Joined(const std::vector<Bytes>& parts);
// Text as bytes.
Bytes Text(const std::string& text);
// `count` bytes that look like noise, always the same for the same seed; none of them begins a box by chance.
Bytes Noise(size_t count, uint32_t seed);

// A box, and one with version and flags. `wide` writes its size as 64 bits.
Bytes Box(const std::string& type, const Bytes& body, bool wide = false);
Bytes Box(const std::string& type, const std::vector<Bytes>& parts);
Bytes Full(const std::string& type, uint8_t version, uint32_t flags, const std::vector<Bytes>& parts);

struct TrackSpec {
  uint32_t id = 1;
  std::string handler = "vide";
  std::string format = "avc1";
  std::vector<Bytes> samples = {};
  std::vector<size_t> chunks = {};                // samples in each; the last one is repeated
  std::vector<uint32_t> descriptionOfChunk = {};  // 1-based; 1 where it is not said
  uint32_t descriptions = 1;
  std::string reference = "url ";  // type of the data reference to the file itself
  bool otherFile = false;          // a second data reference names another file; the last description uses it
  int sizeBits = 32;               // 4, 8 or 16 for stz2
  bool uniform = false;            // one size for all in stsz
  bool wideOffsets = false;        // co64
  bool wideHeads = false;          // stco, stsz and stbl with 64-bit sizes
  std::vector<uint32_t> durations = {};   // of each sample; 100 where it is not said
  std::vector<int32_t> timeOffsets = {};  // ctts, where there are any
  std::vector<uint32_t> sync = {};        // stss, 1-based, where there are any
  Bytes entryBoxes = {};                  // behind the fields of each sample entry
  std::vector<Bytes> entryBoxesOf = {};   // and more, of each description where they differ
  std::vector<Bytes> tableBoxes = {};     // more in stbl
  std::vector<Bytes> trackBoxes = {};     // more in trak
  // More in stbl that names a place of the file, where the first chunk's data begins.
  std::function<Bytes(uint64_t)> placeBox = {};
};

struct MovieSpec {
  std::string brand = "isom";  // none where empty
  std::vector<TrackSpec> tracks = {};
  bool moovFirst = true;
  std::vector<Bytes> moovBoxes = {};  // more in moov
  Bytes behindMoov = {};              // boxes that stand directly behind it
  Bytes behindAll = {};
  Bytes gap = {};          // bytes in front of each chunk that no table names
  bool mdatToEnd = false;  // a size of 0; the file then ends with it
  bool mdatWide = false;
  bool twoMdats = false;  // every second chunk in a media data box of its own
};

// The movie's bytes; chunks of the tracks one after the other in turn.
Bytes BuildMovie(const MovieSpec& spec);
// The `moov` of an initialization segment: tables without samples, and `trex` for each track.
Bytes BuildInit(const MovieSpec& spec, uint32_t defaultSize = 0);

struct TrafSpec {
  uint32_t trackId = 1;
  std::vector<std::vector<Bytes>> runs = {};  // samples of each
  bool explicitBase = false;                  // tfhd names a place
  bool baseIsMoof = true;
  uint32_t description = 0;  // in tfhd, where it is not 0
  uint32_t defaultSize = 0;  // likewise
  bool sizes = true;         // in the runs
  bool durations = false;
  bool firstFlags = false;
  bool timeOffsets = false;
  bool offsets = true;            // of the data, in the first run
  bool offsetsInAll = false;      // and in the others
  int64_t decodeTime = -1;        // tfdt, where it is said
  std::vector<Bytes> boxes = {};  // more
  // More that names a place, counted from the base, at which the first sample stands.
  std::function<Bytes(uint64_t)> placeBox = {};
};

// `moof` and its `mdat`, which stand at `at` in the file.
Bytes BuildFragment(const std::vector<TrafSpec>& tracks, uint64_t at, const Bytes& gap = {});

}  // namespace qln::test::mp4

#endif
