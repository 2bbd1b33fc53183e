// The walk over the NAL units of a frame in marker form that hands out its parameter sets.

#include <algorithm>
#include <climits>
#include <cstring>

#include "nalstream/nalstream.h"
#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/qlnhevc.h"

namespace qln {
namespace {

// Place of a unit behind a position; size 0 with both offsets 0 where there is none.
struct UnitPlace {
  uint64_t size;
  uint64_t start;
  uint64_t end;
};

// The frame from a cursor on. What is left is counted apart from the cursor, which some types move further
// than they should: bytes behind the frame's end then still count, match nothing and read as 0.
class Scan {
 public:
  Scan(const uint8_t* data, uint32_t size) : data_(data), size_(size), left_(size) {}

  uint64_t left() const { return left_; }

  UnitPlace FindUnit() const {
    if (left_ < 4) return {left_, 0, 0};  // each of the last bytes counts as a unit that does nothing
    uint64_t present = std::min<uint64_t>(std::min(left_, Present(cursor_)), INT_MAX);
    // Fewer than four bytes of the frame under what is left may still hold a start code.
    uint8_t few[8];
    const uint8_t* bytes = data_ + std::min(cursor_, size_);
    if (present < 4) {
      std::memset(few, 0xFF, sizeof few);
      if (present != 0) std::memcpy(few, bytes, present);
      bytes = few;
      present = sizeof few;
    }
    int start = 0;
    int end = 0;
    find_nal_unit(bytes, static_cast<int>(present), &start, &end);
    if (start == 0) return {0, 0, 0};
    const auto first = static_cast<uint64_t>(start);
    // A unit that reaches the end of the bytes ends with what is left.
    const uint64_t behind = static_cast<uint64_t>(end) == present ? left_ : static_cast<uint64_t>(end);
    return {behind - first, first, behind};
  }

  uint8_t At(uint64_t offset) const { return Present(cursor_ + offset) != 0 ? data_[cursor_ + offset] : 0; }

  // Length of the start code that the cursor is taken to stand on.
  uint32_t StartCodeLength() const {
    return Present(cursor_) >= 3 && At(0) == 0 && At(1) == 0 && At(2) == 1 ? 3 : 4;
  }

  // Parses the unit four bytes behind the cursor, whatever the length of the start code is.
  template <class Record>
  void Parse(Record* record, uint64_t unitSize, HevcConfigRecord* config,
             uint64_t (*reader)(QLNBitState*, Record*, HevcConfigRecord*, uint32_t)) const {
    static constexpr uint8_t kNoByte = 0;
    const uint64_t present = std::min(unitSize, Present(cursor_ + 4));
    const uint8_t* const bytes = present != 0 ? data_ + cursor_ + 4 : &kNoByte;
    QLNBitState state{const_cast<uint8_t*>(bytes), static_cast<int32_t>(std::max<uint64_t>(present, 1)),
                      static_cast<uint32_t>(unitSize * 8), 0};
    reader(&state, record, config, 0);
  }

  // Copies the unit to a host's buffer of QLN_HEVC_UNIT_SIZE bytes; a larger one gives a count of 0.
  void Copy(uint64_t unitSize, uint8_t* buffer, uint32_t* count) const {
    if (buffer == nullptr) return;
    const uint64_t size = unitSize <= QLN_HEVC_UNIT_SIZE ? unitSize : 0;
    if (count != nullptr) *count = static_cast<uint32_t>(size);
    for (uint64_t i = 0; i < size; ++i) buffer[i] = At(4 + i);
  }

  // The byte that told the type ends the zeros at the latest.
  void PassZerosAndOneByte() {
    while (data_[cursor_] == 0) ++cursor_;
    ++cursor_;
  }

  void MoveOn(const UnitPlace& unit, uint32_t startCodeLength) {
    cursor_ += unit.end - unit.start + startCodeLength;
    left_ -= unit.end;
    if (unit.end == unit.start) {
      --left_;
      ++cursor_;
    }
  }

 private:
  const uint8_t* data_;
  uint64_t size_;
  uint64_t cursor_ = 0;
  uint64_t left_;

  // Bytes of the frame from an offset on.
  uint64_t Present(uint64_t offset) const { return offset < size_ ? size_ - offset : 0; }
};

}  // namespace
}  // namespace qln

uint32_t qlnutilFindNalUnitsHevc(const DFrame* frame, HevcVpsRecord* vps, HevcSpsRecord* sps,
                                 HevcPpsRecord* pps, uint32_t /*reserved1*/, uint32_t /*reserved2*/,
                                 uint8_t* vpsSpsBytes, uint8_t* ppsBytes, uint32_t /*reserved3*/,
                                 uint32_t* vpsSpsSize, uint32_t* ppsSize) {
  using namespace qln;
  if (frame == nullptr || frame->frameData == nullptr) return 0;
  Scan scan(frame->frameData, frame->frameSize);
  HevcConfigRecord config{};  // dropped: the frame's sets are not folded for anyone
  uint32_t count = 0;
  while (scan.left() != 0) {
    const UnitPlace unit = scan.FindUnit();
    if (unit.size == 0) break;
    const uint32_t startCodeLength = scan.StartCodeLength();
    const uint64_t size = unit.end - unit.start;
    // Only the type is of use here: reading the whole unit for its header would search every slice again.
    const uint32_t type = size != 0 ? scan.At(startCodeLength) >> 1 & 0x3Fu : 0u;
    switch (type) {
      case kHevcNalVps:
        scan.Parse(vps, size, &config, qlnutilRead_HEVC_VPS);
        scan.Copy(size, vpsSpsBytes, vpsSpsSize);
        break;
      case kHevcNalSps:
        scan.Parse(sps, size, &config, qlnutilRead_HEVC_SPS);
        scan.Copy(size, vpsSpsBytes, vpsSpsSize);
        break;
      case kHevcNalPps:
        scan.Parse(pps, size, &config, qlnutilRead_HEVC_PPS);
        scan.Copy(size, ppsBytes, ppsSize);
        break;
      case kHevcNalEndOfSequence:
      case kHevcNalEndOfBitstream:
      case kHevcNalFillerData:
      case kHevcNalSuffixSei:
        // The unit behind such a one is passed over: hosts rely on the counts as they come out.
        scan.PassZerosAndOneByte();
        break;
      default:
        break;
    }
    scan.MoveOn(unit, startCodeLength);
    ++count;
  }
  return count;
}
