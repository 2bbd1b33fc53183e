// A change on its way into a file: which samples change, where room comes and goes in the boxes, and what is
// written over them.
//
// First the samples are known; then the boxes that grow are found, until none grows further (`shape`); then
// every place is known, and the boxes are written (`boxes`).
#ifndef MEDIA_CONTAINER_MP4_EDIT_H
#define MEDIA_CONTAINER_MP4_EDIT_H

#include <cstdint>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "container/mp4/description_edit.h"
#include "container/mp4/splices.h"

namespace qlnmedia::mp4 {

// How the table of sizes of a track comes out.
struct SizesShape {
  uint8_t bits = 32;     // of an entry
  uint32_t uniform = 0;  // where all are equal and were so before
  bool changed = false;
  int64_t growth = 0;
};

struct Edit {
  Edit(const Source& of, const Layout& with, Spool& spool)
      : source(of), layout(with), samples(spool), shape(spool), boxes(spool), spool_(spool) {}

  const Source& source;
  const Layout& layout;
  Splices samples;  // sealed before anything below is used
  Splices shape;
  Splices boxes;
  std::set<uint32_t> changedTracks;  // those with a changed sample
  // By where the box stands.
  std::map<uint64_t, SizesShape> sizes;
  std::map<uint64_t, NewDescription> descriptions;
  std::set<uint64_t> wider;  // boxes whose places of 32 bits become 64 bits wide
  // Where the file's movie ends, if its growth is to move nothing behind it, since it gets a place of its
  // own.
  uint64_t apartFrom = UINT64_MAX;
  // Growth that hangs on samples only: place, bytes.
  std::vector<std::pair<uint64_t, int64_t>> fixedGrowth;

  // Where a place of the file is to be found afterwards. One beyond the file, or "nowhere" (0 is the file's
  // begin and stays), is as it was.
  uint64_t Map(uint64_t at) const {
    if (at > source.size()) return at;
    const int64_t apart = at >= apartFrom ? shape.growth() : 0;
    return at + static_cast<uint64_t>(samples.ShiftAt(at) + shape.ShiftAt(at) - apart);
  }
  // The same of a place that counts from the begin of the file that the box at `of` is in.
  uint64_t MapAbsolute(uint64_t place, uint64_t of) const {
    const uint64_t origin = source.OriginOf(of);
    return place > source.size() - origin ? place : Map(origin + place) - Map(origin);
  }
  // By how many bytes what stands between two places grows.
  int64_t Growth(uint64_t begin, uint64_t end) const {
    return samples.GrowthIn(begin, end) + shape.GrowthIn(begin, end);
  }
  uint64_t SampleSize(uint64_t offset, uint32_t size) const {
    return size + static_cast<uint64_t>(samples.GrowthIn(offset, offset + size));
  }
  // True where any place of the file may be another afterwards, or the size of any sample.
  bool moves() const { return samplesGrow_ || (shapeGrows_ && apartFrom == UINT64_MAX); }

  // Lays `shape` out anew from fixedGrowth and `widened` (place and growth of each wider box).
  void SetShape(const std::vector<std::pair<uint64_t, int64_t>>& widened);

  // Writes a number over one of the file where it is another. Throws Error, naming `what`, where it does
  // not fit.
  void PutNumber(Reader& reader, uint64_t at, size_t bytes, uint64_t value, const char* what);
  // Writes a box's size where it changed.
  void PutBoxSize(Reader& reader, const Box& box);

 private:
  Spool& spool_;
  bool samplesGrow_ = false;
  bool shapeGrows_ = false;
};

}  // namespace qlnmedia::mp4

#endif
