// Reads a parameter set element by element. What reads a set stands in the *_syntax.h files beside this one,
// each written to be laid beside the standard's syntax table: one line an element, with its name and its
// descriptor. It is written once and serves whoever wants to know: a sink takes every element with its place
// and value, and a record takes the few that later elements, other units or facts depend on.
//
// A set that breaks off, or holds a count above the standard's limit, ends there: from then on every element
// reads as 0 and none reaches the sink. So no loop of a syntax table runs on a count that was not checked,
// and what it does behind the end costs a bounded number of rounds.
#ifndef MEDIA_SETS_SYNTAX_READER_H
#define MEDIA_SETS_SYNTAX_READER_H

#include <array>
#include <bit>
#include <cstdint>
#include <string_view>

#include "sets/rbsp_reader.h"

namespace qlnmedia {

// One syntax element of a set.
struct SetElement {
  std::string_view name;            // as published, without indices
  std::array<uint32_t, 5> index{};  // as in the published table
  uint8_t indices = 0;              // how many of them
  bool run = false;  // bits of no known meaning, kept together: `value` says nothing, the unit holds them
  uint16_t structure = 0;  // which of SetElements::structures it stands in
  uint32_t position = 0;   // the first bit, counted from the unit's first byte, emulation prevention removed
  uint32_t bits = 0;
  int64_t value = 0;
};

// Why a walk ended.
enum class WalkEnd {
  kWhole,       // the syntax was read to its end
  kCutOff,      // an element leads past the stop bit
  kOutOfRange,  // a count or a length is above what the standard allows
  kTooMany,     // more elements than any set has
};

// The largest value that the standard allows; where an element has one, a larger one ends the walk.
struct Most {
  uint64_t value;
};

// The bits that hold every value up to `most`: Ceil(Log2(most + 1)).
constexpr int BitsUpTo(uint64_t most) { return static_cast<int>(std::bit_width(most)); }

// A sink for those who want the record alone.
struct NoSink {
  void Enter(std::string_view, int) {}
  void Leave() {}
  bool Take(const SetElement&) { return true; }
};

template <class Sink>
class SyntaxReader {
 public:
  SyntaxReader(ByteSpan unit, Sink& sink) : in_(unit), sink_(sink) {}

  // u(n), up to 63 bits; returns the low 32, as only reserved bits have more.
  template <class... Index>
  uint32_t u(std::string_view name, int bits, Index... index) {
    return static_cast<uint32_t>(Fixed(name, bits, Most{~uint64_t{0}}, index...));
  }
  template <class... Index>
  uint32_t u(std::string_view name, int bits, Most most, Index... index) {
    return static_cast<uint32_t>(Fixed(name, bits, most, index...));
  }
  // u(1).
  template <class... Index>
  bool flag(std::string_view name, Index... index) {
    return Fixed(name, 1, Most{1}, index...) != 0;
  }
  // ue(v): 0 to 2^32 - 2.
  template <class... Index>
  uint32_t ue(std::string_view name, Index... index) {
    return ue(name, Most{0xFFFFFFFE}, index...);
  }
  template <class... Index>
  uint32_t ue(std::string_view name, Most most, Index... index) {
    const uint32_t position = in_.position();
    const uint64_t code = Code(name);
    if (good() && code > most.value) Fail(WalkEnd::kOutOfRange, name, position);
    Give(name, position, static_cast<int64_t>(code), index...);
    return good() ? static_cast<uint32_t>(code) : 0;
  }
  // se(v).
  template <class... Index>
  int32_t se(std::string_view name, Index... index) {
    const uint32_t position = in_.position();
    const int64_t code = static_cast<int64_t>(Code(name));
    const int64_t value = code % 2 == 1 ? (code + 1) / 2 : -(code / 2);
    Give(name, position, value, index...);
    return good() ? static_cast<int32_t>(value) : 0;
  }

  // The bits up to the stop bit as one element: extension data of a later edition.
  void run(std::string_view name) {
    if (!more()) return;
    const uint32_t position = in_.position();
    SetElement element{name, {}, 0, true, 0, position, in_.stop() - position, 0};
    in_.skip(element.bits);
    if (!sink_.Take(element)) Fail(WalkEnd::kTooMany, name, position);
  }

  // A syntax structure within the set, entered until the result goes out of scope.
  class Structure {
   public:
    Structure(Sink& sink, std::string_view name, int index) : sink_(sink) { sink_.Enter(name, index); }
    ~Structure() { sink_.Leave(); }
    Structure(const Structure&) = delete;
    Structure& operator=(const Structure&) = delete;

   private:
    Sink& sink_;
  };
  [[nodiscard]] Structure structure(std::string_view name, int index = -1) {
    return Structure(sink_, name, index);
  }

  // more_rbsp_data()
  bool more() const { return good() && in_.position() < in_.stop(); }
  bool aligned() const { return in_.position() % 8 == 0; }
  // Ends the walk at an element that was read: what it says is beyond the standard's limits.
  void refuse(std::string_view name) { Fail(WalkEnd::kOutOfRange, name, in_.position()); }

  // Says that all elements that facts are read from have passed: what stands behind them cannot spoil them.
  void factsEnd() { facts_ = facts_ || good(); }
  bool factsWhole() const { return facts_; }

  bool good() const { return end_ == WalkEnd::kWhole; }
  WalkEnd end() const { return end_; }
  std::string_view endedAt() const { return endedAt_; }
  uint32_t position() const { return good() ? in_.position() : endPosition_; }
  uint32_t stop() const { return in_.stop(); }

 private:
  template <class... Index>
  uint64_t Fixed(std::string_view name, int bits, Most most, Index... index) {
    if (!good()) return 0;
    const uint32_t position = in_.position();
    if (static_cast<uint32_t>(bits) > in_.stop() - position) return Fail(WalkEnd::kCutOff, name, position);
    uint64_t value = bits > 32 ? in_.u(bits - 32) : 0;
    value = bits > 32 ? value << 32 | in_.u(32) : in_.u(bits);
    if (value > most.value) return Fail(WalkEnd::kOutOfRange, name, position);
    Give(name, position, static_cast<int64_t>(value), index...);
    return good() ? value : 0;
  }

  // The code number of an Exp-Golomb code.
  uint64_t Code(std::string_view name) {
    if (!good()) return 0;
    const uint32_t position = in_.position();
    int zeros = 0;
    while (in_.position() < in_.stop() && in_.u(1) == 0) ++zeros;
    const uint32_t left = in_.stop() - in_.position();
    // A code that ends with the data is cut off, and so is one whose first 1 is the stop bit.
    if (in_.position() - position == static_cast<uint32_t>(zeros) || static_cast<uint32_t>(zeros) > left)
      return Fail(WalkEnd::kCutOff, name, position);
    if (zeros > 32) return Fail(WalkEnd::kOutOfRange, name, position);
    const uint64_t code = (uint64_t{1} << zeros) - 1 + in_.u(zeros);
    return code > 0xFFFFFFFE ? Fail(WalkEnd::kOutOfRange, name, position) : code;
  }

  template <class... Index>
  void Give(std::string_view name, uint32_t position, int64_t value, Index... index) {
    static_assert(sizeof...(index) <= 5);
    if (!good()) return;
    const SetElement element{name,
                             {static_cast<uint32_t>(index)...},
                             static_cast<uint8_t>(sizeof...(index)),
                             false,
                             0,
                             position,
                             in_.position() - position,
                             value};
    if (!sink_.Take(element)) Fail(WalkEnd::kTooMany, name, position);
  }

  uint64_t Fail(WalkEnd end, std::string_view name, uint32_t position) {
    if (!good()) return 0;
    end_ = end;
    endedAt_ = name;
    endPosition_ = position;
    return 0;
  }

  RbspReader in_;
  Sink& sink_;
  WalkEnd end_ = WalkEnd::kWhole;
  std::string_view endedAt_;
  uint32_t endPosition_ = 0;
  bool facts_ = false;
};

}  // namespace qlnmedia

#endif
