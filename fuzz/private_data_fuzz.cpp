// Private data of streams as the tool walks it: a box or units that were read to their end are written back
// byte for byte.

#include "fuzz_input.h"
#include "units/config_record.h"

namespace {

using namespace qlnmedia;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::Input input(data, size);
  const Codec codec = (input.Number(1) & 1) != 0 ? Codec::kHevc : Codec::kH264;
  qln::fuzz::Block block(input.data(), input.left(), input.left());
  const ByteSpan bytes(block.data(), block.size);
  const ConfigRecord record = ReadConfigRecord(codec, bytes);
  Expect(record.framing.lengthBytes >= 0 && record.framing.lengthBytes <= 4);
  size_t held = 0;
  for (const Bytes& unit : record.units()) held += unit.size();
  Expect(held <= bytes.size());
  if (!record.problem.empty()) return 0;
  const Bytes again = WriteConfigRecord(record);
  Expect(std::equal(again.begin(), again.end(), bytes.begin(), bytes.end()));
  return 0;
}
