#include <algorithm>

#include "mutators/formats.h"

namespace qln::fuzz {

namespace {

constexpr size_t kKeyBytes = 16;
constexpr uint8_t kDesignator[] = {0x06, 0x0E, 0x2B, 0x34};
constexpr int kItem = 100;  // of a local set: a tag and a length of 2 bytes each
constexpr int kShort = 0;   // else the number of bytes behind the first one of a length

void ReadItems(const uint8_t* data, size_t size, Piece& set) {
  size_t at = 0;
  while (size - at >= 4) {
    const size_t length = size_t{data[at + 2]} << 8 | data[at + 3];
    if (length > size - at - 4) break;
    Piece item;
    item.form = kItem;
    item.name.assign(data + at, data + at + 2);
    item.rest.assign(data + at + 4, data + at + 4 + length);
    set.parts.push_back(std::move(item));
    at += 4 + length;
  }
  set.rest.assign(data + at, data + size);
}

void WriteTriplet(const Piece& piece, Bytes& out) {
  Bytes body;
  for (const Piece& part : piece.parts) WriteTriplet(part, body);
  body.insert(body.end(), piece.rest.begin(), piece.rest.end());
  out.insert(out.end(), piece.name.begin(), piece.name.end());
  const uint64_t size = body.size();
  int width = piece.form == kItem ? 2 : piece.form;
  if (piece.form == kShort && size < 0x80) {
    out.push_back(static_cast<uint8_t>(size));
  } else {
    if (piece.form != kItem) {
      while (width < 8 && size >> (8 * width) != 0) ++width;
      out.push_back(static_cast<uint8_t>(0x80 | width));
    }
    for (int i = width; i-- > 0;) out.push_back(static_cast<uint8_t>(size >> (8 * i)));
  }
  out.insert(out.end(), body.begin(), body.end());
}

}  // namespace

Piece Triplets::Read(const uint8_t* data, size_t size) const {
  Piece whole;
  size_t at = 0;
  while (size - at > kKeyBytes && std::equal(std::begin(kDesignator), std::end(kDesignator), data + at)) {
    const uint8_t first = data[at + kKeyBytes];
    const int width = first < 0x80 ? kShort : first & 0x7F;
    const size_t head = kKeyBytes + 1 + static_cast<size_t>(width);
    // A form of no bytes, as of a length that is not told, is nobody's here.
    if (first == 0x80 || width > 8 || head > size - at) break;
    uint64_t length = first < 0x80 ? first : 0;
    for (size_t i = kKeyBytes + 1; i < head; ++i) length = length << 8 | data[at + i];
    if (length > size - at - head) break;
    Piece triplet;
    triplet.form = width;
    triplet.name.assign(data + at, data + at + kKeyBytes);
    const uint8_t* const body = data + at + head;
    if (triplet.name[4] == 2 && triplet.name[5] == 0x53) {
      ReadItems(body, static_cast<size_t>(length), triplet);
    } else {
      triplet.rest.assign(body, body + length);
    }
    whole.parts.push_back(std::move(triplet));
    at += head + static_cast<size_t>(length);
  }
  whole.rest.assign(data + at, data + size);
  return whole;
}

void Triplets::Write(const Piece& whole, Bytes& out) const {
  for (const Piece& part : whole.parts) WriteTriplet(part, out);
  out.insert(out.end(), whole.rest.begin(), whole.rest.end());
}

}  // namespace qln::fuzz
