// Channel masks and the case of fourcc words.

#include <gtest/gtest.h>

#include <clocale>
#include <vector>

#include "qlnutil/qlntransport.h"
#include "support/test_support.h"

namespace qln {
namespace {

// The set bits of a mask, lowest first.
std::vector<uint32_t> SetBits(uint32_t mask) {
  std::vector<uint32_t> bits;
  for (uint32_t bit = 0; bit < 32; ++bit) {
    if ((mask >> bit & 1u) != 0) bits.push_back(bit);
  }
  return bits;
}

TEST(Channels, WorkedNumbers) {
  EXPECT_EQ(totalChannels(0xFFFFFFFF), 32u);
  EXPECT_EQ(totalChannels(0), 0u);
  EXPECT_EQ(isolateChannel(0b1010, 1), 0b1000u);
  EXPECT_EQ(isolateChannel(0b1010, 2), 0u);
  uint32_t rest = 77;
  EXPECT_EQ(findChannel(0b1010, &rest, 0), 1u);
  EXPECT_EQ(rest, 0b1000u);
  EXPECT_EQ(findChannel(0, &rest, 0), 0xFFFFFFFFu);
  EXPECT_EQ(rest, 0u);
  EXPECT_EQ(findChannel(0b1010, &rest, 2), 0xFFFFFFFFu);
  EXPECT_EQ(rest, 0b1010u) << "the mask unchanged";
  EXPECT_EQ(findChannel(0x80000001, nullptr, 1), 31u);
}

TEST(Channels, AllIndicesOfManyMasks) {
  test::Random random(5);
  std::vector<uint32_t> masks = {0, 1, 0x80000000, 0xFFFFFFFF, 0xAAAAAAAA};
  for (int i = 0; i < 500; ++i) masks.push_back(static_cast<uint32_t>(random.next() & random.next()));
  for (const uint32_t mask : masks) {
    const std::vector<uint32_t> bits = SetBits(mask);
    ASSERT_EQ(totalChannels(mask), bits.size());
    for (const uint32_t index : {0u, 1u, 2u, 5u, 30u, 31u, 32u, 33u, 0x80000000u, 0xFFFFFFFFu}) {
      const bool exists = index < bits.size();
      uint32_t rest = 0;
      ASSERT_EQ(isolateChannel(mask, index), exists ? 1u << bits[index] : 0u);
      ASSERT_EQ(findChannel(mask, &rest, index), exists ? bits[index] : 0xFFFFFFFFu);
      ASSERT_EQ(rest, exists ? mask & ~(1u << bits[index]) : mask);
    }
  }
}

TEST(FourccCase, ChangesLettersOnlyInEachByte) {
  EXPECT_EQ(fourccToLower(0x41564331), 0x61766331u);  // AVC1
  EXPECT_EQ(fourccToUpper(0x61766331), 0x41564331u);
  std::setlocale(LC_ALL, "C.UTF-8");
  for (uint32_t byte = 0; byte < 256; ++byte) {
    const uint32_t lower = byte >= 'A' && byte <= 'Z' ? byte + 32 : byte;
    const uint32_t upper = byte >= 'a' && byte <= 'z' ? byte - 32 : byte;
    for (uint32_t shift = 0; shift < 32; shift += 8) {
      const uint32_t others = 0x5A7A40E9u & ~(0xFFu << shift);  // Z z @ and a byte above 127
      ASSERT_EQ(fourccToLower(others | byte << shift) >> shift & 0xFF, lower);
      ASSERT_EQ(fourccToUpper(others | byte << shift) >> shift & 0xFF, upper);
    }
  }
  EXPECT_EQ(fourccToLower(0x5A7A40E9), 0x7A7A40E9u);
  EXPECT_EQ(fourccToUpper(0x5A7A40E9), 0x5A5A40E9u);
}

}  // namespace
}  // namespace qln
