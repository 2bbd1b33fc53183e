// The search of an access unit for the two kinds of unit that carry Dolby Vision metadata.

#include "qlnutil/qlnhevc.h"

namespace qln {
namespace {

// First header bytes: layer 0 below 32, forbidden bit clear.
constexpr uint8_t kPrefixSeiByte = 0x4E;  // nal_unit_type 39
constexpr uint8_t kRpuByte = 0x7C;        // nal_unit_type 62

// The last unit of one kind. Its size is measured when the cursor has moved on.
struct Found {
  uint64_t offset = 0;  // of the second header byte; 0 for none
  uint32_t size = 0;

  void Open(uint64_t at) {
    offset = at;
    size = 0;
  }
  void Close(uint64_t cursor) {
    if (offset != 0 && size == 0) size = static_cast<uint32_t>(cursor - offset);
  }
};

uint64_t BigEndian32(const uint8_t* bytes) {
  return uint64_t{bytes[0]} << 24 | uint64_t{bytes[1]} << 16 | uint64_t{bytes[2]} << 8 | bytes[3];
}

}  // namespace
}  // namespace qln

int32_t qlnUtilFindDolbyVisionMetadata(uint8_t* buffer, uint32_t size, int32_t mode, uint8_t** seiData,
                                       uint32_t* seiSize, uint8_t** rpuData, uint32_t* rpuSize) {
  using namespace qln;
  if (buffer == nullptr || size < 4) return 0;
  if (seiData == nullptr || seiSize == nullptr || rpuData == nullptr || rpuSize == nullptr) return 0;

  Found sei;
  Found rpu;
  const uint64_t limit = size - 4;
  uint64_t cursor = 0;
  while (cursor < limit) {
    sei.Close(cursor);
    rpu.Close(cursor);
    if (buffer[cursor + 4] == kPrefixSeiByte) sei.Open(cursor + 5);
    if (buffer[cursor + 4] == kRpuByte) rpu.Open(cursor + 5);
    if (mode == 0) {
      cursor += BigEndian32(buffer + cursor) + 4;
    } else {
      // A coarse search: any zero byte in reach stops it.
      cursor += 4;
      while (cursor < limit && buffer[cursor] != 0 && buffer[cursor + 1] != 0 && buffer[cursor + 2] != 0 &&
             buffer[cursor + 3] != 1) {
        ++cursor;
      }
    }
  }
  sei.Close(cursor);
  rpu.Close(cursor);

  *seiData = sei.offset != 0 ? buffer + sei.offset : nullptr;
  *seiSize = sei.size;
  *rpuData = rpu.offset != 0 ? buffer + rpu.offset : nullptr;
  *rpuSize = rpu.size;
  return sei.size != 0 || rpu.size != 0 ? 1 : 0;
}
