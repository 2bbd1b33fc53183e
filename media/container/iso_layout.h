// How an MP4 or MOV file is laid out (ISO/IEC 14496-12): what its muxer must be told to write the like, and
// what it holds that would be lost.
#ifndef MEDIA_CONTAINER_ISO_LAYOUT_H
#define MEDIA_CONTAINER_ISO_LAYOUT_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qlnmedia {

struct IsoTrack {
  uint32_t id = 0;
  bool video = false;
  uint32_t samples = 0;             // that the index names
  uint32_t sampleDescriptions = 0;  // entries of stsd
  uint32_t edits = 0;               // entries of elst that show media
  bool editsAtOtherRates = false;
  // Types of the boxes in a video track's first sample description, and of its references to other tracks.
  std::vector<std::string> descriptionBoxes;
  std::vector<std::string> references;
};

struct IsoLayout {
  std::string brand;                     // major_brand of ftyp; empty where there is none
  bool indexInFront = false;             // moov stands in front of the media data
  bool fragmented = false;               // moov announces fragments (mvex)
  bool baseIsMoof = false;               // the first fragment says default-base-is-moof
  bool chapterList = false;              // udta holds a chpl box
  std::vector<uint64_t> fragments;       // where each moof begins, in bytes
  std::vector<uint64_t> segmentIndexes;  // where each sidx begins
  std::vector<IsoTrack> tracks;
  // The first box of the file's outermost level whose size is not possible, or leads past the end of the
  // file.
  struct WrongBox {
    std::string type;
    uint64_t at = 0;
    uint64_t said = 0;  // the size that it says
    uint64_t left = 0;  // bytes from its beginning to the end of the file
  };
  std::optional<WrongBox> wrongBox;
  // Null where no track has that id.
  const IsoTrack* Track(uint32_t id) const;
  // True where each fragment has a segment index of its own, and not the file as a whole.
  bool indexesFragments() const;
  // True where the index itself names samples.
  bool indexHasSamples() const;
  bool hasEdits() const;
};

// Walks a file's boxes. Whatever does not fit ends the walk of its surroundings; what was found stands.
IsoLayout ReadIsoLayout(const std::string& path);

}  // namespace qlnmedia

#endif
