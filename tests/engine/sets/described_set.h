// A parameter set written by hand, element by element with names, and what a list of its elements must say.
#ifndef TESTS_ENGINE_SETS_DESCRIBED_SET_H
#define TESTS_ENGINE_SETS_DESCRIBED_SET_H

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "sets/set_elements.h"
#include "support/test_support.h"

namespace qlnmedia {

// One element: where it begins, its name with indices, its value.
struct ElementLine {
  uint32_t position;
  std::string name;
  int64_t value;
  friend bool operator==(const ElementLine&, const ElementLine&) = default;
  friend std::ostream& operator<<(std::ostream& out, const ElementLine& line) {
    return out << line.position << ' ' << line.name << " = " << line.value;
  }
};

inline std::vector<ElementLine> LinesOf(const SetElements& set) {
  std::vector<ElementLine> lines;
  for (const SetElement& element : set.elements)
    lines.push_back({element.position, NameWithIndices(element), element.value});
  return lines;
}

class DescribedSet {
 public:
  DescribedSet& u(const std::string& name, int bits, uint64_t value) {
    Note(name, static_cast<int64_t>(value));
    bits_.u(bits, value);
    return *this;
  }
  DescribedSet& ue(const std::string& name, uint32_t value) {
    Note(name, value);
    bits_.ue(value);
    return *this;
  }
  DescribedSet& se(const std::string& name, int32_t value) {
    Note(name, value);
    bits_.se(value);
    return *this;
  }
  // A flag each.
  DescribedSet& flags(const std::vector<std::pair<std::string, int>>& list) {
    for (const auto& [name, value] : list) u(name, 1, static_cast<uint64_t>(value));
    return *this;
  }
  // Bits that one element holds of which nothing is known.
  DescribedSet& run(const std::string& name, const std::string& zerosAndOnes) {
    Note(name, 0);
    bits_.raw(zerosAndOnes);
    return *this;
  }
  DescribedSet& alignOnes(const std::string& name) {
    while (bits_.bits() % 8 != 0) u(name, 1, 1);
    return *this;
  }

  const std::vector<ElementLine>& lines() const { return lines_; }
  size_t bits() const { return bits_.bits(); }
  Bytes unit() const { return Escape(qln::test::BitBuilder(bits_).trailing().bytes()); }

 private:
  void Note(const std::string& name, int64_t value) {
    lines_.push_back({static_cast<uint32_t>(bits_.bits()), name, value});
  }
  std::vector<ElementLine> lines_;
  qln::test::BitBuilder bits_;
};

inline std::string At(const std::string& name, size_t i) { return name + "[" + std::to_string(i) + "]"; }
inline std::string At(const std::string& name, size_t i, size_t j) { return At(At(name, i), j); }

}  // namespace qlnmedia

#endif
