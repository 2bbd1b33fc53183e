// Stores that can only be read as a copy, made out of the file and its journals: what is told where that
// fails.

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "kxutil/default_store_support.h"

namespace qln::test {
namespace {

class DefaultStoreCopy : public DefaultStoreTest {
 protected:
  // SQLite file format, 1.6: the kind of the first page.
  static constexpr size_t kPageKind = 100;
  static constexpr uintmax_t kLargestStore = 256u << 20;

  // A store that is kept with a write-ahead log, as a tool may leave it.
  void MakeStoreWithLog() {
    ASSERT_EQ(Set("A", 1), 0);
    Tool tool(path());
    ASSERT_EQ(tool.Ask("PRAGMA journal_mode = WAL"), "wal");
  }
  std::string journal() const { return path() + "-journal"; }
  // What reading A says; A is absent.
  static std::string Told() {
    const MessageCapture capture;
    EXPECT_EQ(Get("A"), std::nullopt);
    EXPECT_LE(capture.messages().size(), 1u);
    return capture.messages().empty() ? "" : capture.messages()[0].text;
  }
  // A link that leads to itself: nothing can be read there.
  void LoopJournal() { std::filesystem::create_symlink(journal(), journal()); }
};

TEST_F(DefaultStoreCopy, AFileAboveTheLimitIsNotTakenIntoMemory) {
  MakeStoreWithLog();
  std::filesystem::resize_file(path(), kLargestStore + 1);
  Reopen();
  EXPECT_TRUE(Told().ends_with("it is too large"));
  std::filesystem::resize_file(path(), 1u << 20);
  EXPECT_EQ(Get("A"), 1u);
}

TEST_F(DefaultStoreCopy, AJournalThatCannotBeOpenedIsNotTakenForNone) {
  MakeStoreWithLog();
  LoopJournal();
  Reopen();
  EXPECT_TRUE(Told().ends_with(std::strerror(ELOOP)));
  std::filesystem::remove(journal());
  EXPECT_EQ(Get("A"), 1u);
}

TEST_F(DefaultStoreCopy, AJournalThatSqliteCannotWorkInIsTold) {
  MakeStoreWithLog();
  Bytes bytes = ReadFile(path());
  std::fill(bytes.begin() + 20, bytes.end(), uint8_t{0xEE});
  WriteFile(path(), bytes);
  WriteFile(path() + "-wal", Bytes(100, 0xEE));
  Reopen();
  EXPECT_TRUE(Told().ends_with("file is not a database"));
}

// The same trouble is told once as long as no other comes in between.
TEST_F(DefaultStoreCopy, ATroubleIsToldAgainBehindAnother) {
  MakeStoreWithLog();
  const uintmax_t size = std::filesystem::file_size(path());
  LoopJournal();
  Reopen();
  EXPECT_TRUE(Told().ends_with(std::strerror(ELOOP)));
  EXPECT_EQ(Told(), "");
  std::filesystem::resize_file(path(), kLargestStore + 1);
  EXPECT_TRUE(Told().ends_with("it is too large"));
  EXPECT_EQ(Told(), "");
  std::filesystem::resize_file(path(), size);
  EXPECT_TRUE(Told().ends_with(std::strerror(ELOOP)));
}

// Damage in the schema is found in the copy as it is in the file, and the store is set aside for it.
TEST_F(DefaultStoreCopy, ADamagedSchemaBesideALogSetsTheStoreAside) {
  MakeStoreWithLog();
  Bytes damaged = ReadFile(path());
  damaged[kPageKind] = 0x77;
  WriteFile(path(), damaged);
  Reopen();
  const MessageCapture capture;
  EXPECT_EQ(Set("A", 2), 0);
  EXPECT_EQ(Get("A"), 2u);
  ASSERT_EQ(SetAside().size(), 1u);
  EXPECT_EQ(ReadFile(SetAside()[0]), damaged);
}

// A locked file is copied, one that changes at each look is waited for under its lock, and one that stays
// locked is told as what it is.
TEST_F(DefaultStoreCopy, AStoreThatIsLockedAndChangesAllTheTimeIsTold) {
  ASSERT_EQ(Set("A", 1), 0);
  Tool tool(path());
  ASSERT_TRUE(tool.Run("BEGIN EXCLUSIVE"));
  Reopen();
  EXPECT_EQ(Get("A"), 1u);
  // Another text at each look.
  std::filesystem::create_symlink("/proc/sys/kernel/random/uuid", journal());
  Reopen();
  EXPECT_TRUE(Told().ends_with("it changes all the time: database is locked"));
  std::filesystem::remove(journal());
}

}  // namespace
}  // namespace qln::test
