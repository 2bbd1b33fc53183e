// Walks the units of a frame for its parameter sets, and finds single units in it.

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "qlnutil/h264/avcc.h"
#include "qlnutil/h264/parameter_sets.h"
#include "qlnutil/h264/slice_header_walk.h"
#include "qlnutil/h264/start_code.h"

namespace qln {

namespace {

// nal_unit_type of Table 7-1.
enum NalType : uint32_t {
  kNalSlice = 1,
  kNalIdr = 5,
  kNalSei = 6,
  kNalSps = 7,
  kNalPps = 8,
  kNalDelimiter = 9
};

// What the caller of the scan gets.
struct ScanOutputs {
  H264SpsRecord* sps;
  H264PpsRecord* pps;
  uint8_t* spsBytes;
  uint8_t* ppsBytes;
  uint32_t* spsSize;
  uint32_t* ppsSize;
};

class FrameScan {
 public:
  FrameScan(const uint8_t* data, uint64_t size, const ScanOutputs& outputs)
      : outputs_(outputs), cur_(data), end_(data + size) {}

  bool HasUnit() const { return end_ - cur_ > 4; }

  // Visits the unit at the walk's position and steps over it.
  void Visit() {
    uint64_t size = UnitSize();
    const uint32_t type = cur_[prefix_] % 32u;
    switch (type) {
      case 0:
        size += SkipZeros();
        break;
      case kNalSei:
        // Stepped over by the size of its first message, not by its own.
        size = ByteAt(prefix_ + 2);
        break;
      case kNalSps:
        VisitSps(size);
        break;
      case kNalPps:
        VisitPps(size);
        break;
      case kNalDelimiter:
        VisitDelimiter(&size);
        break;
      default:
        if (type <= kNalIdr) VisitSlice(size, type);
        break;
    }
    Step(size + prefix_);
  }

 private:
  const ScanOutputs outputs_;
  const uint8_t* cur_;
  const uint8_t* const end_;
  uint32_t prefix_ = 4;  // bytes of length or start code; a delimiter may change it for the rest of the walk

  uint64_t Left() const { return static_cast<uint64_t>(end_ - cur_); }
  uint32_t ByteAt(uint64_t offset) const { return offset < Left() ? cur_[offset] : 0; }
  void Step(uint64_t bytes) { cur_ += std::min(bytes, Left()); }

  // The length in front of the unit, or the way to the next start code where a start code stands there.
  uint64_t UnitSize() const {
    const uint32_t length =
        prefix_ == 4 ? LoadBigEndian32(cur_) : uint32_t{cur_[0]} << 16 | uint32_t{cur_[1]} << 8 | cur_[2];
    if (length != 1) return std::min<uint64_t>(length, Left());
    const uint8_t* const next =
        prefix_ == 4 ? FindLongStartCode(cur_ + 4, end_) : FindShortStartCode(cur_ + 4, end_);
    if (next == end_) return Left();
    // A 4-byte code of the unit's own counts in; a 3-byte one does not.
    return static_cast<uint64_t>(next - cur_) - (prefix_ == 4 ? 0 : 3);
  }

  // Type 0 is no unit: passes the zero bytes at the walk's position and the byte behind them. Returns the
  // number of zeros, by which the unit counts as longer.
  uint64_t SkipZeros() {
    uint64_t zeros = 0;
    while (cur_ != end_ && *cur_ == 0) {
      ++cur_;
      ++zeros;
    }
    Step(1);
    return zeros;
  }

  void VisitSlice(uint64_t size, uint32_t type) {
    if (outputs_.sps == nullptr || outputs_.pps == nullptr) return;
    // The walk reads back none of the words from the weights on before it has stored them.
    H264SliceHeaderRecord header;
    std::memset(&header, 0, offsetof(H264SliceHeaderRecord, luma_weight_l0));
    // Only the PPS record's rbsp_stop_one_bit outlives the call.
    ReadSliceHeader(UnitBytes::UpTo(cur_ + prefix_, size, end_), &header, *outputs_.sps, outputs_.pps, type);
  }

  void VisitSps(uint64_t size) {
    // Four bytes on, whatever the prefix.
    const UnitBytes unit = UnitBytes::UpTo(cur_ + 4, size, end_);
    uint32_t bitPos = 0;
    if (outputs_.sps != nullptr && size != 0) {
      ReadSps(unit, static_cast<uint32_t>(8 * size), &bitPos, outputs_.sps);
    }
    CopyUnit(unit, outputs_.spsBytes, outputs_.spsSize);
  }

  void VisitPps(uint64_t size) {
    const UnitBytes unit = UnitBytes::UpTo(cur_ + 4, size, end_);
    uint32_t bitPos = 0;
    if (outputs_.pps != nullptr) ReadPps(unit, static_cast<uint32_t>(8 * size), &bitPos, outputs_.pps);
    CopyUnit(unit, outputs_.ppsBytes, outputs_.ppsSize);
  }

  static void CopyUnit(const UnitBytes& unit, uint8_t* bytes, uint32_t* count) {
    if (bytes == nullptr) return;
    const uint64_t copied = unit.size <= QLN_H264_UNIT_BUFFER_SIZE ? unit.size : 0;
    if (count != nullptr) *count = static_cast<uint32_t>(copied);
    unit.CopyTo(bytes, copied);
  }

  // A start code behind the delimiter tells the prefix of all that follows.
  void VisitDelimiter(uint64_t* size) {
    if (Left() < 10 || cur_[6] != 0 || cur_[7] != 0) return;
    if (cur_[8] == 0 && cur_[9] == 1) {
      prefix_ = 4;
      *size = 2;
    } else if (cur_[9] == 1) {
      prefix_ = 3;
      *size = 3;
    }
  }
};

}  // namespace

}  // namespace qln

uint32_t qlnutilFindNalUnits(const DFrame* frame, H264SpsRecord* sps, H264PpsRecord* pps, const uint8_t* avcc,
                             uint8_t* spsBytes, uint8_t* ppsBytes, uint32_t* spsSize, uint32_t* ppsSize) {
  if (avcc != nullptr) qln::ReadAvccOfUnknownLength(avcc, sps, pps);
  if (frame == nullptr || frame->frameData == nullptr) return 0;
  qln::FrameScan scan(frame->frameData, frame->frameSize, {sps, pps, spsBytes, ppsBytes, spsSize, ppsSize});
  uint32_t count = 0;
  for (; scan.HasUnit(); ++count) scan.Visit();
  return count;
}

uint32_t qlnUtilFindSpecificNAL(uint8_t* buffer, uint32_t size, int32_t mode, uint8_t header, uint8_t** unit,
                                uint32_t* unitSize) {
  if (buffer == nullptr || size < 4 || unit == nullptr || unitSize == nullptr) return 0;
  *unit = nullptr;
  *unitSize = 0;
  const uint64_t limit = size - 4u;
  bool found = false;
  uint64_t foundAt = 0;
  uint64_t i = 0;
  while (i < limit) {
    if (found) {
      *unitSize = static_cast<uint32_t>(i - foundAt);
      return 1;
    }
    if (buffer[i + 4] == header) {
      found = true;
      foundAt = i;
      *unit = buffer + i;
    }
    if (mode == 0) {
      i += uint64_t{qln::LoadBigEndian32(buffer + i)} + 4;
    } else {
      // Loose on purpose: any zero byte ends a unit, whole start codes are not asked for.
      for (i += 4; i < limit; ++i) {
        if (buffer[i] == 0 || buffer[i + 1] == 0 || buffer[i + 2] == 0 || buffer[i + 3] == 1) break;
      }
    }
  }
  if (!found) return 0;
  *unitSize = static_cast<uint32_t>(i - foundAt);
  return *unitSize != 0 ? 1 : 0;
}
