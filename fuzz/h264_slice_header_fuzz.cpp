// The slice header reader and the repair in place, under parameter sets read from the input or made of it.

#include <cstdlib>

#include "fuzz_input.h"
#include "qlnutil/qlnh264.h"

namespace {

using qln::fuzz::Block;
using qln::fuzz::Input;

// Words of small values mostly, sometimes whole ones.
template <class Record>
void Fill(Record& record, Input& input) {
  std::memset(&record, 0, sizeof record);
  const uint32_t count = input.Number(1) % 32;
  for (uint32_t i = 0; i < count; ++i) {
    const size_t place = input.Number(2) % (sizeof record / 4);
    const uint32_t kind = input.Number(1);
    const uint32_t value = kind < 200 ? kind % 40 : input.Number(4);
    std::memcpy(reinterpret_cast<uint8_t*>(&record) + 4 * place, &value, 4);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const uint32_t steer = input.Number(1);
  const uint32_t limit = input.Number(4);
  const uint32_t position = input.Number(1);
  H264SpsRecord sps;
  H264PpsRecord pps;
  H264SliceHeaderRecord header;
  Fill(sps, input);
  Fill(pps, input);
  Fill(header, input);
  const uint32_t type = steer % 32;
  Block unit(input.data(), input.left(), input.left());
  QLNBitState state{unit.data(), static_cast<int32_t>(unit.size), 0, 0};
  qlnutilRead_SliceHeader(&state, &header, &sps, &pps, static_cast<int32_t>(type), 0);
  state.bitLength = steer & 0x80 ? limit : static_cast<uint32_t>(unit.size * 8);
  state.bitPos = position;
  qlnutilFix_SliceHeader(&state, &header, &sps, &pps, type, steer & 0x40);
  return 0;
}
