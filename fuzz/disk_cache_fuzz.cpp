// The read cache over a scripted handle: bytes as a program of reads, and as the fate of each file call.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "kxutil/kxutil.h"
#include "qlnutil/kxdiskcache.h"

namespace {

struct Input {
  const uint8_t* data = nullptr;
  size_t size = 0;
  uint8_t Byte() {
    if (size == 0) return 0;
    --size;
    return *data++;
  }
  uint32_t Number() {
    uint32_t value = 0;
    for (uint32_t n = Byte() % 5u; n > 0; --n) value = value << 8 | Byte();
    return value;
  }
};

Input input;
uint32_t clockMs;

}  // namespace

// The calls that the cache makes, answered out of the input.
uint64_t kxOSSeek(KXFileHandle, uint64_t offset) { return input.Byte() == 1 ? offset + 1 : offset; }
int32_t kxOSReadFile(KXFileHandle, void* buffer, uint32_t count, uint32_t* bytes_read, void*) {
  const uint8_t fate = input.Byte();
  const uint32_t done = fate % 4 == 0 ? count : std::min(count, input.Number());
  std::memset(buffer, 0x5A, done);
  *bytes_read = fate % 16 == 5 ? input.Number() : done;
  return fate % 8 != 3;
}
int32_t kxOSGetFileSizeEx(KXFileHandle, uint64_t* size) {
  if (input.Byte() == 1) return 0;
  *size = uint64_t{input.Number()} << input.Byte() % 33;
  return 1;
}
uint32_t kxOSGetLastError() { return input.Byte() % 3u; }
uint32_t kxOSGetMs() { return clockMs; }
void Sleep(uint32_t milliseconds) { clockMs += milliseconds * 100; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kxSetDiagnosticSink([](uint32_t, const char*, void*) {}, nullptr);
  input = {data, size};
  clockMs = 0xFFFFFF00;
  CKXDiskCache cache;
  const uint32_t cacheSize = input.Number() % 70000;
  if (cache.SetHandleAndCacheSize(1, cacheSize, input.Byte() % 2 != 0) != 0) std::abort();
  for (int reads = 0; input.size != 0 && reads < 200; ++reads) {
    const uint64_t position = uint64_t{input.Number()} << input.Byte() % 33;
    const uint32_t length = input.Number() % 100000;
    const std::unique_ptr<uint8_t[]> block(new uint8_t[length]);
    uint32_t delivered = 0xFFFFFFFF;
    cache.Read(block.get(), position, length, &delivered, input.Byte());
    if (delivered > length) std::abort();
    // Every delivered byte was put there: by a read, or as zero.
    for (uint32_t i = 0; i < delivered && length <= cacheSize - 4096u; ++i) {
      if (block[i] != 0x5A && block[i] != 0) std::abort();
    }
  }
  return 0;
}
