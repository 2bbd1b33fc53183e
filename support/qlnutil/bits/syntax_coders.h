// The ways through a syntax table: readers that fill a record's words, and a writer that puts them into a
// stream. Each table is written once, as a template over these; where a codec's reader and writer differ, its
// own coders add a method with the name of the difference.
#ifndef QLNUTIL_BITS_SYNTAX_CODERS_H
#define QLNUTIL_BITS_SYNTAX_CODERS_H

#include <cstdint>

#include "qlnutil/bits/bit_reader.h"
#include "qlnutil/bits/bit_window.h"
#include "qlnutil/bits/bit_writer.h"
#include "qlnutil/bits/loop_reader.h"

namespace qln {

// Reads elements from any of the bit readers.
template <class Bits>
struct ElementReader {
  static constexpr bool kReads = true;
  Bits bits;

  [[gnu::always_inline]] void U(int32_t count, uint32_t& word) { word = bits.ReadBits(count); }
  [[gnu::always_inline]] void Flag(uint32_t& word) { word = bits.ReadBit(); }
  [[gnu::always_inline]] void Ue(uint32_t& word) { word = bits.ReadUe(); }
  [[gnu::always_inline]] void Se(int32_t& word) { word = bits.ReadSe(); }
};

using SyntaxReader = ElementReader<BitReader>;

// Runs table(coder) for a loop whose count comes from the stream, from the reader's position on, and moves it
// behind.
template <class Table>
void InCountedLoop(BitReader& bits, Table table) {
  ElementReader<LoopReader> loop{LoopReader(bits)};
  table(loop);
  bits = loop.bits.reader();
}

// The reader of single elements for a table that is one long chain of them; lists and loops go through a
// SyntaxReader.
struct SyntaxWindow : ElementReader<BitWindow> {
  // Runs table(coder) over a plain reader at this position. Returns the window behind it.
  template <class Table>
  [[gnu::always_inline]] SyntaxWindow Behind(Table table) const {
    SyntaxReader coder{bits.reader()};
    table(coder);
    return {{BitWindow(coder.bits)}};
  }
};

struct SyntaxWriter {
  static constexpr bool kReads = false;
  BitWriter bits;

  void U(int32_t count, uint32_t word) { bits.WriteBits(count, word); }
  void Flag(uint32_t word) { bits.WriteBit(word); }
  void Ue(uint32_t word) { bits.WriteUe(word); }
  void Se(int32_t word) { bits.WriteSe(static_cast<uint32_t>(word)); }
};

}  // namespace qln

#endif
