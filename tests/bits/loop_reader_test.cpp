// Loops whose count comes from a stream, against running every round by a plain reader that is past its end
// for good once its position wraps.

#include "qlnutil/bits/loop_reader.h"

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

// What LoopReader does, element by element.
class PlainLoopReader {
 public:
  explicit PlainLoopReader(const BitReader& bits) : bits_(bits), past_(bits.PastLimit()) {}
  uint32_t position() const { return bits_.bitPos; }
  uint32_t ReadBit() { return ReadBits(1); }
  uint32_t ReadBits(int32_t count) {
    uint32_t value = 0xFFFFFFFFu;
    if (past_) {
      bits_.bitPos += static_cast<uint32_t>(count);
    } else {
      Step([&] { value = bits_.ReadBits(count); });
    }
    return value;
  }
  uint32_t ReadUe() {
    uint32_t value = 0;
    if (past_) {
      ++bits_.bitPos;
    } else {
      Step([&] { value = bits_.ReadUe(); });
    }
    return value;
  }
  int32_t ReadSe() { return BitReader::SignedOf(ReadUe()); }
  void SkipBits(uint32_t count) {
    Step([&] { bits_.bitPos += count; });
  }

 private:
  template <class Element>
  void Step(Element element) {
    const uint32_t before = bits_.bitPos;
    element();
    past_ = past_ || bits_.bitPos < before || bits_.PastLimit();
  }
  BitReader bits_;
  bool past_;
};

// A round of weights: each flag that is set has codes behind it.
template <class Reader>
uint32_t ReadWeights(Reader& reader) {
  uint32_t value = 0;
  for (const int codes : {2, 4}) {
    const uint32_t flag = reader.ReadBit();
    value = value * 3 + flag;
    for (int i = 0; flag != 0 && i < codes; ++i) value = value * 5 + static_cast<uint32_t>(reader.ReadSe());
  }
  return value;
}

template <class Reader>
uint32_t ReadRectangle(Reader& reader) {
  const uint32_t topLeft = reader.ReadUe();
  return topLeft * 7 + reader.ReadUe();
}

constexpr uint32_t kWeights = 4;
constexpr uint32_t kRectangle = 5;

// One round of each kind that parameter sets and slice headers have; kind picks it.
template <class Reader, class Loop>
Outcome RunLoop(const Bytes& data, uint32_t limit, uint32_t position, uint32_t kind, Loop loop) {
  Reader reader(BitReader(data.data(), data.size(), limit, position));
  Outcome outcome{};
  loop(reader, [&](uint64_t i) {
    uint32_t value = kind == 0            ? reader.ReadUe()
                     : kind == kWeights   ? ReadWeights(reader)
                     : kind == kRectangle ? ReadRectangle(reader)
                                          : reader.ReadBits(static_cast<int32_t>(kind));
    if (kind == 2 && value != 0) value = static_cast<uint32_t>(reader.ReadSe());
    if (kind == 3 && value == 1) reader.SkipBits(5);
    outcome.last = value;
    if (i < 4) outcome.stored[i] = value;
  });
  outcome.bitPos = reader.position();
  return outcome;
}

TEST(LoopReader, RoundsEqualRunningEveryOneOfThem) {
  Random random(31);
  for (int turn = 0; turn < 12000; ++turn) {
    const Bytes data = random.zeroRichBytes(random.below(12) == 0 ? random.below(200) : random.below(12));
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
    const auto plain = RunLoop<PlainLoopReader>(data, limit, position, kind, [&](auto&, auto round) {
      for (uint64_t i = 0; i < count; ++i) round(i);
    });
    const auto fast = RunLoop<LoopReader>(
        data, limit, position, kind, [&](auto& reader, auto round) { RunRounds(reader, count, 4, round); });
    ASSERT_EQ(plain, fast) << test::ToHex(data) << " limit " << limit << " from " << position << " kind "
                           << kind << " count " << count;
  }
}

// Two thousand million rounds in a moment: past the limit, among zeros in front of it, and of no bits at all.
TEST(LoopReader, CountsOfAnySizeTakeNoTime) {
  constexpr uint64_t kCount = 0x80000000u;
  const Bytes data = {0xFF};
  const auto loop = [&](uint32_t limit, int32_t width) {
    LoopReader reader(BitReader(data.data(), data.size(), limit, 0));
    uint32_t last = 7;
    RunRounds(reader, kCount, 4, [&](uint64_t) { last = reader.ReadBits(width); });
    return std::pair(reader.position(), last);
  };
  EXPECT_EQ(loop(8, 1), std::pair(uint32_t{0x80000000u}, 0xFFFFFFFFu));
  EXPECT_EQ(loop(8, 3), std::pair(uint32_t{0x80000000u}, 0xFFFFFFFFu)) << "three times 2^31, wrapped";
  EXPECT_EQ(loop(0xFFFFFFFFu, 1), std::pair(uint32_t{0x80000000u}, 0u));
  EXPECT_EQ(loop(0xFFFFFFFFu, 2), std::pair(uint32_t{0}, 0u)) << "the last round holds the bit at the limit";
  EXPECT_EQ(loop(0xFFFFFFFFu, 3), std::pair(uint32_t{0x80000000u}, 0xFFFFFFFFu));
  EXPECT_EQ(loop(8, 0), std::pair(uint32_t{0}, 0u));
}

TEST(LoopReader, InclusiveCountsAreSigned) {
  EXPECT_EQ(InclusiveRounds(0), 1u);
  EXPECT_EQ(InclusiveRounds(0x7FFFFFFF), 0x80000000u);
  EXPECT_EQ(InclusiveRounds(0x80000000), 0u);
  EXPECT_EQ(InclusiveRounds(0xFFFFFFFF), 0u);
}

}  // namespace
}  // namespace qln
