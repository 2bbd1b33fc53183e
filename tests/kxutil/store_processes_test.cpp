// Stores under load: many processes and threads, and kills.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "kxutil/child_process.h"
#include "kxutil/kxutil.h"
#include "kxutil/store_safety_support.h"
#include "kxutil/store_test_support.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

TEST_F(StoreSafety, EightProcessesAtOnceLoseNothing) {
  SetNumber(KX_DEFAULT_STORE, kSection, "Before", 1);  // children must not use this process's connection
  std::vector<pid_t> children;
  for (uint32_t p = 0; p < 8; ++p) {
    children.push_back(InChild([p] {
      for (uint32_t i = 0; i < 30; ++i) {
        const std::string key = "P" + std::to_string(p) + "-" + std::to_string(i);
        if (SetNumber(KX_DEFAULT_STORE, kSection, key.c_str(), p * 1000 + i) != 0) return 1;
        if (SetText(KX_DEFAULT_STORE, kSection, "Shared", std::string(200, static_cast<char>('a' + p))) != 0)
          return 2;
        const std::optional<std::string> shared = GetText(KX_DEFAULT_STORE, kSection, "Shared");
        if (!shared || *shared != std::string(200, shared->front())) return 3;
        if (GetNumber(KX_DEFAULT_STORE, kSection, key.c_str()) != p * 1000 + i) return 4;
      }
      return 0;
    }));
  }
  for (const pid_t child : children) EXPECT_EQ(ExitCodeOf(child), 0);
  for (uint32_t p = 0; p < 8; ++p) {
    for (uint32_t i = 0; i < 30; ++i) {
      const std::string key = "P" + std::to_string(p) + "-" + std::to_string(i);
      ASSERT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, key.c_str()), p * 1000 + i);
    }
  }
  EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, "Before"), 1u);
}

TEST_F(StoreSafety, EightProcessesMakeTheStoreTogether) {
  std::vector<pid_t> children;
  for (uint32_t p = 0; p < 8; ++p) {
    children.push_back(InChild(
        [p] { return SetNumber(KX_DEFAULT_STORE, kSection, std::to_string(p).c_str(), p) == 0 ? 0 : 1; }));
  }
  for (const pid_t child : children) EXPECT_EQ(ExitCodeOf(child), 0);
  for (uint32_t p = 0; p < 8; ++p)
    EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, std::to_string(p).c_str()), p);
}

TEST_F(StoreSafety, ThreadsShareTheDefaultStore) {
  std::vector<std::thread> threads;
  for (uint32_t t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (uint32_t i = 0; i < 40; ++i) {
        const std::string key = std::to_string(t) + "-" + std::to_string(i);
        EXPECT_EQ(SetNumber(KX_DEFAULT_STORE, kSection, key.c_str(), i), 0);
        EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, key.c_str()), i);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(StoreSafety, ProcessesThatChangeDifferentKeysOfAFileLoseNeithers) {
  std::vector<pid_t> children;
  for (uint32_t p = 0; p < 8; ++p) {
    children.push_back(InChild([this, p] {
      for (uint32_t i = 0; i < 10; ++i) {
        if (SetInFile((std::to_string(p) + "-" + std::to_string(i)).c_str(), i) != 0) return 1;
      }
      return 0;
    }));
  }
  for (const pid_t child : children) EXPECT_EQ(ExitCodeOf(child), 0);
  for (uint32_t p = 0; p < 8; ++p) {
    for (uint32_t i = 0; i < 10; ++i)
      ASSERT_EQ(InFile((std::to_string(p) + "-" + std::to_string(i)).c_str()), i);
  }
}

TEST_F(StoreSafety, TwoOpenHandlesApplyTheirOwnChangesOnly) {
  ASSERT_EQ(SetInFile("Old", 1), 0);
  const KXConfigHandle first = kxCFGOpen(file().c_str(), 0);
  const KXConfigHandle second = kxCFGOpen(file().c_str(), 0);
  SetNumber(first, kSection, "A", 1);
  kxCFGDeleteValue(first, kSection, "Old");
  SetNumber(second, kSection, "B", 2);
  EXPECT_EQ(GetNumber(second, kSection, "A"), std::nullopt);
  EXPECT_EQ(kxCFGClose(first, 1), 0);
  EXPECT_EQ(kxCFGClose(second, 1), 0);
  EXPECT_EQ(InFile("A"), 1u);
  EXPECT_EQ(InFile("B"), 2u);
  EXPECT_EQ(InFile("Old"), std::nullopt);
}

// Kills a child that counts a key up, at many moments; the store then holds the old value or the new one.
template <typename Write, typename Read>
void KillAtAnyMoment(int kills, Write write, Read read) {
  Random random(9);
  for (int round = 0; round < kills; ++round) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const uint32_t base = static_cast<uint32_t>(round) * 100000;
    const pid_t child = InChild([&] {
      close(ends[0]);
      for (uint32_t i = 1;; ++i) {
        if (write(base + i) != 0) return 1;
        const uint32_t done = base + i;
        if (::write(ends[1], &done, sizeof done) != sizeof done) return 2;
      }
    });
    close(ends[1]);
    usleep(static_cast<useconds_t>(random.below(6000)));
    kill(child, SIGKILL);
    EXPECT_EQ(ExitCodeOf(child), 1000 + SIGKILL);
    uint32_t done = 0, told = 0;
    while (::read(ends[0], &told, sizeof told) == sizeof told) done = told;
    close(ends[0]);
    const std::optional<uint32_t> value = read();
    if (done != 0) {
      ASSERT_TRUE(value.has_value());
      ASSERT_GE(*value, done);
      ASSERT_LE(*value, done + 1);
    }
  }
}

TEST_F(StoreSafety, AKilledProcessLeavesTheOldValueOrTheNewInTheDefaultStore) {
  KillAtAnyMoment(
      150, [](uint32_t value) { return SetNumber(KX_DEFAULT_STORE, kSection, "Count", value); },
      [] { return GetNumber(KX_DEFAULT_STORE, kSection, "Count"); });
}

TEST_F(StoreSafety, AKilledProcessLeavesTheOldValueOrTheNewInAFile) {
  KillAtAnyMoment(
      150, [this](uint32_t value) { return SetInFile("Count", value); }, [this] { return InFile("Count"); });
  // What the killed ones left beside the file does not pile up.
  ASSERT_EQ(SetInFile("Last", 1), 0);
  size_t entries = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
    (void)entry;
    ++entries;
  }
  EXPECT_EQ(entries, 1u);
}

}  // namespace
}  // namespace qln::test
