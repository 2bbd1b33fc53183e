// AAC headers from any bytes, at any limit and position: read, written back, read again.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "qlnutil/qlnaac.h"

namespace {

// Reads a record twice, with the second read from what the first one was written to.
template <class Record>
void ReadWriteRead(const uint8_t* data, size_t size, uint32_t position,
                   int32_t (*read)(QLNBitState*, Record*), int32_t (*write)(QLNBitState*, const Record*)) {
  // The byte behind the last valid bit is the last one given.
  std::vector<uint8_t> bytes(data, data + size);
  QLNBitState in{bytes.data(), static_cast<int32_t>(size - 1), static_cast<uint32_t>((size - 1) * 8),
                 position};
  Record first{};
  if (read(&in, &first) != 0) std::abort();
  if (in.bitPos > in.bitLength) return;  // cut off: the fields hold all ones

  std::vector<uint8_t> room(in.bitPos / 8 + 1, 0);
  QLNBitState out{room.data(), static_cast<int32_t>(room.size()), static_cast<uint32_t>(room.size() * 8),
                  position};
  if (write(&out, &first) != 0 || out.bitPos != in.bitPos) std::abort();
  out.bitLength = in.bitPos;  // the byte of the bit behind the last one is there, as a reader asks for
  out.bitPos = position;
  Record second{};
  if (read(&out, &second) != 0 || std::memcmp(&first, &second, sizeof first) != 0) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const uint32_t position = data[0];
  ReadWriteRead(data + 1, size - 1, position, qlnutilReadAAC, qlnutilWriteAAC);
  ReadWriteRead(data + 1, size - 1, position, qlnutilReadADTS, qlnutilWriteADTS);
  return 0;
}
