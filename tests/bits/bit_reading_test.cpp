// The exported functions that read bits: worked values, and random states against the bit-by-bit model.

#include <gtest/gtest.h>

#include "bits/bit_model.h"
#include "qlnutil/bits/bit_reader.h"
#include "qlnutil/qlnbits.h"
#include "support/test_support.h"

namespace qln {
namespace {

using test::BitModel;
using test::Bytes;
using test::ExactCopy;
using test::Hex;
using test::Random;

// A state over a copy that has exactly the one byte more that the functions may read.
struct State {
  ExactCopy copy;
  QLNBitState state;

  State(const Bytes& bytes, uint32_t bitLength, uint32_t bitPos = 0)
      : copy(Prefix(bytes, bitLength)),
        state{copy.data(), static_cast<int32_t>(bytes.size()), bitLength, bitPos} {}

  static Bytes Prefix(Bytes bytes, uint32_t bitLength) {
    bytes.resize(bitLength / 8 + 1);
    return bytes;
  }
};

TEST(ReadBit, TakesARealBitAtTheLimitAndAllOnesBehindIt) {
  State zeros(Hex("F0 00"), 8);
  zeros.state.bitPos = 8;
  EXPECT_EQ(ReadBit(&zeros.state), 0u);
  EXPECT_EQ(zeros.state.bitPos, 9u);
  EXPECT_EQ(ReadBit(&zeros.state), 0xFFFFFFFFu);
  EXPECT_EQ(zeros.state.bitPos, 10u);
  State ones(Hex("00 80"), 8, 8);
  EXPECT_EQ(ReadBit(&ones.state), 1u);
}

TEST(ReadBits, CountBelowOneMovesNothing) {
  State s(Hex("FF"), 8, 3);
  EXPECT_EQ(ReadBits(&s.state, 0), 0u);
  EXPECT_EQ(ReadBits(&s.state, -3), 0u);
  EXPECT_EQ(ReadBits64(&s.state, 0), 0u);
  EXPECT_EQ(ReadBits64(&s.state, -1), 0u);
  EXPECT_EQ(s.state.bitPos, 3u);
}

// Positions have 32 bits. Where the end of a read would be above them nothing is there to be read.
TEST(ReadBits, AReadWhoseEndWrapsIsAllOnes) {
  Bytes bytes = Hex("00 00 00 00");
  for (const uint32_t limit : {0xFFFFFFFFu, 0xFFFFFFF7u, 32u}) {
    QLNBitState state{bytes.data(), 4, limit, 0xFFFFFFF8u};
    EXPECT_EQ(ReadBits(&state, 9), 0xFFFFFFFFu) << limit;
    EXPECT_EQ(state.bitPos, 1u);
    state.bitPos = 0xFFFFFFFFu;
    EXPECT_EQ(ReadBits(&state, 32), 0xFFFFFFFFu) << limit;
    EXPECT_EQ(state.bitPos, 31u);
  }
}

TEST(ReadBits, RunningPastTheLimitIsAllOnes) {
  State s(Hex("00"), 4);
  EXPECT_EQ(ReadBits(&s.state, 8), 0xFFFFFFFFu);
  EXPECT_EQ(s.state.bitPos, 8u);
}

TEST(ReadBits64, KeepsTheRealBitsInFrontOfTheOverRead) {
  // Five real bits (positions 0 to 4), then two with 2, 1 and 0 bits to come: the low 34 bits are set.
  State zeros(Hex("00"), 4);
  EXPECT_EQ(ReadBits64(&zeros.state, 8), 0x3FFFFFFFFu);
  State ones(Hex("F8"), 4);
  EXPECT_EQ(ReadBits64(&ones.state, 8), 0x3FFFFFFFFu | 0xF8u);
  EXPECT_EQ(ones.state.bitPos, 8u);
  State behind(Hex("00"), 4, 5);
  EXPECT_EQ(ReadBits64(&behind.state, 40), 0xFFFFFFFFFFFFFFFFu);
  behind.state.bitPos = 5;
  EXPECT_EQ(ReadBits64(&behind.state, 10), (uint64_t{1} << 41) - 1);
}

TEST(ReadCodedNumber, SumsGroupsForAsLongAsTheyAre255) {
  State five(Hex("05"), 8);
  EXPECT_EQ(ReadCodedNumber(&five.state), 5u);
  State two(Hex("FF 05"), 16);
  EXPECT_EQ(ReadCodedNumber(&two.state), 260u);
  EXPECT_EQ(two.state.bitPos, 16u);
  State three(Hex("FF FF 10"), 24);
  EXPECT_EQ(ReadCodedNumber(&three.state), 526u);
  // The second group runs past the limit: one less than the sum so far.
  State cut(Hex("FF 00"), 8);
  EXPECT_EQ(ReadCodedNumber(&cut.state), 254u);
  State behind(Hex("FF"), 4, 5);
  EXPECT_EQ(ReadCodedNumber(&behind.state), 0xFFFFFFFFu);
}

TEST(ExpGolomb, WorkedCodes) {
  const struct {
    const char* bits;
    uint32_t ue;
    int32_t se;
  } kCodes[] = {{"1", 0, 0}, {"010", 1, 1}, {"011", 2, -1}, {"00100", 3, 2}, {"00101", 4, -2}};
  for (const auto& code : kCodes) {
    const test::BitBuilder builder = test::BitBuilder().raw(code.bits);
    const uint32_t length = static_cast<uint32_t>(builder.bits());
    State unsignedState(builder.bytes(), length);
    EXPECT_EQ(ReadExponentialGolombCode(&unsignedState.state), code.ue) << code.bits;
    EXPECT_EQ(unsignedState.state.bitPos, length);
    State signedState(builder.bytes(), length);
    EXPECT_EQ(ReadExponentialGolombCodeSigned(&signedState.state), code.se) << code.bits;
  }
}

TEST(ExpGolomb, ZerosToTheEndYieldALargeValue) {
  State s(Hex("00 00 FF FF FF"), 16);
  // The count stops at 15; of the 15 bits behind, one is real.
  EXPECT_EQ(ReadExponentialGolombCode(&s.state), 0x7FFEu);
  EXPECT_EQ(s.state.bitPos, 31u);
}

TEST(ExpGolomb, BeginningPastTheLimitGivesZeroAndMovesByOne) {
  State s(Hex("FF"), 4, 5);
  EXPECT_EQ(ReadExponentialGolombCode(&s.state), 0u);
  EXPECT_EQ(s.state.bitPos, 6u);
  EXPECT_EQ(ReadExponentialGolombCodeSigned(&s.state), 0);
  EXPECT_EQ(s.state.bitPos, 7u);
}

TEST(ExpGolomb, MoreThan32ZerosWrap) {
  // 33 zeros, a 1, 33 bits: the value is their fold into 32 bits, minus 1, plus 1 << 1.
  for (const uint64_t suffix : {uint64_t{0}, uint64_t{1}, uint64_t{0x1FFFFFFFF}, uint64_t{0x100000005}}) {
    test::BitBuilder builder;
    builder.u(33, 0).u(1, 1).u(33, suffix).u(20, 0);
    State s(builder.bytes(), static_cast<uint32_t>(builder.bits()));
    const uint32_t folded = static_cast<uint32_t>(suffix) | static_cast<uint32_t>(suffix >> 32);
    EXPECT_EQ(ReadExponentialGolombCode(&s.state), folded - 1u + 2u);
    EXPECT_EQ(s.state.bitPos, 67u);
  }
}

TEST(ExpGolomb, SignedOfTheLargestOddCodeWraps) {
  // Code 0x7FFFFFFF: (k + 1) / 2 in 32 bits is -2^31 / 2.
  test::BitBuilder builder;
  builder.u(31, 0).u(1, 1).u(31, 0).u(8, 0);
  State s(builder.bytes(), static_cast<uint32_t>(builder.bits()));
  EXPECT_EQ(ReadExponentialGolombCodeSigned(&s.state), -0x40000000);
}

TEST(SkipBits, AddsWithoutATest) {
  State s(Hex("00"), 8);
  SkipBits(&s.state, 1000);
  EXPECT_EQ(s.state.bitPos, 1000u);
}

TEST(Reading, EqualsTheModelOnRandomStates) {
  Random random(3);
  for (int round = 0; round < 200000; ++round) {
    const uint32_t bitLength = static_cast<uint32_t>(random.below(300));
    Bytes bytes = random.below(2) != 0 ? random.bytes(40) : random.zeroRichBytes(40);
    if (random.below(4) == 0)
      std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(random.below(10)), bytes.end(), uint8_t{0});
    const uint32_t start = static_cast<uint32_t>(random.below(random.below(8) == 0 ? 400 : bitLength + 2));
    State s(bytes, bitLength, start);
    BitModel model{s.copy.bytes(), bitLength, start};
    for (int step = 0; step < 4; ++step) {
      const int32_t count = static_cast<int32_t>(random.below(random.below(4) == 0 ? 150 : 35)) - 2;
      switch (random.below(6)) {
        case 0:
          ASSERT_EQ(ReadBit(&s.state), model.ReadBit());
          break;
        case 1:
          ASSERT_EQ(ReadBits(&s.state, count), model.ReadBits(count))
              << count << " at " << start << "/" << bitLength;
          break;
        case 2:
          ASSERT_EQ(ReadBits64(&s.state, count), model.ReadBits64(count)) << count;
          break;
        case 3:
          ASSERT_EQ(ReadExponentialGolombCode(&s.state), model.ReadUe());
          break;
        case 4:
          ASSERT_EQ(ReadExponentialGolombCodeSigned(&s.state), model.ReadSe());
          break;
        default:
          ASSERT_EQ(ReadCodedNumber(&s.state), model.ReadCodedNumber());
          break;
      }
      ASSERT_EQ(s.state.bitPos, model.bitPos);
    }
  }
}

TEST(InnerReader, BytesBehindTheCopyAreZeroWhateverTheLimit) {
  Random random(4);
  for (int round = 0; round < 50000; ++round) {
    const Bytes bytes = random.zeroRichBytes(random.below(12));
    const size_t zerosBehind = random.below(2) * 16;
    ExactCopy copy(bytes, zerosBehind);
    const uint32_t bitLength = static_cast<uint32_t>(random.below(300));
    BitReader reader(copy.data(), copy.size(), bitLength, 0, zerosBehind);
    BitModel model{bytes, bitLength, 0};
    for (int step = 0; step < 6; ++step) {
      const int32_t count = static_cast<int32_t>(random.below(80));
      switch (random.below(4)) {
        case 0:
          ASSERT_EQ(reader.ReadUe(), model.ReadUe());
          break;
        case 1:
          ASSERT_EQ(reader.ReadBits64(count), model.ReadBits64(count));
          break;
        case 2:
          ASSERT_EQ(reader.ReadBits(count), model.ReadBits(count));
          break;
        default:
          ASSERT_EQ(reader.ReadBit(), model.ReadBit());
          break;
      }
      ASSERT_EQ(reader.bitPos, model.bitPos);
    }
  }
}

TEST(InnerReader, AHugeZeroRunIsPassedInOneStep) {
  const Bytes bytes = Hex("00 00");
  BitReader reader(bytes.data(), bytes.size(), 0xFFFFFFF0u);
  // 2^32 - 17 zeros up to the last position in front of the limit; as a signed count they are below 1.
  EXPECT_EQ(reader.ReadUe(), 0u - 1u + (1u << (0xFFFFFFEFu % 32)));
  EXPECT_EQ(reader.bitPos, 0xFFFFFFF0u);
}

TEST(InnerReader, PeeksDoNotMoveAndReadOnesAtTheLimit) {
  const Bytes bytes = Hex("A5 00");
  BitReader reader(bytes.data(), bytes.size(), 8, 4);
  EXPECT_EQ(reader.PeekBit(0), 0u);
  EXPECT_EQ(reader.PeekBit(1), 1u);
  EXPECT_EQ(reader.PeekBit(4), 1u);  // at the limit: 1, although the bit there is 0
  EXPECT_EQ(reader.PeekBit(100), 1u);
  EXPECT_EQ(reader.PeekBits(0), 0u);
  EXPECT_EQ(reader.PeekBits(-1), 0u);
  EXPECT_EQ(reader.PeekBits(6), 0b010111u);
  EXPECT_EQ(reader.bitPos, 4u);
  EXPECT_FALSE(reader.BitsAtEnd());
  reader.SkipBits(4);
  EXPECT_TRUE(reader.BitsAtEnd());
}

TEST(InnerReader, PeeksReachAnyByteAndKeepTheLowestBits) {
  const Bytes bytes = Hex("01 23 45 67 89 AB CD EF 10 32");
  BitReader reader(bytes.data(), bytes.size(), 80, 4);
  for (uint32_t offset = 0; offset < 76; ++offset) {
    const uint32_t p = 4 + offset;
    ASSERT_EQ(reader.PeekBit(offset), bytes[p / 8] >> (7 - p % 8) & 1u) << offset;
  }
  EXPECT_EQ(reader.PeekBits(1), 0u);
  EXPECT_EQ(reader.PeekBits(12), 0x123u);
  EXPECT_EQ(reader.PeekBits(32), 0x12345678u);
  EXPECT_EQ(reader.PeekBits(33), 0x2468ACF1u);
  EXPECT_EQ(reader.PeekBits(40), 0x3456789Au);
  EXPECT_EQ(reader.bitPos, 4u);
}

TEST(InnerReader, SkipToByteAlignPassesTheStopBit) {
  const Bytes bytes = Hex("00 00 00");
  BitReader reader(bytes.data(), bytes.size(), 24);
  EXPECT_EQ(reader.SkipToByteAlign(), 8u);
  EXPECT_EQ(reader.SkipToByteAlign(), 16u);
  reader.bitPos = 7;
  EXPECT_EQ(reader.SkipToByteAlign(), 8u);
}

}  // namespace
}  // namespace qln
