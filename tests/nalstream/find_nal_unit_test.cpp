// The start code search against a naive one.

#include <gtest/gtest.h>

#include <algorithm>

#include "nalstream/nalstream.h"
#include "nalstream/triple_scan.h"
#include "support/test_support.h"

namespace qln {
namespace {

using test::Bytes;
using test::ExactCopy;
using test::Hex;
using test::Random;

struct Found {
  int size;
  int start;
  int end;
  bool operator==(const Found&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Found& found) {
  return out << found.size << " [" << found.start << ", " << found.end << ")";
}

Found Find(const Bytes& bytes) {
  ExactCopy copy(bytes);
  Found found{-7, -7, -7};
  found.size = find_nal_unit(copy.data(), static_cast<int>(copy.size()), &found.start, &found.end);
  return found;
}

Found FindNaively(const Bytes& bytes) {
  const int size = static_cast<int>(bytes.size());
  if (size < 4) return {size, 0, 0};
  const auto at = [&](int i) { return bytes[static_cast<size_t>(i)]; };
  int start = 0;
  for (int i = 0; i + 3 <= size && start == 0; ++i) {
    if (at(i) == 0 && at(i + 1) == 0 && at(i + 2) == 1) start = i + 3;
  }
  if (start == 0) return {0, 0, 0};
  int end = size;
  for (int i = start; i + 3 <= size; ++i) {
    if (at(i) == 0 && at(i + 1) == 0 && at(i + 2) <= 1) {
      end = i;
      break;
    }
  }
  return {end - start, start, end};
}

TEST(FindNalUnit, WorkedCases) {
  EXPECT_EQ(Find(Hex("00 00 00 01 67 42 00 00 00 01 68")), (Found{2, 4, 6}));
  EXPECT_EQ(Find(Hex("00 00 01 67 42 00 00 01 68")), (Found{2, 3, 5}));
  EXPECT_EQ(Find(Hex("FF FF 00 00 00 00 01 67")), (Found{1, 7, 8}));  // bytes in front of the code
  EXPECT_EQ(Find(Hex("00 00 01 67 42 00 00")), (Found{4, 3, 7}));     // two zeros at the end belong to it
  EXPECT_EQ(Find(Hex("00 00 01 67 42 00 00 00")), (Found{2, 3, 5}));  // three do not
  EXPECT_EQ(Find(Hex("00 00 01 67 00 00 03 01")), (Found{5, 3, 8}));  // emulation prevention does not end it
  EXPECT_EQ(Find(Hex("00 00 00 00")), (Found{0, 0, 0}));
  EXPECT_EQ(Find(Hex("12 34 56 78 00 00")), (Found{0, 0, 0}));
}

TEST(FindNalUnit, AnEmptyUnitIsZeroWithBothOffsetsBehindTheFirstCode) {
  EXPECT_EQ(Find(Hex("00 00 01 00 00 01 67")), (Found{0, 3, 3}));
  EXPECT_EQ(Find(Hex("00 00 00 01 00 00 00 01")), (Found{0, 4, 4}));
  EXPECT_EQ(Find(Hex("00 00 00 01")), (Found{0, 4, 4}));  // nothing behind the code
}

TEST(FindNalUnit, BelowFourBytesGivesTheSize) {
  EXPECT_EQ(Find({}), (Found{0, 0, 0}));
  EXPECT_EQ(Find(Hex("00")), (Found{1, 0, 0}));
  EXPECT_EQ(Find(Hex("00 00 01")), (Found{3, 0, 0}));
  int start = 5;
  int end = 5;
  const uint8_t byte = 0;
  EXPECT_EQ(find_nal_unit(&byte, -1, &start, &end), 0);
  EXPECT_EQ(start, 0);
  EXPECT_EQ(end, 0);
}

TEST(FindNalUnit, EqualsTheNaiveSearch) {
  Random random(6);
  for (int round = 0; round < 100000; ++round) {
    Bytes bytes =
        random.below(3) == 0 ? random.bytes(random.below(90)) : random.zeroRichBytes(random.below(90));
    ASSERT_EQ(Find(bytes), FindNaively(bytes)) << test::ToHex(bytes);
  }
}

TEST(FindNalUnit, EqualsTheNaiveSearchAtEveryPlaceOfOneCode) {
  for (size_t size = 4; size < 100; ++size) {
    for (size_t place = 0; place + 3 <= size; ++place) {
      Bytes bytes(size, 0xAA);
      bytes[place] = 0;
      bytes[place + 1] = 0;
      bytes[place + 2] = 1;
      ASSERT_EQ(Find(bytes), FindNaively(bytes)) << size << " " << place;
    }
  }
}

template <class Third>
const uint8_t* FindTripleNaively(const uint8_t* from, const uint8_t* to) {
  for (; to - from >= 3; ++from) {
    if (from[0] == 0 && from[1] == 0 && Third::Matches(from[2])) return from;
  }
  return to;
}

// Each form that this build has against what the search comes to.
template <class Third>
void ExpectOfAllForms(const uint8_t* from, const uint8_t* to, std::ptrdiff_t expected) {
  ASSERT_EQ(FindTriplePlain<Third>(from, to) - from, expected);
  ASSERT_EQ(FindTriple<Third>(from, to) - from, expected);
#if defined(__x86_64__)
  ASSERT_EQ(FindTripleSse2<Third>(from, to) - from, expected);
  if (CPU_FEATURE_ACTIVE(AVX2)) {
    ASSERT_EQ(FindTripleAvx2<Third>(from, to) - from, expected);
  }
#elif defined(QLN_NEON)
  ASSERT_EQ(FindTripleNeon<Third>(from, to) - from, expected);
#endif
}

template <class Third>
class TripleScan : public testing::Test {};

using ThirdBytes =
    testing::Types<ThirdIs<1>, ThirdIs<3>, ThirdIsAtMost<1>, ThirdIsAtMost<3>, ThirdIsThreeOrTwelve>;
TYPED_TEST_SUITE(TripleScan, ThirdBytes);

TYPED_TEST(TripleScan, AllFormsEqualTheNaiveOne) {
  Random random(7);
  for (int round = 0; round < 20000; ++round) {
    Bytes bytes =
        random.below(4) == 0 ? random.zeroRichBytes(random.below(120)) : random.bytes(random.below(700));
    // Now and then a triple at a place of its own, so that every lane sees one.
    if (bytes.size() >= 3 && random.below(2) == 0) {
      const size_t place = random.below(bytes.size() - 2);
      bytes[place] = 0;
      bytes[place + 1] = 0;
      bytes[place + 2] = static_cast<uint8_t>(random.below(14));
    }
    ExactCopy copy(bytes);
    const uint8_t* const to = copy.data() + copy.size();
    const uint8_t* const from = copy.data() + random.below(std::min<size_t>(copy.size(), 40) + 1);
    const auto expected = FindTripleNaively<TypeParam>(from, to) - from;
    ASSERT_NO_FATAL_FAILURE(ExpectOfAllForms<TypeParam>(from, to, expected));
  }
}

// Long runs, in which the vector forms change between their two ways of looking: pairs of zeros without a
// third byte near them, rare or close together, and a triple at a place of its own.
TYPED_TEST(TripleScan, AllFormsEqualTheNaiveOneOnLongRuns) {
  Random random(8);
  for (int round = 0; round < 3000; ++round) {
    Bytes bytes = random.bytes(random.below(9000) + 3);
    for (uint8_t& byte : bytes) byte |= 0x10;
    for (uint64_t pairs = random.below(40); pairs > 0; --pairs) {
      const size_t place = random.below(bytes.size() - 1);
      bytes[place] = 0;
      bytes[place + 1] = static_cast<uint8_t>(random.below(3) == 0 ? random.below(16) : 0);
    }
    if (random.below(3) != 0) {
      const size_t place = random.below(bytes.size() - 2);
      bytes[place] = 0;
      bytes[place + 1] = 0;
      bytes[place + 2] = static_cast<uint8_t>(random.below(14));
    }
    ExactCopy copy(bytes);
    const uint8_t* const to = copy.data() + copy.size();
    const uint8_t* const from = copy.data() + random.below(std::min<size_t>(copy.size(), 70));
    const auto expected = FindTripleNaively<TypeParam>(from, to) - from;
    ASSERT_NO_FATAL_FAILURE(ExpectOfAllForms<TypeParam>(from, to, expected));
  }
}

// Each of the places where a block of the search for pairs can begin and end.
TYPED_TEST(TripleScan, AllFormsFindATripleAtEveryPlaceOfALongRun) {
  for (size_t place = 0; place < 1300; ++place) {
    for (const uint8_t third : {uint8_t{0}, uint8_t{1}, uint8_t{3}, uint8_t{12}}) {
      if (!TypeParam::Matches(third)) continue;
      Bytes bytes(1300 + 2, 0x77);
      bytes[place] = 0;
      bytes[place + 1] = 0;
      bytes[place + 2] = third;
      ExactCopy copy(bytes);
      const uint8_t* const to = copy.data() + copy.size();
      const auto expected = static_cast<std::ptrdiff_t>(place);
      ASSERT_NO_FATAL_FAILURE(ExpectOfAllForms<TypeParam>(copy.data(), to, expected));
    }
  }
}

template <class Third>
void ExpectLastTriple(const Bytes& bytes) {
  ExactCopy copy(bytes);
  const uint8_t* const end = copy.data() + copy.size();
  const uint8_t* last = end;
  for (const uint8_t* p = copy.data(); (p = FindTripleNaively<Third>(p, end)) != end; ++p) last = p;
  ASSERT_EQ(FindLastTriplePlain<Third>(copy.data(), end), last) << test::ToHex(bytes);
  ASSERT_EQ(FindLastTriple<Third>(copy.data(), end), last) << test::ToHex(bytes);
}

TYPED_TEST(TripleScan, TheLastTripleIsFoundAtEveryPlace) {
  for (size_t size = 3; size < 72; ++size) {
    for (size_t place = 0; place + 3 <= size; ++place) {
      Bytes bytes(size, 0x77);
      bytes[place] = 0;
      bytes[place + 1] = 0;
      bytes[place + 2] = 3;
      ASSERT_NO_FATAL_FAILURE(ExpectLastTriple<TypeParam>(bytes));
      bytes[place + 2] = 1;
      ASSERT_NO_FATAL_FAILURE(ExpectLastTriple<TypeParam>(bytes));
    }
  }
}

TEST(TripleScan, TheLastTripleIsThatOfThePlainForm) {
  Random random(21);
  for (int round = 0; round < 20000; ++round) {
    Bytes bytes = random.bytes(random.below(120));
    for (uint8_t& byte : bytes) byte = byte < 180 ? byte & 1 : byte;
    ASSERT_NO_FATAL_FAILURE(ExpectLastTriple<ThirdIs<1>>(bytes));
  }
}

}  // namespace
}  // namespace qln
