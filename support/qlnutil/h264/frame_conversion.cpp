// The two frame forms, turned into each other in place.

#include "qlnutil/h264/frame_conversion.h"

#include <cstring>

#include "qlnutil/h264/start_code.h"
#include "qlnutil/qlnh264.h"

namespace qln {

namespace {

// The walk asks for a byte behind a start code of 3 bytes; one of 4 bytes may end the frame.
bool IsMarker(const uint8_t* data, const uint8_t* end, const uint8_t* code, bool* isLong) {
  *isLong = code > data && code[-1] == 0;
  return *isLong || end - code >= 4;
}

}  // namespace

bool BeginsWithStartCode(const uint8_t* data, uint32_t size) {
  return data != nullptr && LeadingStartCode(data, size) != 0;
}

uint32_t CountWidenedMarkers(const uint8_t* data, uint32_t size) {
  if (size < 4 || !BeginsWithStartCode(data, size)) return 0;
  const uint8_t* const end = data + size;
  uint32_t count = 0;
  for (const uint8_t* code = data; (code = FindShortStartCode(code, end)) != end; code += 3) {
    bool isLong;
    if (IsMarker(data, end, code, &isLong) && !isLong) ++count;
  }
  return count;
}

}  // namespace qln

namespace qln {
namespace {

// A frame on its way from its end: each unit moves up once, by the number of start codes of 3 bytes in front
// of it and its own, and its size takes the place of its start code.
struct FromTheEnd {
  const uint8_t* unitEnd;  // end of the unit in front, as it stood
  uint8_t* placedEnd;      // its end where it goes

  void Place(const uint8_t* code, bool isLong) {
    const size_t unitSize = static_cast<size_t>(unitEnd - (code + 3));
    placedEnd -= unitSize;
    std::memmove(placedEnd, code + 3, unitSize);
    placedEnd -= 4;
    unitEnd = isLong ? code - 1 : code;
    StoreBigEndian32(placedEnd, static_cast<uint32_t>(unitSize));
  }
};

// Converts [buffer, end), which begins with a start code of 3 bytes, into `widened` bytes more, with a second
// search, from the end.
void WidenBySearch(uint8_t* buffer, const uint8_t* end, uint32_t widened) {
  FromTheEnd frame{end, buffer + (end - buffer) + widened};
  for (const uint8_t* code = end; frame.unitEnd != buffer;) {
    code = FindLastShortStartCode(buffer, code);
    bool isLong;
    if (IsMarker(buffer, end, code, &isLong)) frame.Place(code, isLong);
  }
}

// More than the frames of encoders have. What is found is remembered up to here.
constexpr size_t kMostCodes = 256;

// Converts [buffer, end), which begins with a start code of 3 bytes. Returns the bytes that it got longer by.
uint32_t Widen(uint8_t* buffer, const uint8_t* end) {
  uint32_t codes[kMostCodes];
  size_t count = 0;
  uint32_t widened = 0;
  for (const uint8_t* code = buffer; code != end; code = FindShortStartCode(code + 3, end)) {
    bool isLong;
    if (!IsMarker(buffer, end, code, &isLong)) break;  // the last three bytes
    if (count == kMostCodes) {
      widened = CountWidenedMarkers(buffer, static_cast<uint32_t>(end - buffer));
      WidenBySearch(buffer, end, widened);
      return widened;
    }
    codes[count++] = static_cast<uint32_t>(code - buffer);
    if (!isLong) ++widened;
  }
  FromTheEnd frame{end, buffer + (end - buffer) + widened};
  while (count != 0) {
    const uint8_t* const code = buffer + codes[--count];
    frame.Place(code, code > buffer && code[-1] == 0);
  }
  return widened;
}

}  // namespace
}  // namespace qln

// Start codes of 4 bytes give way to sizes where they stand. Nothing has to move in front of the first one of
// 3 bytes; from there on the frame is converted from its end.
uint32_t qlnUtilh264MarkerToSize(uint8_t* buffer, uint32_t size) {
  if (size < 4 || !qln::BeginsWithStartCode(buffer, size)) return size;
  const uint8_t* const end = buffer + size;
  uint8_t* unit = nullptr;  // behind the start code in front
  for (const uint8_t* from = buffer;; from += 3) {
    const uint8_t* const code = qln::FindShortStartCode(from, end);
    const bool found = code != end;
    from = code;
    bool isLong = false;
    if (found && !qln::IsMarker(buffer, end, code, &isLong)) continue;
    const uint8_t* const unitEnd = isLong ? code - 1 : code;
    if (unit != nullptr) qln::StoreBigEndian32(unit - 4, static_cast<uint32_t>(unitEnd - unit));
    if (!found) return size;
    if (!isLong) {
      return size + qln::Widen(buffer + (code - buffer), end);
    }
    unit = buffer + (code + 3 - buffer);
  }
}

uint32_t qlnUtilh264SizeToMarker(uint8_t* buffer, uint32_t size) {
  if (buffer == nullptr || qln::LeadingStartCode(buffer, size) == 4) return size;
  for (uint64_t offset = 0; offset < size;) {
    const uint64_t left = size - offset;
    if (left < 4) return size;
    const uint32_t length = qln::LoadBigEndian32(buffer + offset);
    if (length == 0) return static_cast<uint32_t>(offset);
    if (length >= left) return size;
    qln::StoreBigEndian32(buffer + offset, 1);
    offset += uint64_t{4} + length;
  }
  return size;
}
