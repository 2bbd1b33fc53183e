// What must hold of any set: all of it comes out, a part of it gives a part of its elements, and no count
// leads further than the standard lets it.
#ifndef TESTS_ENGINE_SETS_BROKEN_SETS_H
#define TESTS_ENGINE_SETS_BROKEN_SETS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "described_set.h"
#include "sets/rbsp_reader.h"
#include "sets/set_elements.h"
#include "sets/sps_facts.h"

namespace qlnmedia {

inline void ExpectWhole(Codec codec, const DescribedSet& described, const ChromaFormats& formats) {
  const SetElements set = ListSetElements(codec, described.unit(), formats);
  EXPECT_TRUE(set.whole()) << set.endedAt << " at " << set.endPosition << " of " << set.stop;
  EXPECT_EQ(set.stop, described.bits());
  EXPECT_EQ(LinesOf(set), described.lines());
  uint32_t at = 0;
  for (const SetElement& element : set.elements) {  // without a gap
    EXPECT_EQ(element.position, at);
    at += element.bits;
  }
  EXPECT_EQ(at, set.stop);
}

// The set's first bits, with a stop bit behind them.
inline Bytes FirstBits(const Bytes& unit, uint32_t bits) {
  const RbspReader whole(unit);
  return whole.With({{bits, whole.stop() - bits, {}}});
}

inline void ExpectPrefixes(Codec codec, const DescribedSet& described, const ChromaFormats& formats) {
  const Bytes unit = described.unit();
  const std::vector<ElementLine>& all = described.lines();
  const int type = UnitType(codec, unit);
  for (uint32_t bits = codec == Codec::kH264 ? 8 : 16; bits < described.bits(); ++bits) {
    const SetElements part = ListElementsAs(codec, type, FirstBits(unit, bits), formats);
    ASSERT_EQ(part.stop, bits);
    std::vector<ElementLine> lines = LinesOf(part);
    ASSERT_LE(part.endPosition, bits);
    // A run of bits, and what is there only if more data follows, may be shorter.
    ASSERT_TRUE(std::equal(lines.begin(), lines.end(), all.begin())) << bits;
    if (part.end == WalkEnd::kWhole) continue;
    ASSERT_EQ(part.end, WalkEnd::kCutOff) << bits;
    ASSERT_LT(lines.size(), all.size());
    ASSERT_EQ(part.endPosition, all[lines.size()].position);
    ASSERT_EQ(part.endedAt, all[lines.size()].name.substr(0, all[lines.size()].name.find('['))) << bits;
  }
}

// Gives each of the named counts a value above its limit, in the first set that has it.
inline void ExpectLimits(Codec codec, const std::vector<DescribedSet>& sets,
                         const std::vector<std::pair<std::string, uint64_t>>& limits) {
  for (const auto& [name, most] : limits) {
    bool found = false;
    for (const DescribedSet& described : sets) {
      const Bytes unit = described.unit();
      const SetElements set = ListSetElements(codec, unit);
      const SetElement* const element = set.Find(name);
      if (element == nullptr || found) continue;
      found = true;
      for (const uint64_t value : {most + 1, uint64_t{0xFFFFFFFD}}) {
        const int width = BitsUpTo(value + 1);
        const RbspReader bits(unit);
        const Bytes hostile = bits.With({{element->position,
                                          element->bits,
                                          {{width - 1, 0}, {width, static_cast<uint32_t>(value + 1)}}}});
        const SetElements ended = ListSetElements(codec, hostile);
        EXPECT_EQ(ended.end, WalkEnd::kOutOfRange) << name;
        EXPECT_EQ(ended.endedAt, name);
        EXPECT_EQ(ended.endPosition, element->position);
      }
    }
    EXPECT_TRUE(found) << name;
  }
}

}  // namespace qlnmedia

#endif
