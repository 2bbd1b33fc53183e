// The exported bit functions under random programs: the first bytes set the state, each further one is a
// call.

#include <cstdint>
#include <memory>

#include "qlnutil/qlnbits.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 8) return 0;
  const uint32_t calls = data[0] % 32u;
  if (size < 4 + calls) return 0;
  const size_t bufferSize = size - 4 - calls;
  if (bufferSize == 0) return 0;
  // The byte behind the last valid bit is readable, and no more than that.
  const std::unique_ptr<uint8_t[]> buffer(new uint8_t[bufferSize]);
  for (size_t i = 0; i < bufferSize; ++i) buffer[i] = data[4 + calls + i];
  const uint32_t bitLength = static_cast<uint32_t>((bufferSize - 1) * 8 + data[1] % 8u);

  QLNBitState reader{buffer.get(), static_cast<int32_t>(bufferSize), bitLength, data[2]};
  const std::unique_ptr<uint8_t[]> output(new uint8_t[32 * 48 + 64]());
  QLNBitState writer{output.get(), 0, 0, data[3]};
  for (uint32_t i = 0; i < calls; ++i) {
    const int32_t count = data[4 + i] / 8 * 4 - 8;
    switch (data[4 + i] % 8u) {
      case 0:
        WriteBit(&writer, static_cast<uint8_t>(ReadBit(&reader)));
        break;
      case 1:
        WriteBits(&writer, count, ReadBits(&reader, count));
        break;
      case 2:
        WriteBits(&writer, count, static_cast<uint32_t>(ReadBits64(&reader, count)));
        break;
      case 3:
        WriteExponentialGolombCode(&writer, static_cast<int32_t>(ReadExponentialGolombCode(&reader)));
        break;
      case 4:
        WriteExponentialGolombCode(&writer, ReadExponentialGolombCodeSigned(&reader));
        break;
      case 5:
        WriteBits(&writer, 32, ReadCodedNumber(&reader));
        break;
      case 6:
        SkipBits(&reader, data[4 + i]);
        break;
      default:
        WriteBits(&writer, 8,
                  static_cast<uint32_t>(LengthExponentialGolombCode(static_cast<int8_t>(data[4 + i]))));
        break;
    }
  }
  return 0;
}
