// HevcReadNalUnit on any bytes, twice on one stream object.

#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "qlnutil/hevc/nal_header.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  h264_stream_t* const stream = h264_new();
  for (const size_t count : {size, size / 2}) {
    auto* const unit = static_cast<uint8_t*>(std::malloc(count));
    if (count != 0) std::memcpy(unit, data, count);
    const int32_t result = qln::HevcReadNalUnit(stream, unit, static_cast<int32_t>(count));
    if (result > static_cast<int32_t>(count)) std::abort();
    if (stream->sei->payloadSize > static_cast<int>(count)) std::abort();
    std::free(unit);
  }
  h264_free(stream);
  return 0;
}
