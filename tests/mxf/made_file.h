// MXF files put together by hand, with whatever no muxer at hand writes.
#ifndef TESTS_MXF_MADE_FILE_H
#define TESTS_MXF_MADE_FILE_H

#include <cstdint>
#include <string>
#include <vector>

namespace qln::test {

using Bytes = std::vector<uint8_t>;

enum class Indexed { kNot, kByEntries, kByOneSize };
enum class Coded { kAvc, kHevc, kMpeg2, kAvcIntra };

struct MadeOptions {
  uint32_t alignment = 1;  // KAGSize
  int lengthBytes = 4;     // of length fields of essence and fill items
  size_t runIn = 0;
  Indexed index = Indexed::kByEntries;
  bool indexInBody = false;      // segments stand in partitions of their own, between those with essence
  size_t unitsPerPartition = 0;  // 0 for all in one
  size_t unitsPerSegment = 0;
  bool slices = true;  // sound begins a slice of its own
  bool sound = true;
  bool systemItem = true;
  bool ancillary = false;  // an element of SMPTE ST 436
  // Values of such elements, one beside each picture, with a track and a descriptor of their own.
  std::vector<Bytes> ancillaryElements;
  bool ancillaryLines = false;  // they are of lines of the vertical blanking interval
  bool dark = false;            // unknown sets, triplets and tags
  bool footer = true, randomIndex = true;
  bool footerMetadata = false;
  bool open = false;        // partitions that are open and incomplete, as of a file that still grows
  size_t headerFill = 200;  // behind the header metadata; 0 for none
  size_t pictureFill = 0;   // a fill item of so many bytes behind each picture
  Coded coded = Coded::kAvc;
  uint32_t rate = 25, rateScale = 1;
  bool opAtom = false;
  size_t otherContainer =
      0;  // elements of sound in an essence container of their own (3), behind the pictures'
  bool primerHasColour = true;
  bool details = false;  // a sub-descriptor: of AVC where that is coded (level 3, baseline), else one unknown
  std::vector<int8_t> temporalOffsets;  // 0 where there are fewer
};

inline constexpr uint32_t kPictureNumber = 0x15010500, kSoundNumber = 0x16010300;
inline constexpr size_t kOtherElementBytes = 80;
inline constexpr uint16_t kLevelTag = 0x8105, kConstraintsTag = 0x8104, kProfileTag = 0x8103;

// A file of these pictures, one an edit unit.
Bytes MakeFile(const std::vector<Bytes>& pictures, const MadeOptions& options);

// A triplet with a length field of so many bytes.
Bytes Triplet(const std::string& key, const Bytes& value, int lengthBytes = 4);

}  // namespace qln::test

#endif
