// The default store under many hands: readers beside writers and locks, kills, groups of changes.

#include <fcntl.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

#include "kxutil/child_process.h"
#include "kxutil/default_store_support.h"

namespace qln::test {
namespace {

// Whether another process would get the lock that SQLite's writers hold: a byte behind the first gigabyte.
bool OthersCanLock(const std::string& path) {
  return ExitCodeOf(InChild([&] {
           const int file = open(path.c_str(), O_RDWR);
           struct flock lock = {};
           lock.l_type = F_WRLCK;
           lock.l_whence = SEEK_SET;
           lock.l_start = 0x40000001;
           lock.l_len = 1;
           return fcntl(file, F_SETLK, &lock) == 0 ? 0 : 1;
         })) == 0;
}

using DefaultStoreLoad = DefaultStoreTest;

// Rewrites keys until it is killed.
int WriteWithoutAPause(uint32_t writer) {
  for (uint32_t i = 0;; ++i) {
    const std::string key = std::to_string(writer) + "-" + std::to_string(i % 100);
    if (SetNumber(KX_DEFAULT_STORE, "Tarnwick\\Test", key.c_str(), i) != 0) return 1;
  }
}

TEST_F(DefaultStoreLoad, ReadersDoNotNoticeFourWriters) {
  ASSERT_EQ(Set("Fixed", 77), 0);
  std::vector<pid_t> writers;
  for (uint32_t w = 0; w < 4; ++w) writers.push_back(InChild([w] { return WriteWithoutAPause(w); }));
  std::vector<double> milliseconds;
  MessageCapture capture;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  for (auto start = std::chrono::steady_clock::now(); start < end; start = std::chrono::steady_clock::now()) {
    ASSERT_EQ(Get("Fixed"), 77u);
    ASSERT_EQ(Get("Never"), std::nullopt);
    milliseconds.push_back(
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count() / 2);
    usleep(200);
  }
  for (const pid_t writer : writers) kill(writer, SIGKILL);
  for (const pid_t writer : writers) EXPECT_EQ(ExitCodeOf(writer), 1000 + SIGKILL);
  EXPECT_TRUE(capture.messages().empty());
  std::sort(milliseconds.begin(), milliseconds.end());
  std::printf("%zu reads: 99th percentile %.3f ms, worst %.3f ms\n", milliseconds.size(),
              milliseconds[milliseconds.size() * 99 / 100], milliseconds.back());
}

// The lock is held by this very thread: a read that waited for it would fail.
TEST_F(DefaultStoreLoad, AReadDoesNotWaitForALock) {
  ASSERT_EQ(Set("A", 1), 0);
  ASSERT_EQ(SetText(KX_DEFAULT_STORE, kSection, "T", "text"), 0);
  Tool tool(path());
  for (const char* const lock : {"BEGIN IMMEDIATE", "BEGIN EXCLUSIVE"}) {
    ASSERT_TRUE(tool.Run(lock));
    Reopen();
    MessageCapture capture;
    for (int i = 0; i < 20; ++i) {
      ASSERT_EQ(Get("A"), 1u);
      ASSERT_EQ(GetText(KX_DEFAULT_STORE, kSection, "T"), "text");
      ASSERT_EQ(Get("Never"), std::nullopt);
    }
    EXPECT_TRUE(capture.messages().empty());
    ASSERT_TRUE(tool.Run("ROLLBACK"));
  }
}

// A file that is opened and closed again loses the process its locks on it; reading must not do that to a
// writer in another thread.
TEST_F(DefaultStoreLoad, AReadDropsNoLockOfItsProcess) {
  ASSERT_EQ(Set("A", 1), 0);
  Tool tool(path());
  ASSERT_TRUE(OthersCanLock(path()));
  for (const char* const lock : {"BEGIN IMMEDIATE", "BEGIN EXCLUSIVE"}) {
    ASSERT_TRUE(tool.Run(lock));
    Reopen();
    EXPECT_EQ(Get("A"), 1u);
    EXPECT_EQ(Get("Never"), std::nullopt);
    EXPECT_FALSE(OthersCanLock(path()));
    ASSERT_TRUE(tool.Run("ROLLBACK"));
  }
}

// Changes that another tool has written into the file and not committed are not seen.
TEST_F(DefaultStoreLoad, AReadSeesWhatIsCommittedOnly) {
  std::vector<std::string> keys;
  for (int i = 0; i < 500; ++i) keys.push_back("K" + std::to_string(i));
  MakeEarlierStore(keys);
  const Bytes before = ReadFile(path());
  Tool tool(path());
  ASSERT_TRUE(
      tool.Run("PRAGMA cache_size = 1; PRAGMA cache_spill = 1; BEGIN EXCLUSIVE; UPDATE settings SET "
               "value = value + 100000"));
  ASSERT_NE(ReadFile(path()), before);
  for (uint32_t i = 0; i < 500; ++i) ASSERT_EQ(Get(("K" + std::to_string(i)).c_str()), i + 1);
  ASSERT_TRUE(tool.Run("COMMIT"));
  for (uint32_t i = 0; i < 500; ++i) ASSERT_EQ(Get(("K" + std::to_string(i)).c_str()), i + 100001);
}

// One thread waits to write; the others do not wait for it, in their first use of the store either.
TEST_F(DefaultStoreLoad, AWriterThatWaitsHoldsNoOtherThreadUp) {
  ASSERT_EQ(Set("A", 1), 0);
  Tool tool(path());
  ASSERT_TRUE(tool.Run("BEGIN EXCLUSIVE"));
  Reopen();
  std::atomic<bool> written = false;
  std::thread writer([&] {
    EXPECT_EQ(Set("A", 2), 0);
    written = true;
  });
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(Get("A"), 1u);
    usleep(1000);
  }
  EXPECT_FALSE(written);
  ASSERT_TRUE(tool.Run("ROLLBACK"));
  writer.join();
  EXPECT_EQ(Get("A"), 2u);
}

// While it waits for the lock on one file, another may come into its place: that one is then changed.
TEST_F(DefaultStoreLoad, AFileThatWasReplacedMeanwhileIsNotWrittenOver) {
  kxCFGSetDefaultStore((folder_ / "other.db").c_str());
  ASSERT_EQ(Set("Other", 5), 0);
  Reopen();
  ASSERT_EQ(Set("A", 1), 0);
  Tool tool(path());
  ASSERT_TRUE(tool.Run("BEGIN IMMEDIATE"));
  std::thread writer([] { EXPECT_EQ(Set("A", 2), 0); });
  usleep(400000);  // long enough for it to wait
  std::filesystem::rename(folder_ / "other.db", path());
  ASSERT_TRUE(tool.Run("ROLLBACK"));
  writer.join();
  EXPECT_EQ(Get("A"), 2u);
  EXPECT_EQ(Get("Other"), 5u);
}

// A tool changes all keys again and again in the file itself. What is read of one key is never older than
// what was read of another before, and never uncommitted.
TEST_F(DefaultStoreLoad, AReadBesideAToolSeesWholeChanges) {
  std::vector<std::string> keys;
  for (int i = 0; i < 400; ++i) keys.push_back("K" + std::to_string(i));
  MakeEarlierStore(keys);
  ASSERT_TRUE(Tool(path()).Run("UPDATE settings SET value = 1"));
  const pid_t writer = InChild([this] {
    Tool tool(path());
    tool.Run("PRAGMA cache_size = 1; PRAGMA cache_spill = 1; PRAGMA busy_timeout = 60000");
    while (tool.Run("UPDATE settings SET value = value + 1")) {
    }
    return 1;
  });
  MessageCapture capture;
  uint32_t last = 0;
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
  for (uint32_t i = 0; std::chrono::steady_clock::now() < end; ++i) {
    const std::optional<uint32_t> value = Get(("K" + std::to_string(i * 211 % 400)).c_str());
    ASSERT_TRUE(value.has_value());
    ASSERT_GE(*value, last);
    last = *value;
  }
  kill(writer, SIGKILL);
  EXPECT_EQ(ExitCodeOf(writer), 1000 + SIGKILL);
  EXPECT_TRUE(capture.messages().empty());
  EXPECT_GT(last, 2u);
}

// A tool that kept the file open cannot change the one that nobody has any more.
TEST_F(DefaultStoreLoad, AToolThatKeptTheFileOpenLosesNothing) {
  ASSERT_EQ(Set("A", 1), 0);
  Tool tool(path());
  EXPECT_EQ(tool.Ask("SELECT value FROM settings"), "1");
  ASSERT_EQ(Set("A", 2), 0);
  EXPECT_FALSE(tool.Run("UPDATE settings SET value = 9"));
  EXPECT_EQ(Get("A"), 2u);
  EXPECT_EQ(Tool(path()).Ask("SELECT value FROM settings"), "2");
}

TEST_F(DefaultStoreLoad, KilledWritersLeaveAWholeStoreAndNothingElse) {
  Random random(4);
  for (int round = 0; round < 12; ++round) {
    std::vector<pid_t> writers;
    for (uint32_t w = 0; w < 4; ++w) writers.push_back(InChild([w] { return WriteWithoutAPause(w); }));
    for (const pid_t writer : writers) {
      usleep(static_cast<useconds_t>(random.below(20000)));
      kill(writer, SIGKILL);
    }
    for (const pid_t writer : writers) EXPECT_EQ(ExitCodeOf(writer), 1000 + SIGKILL);
    MessageCapture capture;
    ASSERT_EQ(Set("Round", static_cast<uint32_t>(round)), 0);
    ASSERT_EQ(Get("Round"), static_cast<uint32_t>(round));
    EXPECT_TRUE(capture.messages().empty());
    EXPECT_EQ(Tool(path()).Ask("PRAGMA integrity_check"), "ok");
    EXPECT_EQ(NamesInFolder(), std::set<std::string>{"settings.db"});
  }
}

// What is copied while a group of changes goes on holds all of the group or nothing of it.
TEST_F(DefaultStoreLoad, ACopyOfTheFileHoldsWholeGroups) {
  ASSERT_EQ(Set("K0", 0), 0);
  const pid_t writer = InChild([] {
    for (uint32_t i = 1;; ++i) {
      if (kxCFGBegin(KX_DEFAULT_STORE) != 0) return 1;
      for (uint32_t k = 0; k < 20; ++k) Set(("K" + std::to_string(k)).c_str(), i);
      if (kxCFGEnd(KX_DEFAULT_STORE) != 0) return 2;
    }
  });
  const std::string copy = folder_ / "copy.db";
  std::set<uint32_t> seen;
  for (int i = 0; i < 100; ++i) {
    WriteFile(copy, ReadFile(path()));
    Tool tool(copy);
    ASSERT_EQ(tool.Ask("PRAGMA integrity_check"), "ok");
    ASSERT_EQ(tool.Ask("SELECT count(DISTINCT value) FROM settings"), "1");
    seen.insert(static_cast<uint32_t>(std::stoul(tool.Ask("SELECT value FROM settings"))));
    usleep(1000);
  }
  kill(writer, SIGKILL);
  EXPECT_EQ(ExitCodeOf(writer), 1000 + SIGKILL);
  EXPECT_GT(seen.size(), 1u);
}

TEST_F(DefaultStoreLoad, AGroupIsSeenByItsThreadAtOnceAndByOthersAtItsEnd) {
  ASSERT_EQ(Set("A", 1), 0);
  ASSERT_EQ(Set("Gone", 1), 0);
  const auto seenElsewhere = [](const char* key) {
    std::optional<uint32_t> value;
    std::thread([&] { value = Get(key); }).join();
    return value;
  };
  ASSERT_EQ(kxCFGBegin(KX_DEFAULT_STORE), 0);
  ASSERT_EQ(kxCFGBegin(KX_DEFAULT_STORE), 0);
  EXPECT_EQ(Set("A", 2), 0);
  EXPECT_EQ(SetText(KX_DEFAULT_STORE, kSection, "T", "x"), 0);
  EXPECT_EQ(Remove("Gone"), 0);
  EXPECT_EQ(Get("A"), 2u);
  EXPECT_EQ(Get("Gone"), std::nullopt);
  EXPECT_EQ(GetText(KX_DEFAULT_STORE, kSection, "T"), "x");
  EXPECT_EQ(seenElsewhere("A"), 1u);
  EXPECT_EQ(kxCFGEnd(KX_DEFAULT_STORE), 0);
  EXPECT_EQ(seenElsewhere("A"), 1u);  // the outermost end counts
  EXPECT_EQ(seenElsewhere("Gone"), 1u);
  EXPECT_EQ(kxCFGEnd(KX_DEFAULT_STORE), 0);
  EXPECT_EQ(seenElsewhere("A"), 2u);
  EXPECT_EQ(seenElsewhere("Gone"), std::nullopt);
  EXPECT_NE(kxCFGEnd(KX_DEFAULT_STORE), 0);
}

TEST_F(DefaultStoreLoad, AGroupIsOneNewFile) {
  ASSERT_EQ(Set("A", 1), 0);
  struct stat before, after;
  ASSERT_EQ(stat(path().c_str(), &before), 0);
  kxCFGBegin(KX_DEFAULT_STORE);
  Set("A", 1);
  Remove("Never");
  EXPECT_EQ(kxCFGEnd(KX_DEFAULT_STORE), 0);
  ASSERT_EQ(stat(path().c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);  // nothing changed, so nothing was written
}

TEST_F(DefaultStoreLoad, GroupsWithoutAnEndOrWithoutChangesLeaveNothing) {
  std::thread([] {
    kxCFGBegin(KX_DEFAULT_STORE);
    Set("A", 1);
  }).join();
  EXPECT_EQ(Get("A"), std::nullopt);
  EXPECT_EQ(kxCFGBegin(KX_DEFAULT_STORE), 0);
  EXPECT_EQ(kxCFGEnd(KX_DEFAULT_STORE), 0);
  EXPECT_TRUE(NamesInFolder().empty());
  EXPECT_NE(kxCFGBegin(0), 0);
  EXPECT_NE(kxCFGEnd(0), 0);
  EXPECT_NE(kxCFGBegin(4711), 0);
  const KXConfigHandle file = kxCFGOpen((folder_ / "User.xml").c_str(), 0);
  EXPECT_EQ(kxCFGBegin(file), 0);
  EXPECT_EQ(SetNumber(file, kSection, "A", 3), 0);
  EXPECT_EQ(kxCFGEnd(file), 0);
  EXPECT_EQ(GetNumber(file, kSection, "A"), 3u);
  EXPECT_EQ(kxCFGClose(file, 0), 0);
}

TEST_F(DefaultStoreLoad, AGroupThatCannotBeMadeFailsAsAWhole) {
  ASSERT_EQ(Set("A", 1), 0);
  const Bytes before = ReadFile(path());
  ASSERT_EQ(kxCFGBegin(KX_DEFAULT_STORE), 0);
  Set("A", 2);
  std::filesystem::rename(path(), folder_ / "other.db");
  std::filesystem::create_directory(path());
  MessageCapture capture;
  EXPECT_NE(kxCFGEnd(KX_DEFAULT_STORE), 0);
  EXPECT_EQ(capture.messages().size(), 1u);
  EXPECT_EQ(ReadFile(folder_ / "other.db"), before);
}

}  // namespace
}  // namespace qln::test
