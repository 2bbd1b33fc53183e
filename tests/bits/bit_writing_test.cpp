// The exported functions that write bits: worked values, and random programs against the bit-by-bit model.

#include <gtest/gtest.h>

#include <bit>

#include "bits/bit_model.h"
#include "qlnutil/bits/bit_reader.h"
#include "qlnutil/bits/bit_writer.h"
#include "qlnutil/qlnbits.h"
#include "support/test_support.h"

namespace qln {
namespace {

using test::BitWriteModel;
using test::Bytes;
using test::ExactCopy;
using test::Hex;
using test::Random;

TEST(WriteBits, LeavesTheBitsAroundAlone) {
  Bytes bytes = Hex("FF FF FF");
  QLNBitState state{bytes.data(), 3, 24, 3};
  WriteBits(&state, 7, 0);
  EXPECT_EQ(bytes, Hex("E0 3F FF"));
  EXPECT_EQ(state.bitPos, 10u);
  WriteBit(&state, 0xFE);  // only the low bit counts
  EXPECT_EQ(bytes, Hex("E0 1F FF"));
  WriteBits(&state, 0, 0xFFFFFFFF);
  WriteBits(&state, -5, 0xFFFFFFFF);
  EXPECT_EQ(state.bitPos, 11u);
  WriteBits(&state, 1, 2);  // the low bit of 2 is 0
  EXPECT_EQ(bytes, Hex("E0 0F FF"));
}

TEST(WriteExponentialGolombCode, WorkedCodes) {
  const struct {
    int32_t value;
    uint32_t bits;
    const char* hex;  // the code at bit 0 of a zeroed buffer
  } kCodes[] = {
      {0, 1, "80"},
      {1, 3, "40"},
      {2, 3, "60"},
      {255, 17, "00 80 00"},
      {0xFFFFFE, 47, "00 00 01 FF FF FE"},
      {0xFFFFFF, 97, "00 00 00 00 00 00 00 00 00 80 00 00 00"},
      {-1, 1, "00"},
      {-2, 1, "80"},
      {-2147483647 - 1, 1, "80"},
      {0x7FFFFFFF, 1, "80"},
  };
  for (const auto& code : kCodes) {
    Bytes bytes(32);
    QLNBitState state{bytes.data(), 32, 256, 0};
    WriteExponentialGolombCode(&state, code.value);
    EXPECT_EQ(state.bitPos, code.bits) << code.value;
    const Bytes expected = Hex(code.hex);
    bytes.resize(expected.size());
    EXPECT_EQ(bytes, expected) << code.value;
  }
}

TEST(LengthExponentialGolombCode, WorkedLengths) {
  EXPECT_EQ(LengthExponentialGolombCode(0), 1);
  EXPECT_EQ(LengthExponentialGolombCode(1), 3);
  EXPECT_EQ(LengthExponentialGolombCode(2), 3);
  EXPECT_EQ(LengthExponentialGolombCode(3), 5);
  EXPECT_EQ(LengthExponentialGolombCode(7), 7);
  EXPECT_EQ(LengthExponentialGolombCode(127), 15);
  EXPECT_EQ(LengthExponentialGolombCode(-1), 2);
  EXPECT_EQ(LengthExponentialGolombCode(-128), 2);
}

TEST(Writing, SignedMappings) {
  const struct {
    int32_t value;
    uint32_t published;  // code number
    uint32_t own;
  } kValues[] = {{0, 0, 0}, {-1, 2, 2}, {-3, 6, 6}, {1, 1, 4}, {2, 3, 6}, {100, 199, 202}};
  for (const auto& row : kValues) {
    Bytes bytes(16);
    BitWriter published(bytes.data(), bytes.size());
    published.WriteSe(static_cast<uint32_t>(row.value));
    BitReader publishedReader(bytes.data(), bytes.size(), 128);
    EXPECT_EQ(publishedReader.ReadUe(), row.published);
    publishedReader.bitPos = 0;
    EXPECT_EQ(publishedReader.ReadSe(), row.value);
    BitWriter own(bytes.data(), bytes.size());
    own.WriteExponentialGolombCodeSigned(static_cast<uint32_t>(row.value));
    BitReader ownReader(bytes.data(), bytes.size(), 128);
    EXPECT_EQ(ownReader.ReadUe(), row.own);
  }
}

TEST(Writing, EqualsTheModelOnRandomPrograms) {
  Random random(5);
  for (int round = 0; round < 50000; ++round) {
    Bytes fast = random.bytes(120);
    Bytes plain = fast;
    QLNBitState state{fast.data(), 120, 960, static_cast<uint32_t>(random.below(40))};
    BitWriteModel model{plain, state.bitPos};
    for (int step = 0; step < 5; ++step) {
      const int32_t count = static_cast<int32_t>(random.below(random.below(6) == 0 ? 140 : 34)) - 2;
      const uint64_t value = random.next() << 20 ^ random.next();
      const uint32_t word = static_cast<uint32_t>(value);
      switch (random.below(4)) {
        case 0:
          WriteBit(&state, static_cast<uint8_t>(word));
          model.WriteBit(word);
          break;
        case 1:
          WriteBits(&state, count, word);
          model.WriteBits(count, word);
          break;
        case 2: {
          const int32_t v = static_cast<int32_t>(random.below(3) == 0 ? word : word >> random.below(32));
          WriteExponentialGolombCode(&state, v);
          model.WriteUe(v);
          break;
        }
        default: {
          BitWriter writer(state);
          writer.WriteBits64(count, value);
          state.bitPos = static_cast<uint32_t>(writer.bitPos);
          model.WriteBits64(count, value);
          break;
        }
      }
      ASSERT_EQ(state.bitPos, model.bitPos);
    }
    ASSERT_EQ(fast, plain);
  }
}

TEST(Writing, CodesTouchOnlyBytesThatHoldTheirBits) {
  for (int32_t value = 0; value < 70000; value = value < 300 ? value + 1 : value * 2 + 1) {
    const uint32_t length = 2 * static_cast<uint32_t>(std::bit_width(static_cast<uint32_t>(value) + 1)) - 1;
    for (uint32_t start = 0; start < 8; ++start) {
      for (const uint8_t filler : {uint8_t{0x00}, uint8_t{0xFF}, uint8_t{0x5A}}) {
        ExactCopy copy(Bytes((start + length + 7) / 8, filler));  // one byte more would be seen
        Bytes plain = copy.bytes();
        QLNBitState state{copy.data(), static_cast<int32_t>(copy.size()), 0, start};
        BitWriteModel model{plain, start};
        WriteExponentialGolombCode(&state, value);
        model.WriteUe(value);
        ASSERT_EQ(copy.bytes(), plain) << value << " at " << start;
        ASSERT_EQ(state.bitPos, start + length);
      }
    }
  }
}

TEST(InnerWriter, PutsNothingBehindItsCapacity) {
  Bytes bytes = Hex("FF FF FF");
  BitWriter writer(bytes.data(), 2, 10);
  writer.WriteBits(6, 0);
  EXPECT_FALSE(writer.Overflowed());
  writer.WriteBit(0);
  EXPECT_TRUE(writer.Overflowed());
  EXPECT_EQ(writer.bitPos, 17u);
  writer.WriteUe(5);
  const uint8_t more[2] = {0, 0};
  writer.WriteBytes(more, 2);
  EXPECT_EQ(bytes, Hex("FF C0 FF"));
  BitWriter straddling(bytes.data(), 2, 12);
  straddling.WriteBits(8, 0);  // half of it would fit: none of it is put
  EXPECT_TRUE(straddling.Overflowed());
  EXPECT_EQ(bytes, Hex("FF C0 FF"));
}

TEST(InnerWriter, WhatDoesNotFitMovesThePositionAsAWhole) {
  const Bytes before(16, 0xEE);
  Bytes bytes = before;
  const auto refused = [&](uint64_t position, uint64_t moved, auto write) {
    BitWriter writer(bytes.data(), 12, position);
    write(writer);
    EXPECT_TRUE(writer.Overflowed()) << position;
    EXPECT_EQ(writer.bitPos, position + moved);
    EXPECT_EQ(bytes, before) << position;
  };
  const uint8_t zeros[13] = {};
  for (const uint64_t position : {uint64_t{0}, uint64_t{3}}) {
    refused(position, 97, [](BitWriter& writer) { writer.WriteBits(97, 0); });
    refused(position, 160, [](BitWriter& writer) { writer.WriteBits64(160, 0); });
    refused(position, 104, [&](BitWriter& writer) { writer.WriteBytes(zeros, 13); });
  }
  // At the very end nothing fits, and nothing is no overflow.
  BitWriter writer(bytes.data(), 12, 96);
  writer.WriteBytes(zeros, 0);
  writer.WriteBits(0, 0);
  writer.AlignZero();
  EXPECT_FALSE(writer.Overflowed());
  EXPECT_EQ(bytes, before);
}

TEST(InnerWriter, WritesBytesAtAnyPosition) {
  for (uint32_t start = 0; start < 8; ++start) {
    Bytes fast(8, 0xFF);
    Bytes plain = fast;
    const Bytes source = Hex("12 34 56 00 80");
    BitWriter writer(fast.data(), fast.size(), start);
    writer.WriteBytes(source.data(), source.size());
    BitWriteModel model{plain, start};
    for (const uint8_t byte : source) model.WriteBits(8, byte);
    EXPECT_EQ(fast, plain);
    EXPECT_EQ(writer.bitPos, model.bitPos);
  }
}

TEST(InnerWriter, TrailingBits) {
  Bytes bytes(3, 0xFF);
  BitWriter writer(bytes.data(), bytes.size(), 3);
  writer.WriteTrailingBits();
  EXPECT_EQ(bytes, Hex("F0 FF FF"));
  writer.WriteTrailingBits();
  EXPECT_EQ(bytes, Hex("F0 80 FF"));
  writer.AlignZero();
  EXPECT_EQ(writer.bitPos, 16u);
}

}  // namespace
}  // namespace qln
