// The exported bit functions: thin faces of the inline reader and writer.

#include "qlnutil/bits/bit_reader.h"
#include "qlnutil/bits/bit_writer.h"

namespace {

// Runs one operation of the reader on a caller's state.
template <class Operation>
auto WithReader(QLNBitState* state, Operation operation) {
  qln::BitReader reader(*state);
  const auto value = operation(reader);
  state->bitPos = reader.bitPos;
  return value;
}

template <class Operation>
void WithWriter(QLNBitState* state, Operation operation) {
  qln::BitWriter writer(*state);
  operation(writer);
  state->bitPos = static_cast<uint32_t>(writer.bitPos);
}

}  // namespace

uint32_t ReadBit(QLNBitState* state) {
  return WithReader(state, [](qln::BitReader& reader) { return reader.ReadBit(); });
}

uint32_t ReadBits(QLNBitState* state, int32_t count) {
  return WithReader(state, [count](qln::BitReader& reader) { return reader.ReadBits(count); });
}

uint64_t ReadBits64(QLNBitState* state, int32_t count) {
  return WithReader(state, [count](qln::BitReader& reader) { return reader.ReadBits64(count); });
}

uint32_t ReadCodedNumber(QLNBitState* state) {
  return WithReader(state, [](qln::BitReader& reader) { return reader.ReadCodedNumber(); });
}

uint32_t ReadExponentialGolombCode(QLNBitState* state) {
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
  WithWriter(state, [count, value](qln::BitWriter& writer) { writer.WriteBits(count, value); });
}

void WriteExponentialGolombCode(QLNBitState* state, int32_t value) {
  WithWriter(state, [value](qln::BitWriter& writer) { writer.WriteUe(static_cast<uint32_t>(value)); });
}

int32_t LengthExponentialGolombCode(int8_t value) {
  return value < 0 ? 2 : static_cast<int32_t>(qln::UeCodeLength(value));
}
