// The frame that the three HEVC parameter set readers share: private copy, removal of emulation prevention,
// check of the trailing bits with its messages, and the movement of the caller's state.
#ifndef QLNUTIL_HEVC_PARAMETER_SET_READER_H
#define QLNUTIL_HEVC_PARAMETER_SET_READER_H

#include <cstdint>
#include <initializer_list>
#include <optional>

#include "qlnutil/bits/bit_reader.h"
#include "qlnutil/bits/emulation_prevention.h"
#include "qlnutil/bits/private_copy.h"
#include "qlnutil/hevc/parameter_sets.h"
#include "qlnutil/qlnhevc.h"
#include "qlnutil/qlnvidutil.h"

namespace qln {

// What differs between the readers.
struct HevcReaderPolicy {
  EmulationRemoval removal;
  bool overrunIsNoLengthError;  // a position behind the end is held against the trailing bits only
  const char* lengthMessage;
  const char* alignmentMessage;
};

// One parameter set unit on its way through a reader.
class HevcUnit {
 public:
  // Takes the unit at state.data + state.bitPos / 8 into a private copy and unescapes it. lengthBits as the
  // readers take it: 0 stands for state.bitLength. The position is behind the six bits of nal_unit_type.
  HevcUnit(const QLNBitState& state, uint32_t lengthBits, const HevcReaderPolicy& policy,
           HevcReports& reports);

  // False when there was no memory, or the state has a negative size.
  bool ok() const { return bits_.has_value(); }

  BitReader& bits() { return *bits_; }
  uint32_t nalType() const { return nalType_; }
  uint32_t lengthBits() const { return lengthBits_; }  // as it was before unescaping

  // The same behind the header, whose last nine bits are not looked at.
  BitReader& BehindHeader() {
    bits_->bitPos = 16;
    return *bits_;
  }

  // What the unit is refused with.
  void Report(LocatedFormat message);
  void Report(LocatedFormat message, uint32_t number);
  HevcReports& reports() { return reports_; }

  // Reads the stop bit and its alignment, and reports where they are not the end of the unit.
  void CheckTrailingBits();

  // Ends of a read: they move the state by the unit's length, or to the position where the reader refused.
  HevcRead Done(QLNBitState* state) const;
  HevcRead Refuse(QLNBitState* state) const;

 private:
  void Report(HevcReports::Shape shape, const char* format, std::initializer_list<uint32_t> numbers);

  const HevcReaderPolicy& policy_;
  HevcReports& reports_;
  const uint32_t lengthBits_;
  uint32_t nalType_ = 0;
  PrivateCopy copy_;
  std::optional<BitReader> bits_;
};

// The frame around a reader: readBody(unit) reads from the NAL header to the last syntax element, and is
// false when it refuses the unit.
template <class ReadBody>
[[gnu::always_inline]] inline HevcRead ReadSetUnit(QLNBitState* state, const void* record,
                                                   uint32_t lengthBits, const HevcReaderPolicy& policy,
                                                   HevcReports& reports, ReadBody readBody) {
  if (state == nullptr || record == nullptr || state->size == 0) return {HevcRead::End::kNothingToRead};
  HevcUnit unit(*state, lengthBits, policy, reports);
  if (!unit.ok()) return {HevcRead::End::kNoMemory};
  if (!readBody(unit)) return unit.Refuse(state);
  unit.CheckTrailingBits();
  return unit.Done(state);
}

}  // namespace qln

#endif
