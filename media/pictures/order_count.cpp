// The derivations of both standards, in the order of their equations.

#include "pictures/order_count.h"

#include <algorithm>

namespace qlnmedia {

int64_t OrderCounter::MostSignificant(uint32_t lsb, uint32_t lsbBits) const {
  const int64_t range = int64_t{1} << lsbBits;
  if (lsb < previousLsb_ && previousLsb_ - lsb >= range / 2) return previousMsb_ + range;
  if (lsb > previousLsb_ && lsb - previousLsb_ > range / 2) return previousMsb_ - range;
  return previousMsb_;
}

OrderCount OrderCounter::Next(const SliceHead& head, bool secondField) {
  if (codec_ == Codec::kHevc) return NextHevc(head);
  // A picture that clears what was decoded before it is shown behind all of that.
  if (!secondField && (head.unitType == 5 || head.resetsOrder)) ++group_;
  OrderCount count = NextH264(head);
  count.group = group_;
  return count;
}

// Clause 8.2.1.1.
OrderCount OrderCounter::CountOfType0(const SliceHead& head) {
  if (head.unitType == 5) previousMsb_ = previousLsb_ = 0;
  const int64_t msb = MostSignificant(head.pocLsb, head.sps->log2MaxPocLsb);
  OrderCount count;
  count.top = count.bottom = msb + head.pocLsb;
  if (!head.field) count.bottom += head.deltaPocBottom;
  if (head.refIdc != 0) {
    previousMsb_ = msb;
    previousLsb_ = head.pocLsb;
  }
  return count;
}

// Clauses 8.2.1.2 and 8.2.1.3.
OrderCount OrderCounter::CountOfTypes12(const SliceHead& head) {
  if (head.unitType == 5) {
    frameNumOffset_ = 0;
  } else if (previousFrameNum_ > head.frameNum) {
    frameNumOffset_ += int64_t{1} << head.sps->h264.log2MaxFrameNum;
  }
  previousFrameNum_ = head.frameNum;
  int64_t number = frameNumOffset_ + head.frameNum;
  OrderCount count;
  if (head.sps->h264.pocType == 2) {
    count.top = count.bottom = head.unitType == 5 ? 0 : 2 * number - (head.refIdc == 0 ? 1 : 0);
    return count;
  }
  const PocCycle& cycle = head.sps->h264.pocCycle;
  int64_t expected = 0;
  if (cycle.offsets.empty()) number = 0;
  if (head.refIdc == 0 && number > 0) --number;
  if (number > 0) {
    const auto length = static_cast<int64_t>(cycle.offsets.size());
    int64_t whole = 0;
    for (const int32_t offset : cycle.offsets) whole += offset;
    expected = (number - 1) / length * whole;
    for (int64_t i = 0; i <= (number - 1) % length; ++i) expected += cycle.offsets[static_cast<size_t>(i)];
  }
  if (head.refIdc == 0) expected += cycle.nonReference;
  count.top = expected + head.deltaPoc[0];
  count.bottom = count.top + cycle.topToBottom + (head.field ? 0 : head.deltaPoc[1]);
  if (head.field && head.bottom) count.top = count.bottom;
  if (head.field && !head.bottom) count.bottom = count.top;
  return count;
}

OrderCount OrderCounter::NextH264(const SliceHead& head) {
  OrderCount count = head.sps->h264.pocType == 0 ? CountOfType0(head) : CountOfTypes12(head);
  if (!head.resetsOrder) return count;
  // As memory_management_control_operation 5 leaves the picture for those behind it.
  const int64_t first = std::min(count.top, count.bottom);
  count.top -= first;
  count.bottom -= first;
  previousMsb_ = 0;
  previousLsb_ = head.field && head.bottom ? 0 : count.top;
  frameNumOffset_ = previousFrameNum_ = 0;
  return count;
}

OrderCount OrderCounter::NextHevc(const SliceHead& head) {
  const int type = head.unitType;
  const bool irap = type >= 16 && type <= 23;
  // NoRaslOutputFlag: BLA and IDR pictures, and any behind the beginning or the end of a sequence.
  const bool begins = irap && (type <= 20 || anew_);
  if (begins || anew_) ++group_;
  anew_ = false;
  if (begins) previousMsb_ = previousLsb_ = 0;
  const int64_t msb = begins ? 0 : MostSignificant(head.pocLsb, head.sps->log2MaxPocLsb);
  // RADL, RASL and sub-layer non-reference pictures are nothing that others count from.
  const bool leading = type >= 6 && type <= 9;
  const bool nonReference = type < 16 && type % 2 == 0;
  if (head.temporalId == 0 && !leading && !nonReference) {
    previousMsb_ = msb;
    previousLsb_ = head.pocLsb;
  }
  return {group_, msb + head.pocLsb, msb + head.pocLsb};
}

}  // namespace qlnmedia
