// Numbers and bytes in the forms in which a page holds them.
#ifndef MEDIA_HTML_PACKER_H
#define MEDIA_HTML_PACKER_H

#include <cstdint>
#include <string>

#include "units/units.h"

namespace qlnmedia::html {

// Base64 (RFC 4648) without line feeds.
std::string Base64(ByteSpan bytes);

// The bytes in zlib's format (RFC 1950), which browsers unpack as "deflate".
Bytes Deflated(ByteSpan bytes);

// Appends a number of any size in groups of seven bits, the lowest first; all but the last have the top bit
// set.
void AppendNumber(Bytes& to, uint64_t number);
// Negative numbers folded between the others: 0, -1, 1, -2, 2 ...
inline uint64_t Folded(int64_t number) {
  return static_cast<uint64_t>(number) << 1 ^ static_cast<uint64_t>(number >> 63);
}

// A column of numbers: the folded difference of each from the one before it, the first one's from 0, as
// AppendNumber has them. Numbers and their differences must stay within 2^52, so that scripts can count so
// far; those that do not are taken as the nearest that do.
class Column {
 public:
  void Add(int64_t number);
  std::string Text() const { return Base64(bytes_); }
  size_t bytes() const { return bytes_.size(); }

 private:
  Bytes bytes_;
  int64_t last_ = 0;
};

}  // namespace qlnmedia::html

#endif
