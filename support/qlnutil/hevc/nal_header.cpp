// The HEVC NAL header, and the check of the unit's emulation prevention that comes with reading it.

#include "qlnutil/hevc/nal_header.h"

#include <cstring>

#include "nalstream/triple_scan.h"
#include "qlnutil/bits/private_copy.h"

namespace qln {
namespace {

// Unescapes [source, source + size) into destination, or only checks it where destination is null.
// Behind two or more zero bytes a 3 is dropped if another byte follows, and that byte must not be above 3. A
// byte below 3 behind two zeros ends the run, but only in the last place; in front of it it is kept, as
// streams in the field have them.
// Returns the unescaped size, or -1.
int64_t Unescape(const uint8_t* source, int64_t size, uint8_t* destination) {
  const uint8_t* const end = source + size;
  const uint8_t* copied = source;
  int64_t written = 0;
  const auto put = [&](const uint8_t* to) {
    if (destination != nullptr) std::memcpy(destination + written, copied, static_cast<size_t>(to - copied));
    written += to - copied;
  };
  for (const uint8_t* p = source; (p = FindTriple<ThirdIsAtMost<3>>(p, end)) != end;) {
    const uint8_t* const third = p + 2;
    const bool last = third + 1 == end;
    if (*third == 3 && !last) {
      if (third[1] > 3) return -1;
      put(third);
      copied = p = third + 1;
    } else if (*third < 3 && last) {
      put(third);
      return written;
    } else {
      p += *third == 0 ? 1 : 3;
    }
  }
  put(end);
  return written;
}

}  // namespace

int32_t HevcReadNalUnit(h264_stream_t* stream, const uint8_t* data, int32_t size) {
  const uint32_t first = size > 0 ? data[0] : 0u;
  const uint32_t second = size > 1 ? data[1] : 0u;
  HevcNalHeader& nal = *stream->nal;
  nal.forbidden_zero_bit = first >> 7;
  nal.nal_unit_type = first >> 1 & 0x3Fu;
  nal.nuh_layer_id = (first & 1u) << 5 | second >> 3;
  nal.nuh_temporal_id = (second & 7u) - 1u;
  nal.parsed = nullptr;
  nal.sizeof_parsed = 0;
  if (size <= 0) return -1;

  // Only SEI units need the unescaped bytes; the others, whole pictures among them, are checked in place.
  if (nal.nal_unit_type != kHevcNalPrefixSei) {
    if (Unescape(data + 1, size - 1, nullptr) < 0) return -1;
    return nal.nal_unit_type > kHevcNalSuffixSei ? 0 : size;
  }
  PrivateCopy unescaped(static_cast<uint64_t>(size));
  if (!unescaped.ok()) return -1;
  const int64_t count = Unescape(data + 1, size - 1, unescaped.data());
  if (count < 0) return -1;
  const int64_t position = read_sei_rbsp(stream, unescaped.data(), static_cast<int>(count));
  if (position < 0) return -1;
  nal.parsed = stream->sei;
  nal.sizeof_parsed = static_cast<int>(sizeof *stream->sei);
  return position > count ? -1 : size;
}

}  // namespace qln
