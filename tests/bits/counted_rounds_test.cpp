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

// A round of weights: each flag that is set has codes behind it.
uint32_t ReadWeights(BitReader& reader) {
  uint32_t value = 0;
  for (const int codes : {2, 4}) {
    const uint32_t flag = reader.ReadBit();
    value = value * 3 + flag;
    for (int i = 0; flag != 0 && i < codes; ++i) value = value * 5 + static_cast<uint32_t>(reader.ReadSe());
  }
  return value;
}

uint32_t ReadRectangle(BitReader& reader) {
  const uint32_t topLeft = reader.ReadUe();
  return topLeft * 7 + reader.ReadUe();
}

constexpr uint32_t kWeights = 4;
constexpr uint32_t kRectangle = 5;

// One round of each kind that parameter sets and slice headers have; kind picks it.
template <class Loop>
Outcome RunRounds(const Bytes& data, uint32_t limit, uint32_t position, uint32_t kind, Loop loop) {
  BitReader reader(data.data(), data.size(), limit, position);
  Outcome outcome{};
  loop(reader, [&](uint64_t i) {
    uint32_t value = kind == 0            ? reader.ReadUe()
                     : kind == kWeights   ? ReadWeights(reader)
                     : kind == kRectangle ? ReadRectangle(reader)
                                          : reader.ReadBits(static_cast<int32_t>(kind));
    if (kind == 2 && value != 0) value = static_cast<uint32_t>(reader.ReadSe());
    outcome.last = value;
    if (i < 4) outcome.stored[i] = value;
  });
  outcome.bitPos = reader.bitPos;
  return outcome;
}

TEST(CountedRounds, EqualRunningEveryRound) {
  Random random(31);
  for (int turn = 0; turn < 12000; ++turn) {
    const Bytes data = random.zeroRichBytes(random.below(12));
    const uint32_t limits[] = {
        static_cast<uint32_t>(data.size() * 8), static_cast<uint32_t>(random.below(200)),
        0xFFFFFFFFu - static_cast<uint32_t>(random.below(300)), static_cast<uint32_t>(random.next())};
    const uint32_t limit = limits[random.below(4)];
    const uint32_t positions[] = {static_cast<uint32_t>(random.below(100)),
                                  0xFFFFFFFFu - static_cast<uint32_t>(random.below(2000)),
                                  0xFFFFFFFFu - static_cast<uint32_t>(random.below(20)),
                                  0x80000200u - static_cast<uint32_t>(random.below(0x400))};
    const uint32_t position = positions[random.below(4)];
    const uint32_t kind = static_cast<uint32_t>(random.below(6));
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

// A round that begins past the limit, wraps, runs over zeros up to the limit and ends one bit behind its
// start says nothing of the next one.
TEST(CountedRounds, ARoundThatGoesAllTheWayRoundTellsNothing) {
  const uint32_t limit = 0xFFFFFFFFu - 5;
  for (uint32_t past = 1; past <= 5; ++past) {
    const uint32_t position = limit + past;
    for (const uint64_t count : {2u, 3u, 5u, 9u}) {
      const auto plain = RunRounds(Bytes(), limit, position, kWeights, [&](BitReader&, auto round) {
        for (uint64_t i = 0; i < count; ++i) round(i);
      });
      const auto fast = RunRounds(Bytes(), limit, position, kWeights, [&](BitReader& reader, auto round) {
        RunCountedRounds(reader, count, 0, round);
      });
      EXPECT_EQ(plain.bitPos, fast.bitPos) << position << " count " << count;
    }
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
