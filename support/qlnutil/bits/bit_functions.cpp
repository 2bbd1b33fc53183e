// The exported bit functions: thin faces of the inline reader and writer.

#include <bit>
#include <cstring>

#include "qlnutil/bits/bit_reader.h"
#include "qlnutil/bits/bit_writer.h"

namespace {

// True where eight bytes can be loaded at the position, in front of the limit: the way of nearly all reads.
bool HasWholeWord(const QLNBitState& state) { return uint64_t{state.bitPos} + 64 <= state.bitLength; }

// At least 57 bits from the position on, first bit highest.
uint64_t WordAtPosition(const QLNBitState& state) {
  uint64_t word;
  std::memcpy(&word, state.data + state.bitPos / 8, sizeof word);
  if constexpr (std::endian::native == std::endian::little) word = __builtin_bswap64(word);
  return word << (state.bitPos & 7);
}

// Runs one operation of the reader on a caller's state.
template <class Operation>
[[gnu::noinline]] auto WithReader(QLNBitState* state, Operation operation) {
  qln::BitReader reader(*state);
  const auto value = operation(reader);
  state->bitPos = reader.bitPos;
  return value;
}

template <class Operation>
[[gnu::noinline]] void WithWriter(QLNBitState* state, Operation operation) {
  qln::BitWriter writer(*state);
  operation(writer);
  state->bitPos = static_cast<uint32_t>(writer.bitPos);
}

}  // namespace

uint32_t ReadBit(QLNBitState* state) {
  const uint32_t p = state->bitPos;
  state->bitPos = p + 1;
  if (p > state->bitLength) return 0xFFFFFFFFu;
  return (state->data[p >> 3] >> (7 - (p & 7))) & 1u;
}

uint32_t ReadBits(QLNBitState* state, int32_t count) {
  const uint32_t bits = static_cast<uint32_t>(count);
  if (bits - 1 < 32 && HasWholeWord(*state)) {
    const uint64_t word = WordAtPosition(*state);
    state->bitPos += bits;
    return static_cast<uint32_t>(word >> (64 - bits));
  }
  return WithReader(state, [count](qln::BitReader& reader) { return reader.ReadBits(count); });
}

uint64_t ReadBits64(QLNBitState* state, int32_t count) {
  return WithReader(state, [count](qln::BitReader& reader) { return reader.ReadBits64(count); });
}

uint32_t ReadCodedNumber(QLNBitState* state) {
  return WithReader(state, [](qln::BitReader& reader) { return reader.ReadCodedNumber(); });
}

uint32_t ReadExponentialGolombCode(QLNBitState* state) {
  if (HasWholeWord(*state)) {
    const uint64_t word = WordAtPosition(*state);
    const int zeros = std::countl_zero(word);
    if (zeros <= 28) {  // the whole code lies in the word
      state->bitPos += 2 * static_cast<uint32_t>(zeros) + 1;
      return static_cast<uint32_t>((word >> (63 - 2 * zeros)) - 1);
    }
  }
  return WithReader(state, [](qln::BitReader& reader) { return reader.ReadUe(); });
}

int32_t ReadExponentialGolombCodeSigned(QLNBitState* state) {
  return WithReader(state, [](qln::BitReader& reader) { return reader.ReadSe(); });
}

void SkipBits(QLNBitState* state, uint32_t count) { state->bitPos += count; }

void WriteBit(QLNBitState* state, uint8_t bit) {
  WithWriter(state, [bit](qln::BitWriter& writer) { writer.WriteBit(bit); });
}

void WriteBits(QLNBitState* state, int32_t count, uint32_t value) {
  if (static_cast<uint32_t>(count) - 1 < 32) {
    qln::BitWriter writer(*state);
    writer.WriteBits(count, value);
    state->bitPos = static_cast<uint32_t>(writer.bitPos);
    return;
  }
  WithWriter(state, [count, value](qln::BitWriter& writer) { writer.WriteBits(count, value); });
}

void WriteExponentialGolombCode(QLNBitState* state, int32_t value) {
  if (static_cast<uint32_t>(value) < 255) {
    qln::BitWriter writer(*state);
    writer.WriteUe(static_cast<uint32_t>(value));
    state->bitPos = static_cast<uint32_t>(writer.bitPos);
    return;
  }
  WithWriter(state, [value](qln::BitWriter& writer) { writer.WriteUe(static_cast<uint32_t>(value)); });
}

int32_t LengthExponentialGolombCode(int8_t value) {
  return value < 0 ? 2 : static_cast<int32_t>(qln::UeCodeLength(value));
}
