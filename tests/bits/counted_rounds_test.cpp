// Counted rounds against running every one of them, under limits that make the position wrap.

#include "qlnutil/bits/counted_rounds.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qln {
namespace {

using test::Bytes;
using test::Random;

struct Outcome {
  uint32_t bitPos;
  uint32_t last;
  uint32_t stored[4];
  bool operator==(const Outcome&) const = default;
};

// One round of each kind that the parameter sets have; kind picks it.
template <class Loop>
Outcome RunRounds(const Bytes& data, uint32_t limit, uint32_t position, uint32_t kind, Loop loop) {
  BitReader reader(data.data(), data.size(), limit, position);
  Outcome outcome{};
  loop(reader, [&](uint64_t i) {
    uint32_t value = kind == 0 ? reader.ReadUe() : reader.ReadBits(static_cast<int32_t>(kind));
    if (kind == 2 && value != 0) value = static_cast<uint32_t>(reader.ReadSe());
    outcome.last = value;
    if (i < 4) outcome.stored[i] = value;
  });
  outcome.bitPos = reader.bitPos;
  return outcome;
}

TEST(CountedRounds, EqualRunningEveryRound) {
  Random random(31);
  for (int turn = 0; turn < 4000; ++turn) {
    const Bytes data = random.zeroRichBytes(random.below(12));
    const uint32_t limits[] = {
        static_cast<uint32_t>(data.size() * 8), static_cast<uint32_t>(random.below(200)),
        0xFFFFFFFFu - static_cast<uint32_t>(random.below(300)), static_cast<uint32_t>(random.next())};
    const uint32_t limit = limits[random.below(4)];
    const uint32_t position = random.below(2) == 0 ? static_cast<uint32_t>(random.below(100))
                                                   : 0xFFFFFFFFu - static_cast<uint32_t>(random.below(2000));
    const uint32_t kind = static_cast<uint32_t>(random.below(4));
    const uint64_t count = random.below(3000);
    const auto plain = RunRounds(data, limit, position, kind, [&](BitReader&, auto round) {
      for (uint64_t i = 0; i < count; ++i) round(i);
    });
    const auto fast = RunRounds(data, limit, position, kind, [&](BitReader& reader, auto round) {
      RunCountedRounds(reader, count, 4, round);
    });
    ASSERT_EQ(plain, fast) << test::ToHex(data) << " limit " << limit << " from " << position << " kind "
                           << kind << " count " << count;
  }
}

TEST(CountedRounds, InclusiveCountsAreSigned) {
  EXPECT_EQ(InclusiveRounds(0), 1u);
  EXPECT_EQ(InclusiveRounds(0x7FFFFFFF), 0x80000000u);
  EXPECT_EQ(InclusiveRounds(0x80000000), 0u);
  EXPECT_EQ(InclusiveRounds(0xFFFFFFFF), 0u);
}

}  // namespace
}  // namespace qln
