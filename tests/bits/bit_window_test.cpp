// The bit window against the plain reader, at every limit and end that a reader may meet.

#include "qlnutil/bits/bit_window.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qln {
namespace {

using test::Bytes;
using test::ExactCopy;
using test::Random;

// One element by its number, from either reader.
uint32_t Read(BitReader& in, uint64_t element, int32_t count) {
  switch (element) {
    case 0:
    case 1:
      return in.ReadBit();
    case 2:
      return in.ReadBits(3);
    case 3:
      return in.ReadBits(17);
    case 4:
      return in.ReadBits(32);
    case 5:
      return static_cast<uint32_t>(in.ReadSe());
    case 6:
      return in.ReadBits(count);
    default:
      return in.ReadUe();
  }
}

uint32_t Read(BitWindow& in, uint64_t element, int32_t count) {
  switch (element) {
    case 0:
    case 1:
      return in.ReadBit();
    case 2:
      return in.ReadBits<3>();
    case 3:
      return in.ReadBits<17>();
    case 4:
      return in.ReadBits<32>();
    case 5:
      return static_cast<uint32_t>(in.ReadSe());
    case 6:
      return in.ReadBits(count);
    default:
      return in.ReadUe();
  }
}

TEST(BitWindow, EqualsThePlainReader) {
  Random random(11);
  for (int round = 0; round < 100000; ++round) {
    const Bytes bytes =
        random.below(2) == 0 ? random.bytes(random.below(30)) : random.zeroRichBytes(random.below(30));
    const size_t zerosBehind = random.below(2) * 16;
    ExactCopy copy(bytes, zerosBehind);
    // A limit anywhere: inside the bytes, at their end, and far behind it.
    const uint32_t limit =
        static_cast<uint32_t>(random.below(3) == 0 ? random.below(600) : 8 * bytes.size() - random.below(4));
    BitReader plain(copy.data(), copy.size(), limit, static_cast<uint32_t>(random.below(40)), zerosBehind);
    BitWindow window(plain);
    for (int step = 0; step < 40; ++step) {
      const uint64_t element = random.below(10);
      const int32_t count = static_cast<int32_t>(random.below(70)) - 3;
      ASSERT_EQ(Read(window, element, count), Read(plain, element, count))
          << "element " << element << ", limit " << limit << ", bytes " << test::ToHex(bytes);
      ASSERT_EQ(window.reader().bitPos, plain.bitPos) << "element " << element;
    }
  }
}

TEST(BitWindow, PassesOnWhereThePositionWrapsAround) {
  const Bytes bytes = test::Hex("A5 5A FF 00 12 34 56 78 9A BC");
  BitReader plain(bytes.data(), bytes.size(), 80, 0xFFFFFFF0u);
  BitWindow window(plain);
  for (int step = 0; step < 40; ++step) {
    ASSERT_EQ(window.ReadBit(), plain.ReadBit());
    ASSERT_EQ(window.reader().bitPos, plain.bitPos);
  }
}

}  // namespace
}  // namespace qln
