// What a bit window leaves to the plain reader.

#include "qlnutil/bits/bit_window.h"

namespace qln {

BitWindow::ValueAndWindow BitWindow::PlainBits(BitWindow in, int32_t count) {
  BitReader plain = in.reader();
  const uint32_t value = plain.ReadBits(count);
  return {value, BitWindow(plain)};
}

BitWindow::ValueAndWindow BitWindow::PlainUe(BitWindow in) {
  BitReader plain = in.reader();
  const uint32_t value = plain.ReadUe();
  return {value, BitWindow(plain)};
}

}  // namespace qln
