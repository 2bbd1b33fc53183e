// What the coders of HEVC parameter sets add to those of every syntax table: the places where reader and
// writer differ on purpose, each by its name.
#ifndef QLNUTIL_HEVC_SYNTAX_CODERS_H
#define QLNUTIL_HEVC_SYNTAX_CODERS_H

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "qlnutil/bits/loop_reader.h"
#include "qlnutil/bits/syntax_coders.h"
#include "qlnutil/hevc/profile_tier_level.h"
#include "qlnutil/qlnhevc.h"

namespace qln {

// Reads from a BitReader, a BitWindow or, inside loops that the stream counts, a LoopReader.
template <class Bits>
struct HevcElementReader : ElementReader<Bits> {
  // Elements that no member keeps.
  void Pass(uint32_t count) { this->bits.SkipBits(count); }
  void PassUe() { this->bits.ReadUe(); }

  // A reader always goes on: what lies past the data reads as told.
  static constexpr bool Full() { return false; }

  // The last sub-layer of a loop over max_sub_layers_minus1, which has three bits. Read past the end, it
  // counts as 0.
  static constexpr uint64_t LastSubLayer(uint32_t maxSubLayersMinus1) {
    return maxSubLayersMinus1 == 0xFFFFFFFFu ? 0 : maxSubLayersMinus1;
  }

  // Rounds of a loop over a count that is looked at as a signed number: none where its top bit is set.
  static constexpr uint32_t Rounds(uint32_t count) { return static_cast<int32_t>(count) < 0 ? 0 : count; }

  // Entries that are coded of as many as a count says: those beyond the array are not looked for.
  template <class T, size_t kCount>
  static constexpr uint32_t Coded(const T (&)[kCount], uint32_t count) {
    return count < kCount ? count : static_cast<uint32_t>(kCount);
  }

  // An entry of an array. The reader's loops end inside all of them.
  template <class T, size_t kCount>
  static T& Entry(T (&entries)[kCount], uint64_t i) {
    return entries[i];
  }
};

using HevcLoopCoder = HevcElementReader<LoopReader>;

template <class Bits>
struct HevcSetReader : HevcElementReader<Bits> {
  uint32_t reservedPairs = 0;  // of the profile, that are not 00

  // Runs table(coder) for a loop whose count comes from the stream.
  template <class Table>
  [[gnu::always_inline]] void InLoop(Table table) {
    HevcLoopCoder loop{{LoopReader(Plain(this->bits))}};
    table(loop);
    const BitReader plain = loop.bits.reader();
    this->bits = std::remove_reference_t<Bits>(plain);
  }

  // `count` codes into one word: the last one stays.
  [[gnu::always_inline]] void UeRun(uint32_t count, uint32_t& word) {
    InLoop([&](HevcLoopCoder& loop) { RunRounds(loop.bits, count, 0, [&](uint64_t) { loop.Ue(word); }); });
  }

  int32_t ProfileTierLevel(uint32_t maxSubLayersMinus1, HevcProfileTierLevel& block,
                           HevcConfigRecord* config) {
    return HevcReadProfileTierLevel(this->bits, maxSubLayersMinus1, config, block, reservedPairs);
  }

 private:
  static BitReader Plain(const BitReader& reader) { return reader; }
  [[gnu::always_inline]] static BitReader Plain(const BitWindow& window) { return window.reader(); }
};

// A writer takes any record: counts drive its loops whole until the output is full, and entries beyond the
// record's arrays count as 0.
struct HevcSetWriter : SyntaxWriter {
  // The library's own signed code: hosts rely on the bits as they stand, though positive values do not read
  // back.
  void Se(int32_t word) { bits.WriteExponentialGolombCodeSigned(static_cast<uint32_t>(word)); }

  // Elements that no member keeps go out as zeros.
  void Pass(uint32_t count) { bits.WriteBits64(static_cast<int32_t>(count), 0); }
  void PassUe() { Ue(0); }

  bool Full() const { return bits.Overflowed(); }

  static constexpr uint64_t LastSubLayer(uint32_t maxSubLayersMinus1) { return maxSubLayersMinus1; }

  static constexpr uint32_t Rounds(uint32_t count) { return count; }

  template <class T, size_t kCount>
  static constexpr uint32_t Coded(const T (&)[kCount], uint32_t count) {
    return count;
  }

  template <class T, size_t kCount>
  static const T& Entry(const T (&entries)[kCount], uint64_t i) {
    static constexpr T kNone{};
    return i < kCount ? entries[i] : kNone;
  }

  template <class Table>
  void InLoop(Table table) {
    table(*this);
  }

  // `count` codes, all of the one word.
  void UeRun(uint32_t count, uint32_t word) {
    for (uint32_t i = 0; i < count && !Full(); ++i) Ue(word);
  }

  int32_t ProfileTierLevel(uint32_t maxSubLayersMinus1, HevcProfileTierLevel& block,
                           HevcConfigRecord* /*config*/) {
    return HevcWriteProfileTierLevel(bits, maxSubLayersMinus1, block);
  }
};

// The ordering values of a VPS or SPS, of every sub-layer or of the highest alone. The record has one word
// for each value, which keeps the last one read and is written for all.
template <class Coder, class... Words>
void SubLayerOrderingSyntax(Coder& coder, uint32_t infoPresentFlag, uint32_t maxSubLayersMinus1,
                            Words&... words) {
  const uint64_t last = coder.LastSubLayer(maxSubLayersMinus1);
  coder.InLoop([&](auto& loop) {
    for (uint64_t i = infoPresentFlag != 0 ? 0 : last; i <= last && !loop.Full(); ++i) (loop.Ue(words), ...);
  });
}

}  // namespace qln

#endif
