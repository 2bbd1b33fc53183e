// The shape of a changed file: lengths of values, and fill items that keep triplets where their partition's
// alignment wants them.
#ifndef MEDIA_CONTAINER_MXF_SHAPER_H
#define MEDIA_CONTAINER_MXF_SHAPER_H

#include <optional>

#include "container/mxf/carrier.h"

namespace qlnmedia::mxf {

// Goes over the source once, and puts growth into the carrier's shape and new bytes into what is written.
class Shaper {
 public:
  explicit Shaper(Carrier& carrier);
  void Run();

 private:
  void Take(const Klv& klv);
  void TakeFill(const Klv& fill, const Klv* next);
  void Align(const Klv& next);
  void TakeGrowth(const Klv& klv);
  void Resize(const Klv& fill, uint64_t whole);
  bool IsHeader(const Klv& klv) const;
  bool WantsAlignment(const Klv& klv) const;
  int64_t GrowthOf(const Klv& klv) const;

  Carrier& carrier_;
  const Partition* partition_ = nullptr;
  int64_t shift_ = 0;           // of what comes next
  int64_t partitionShift_ = 0;  // of the partition's begin
  std::optional<Klv> last_;
  std::optional<Klv> fill_;  // that waits for what is behind it
  int64_t owed_ = 0;         // growth that the next fill item takes whole, where it can
};

// The smallest number at or above `least` that is `wanted` but for multiples of `step`.
uint64_t AlignedFrom(uint64_t least, int64_t wanted, uint64_t step);
// A fill item of so many bytes in all, with a length field of at least `lengthBytes`.
Bytes FillItem(uint64_t whole, size_t lengthBytes);

}  // namespace qlnmedia::mxf

#endif
