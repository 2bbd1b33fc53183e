// What a bit window leaves to the plain reader.

#include "qlnutil/bits/bit_window.h"

namespace qln {

BitWindow::Outcome BitWindow::Behind(uint32_t value, const BitReader& plain) {
  const BitWindow window(plain);
  return {value, window.left_, window.bits_, window.end_};
}

BitWindow::Outcome BitWindow::PlainBits(BitWindow in, int32_t count) {
  BitReader plain = in.reader();
  const uint32_t value = plain.ReadBits(count);
  return Behind(value, plain);
}

BitWindow::Outcome BitWindow::PlainUe(BitWindow in) {
  BitReader plain = in.reader();
  const uint32_t value = plain.ReadUe();
  return Behind(value, plain);
}

}  // namespace qln
