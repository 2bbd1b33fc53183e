// The coded pictures of one packet: where each begins and ends (ITU-T H.264 clause 7.4.1.2.3, H.265 clause
// 7.4.2.4.4), and what kinds of slices it has.
#ifndef MEDIA_PICTURES_PICTURE_UNITS_H
#define MEDIA_PICTURES_PICTURE_UNITS_H

#include <cstdint>
#include <map>
#include <vector>

#include "units/units.h"

namespace qlnmedia {

// Indices of units: [begin, end) is the access unit, `slice` the first slice of its coded picture.
struct CodedPicture {
  size_t begin = 0;
  size_t slice = 0;
  size_t end = 0;
};

// Kinds of slices, as bits.
enum SliceKinds : unsigned { kSliceI = 1, kSliceP = 2, kSliceB = 4, kSliceSwitching = 8 };

// Tells the pictures of a stream apart. It is shown every parameter set first.
class PictureReader {
 public:
  explicit PictureReader(Codec codec) : codec_(codec) {}

  // Any unit; those that say nothing of pictures are passed over.
  void TakeSet(ByteSpan unit);

  // The pictures of a packet; none where there is no slice. Two of them are the fields of a frame. Units in
  // front of the first access unit belong to none.
  std::vector<CodedPicture> Pictures(const std::vector<Unit>& units) const;

  // The kinds that a picture's slices have, SliceKinds combined; of an HEVC picture of several slice segments
  // all that it may have. 0 where a header breaks off.
  unsigned SlicesOf(const std::vector<Unit>& units, const CodedPicture& picture) const;

  // The temporal identifier plus 1 of a picture, as an HEVC unit header has it.
  static uint8_t TemporalPlus1(const Unit& slice);

 private:
  bool BeginsPicture(const Unit& unit) const;
  unsigned KindOf(const Unit& slice) const;

  Codec codec_;
  // Baseline and Extended profile, whose slices may come in any order and more than once.
  bool anyOrder_ = false;
  std::map<uint32_t, uint32_t> extraBits_;  // HEVC: num_extra_slice_header_bits by PPS
};

}  // namespace qlnmedia

#endif
