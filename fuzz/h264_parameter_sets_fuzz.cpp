// The SPS and PPS readers and writers: any bytes under any limits, what was read written back, and records
// filled from the input.

#include <cstdlib>

#include "fuzz_input.h"
#include "mutators/formats.h"
#include "qlnutil/qlnh264.h"

namespace {

using qln::fuzz::Block;
using qln::fuzz::Input;

// Writes into exactly the room that the interface asks for: one and a half times the scratch.
template <class Record, class Function>
void Write(Function function, const Record& record, uint32_t size) {
  const size_t room = size_t{3} * size + 2;
  Block output(nullptr, 0, room);
  QLNBitState state{output.data(), static_cast<int32_t>(size), 0, 0};
  const uint64_t written = function(&state, &record);
  if (written > room || state.bitPos != written * 8) std::abort();
}

template <class Record, class Reader, class Writer>
void Run(Reader reader, Writer writer, Input input) {
  const uint32_t steer = input.Number(1);
  const uint32_t scratch = input.Number(1) * 4;
  const uint32_t limit = input.Number(4);
  Block unit(input.data(), input.left(), input.left());
  Record record;
  std::memset(&record, steer & 1 ? 0xFF : 0, sizeof record);
  const int32_t size = static_cast<int32_t>(unit.size);
  QLNBitState state{unit.data(), steer & 4 ? -size : size,
                    steer & 8 ? limit : static_cast<uint32_t>(unit.size * 8), steer >> 5};
  reader(&state, &record);
  if (state.data != unit.data()) std::abort();
  Write(writer, record, scratch);
  Write(writer, record, 4096);
  if (unit.size != 0) {
    auto* const bytes = reinterpret_cast<uint8_t*>(&record);
    for (size_t i = 0; i < sizeof record; ++i) bytes[i] = unit.data()[i % unit.size];
    Write(writer, record, scratch);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const Input input(data + 1, size - 1);
  if (data[0] % 2 == 0) {
    Run<H264SpsRecord>(qlnutilRead_SPS, qlnutilWrite_SPS, input);
  } else {
    Run<H264PpsRecord>(qlnutilRead_PPS, qlnutilWrite_PPS, input);
  }
  return 0;
}

QLN_FUZZ_BY_PIECES(qln::fuzz::Codes(), 7)
