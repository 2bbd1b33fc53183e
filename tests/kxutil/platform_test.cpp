// The small platform calls, bulk moves, and the allocator.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

#include "kxutil/kxutil.h"
#include "support/sanitizers.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

TEST(Platform, MulDivRoundsHalvesAwayFromZero) {
  EXPECT_EQ(MulDiv(65520, 1001, 2002), 32760);
  EXPECT_EQ(MulDiv(1, 1, 2), 1);
  EXPECT_EQ(MulDiv(-1, 1, 2), -1);
  EXPECT_EQ(MulDiv(1, -1, 2), -1);
  EXPECT_EQ(MulDiv(1, 1, -2), -1);
  EXPECT_EQ(MulDiv(-1, 1, -2), 1);
  EXPECT_EQ(MulDiv(3, 1, 2), 2);
  EXPECT_EQ(MulDiv(1, 1, 3), 0);
  EXPECT_EQ(MulDiv(2, 1, 3), 1);
  EXPECT_EQ(MulDiv(-5, 1, 3), -2);
  EXPECT_EQ(MulDiv(0, 5, 7), 0);
}

TEST(Platform, MulDivFailsWithMinusOne) {
  constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
  constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
  EXPECT_EQ(MulDiv(5, 5, 0), -1);
  EXPECT_EQ(MulDiv(kMax, 2, 1), -1);
  EXPECT_EQ(MulDiv(kMin, -1, 1), -1);
  EXPECT_EQ(MulDiv(kMin, 1, -1), -1);
  EXPECT_EQ(MulDiv(kMin, kMin, 1), -1);
  EXPECT_EQ(MulDiv(kMin, 1, 1), kMin);
  EXPECT_EQ(MulDiv(kMax, kMax, kMax), kMax);
  EXPECT_EQ(MulDiv(kMin, kMin, kMin), kMin);
  EXPECT_EQ(MulDiv(kMin, kMax, kMin), kMax);
}

TEST(Platform, MulDivIsTheRoundedQuotient) {
  Random random(1);
  for (int i = 0; i < 100000; ++i) {
    const auto number = [&] { return static_cast<int32_t>(random.next()) >> random.below(31); };
    const int32_t a = number(), b = number(), c = number();
    if (c == 0) continue;
    const long double exact = static_cast<long double>(a) * b / c;
    const long double rounded = exact < 0 ? -static_cast<long double>(static_cast<int64_t>(-exact + 0.5L))
                                          : static_cast<long double>(static_cast<int64_t>(exact + 0.5L));
    const bool fits = rounded >= -2147483648.0L && rounded <= 2147483647.0L;
    ASSERT_EQ(MulDiv(a, b, c), fits ? static_cast<int32_t>(rounded) : -1) << a << " " << b << " " << c;
  }
}

TEST(Platform, TheClockRunsAndSleepWaits) {
  const uint32_t start = kxOSGetMs();
  Sleep(25);
  const uint32_t passed = kxOSGetMs() - start;
  EXPECT_GE(passed, 24u);
  EXPECT_LT(passed, 20000u);
  Sleep(0);
}

TEST(Memory, CopiesAndFills) {
  for (const auto copy : {CopyMemoryFast, kxOSCopyMemory}) {
    char to[6] = "#####";
    copy(to, "abcde", 3);
    EXPECT_STREQ(to, "abc##");
    copy(nullptr, nullptr, 0);
  }
  for (const auto zero : {ZeroMemoryFast, kxOSZeroMemory}) {
    char to[6] = "#####";
    zero(to, 3);
    EXPECT_EQ(std::string(to, 5), std::string("\0\0\0##", 5));
    zero(nullptr, 0);
  }
}

TEST(Memory, CopiesOfEachLengthStayInTheirBounds) {
  for (uint32_t count = 0; count < 100; ++count) {
    const std::unique_ptr<char[]> from(new char[count]);  // one byte too far would be seen
    for (uint32_t i = 0; i < count; ++i) from[i] = static_cast<char>(i + 1);
    std::string to(count + 2, '#');
    CopyMemoryFast(to.data() + 1, from.get(), count);
    EXPECT_EQ(to, '#' + std::string(from.get(), count) + '#') << count;
  }
}

TEST(Memory, BlocksKnowTheirSize) {
  void* const block = KXAlloc(100);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0u);
  std::memset(block, 'x', 100);
  EXPECT_EQ(KXAllocSize(block), 100u);
  EXPECT_EQ(KXAllocSize(static_cast<char*>(block) + 1), 0u);
  KXFree(block);
  EXPECT_EQ(KXAllocSize(block), 0u);
}

TEST(Memory, NothingIsAskedOfBlocksThatAreNotOurs) {
  EXPECT_EQ(KXAllocSize(nullptr), 0u);
  const int onTheStack = 0;
  EXPECT_EQ(KXAllocSize(&onTheStack), 0u);
  EXPECT_EQ(KXAllocSize(reinterpret_cast<const void*>(uintptr_t{16})), 0u);
  KXFree(nullptr);
}

TEST(Memory, AnEmptyBlockIsABlock) {
  void* const block = KXAlloc(0);
  EXPECT_NE(block, nullptr);
  EXPECT_EQ(KXAllocSize(block), 1u);
  KXFree(block);
}

#if !defined(QLN_ADDRESS_SANITIZER) && !defined(QLN_THREAD_SANITIZER)
TEST(Memory, ABlockThatCannotBeIsNull) {
  EXPECT_EQ(KXAlloc(std::numeric_limits<size_t>::max() / 2), nullptr);
}
#endif

// Thousands of blocks that come and go in any order, beside a plain list of them.
TEST(Memory, ManyBlocksKeepTheirSizes) {
  std::vector<std::pair<void*, size_t>> live;
  Random random(20);
  for (int i = 0; i < 60000; ++i) {
    // Grows to some thousands, shrinks to none, grows again.
    const bool grows = i / 15000 % 2 == 0;
    if (live.empty() || random.below(8) < (grows ? 5u : 2u)) {
      const size_t size = 1 + random.below(200);
      live.emplace_back(KXAlloc(size), size);
      ASSERT_NE(live.back().first, nullptr);
    } else {
      std::swap(live[random.below(live.size())], live.back());
      void* const gone = live.back().first;
      live.pop_back();
      KXFree(gone);
      ASSERT_EQ(KXAllocSize(gone), 0u);
    }
    if (!live.empty()) {
      const auto& [block, size] = live[random.below(live.size())];
      ASSERT_EQ(KXAllocSize(block), size);
    }
    if (i % 5000 == 0) {
      for (const auto& [block, size] : live) ASSERT_EQ(KXAllocSize(block), size);
    }
  }
  for (const auto& [block, size] : live) {
    ASSERT_EQ(KXAllocSize(block), size);
    KXFree(block);
  }
}

TEST(Memory, ThreadsShareTheTable) {
  std::vector<std::thread> threads;
  for (size_t t = 1; t <= 4; ++t) {
    threads.emplace_back([t] {
      for (size_t i = 0; i < 3000; ++i) {
        void* const first = KXAlloc(t * 10);
        void* const second = KXAlloc(t * 10 + 1);
        ASSERT_EQ(KXAllocSize(first), t * 10);
        KXFree(first);
        ASSERT_EQ(KXAllocSize(second), t * 10 + 1);
        KXFree(second);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// Blocks that one thread takes and another gives back, while others take theirs and the table grows.
TEST(Memory, BlocksGoFromThreadToThread) {
  constexpr size_t kThreads = 4;
  constexpr size_t kBlocks = 2000;
  std::vector<std::vector<void*>> taken(kThreads);
  std::vector<std::thread> threads;
  for (size_t t = 0; t < kThreads; ++t) {
    threads.emplace_back([&mine = taken[t]] {
      for (size_t i = 0; i < kBlocks; ++i) mine.push_back(KXAlloc(i % 97 + 1));
    });
  }
  for (std::thread& thread : threads) thread.join();
  threads.clear();
  for (size_t t = 0; t < kThreads; ++t) {
    threads.emplace_back([&others = taken[(t + 1) % kThreads]] {
      for (size_t i = 0; i < kBlocks; ++i) {
        ASSERT_EQ(KXAllocSize(others[i]), i % 97 + 1);
        KXFree(others[i]);
        void* const own = KXAlloc(300);
        ASSERT_EQ(KXAllocSize(own), 300u);
        KXFree(own);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace qln::test
