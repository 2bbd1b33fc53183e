// Packs columns of numbers.

#include "html/packer.h"

#include <zlib.h>

#include <algorithm>
#include <new>

#include "kxutil/kxutil.h"

namespace qlnmedia::html {

std::string Base64(ByteSpan bytes) {
  // The encoder takes 32-bit lengths; pieces of whole triples stand behind each other as one text does.
  constexpr size_t kPiece = size_t{3} << 20;
  std::string text;
  text.reserve(bytes.size() / 3 * 4 + 4);
  for (size_t at = 0; at < bytes.size(); at += kPiece) {
    const ByteSpan piece = bytes.subspan(at, std::min(kPiece, bytes.size() - at));
    uint32_t size = static_cast<uint32_t>(piece.size() / 3 * 4 + piece.size() / 54 + 64);
    std::string lines(size, '\0');
    if (base64_encode(piece.data(), static_cast<uint32_t>(piece.size()), &size, lines.data()) != 0)
      throw std::bad_alloc();
    lines.resize(size);
    std::remove_copy_if(lines.begin(), lines.end(), std::back_inserter(text),
                        [](char c) { return c == '\n' || c == '\0'; });
  }
  return text;
}

Bytes Deflated(ByteSpan bytes) {
  uLongf size = compressBound(static_cast<uLong>(bytes.size()));
  Bytes packed(size);
  if (compress2(packed.data(), &size, bytes.data(), static_cast<uLong>(bytes.size()), 6) != Z_OK)
    throw std::bad_alloc();
  packed.resize(size);
  return packed;
}

void AppendNumber(Bytes& to, uint64_t number) {
  for (; number > 0x7F; number >>= 7) to.push_back(static_cast<uint8_t>(number | 0x80));
  to.push_back(static_cast<uint8_t>(number));
}

void Column::Add(int64_t number) {
  constexpr int64_t kMost = int64_t{1} << 51;
  number = std::clamp(number, -kMost, kMost);
  AppendNumber(bytes_, Folded(number - last_));
  last_ = number;
}

}  // namespace qlnmedia::html
