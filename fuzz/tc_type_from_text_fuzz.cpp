// The timecode type taken from raw text, in blocks of the text's exact size.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "qlnutil/clipinfo/tc_type_from_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::unique_ptr<char[]> text(new char[size + 1]);
  if (size != 0) std::memcpy(text.get(), data, size);
  text[size] = '\0';
  switch (qln::QLNInfoTcTypeFromText(text.get())) {
    case 0:
    case 1:
    case 4:
    case 8:
    case 16:
    case 32:
    case 64:
    case 128:
    case 132:
      return 0;
    default:
      std::abort();
  }
}
