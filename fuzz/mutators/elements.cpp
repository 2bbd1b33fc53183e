#include <algorithm>

#include "mutators/formats.h"

namespace qln::fuzz {

namespace {

constexpr int kDepth = 12;
constexpr int kUnknown = 16;  // beside the width of the size
constexpr int kMostWidth = 8;

// Elements that hold elements: RFC 8794 and RFC 9559.
constexpr uint32_t kMasters[] = {0x1A45DFA3, 0x18538067, 0x1F43B675, 0x1654AE6B, 0xAE,       0xA0,
                                 0x1C53BB6B, 0xBB,       0xB7,       0x114D9B74, 0x4DBB,     0xE0,
                                 0x55B0,     0x55D0,     0x6D80,     0x6240,     0x5034,     0x75A1,
                                 0xA6,       0x1254C367, 0x7373,     0x67C8,     0x1941A469, 0x61A7};

int Width(uint8_t first) {
  int width = 1;
  while (width <= kMostWidth && (first & (0x80 >> (width - 1))) == 0) ++width;
  return width;
}

bool IsMaster(const Bytes& name) {
  uint32_t id = 0;
  for (const uint8_t byte : name) id = id << 8 | byte;
  return std::find(std::begin(kMasters), std::end(kMasters), id) != std::end(kMasters);
}

void ReadParts(const uint8_t* data, size_t size, Piece& holder, int depth) {
  size_t at = 0;
  while (at < size) {
    const auto idWidth = static_cast<size_t>(Width(data[at]));
    if (idWidth > 4 || idWidth >= size - at) break;
    const int width = Width(data[at + idWidth]);
    const size_t head = idWidth + static_cast<size_t>(width);
    if (width > kMostWidth || head > size - at) break;
    uint64_t length = data[at + idWidth] & (0xFF >> width);
    bool unknown = length == static_cast<uint64_t>(0xFF >> width);
    for (size_t i = idWidth + 1; i < head; ++i) {
      length = length << 8 | data[at + i];
      unknown = unknown && data[at + i] == 0xFF;
    }
    if (unknown) length = size - at - head;
    if (length > size - at - head) break;
    Piece element;
    element.form = width | (unknown ? kUnknown : 0);
    element.name.assign(data + at, data + at + idWidth);
    const uint8_t* const body = data + at + head;
    if (depth < kDepth && IsMaster(element.name)) {
      ReadParts(body, static_cast<size_t>(length), element, depth + 1);
    } else {
      element.rest.assign(body, body + length);
    }
    holder.parts.push_back(std::move(element));
    at += head + static_cast<size_t>(length);
  }
  holder.rest.assign(data + at, data + size);
}

void WriteElement(const Piece& element, Bytes& out) {
  Bytes body;
  for (const Piece& part : element.parts) WriteElement(part, body);
  body.insert(body.end(), element.rest.begin(), element.rest.end());
  int width = element.form & ~kUnknown;
  const auto most = [&] { return (uint64_t{1} << (7 * width)) - 1; };
  uint64_t size = body.size();
  if ((element.form & kUnknown) != 0) {
    size = most();
  } else {
    while (width < kMostWidth && size >= most()) ++width;
  }
  size |= uint64_t{1} << (7 * width);
  out.insert(out.end(), element.name.begin(), element.name.end());
  for (int i = width; i-- > 0;) out.push_back(static_cast<uint8_t>(size >> (8 * i)));
  out.insert(out.end(), body.begin(), body.end());
}

}  // namespace

Piece Elements::Read(const uint8_t* data, size_t size) const {
  Piece whole;
  ReadParts(data, size, whole, 0);
  return whole;
}

void Elements::Write(const Piece& whole, Bytes& out) const {
  for (const Piece& part : whole.parts) WriteElement(part, out);
  out.insert(out.end(), whole.rest.begin(), whole.rest.end());
}

}  // namespace qln::fuzz
