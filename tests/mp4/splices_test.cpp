// Splices: what comes out, and where each place of the input is found.
#include "container/mp4/splices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "container/mp4/memory_sink.h"
#include "mp4/build_boxes.h"

namespace qln::test::mp4 {
namespace {

using qlnmedia::Error;
using namespace qlnmedia::mp4;

Bytes Apply(const Splices& splices, const Bytes& input) {
  const MemorySource source(input);
  MemorySink sink;
  splices.Apply(source, 0, input.size(), sink, [](uint64_t) {});
  return sink.bytes();
}

TEST(Splices, NoneGiveTheInput) {
  Spool spool;
  Splices splices(spool);
  const Bytes input = Text("abcdef");
  splices.Seal(MemorySource(input));
  EXPECT_EQ(Apply(splices, input), input);
  EXPECT_EQ(splices.ShiftAt(6), 0);
}

TEST(Splices, InsertRemoveAndReplaceInAnyOrder) {
  Spool spool;
  Splices splices(spool);
  const Bytes input = Text("abcdefgh");
  splices.Add(6, 1, Text("XYZ"));
  splices.Add(0, 0, Text("<"));
  splices.Add(2, 3, {});
  splices.Seal(MemorySource(input));
  EXPECT_EQ(Apply(splices, input), Text("<abfXYZh"));
  EXPECT_EQ(splices.growth(), 0);
  EXPECT_TRUE(splices.anyGrowth());
  EXPECT_EQ(splices.ShiftAt(0), 0);
  EXPECT_EQ(splices.ShiftAt(1), 1);
  // Places among bytes that go are where these went.
  EXPECT_EQ(splices.ShiftAt(2), 1);
  EXPECT_EQ(splices.ShiftAt(3), 0);
  EXPECT_EQ(splices.ShiftAt(4), -1);
  EXPECT_EQ(splices.ShiftAt(5), -2);
  EXPECT_EQ(splices.ShiftAt(7), 0);
  EXPECT_EQ(splices.GrowthIn(0, 2), 1);
  // The one of 2 to 5 reaches what begins before 5; the one in front of 0 reaches nothing.
  EXPECT_EQ(splices.FirstReaching(0), 0U);
  EXPECT_EQ(splices.FirstReaching(1), 1U);
  EXPECT_EQ(splices.FirstReaching(4), 1U);
  EXPECT_EQ(splices.FirstReaching(5), 2U);
  EXPECT_EQ(splices.FirstReaching(7), 3U);
}

TEST(Splices, DifferenceIsSmallAndBeginsInsideTheOld) {
  struct Case {
    std::string old, fresh;
    uint64_t at;
    uint32_t removed;
    uint32_t inserted;
  };
  for (const Case& c :
       {Case{"abc", "abcd", 2, 1, 2}, Case{"abc", "xabc", 0, 0, 1}, Case{"abc", "ab", 2, 1, 0},
        Case{"abc", "bc", 0, 1, 0}, Case{"abc", "aXc", 1, 1, 1}, Case{"aaa", "aaaa", 2, 0, 1},
        Case{"abab", "ab", 2, 2, 0}, Case{"abc", "abcc", 2, 0, 1}}) {
    Spool spool;
    Splices splices(spool);
    const Bytes input = Text("--" + c.old + "--");
    EXPECT_TRUE(splices.AddDifference(2, Text(c.old), Text(c.fresh)));
    splices.Seal(MemorySource(input));
    ASSERT_EQ(splices.size(), 1u);
    const Splices::Splice splice = splices.At(0);
    EXPECT_EQ(splice.at, c.at + 2) << c.old << " " << c.fresh;
    EXPECT_EQ(splice.removed, c.removed) << c.old << " " << c.fresh;
    EXPECT_EQ(splice.inserted, c.inserted) << c.old << " " << c.fresh;
    EXPECT_EQ(Apply(splices, input), Text("--" + c.fresh + "--"));
    // The end of what changed moves, its begin does not.
    EXPECT_EQ(splices.ShiftAt(2), 0);
    EXPECT_EQ(splices.ShiftAt(2 + c.old.size()),
              static_cast<int64_t>(c.fresh.size()) - static_cast<int64_t>(c.old.size()));
  }
  Spool spool;
  Splices splices(spool);
  EXPECT_FALSE(splices.AddDifference(0, Text("same"), Text("same")));
  EXPECT_TRUE(splices.empty());
}

// Long samples go by in blocks; where the difference stands must not matter.
TEST(Splices, DifferencesOfLongBytesAreFoundWhereverTheyAre) {
  const Bytes old = Noise(1500, 4);
  for (const size_t at : {0u, 1u, 255u, 256u, 257u, 511u, 512u, 700u, 1243u, 1244u, 1245u, 1498u, 1499u}) {
    for (const bool grows : {false, true}) {
      Bytes fresh = old;
      fresh[at] = 1;  // noise has no such byte
      if (grows) fresh.insert(fresh.begin() + static_cast<std::ptrdiff_t>(at), 300, 2);
      Spool spool;
      Splices splices(spool);
      EXPECT_TRUE(splices.AddDifference(0, old, fresh));
      splices.Seal(MemorySource(old));
      EXPECT_EQ(splices.At(0).at, at);
      EXPECT_EQ(splices.At(0).removed, 1u);
      EXPECT_EQ(splices.At(0).inserted, grows ? 301u : 1u);
      EXPECT_EQ(Apply(splices, old), fresh);
    }
  }
}

TEST(Splices, SameBytesTwiceAreRefused) {
  Spool spool;
  for (const uint64_t second : {3u, 4u}) {
    Splices splices(spool);
    splices.Add(3, 2, Text("x"));
    splices.Add(second, 1, Text("y"));
    EXPECT_THROW(splices.Seal(MemorySource(Text("abcdefgh"))), Error);
  }
  Splices outside(spool);
  outside.Add(7, 2, {});
  EXPECT_THROW(outside.Seal(MemorySource(Text("abcdefgh"))), Error);
}

TEST(Splices, ShiftsOfManyAreTheirSum) {
  Spool spool("/tmp", 64);  // most of it in a file
  Splices splices(spool);
  const Bytes input = Noise(3000, 1);
  Bytes expected;
  std::vector<int64_t> shift(input.size() + 1);
  int64_t sum = 0;
  for (size_t i = 0; i < input.size(); ++i) {
    shift[i] = sum;
    if (i % 3 != 1) {
      expected.push_back(input[i]);
      continue;
    }
    const Bytes fresh = Noise(i % 5, static_cast<uint32_t>(i));
    splices.Add(i, 1, fresh);
    expected.insert(expected.end(), fresh.begin(), fresh.end());
    sum += static_cast<int64_t>(fresh.size()) - 1;
  }
  shift[input.size()] = sum;
  splices.Seal(MemorySource(input));
  EXPECT_EQ(Apply(splices, input), expected);
  for (size_t i = 0; i <= input.size(); ++i) ASSERT_EQ(splices.ShiftAt(i), shift[i]) << i;
}

}  // namespace
}  // namespace qln::test::mp4
