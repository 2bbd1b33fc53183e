// The reader frame: the bytes that a length promises and a state does not have count as zero without ever
// being allocated.

#include "qlnutil/hevc/parameter_set_reader.h"

#include <algorithm>
#include <cstring>

#include "kxutil/kxutil.h"

namespace qln {
namespace {

// Bytes of the unit that the state really has.
uint64_t BytesPresent(const QLNBitState& state, uint32_t lengthBits) {
  if (state.size < 0 || state.data == nullptr) return 0;
  const uint64_t size = static_cast<uint64_t>(state.size);
  const uint64_t first = state.bitPos / 8;
  return first >= size ? 0 : std::min<uint64_t>(lengthBits / 8, size - first);
}

}  // namespace

HevcUnit::HevcUnit(const QLNBitState& state, uint32_t lengthBits, const HevcReaderPolicy& policy)
    : policy_(policy),
      lengthBits_(lengthBits != 0 ? lengthBits : state.bitLength),
      copy_(BytesPresent(state, lengthBits_)) {
  if (state.size < 0 || !copy_.ok()) return;
  const uint64_t present = BytesPresent(state, lengthBits_);
  uint64_t removed = 0;
  if (present != 0) {
    removed =
        RemoveEmulationPrevention(copy_.data(), state.data + state.bitPos / 8, present, policy_.removal);
    nalType_ = copy_.data()[0] >> 1 & 0x3Fu;
  }
  const uint32_t limit = lengthBits_ - 8 * static_cast<uint32_t>(removed);
  bits_.emplace(copy_.data(), present - removed, limit, 7, kCopySlack);
}

void HevcUnit::CheckTrailingBits() {
  BitReader& in = *bits_;
  const uint32_t stopBit = in.ReadBit();
  uint32_t padding = 0;
  while (in.bitPos % 8 != 0) padding |= in.ReadBit();
  const uint32_t position = in.bitPos;
  const uint32_t limit = in.bitLength;

  if (policy_.overrunIsNoLengthError ? position < limit : position != limit) {
    // What was left, for the log: measured from the length before unescaping.
    const uint32_t left = std::min(lengthBits_ - position, 64u);
    const uint64_t rest = in.ReadBits64(static_cast<int32_t>(left));
    in.bitPos = position;
    ErrOut(policy_.lengthMessage, stopBit, padding, position, lengthBits_, static_cast<uint32_t>(rest),
           static_cast<uint32_t>(rest >> 32));
  } else if (stopBit == 0 || padding != 0) {
    ErrOut(policy_.alignmentMessage, stopBit, padding, position, lengthBits_);
  }
}

HevcRead HevcUnit::Done(QLNBitState* state) const {
  state->bitPos += lengthBits_;
  return {HevcRead::End::kRead, bits_->bitPos / 8};
}

HevcRead HevcUnit::Refuse(QLNBitState* state) const {
  state->bitPos = bits_->bitPos;
  return {HevcRead::End::kRefused};
}

}  // namespace qln
