// Picture order counts, by which decoders order pictures for output.
#ifndef MEDIA_PICTURES_ORDER_COUNT_H
#define MEDIA_PICTURES_ORDER_COUNT_H

#include <cstdint>

#include "pictures/slice_head.h"

namespace qlnmedia {

// Where a picture stands in output order: all pictures of a group precede those of the next.
struct OrderCount {
  int64_t group = 0;
  int64_t top = 0;  // of a frame's or field's top field; of a single field or an HEVC picture both are one
  int64_t bottom = 0;
};

// Derives the counts of a stream's pictures (ITU-T H.264 clause 8.2.1, H.265 clause 8.3.1), which are given
// in coding order, each by its first slice.
class OrderCounter {
 public:
  explicit OrderCounter(Codec codec) : codec_(codec) {}
  // `secondField`: the field pairs with the one in front of it.
  OrderCount Next(const SliceHead& head, bool secondField);
  // An end of sequence unit of HEVC: the next picture begins anew.
  void EndSequence() { anew_ = true; }

 private:
  OrderCount NextH264(const SliceHead& head);
  OrderCount NextHevc(const SliceHead& head);
  OrderCount CountOfType0(const SliceHead& head);
  OrderCount CountOfTypes12(const SliceHead& head);
  // The most significant part, by the distance from the picture before.
  int64_t MostSignificant(uint32_t lsb, uint32_t lsbBits) const;

  Codec codec_;
  int64_t group_ = 0;
  int64_t previousMsb_ = 0;
  int64_t previousLsb_ = 0;
  int64_t frameNumOffset_ = 0;
  int64_t previousFrameNum_ = 0;
  bool anew_ = true;
};

}  // namespace qlnmedia

#endif
