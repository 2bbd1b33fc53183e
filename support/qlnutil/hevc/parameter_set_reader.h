// The frame that the three HEVC parameter set readers share: private copy, removal of emulation prevention,
// check of the trailing bits with its messages, and the movement of the caller's state.
#ifndef QLNUTIL_HEVC_PARAMETER_SET_READER_H
#define QLNUTIL_HEVC_PARAMETER_SET_READER_H

#include <cstdint>
#include <optional>

#include "qlnutil/bits/bit_reader.h"
#include "qlnutil/bits/emulation_prevention.h"
#include "qlnutil/bits/private_copy.h"
#include "qlnutil/qlnhevc.h"

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
  HevcUnit(const QLNBitState& state, uint32_t lengthBits, const HevcReaderPolicy& policy);

  // False when there was no memory, or the state has a negative size.
  bool ok() const { return bits_.has_value(); }

  BitReader& bits() { return *bits_; }
  uint32_t nalType() const { return nalType_; }
  uint32_t lengthBits() const { return lengthBits_; }  // as it was before unescaping

  // Reads the stop bit and its alignment, and reports where they are not the end of the unit.
  void CheckTrailingBits();

  // End of a read: moves the state by the unit's length, or to the position where the reader refused. Both
  // return the reader's result.
  uint64_t Done(QLNBitState* state) const;
  uint64_t Refuse(QLNBitState* state) const;

 private:
  const HevcReaderPolicy& policy_;
  const uint32_t lengthBits_;
  uint32_t nalType_ = 0;
  PrivateCopy copy_;
  std::optional<BitReader> bits_;
};

// True where a reader has nothing to do and returns 0.
inline bool NothingToRead(const QLNBitState* state, const void* record) {
  return state == nullptr || record == nullptr || state->size == 0;
}

// True when a reader that was to begin at bit 0 had no memory for its copy: other refusals move the position.
inline bool HadNoMemory(uint64_t result, const QLNBitState& state) {
  return result == QLN_HEVC_REFUSED && state.bitPos == 0;
}

// What max_sub_layers_minus1 means to a loop: a word that was read past the end counts as 0.
inline uint32_t SubLayersForLoops(uint32_t maxSubLayersMinus1) {
  return maxSubLayersMinus1 == 0xFFFFFFFFu ? 0 : maxSubLayersMinus1;
}

}  // namespace qln

#endif
