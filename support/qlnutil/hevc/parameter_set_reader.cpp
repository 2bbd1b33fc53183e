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

HevcUnit::HevcUnit(const QLNBitState& state, uint32_t lengthBits, const HevcReaderPolicy& policy,
                   HevcReports& reports)
    : policy_(policy),
      reports_(reports),
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
    Report(HevcReports::Shape::kSixNumbers, policy_.lengthMessage,
           {stopBit, padding, position, lengthBits_, static_cast<uint32_t>(rest),
            static_cast<uint32_t>(rest >> 32)});
  } else if (stopBit == 0 || padding != 0) {
    Report(HevcReports::Shape::kFourNumbers, policy_.alignmentMessage,
           {stopBit, padding, position, lengthBits_});
  }
}

void HevcUnit::Report(HevcReports::Shape shape, const char* format, std::initializer_list<uint32_t> numbers) {
  reports_.shape = shape;
  reports_.format = format;
  std::copy(numbers.begin(), numbers.end(), reports_.numbers);
}

void HevcUnit::Report(LocatedFormat message) {
  Report(HevcReports::Shape::kLocated, message.format, {});
  reports_.line = message.line;
}

void HevcUnit::Report(LocatedFormat message, uint32_t number) {
  Report(HevcReports::Shape::kLocatedNumber, message.format, {number});
  reports_.line = message.line;
}

HevcRead HevcUnit::Done(QLNBitState* state) const {
  state->bitPos += lengthBits_;
  return {HevcRead::End::kRead, bits_->bitPos / 8};
}

HevcRead HevcUnit::Refuse(QLNBitState* state) const {
  state->bitPos = bits_->bitPos;
  return {HevcRead::End::kRefused};
}

void HevcReports::Give() const {
  for (uint32_t i = 0; i < reservedPairs; ++i) ErrOutLocated("Hevc Reserved bits incorrect %s %d");
  const uint32_t(&n)[6] = numbers;
  switch (shape) {
    case Shape::kNone:
      break;
    case Shape::kLocated:
      ErrOut(format, kSourcePath, line);
      break;
    case Shape::kLocatedNumber:
      ErrOut(format, n[0], kSourcePath, line);
      break;
    case Shape::kFourNumbers:
      ErrOut(format, n[0], n[1], n[2], n[3]);
      break;
    case Shape::kSixNumbers:
      ErrOut(format, n[0], n[1], n[2], n[3], n[4], n[5]);
      break;
  }
}

}  // namespace qln
