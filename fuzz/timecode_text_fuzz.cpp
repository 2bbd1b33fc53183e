// Both timecode functions: any text, any count, any flags.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "timecode/kxtimecode.h"

namespace {

void Check(bool holds) {
  if (!holds) std::abort();
}

// What was read comes back when it is written and read again.
void CheckRoundTrip(uint32_t count, uint32_t flags) {
  const std::unique_ptr<char[]> text(new char[16]);
  Check(TimeCodeToString(count, flags & ~KX_TIMECODE_BINARY, text.get()) == 0);
  uint32_t back = 0;
  Check(TimeCodeFromString(text.get(), flags, &back) == 0 && back == count);
  const std::unique_ptr<char[]> bytes(new char[4]);
  Check(TimeCodeToString(count, flags | KX_TIMECODE_BINARY, bytes.get()) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  uint32_t words[2] = {};
  if (size < sizeof words) return 0;
  std::memcpy(words, data, sizeof words);
  CheckRoundTrip(words[0], words[1]);

  const size_t length = size - sizeof words;
  const std::unique_ptr<char[]> text(new char[length + 1]);
  std::memcpy(text.get(), data + sizeof words, length);
  text[length] = '\0';
  uint32_t count = 0xDEADBEEF;
  if (TimeCodeFromString(text.get(), words[1], &count) == 0) {
    CheckRoundTrip(count, words[1]);
  } else {
    Check(count == 0xDEADBEEF);
  }
  return 0;
}
