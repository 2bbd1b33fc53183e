// The pictures of a file's tracks, element of essence by element, with the times that its index tells.
#ifndef MEDIA_CONTAINER_MXF_PICTURES_H
#define MEDIA_CONTAINER_MXF_PICTURES_H

#include <cstdint>
#include <optional>
#include <vector>

#include "container/mxf/layout.h"

namespace qlnmedia::mxf {

// Presentation times of an essence container's edit units, in edit units. A byte of memory for each.
class UnitTimes {
 public:
  UnitTimes(const Source& source, const Layout& layout, uint32_t bodySid);

  // When the unit that is stored as number `stored` is shown; nothing where the index does not tell.
  std::optional<int64_t> ShownAt(uint64_t stored) const;
  // True where the index marks it as a place where decoding can start.
  bool IsEntry(uint64_t stored) const;
  // True where every one of the first `units` units has a time, and none the same as another.
  bool Complete(uint64_t units) const;

 private:
  struct Run {
    uint64_t start = 0;
    std::vector<int8_t> offsets;
    std::vector<uint8_t> flags;
  };
  const Run* RunOf(uint64_t unit) const;

  std::vector<Run> runs_;  // by start, without overlaps
  bool constant_ = false;  // units of one size, shown as they are stored
};

struct Picture {
  Klv klv;
  size_t track = 0;     // place in the list of tracks
  uint64_t number = 0;  // of the track's pictures, in the order in which they are stored
  Bytes bytes;
};

class PictureReader {
 public:
  // `tracks`: those whose pictures are wanted. All are kept by the caller.
  PictureReader(const Source& source, const Layout& layout, const std::vector<PictureTrack>& tracks);

  // The next picture of any of them; false behind the last. Throws Error for one that is larger than any
  // picture may be.
  bool Next(Picture& picture);

 private:
  const Layout& layout_;
  const std::vector<PictureTrack>& tracks_;
  KlvReader triplets_;
  std::vector<uint64_t> counts_;
};

// True where the first picture of a file begins as an access unit of HEVC does: with a delimiter or a video
// parameter set. Labels of its wrapping are not known to every reader. Throws Error as ReadLayout does.
bool BeginsWithHevc(const Source& source);

}  // namespace qlnmedia::mxf

#endif
