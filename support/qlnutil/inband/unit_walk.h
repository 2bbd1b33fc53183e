// The walk over the NAL units of a frame with start codes, and what the scans ask of a unit.
#ifndef QLNUTIL_INBAND_UNIT_WALK_H
#define QLNUTIL_INBAND_UNIT_WALK_H

#include <algorithm>
#include <cstdint>
#include <limits>

#include "nalstream/nalstream.h"

namespace qln {

// Visits the units of a run of bytes in order. An empty unit ends the walk, as does the last start code.
class UnitWalk {
 public:
  // leastLeft: the walk also ends when fewer bytes than this are left; 4 or more.
  UnitWalk(const uint8_t* data, uint64_t size, uint64_t leastLeft = 4)
      : data_(data), next_(data), end_(data + size), leastLeft_(leastLeft) {}

  // Goes on to the next unit. False when there is none.
  bool Next() {
    const uint64_t left = static_cast<uint64_t>(end_ - next_);
    if (left < leastLeft_) return false;
    int start;
    int behind;
    const int size = find_nal_unit(
        next_, static_cast<int>(std::min<uint64_t>(left, std::numeric_limits<int>::max())), &start, &behind);
    if (size <= 0) return false;
    unit_ = next_ + start;
    size_ = static_cast<uint32_t>(size);
    next_ += behind;
    return true;
  }

  // The unit's first byte, and its bytes up to the next start code; 1 or more.
  const uint8_t* unit() const { return unit_; }
  uint32_t size() const { return size_; }

  // The start code in front of the unit, a zero byte in front of 00 00 01 counting as part of it.
  const uint8_t* code() const {
    const uint8_t* const code = unit_ - 3;
    return code > data_ && code[-1] == 0 ? code - 1 : code;
  }

 private:
  const uint8_t* data_;
  const uint8_t* next_;
  const uint8_t* end_;
  uint64_t leastLeft_;
  const uint8_t* unit_ = nullptr;
  uint32_t size_ = 0;
};

// nal_unit_type from the first byte of an HEVC unit.
constexpr uint32_t HevcUnitType(uint8_t firstByte) { return (firstByte >> 1) & 0x3Fu; }

// The slice types of ITU-T H.265 table 7-1, without the reserved ones.
constexpr bool IsHevcSlice(uint32_t type) { return type <= 9 || (type >= 16 && type <= 21); }

}  // namespace qln

#endif
