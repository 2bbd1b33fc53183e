// Frames that are made up so that the library makes a unit, or reads one.
#ifndef MEDIA_UNITS_LIBRARY_FRAME_H
#define MEDIA_UNITS_LIBRARY_FRAME_H

#include <vector>

#include "qlnutil/qlnframe.h"
#include "units/units.h"

namespace qlnmedia {

// A frame of units with start codes of 4 bytes, with room behind them for what the library adds.
class LibraryFrame {
 public:
  explicit LibraryFrame(const std::vector<Bytes>& units);
  LibraryFrame(const LibraryFrame&) = delete;
  LibraryFrame& operator=(const LibraryFrame&) = delete;

  DFrame& frame() { return frame_; }
  // Bytes that the units had when it was made.
  uint32_t sizeBefore() const { return sizeBefore_; }
  // The units that stand in it.
  std::vector<Unit> units() const;

 private:
  Bytes data_;
  DFrame frame_{};
  uint32_t sizeBefore_;
};

// The beginning of a slice of an intra picture, header and all: the least in front of which makers put units.
Bytes SliceStub(Codec codec);

}  // namespace qlnmedia

#endif
