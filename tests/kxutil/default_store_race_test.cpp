// What may happen to the default store's file in the middle of a read or a change: put at its place by
// SQLite's own hooks into the system calls, and by a call of its that is stood in for.

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

#include "kxutil/child_process.h"
#include "kxutil/default_store_support.h"
#include "kxutil/sqlite_calls.h"
#include "support/sync_calls.h"

namespace qln::test {
namespace {

// Calls back in front of each file that SQLite opens for writing, and behind each piece that it reads.
class SqliteCalls {
 public:
  static inline std::function<void(const char*)> opens;
  static inline std::function<void(size_t)> hasRead;
  static inline bool readsFail = false;

  SqliteCalls() {
    Set("open", reinterpret_cast<sqlite3_syscall_ptr>(Open));
    Set("read", reinterpret_cast<sqlite3_syscall_ptr>(Read));
    Set("pread", reinterpret_cast<sqlite3_syscall_ptr>(ReadAt));
    Set("pread64", reinterpret_cast<sqlite3_syscall_ptr>(ReadAt));
  }
  ~SqliteCalls() {
    sqlite3_vfs* const system = sqlite3_vfs_find(nullptr);
    for (const char* const name : {"open", "read", "pread", "pread64"}) {
      system->xSetSystemCall(system, name, nullptr);
    }
    opens = nullptr;
    hasRead = nullptr;
    readsFail = false;
  }
  SqliteCalls(const SqliteCalls&) = delete;
  SqliteCalls& operator=(const SqliteCalls&) = delete;

 private:
  static void Set(const char* name, sqlite3_syscall_ptr call) {
    sqlite3_vfs* const system = sqlite3_vfs_find(nullptr);
    if (system->xGetSystemCall(system, name) != nullptr) system->xSetSystemCall(system, name, call);
  }
  static int Open(const char* path, int flags, int mode) {
    if (opens && (flags & O_ACCMODE) == O_RDWR) opens(path);
    return open(path, flags, mode);
  }
  static ssize_t Failed() {
    errno = EIO;
    return -1;
  }
  static ssize_t Read(int file, void* to, size_t size) {
    if (readsFail) return Failed();
    const ssize_t got = read(file, to, size);
    if (hasRead && got > 0) hasRead(static_cast<size_t>(got));
    return got;
  }
  static ssize_t ReadAt(int file, void* to, size_t size, off_t at) {
    if (readsFail) return Failed();
    const ssize_t got = pread(file, to, size, at);
    if (hasRead && got > 0) hasRead(static_cast<size_t>(got));
    return got;
  }
};

// What is done to the bytes of a database that SQLite hands out, for as long as it is set.
std::function<void(unsigned char*, size_t)> handsOut;

using DefaultStoreRace = DefaultStoreTest;

// A reader keeps the file that it opened, and looks at the name before each read. What stands under the name
// may have been another file in between.
TEST_F(DefaultStoreRace, AFileThatWasThereForTheOpeningAloneIsNotReadAgain) {
  ASSERT_EQ(Set("A", 1), 0);
  const std::string other = folder_ / "other.db", away = folder_ / "away.db";
  kxCFGSetDefaultStore(other.c_str());
  ASSERT_EQ(Set("A", 2), 0);
  Reopen();
  int swaps = 0;
  {
    SqliteCalls calls;
    SqliteCalls::opens = [&](const char* opened) {
      if (opened != path() || swaps++ != 0) return;
      std::filesystem::rename(path(), away);
      std::filesystem::rename(other, path());
    };
    EXPECT_EQ(Get("A"), 2u);
  }
  ASSERT_EQ(swaps, 1);
  std::filesystem::rename(path(), other);
  std::filesystem::rename(away, path());
  EXPECT_EQ(Get("A"), 1u);
}

// The file is read, and its journal behind it. A change that is taken back in between leaves no journal, but
// what was read of the file holds a part of it.
TEST_F(DefaultStoreRace, AChangeThatIsTakenBackWhileItIsCopiedIsNotSeen) {
  std::vector<std::string> keys;
  for (int i = 0; i < 500; ++i) keys.push_back("K" + std::to_string(i));
  MakeEarlierStore(keys);
  ASSERT_TRUE(Tool(path()).Run("UPDATE settings SET value = 5000"));
  int toChild[2], fromChild[2];
  ASSERT_EQ(pipe(toChild), 0);
  ASSERT_EQ(pipe(fromChild), 0);
  const pid_t child = InChild([&] {
    Tool tool(path());
    char byte = tool.Run(
        "PRAGMA cache_size = 1; PRAGMA cache_spill = 1; BEGIN EXCLUSIVE; "
        "UPDATE settings SET value = 6000");
    if (write(fromChild[1], &byte, 1) != 1 || read(toChild[0], &byte, 1) != 1) return 1;
    byte = tool.Run("ROLLBACK");
    return write(fromChild[1], &byte, 1) == 1 ? 0 : 2;
  });
  char done = 0;
  ASSERT_EQ(read(fromChild[0], &done, 1), 1);
  ASSERT_EQ(done, 1);
  // A key whose change is in the file by now.
  const std::string half = folder_ / "half.db";
  WriteFile(half, ReadFile(path()));
  const std::string key = Tool(half).Ask("SELECT key FROM settings WHERE value = 6000");
  ASSERT_FALSE(key.empty());
  const uintmax_t size = std::filesystem::file_size(path());
  Reopen();
  bool takenBack = false;
  {
    SqliteCalls calls;
    SqliteCalls::hasRead = [&](size_t got) {
      if (got != size || takenBack) return;
      takenBack = true;
      ASSERT_EQ(write(toChild[1], "x", 1), 1);
      ASSERT_EQ(read(fromChild[0], &done, 1), 1);
    };
    EXPECT_EQ(Get(key.c_str()), 5000u) << key;
  }
  EXPECT_TRUE(takenBack);
  EXPECT_EQ(ExitCodeOf(child), 0);
  for (const int end : {toChild[0], toChild[1], fromChild[0], fromChild[1]}) close(end);
}

// The lock is on the file that was opened. Another tool needs none to put its own file into the place.
TEST_F(DefaultStoreRace, AFileThatComesIntoThePlaceOfALockedOneIsNotWrittenOver) {
  const std::string other = folder_ / "other.db";
  kxCFGSetDefaultStore(other.c_str());
  ASSERT_EQ(Set("Other", 5), 0);
  const Bytes theirs = ReadFile(other);
  Reopen();
  ASSERT_EQ(Set("A", 1), 0);
  MessageCapture capture;
  handsOut = [&](unsigned char*, size_t) {
    if (std::filesystem::exists(other)) std::filesystem::rename(other, path());
  };
  EXPECT_NE(Set("A", 2), 0);
  handsOut = nullptr;
  EXPECT_EQ(ReadFile(path()), theirs);
  EXPECT_EQ(NamesInFolder(), std::set<std::string>{"settings.db"});
  EXPECT_EQ(capture.messages().size(), 1u);
  EXPECT_EQ(Set("A", 2), 0);
  EXPECT_EQ(Get("Other"), 5u);
}

// SQLite hands out zeros for a page that the disk does not give it. The file is whole, and stays where it is.
TEST_F(DefaultStoreRace, APageThatCouldNotBeReadIsNoDamage) {
  ASSERT_EQ(Set("A", 1), 0);
  Reopen();
  MessageCapture capture;
  bool once = true;
  handsOut = [&](unsigned char* bytes, size_t size) {
    if (std::exchange(once, false)) std::fill(bytes + size / 2, bytes + size, uint8_t{0});
  };
  EXPECT_NE(Set("A", 2), 0);
  handsOut = nullptr;
  EXPECT_FALSE(once);
  EXPECT_TRUE(SetAside().empty());
  EXPECT_EQ(capture.messages().size(), 1u);
  EXPECT_EQ(Get("A"), 1u);
  EXPECT_EQ(Set("A", 2), 0);
}

// Of two processes that find the same damage one sets the store aside; what it made instead is no damaged
// store.
TEST_F(DefaultStoreRace, AStoreThatTookADamagedOnesPlaceIsNotSetAside) {
  const std::string other = folder_ / "other.db";
  kxCFGSetDefaultStore(other.c_str());
  ASSERT_EQ(Set("Other", 5), 0);
  Reopen();
  ASSERT_EQ(Set("A", 1), 0);
  Bytes damaged = ReadFile(path());
  damaged[39] = 1;  // a free page that is not there
  WriteFile(path(), damaged);
  Reopen();
  MessageCapture capture;
  handsOut = [&](unsigned char*, size_t) {
    if (std::filesystem::exists(other)) std::filesystem::rename(other, path());
  };
  EXPECT_EQ(Set("A", 2), 0);
  handsOut = nullptr;
  EXPECT_TRUE(SetAside().empty());
  EXPECT_EQ(Get("Other"), 5u);
  EXPECT_EQ(Get("A"), 2u);
  EXPECT_TRUE(capture.messages().empty());
}

// What is renamed is the file that was written, and nothing that came to its name meanwhile.
TEST_F(DefaultStoreRace, AFileThatIsPutInThePlaceOfTheNewOneIsNotTaken) {
  ASSERT_EQ(Set("A", 1), 0);
  const Bytes before = ReadFile(path());
  const std::string beside = folder_ / ".settings.db.new";
  MessageCapture capture;
  {
    SyncLog log;
    log.each = [&](const std::string& line) {
      if (line != "flush .settings.db.new") return;
      std::filesystem::remove(beside);
      WriteFile(beside, Bytes(before.size(), 'x'));
    };
    EXPECT_NE(Set("A", 2), 0);
  }
  EXPECT_EQ(ReadFile(path()), before);
  EXPECT_EQ(capture.messages().size(), 1u);
  EXPECT_EQ(Set("A", 2), 0);
  EXPECT_EQ(Get("A"), 2u);
}

// Another process may set the file aside between its making and its lock.
TEST_F(DefaultStoreRace, AFileThatIsGoneBeforeItIsLockedIsMadeAnew) {
  ASSERT_EQ(Set("A", 1), 0);
  ASSERT_EQ(Get("A"), 1u);  // the reader has it open from here on
  const std::string away = folder_ / "away.db";
  MessageCapture capture;
  {
    SqliteCalls calls;
    SqliteCalls::opens = [&](const char* opened) {
      if (opened == path() && !std::filesystem::exists(away)) std::filesystem::rename(path(), away);
    };
    EXPECT_EQ(Set("B", 2), 0);
  }
  EXPECT_TRUE(std::filesystem::exists(away));
  EXPECT_EQ(Get("A"), std::nullopt);
  EXPECT_EQ(Get("B"), 2u);
  EXPECT_TRUE(capture.messages().empty());
}

// A change waits for a lock, but not for ever, and goes nowhere without.
TEST_F(DefaultStoreRace, AChangeThatGetsNoLockInItsTimeIsNotMade) {
  ASSERT_EQ(Set("A", 1), 0);
  const Bytes before = ReadFile(path());
  Tool tool(path());
  ASSERT_TRUE(tool.Run("BEGIN IMMEDIATE"));
  MessageCapture capture;
  int32_t result = 0;
  {
    const QuickClock quick(3);
    result = Set("A", 2);
  }
  EXPECT_NE(result, 0);
  ASSERT_EQ(capture.messages().size(), 1u);
  EXPECT_NE(capture.messages()[0].text.find("database is locked"), std::string::npos);
  EXPECT_EQ(ReadFile(path()), before);
  ASSERT_TRUE(tool.Run("ROLLBACK"));
  EXPECT_EQ(Set("A", 2), 0);
}

// What a disk does not give is no damage: nothing is known of the store.
TEST_F(DefaultStoreRace, AStoreThatTheDiskDoesNotGiveIsNotDamaged) {
  ASSERT_EQ(Set("A", 1), 0);
  Reopen();
  {
    SqliteCalls calls;
    SqliteCalls::readsFail = true;
    MessageCapture capture;
    EXPECT_EQ(Get("A"), std::nullopt);
    EXPECT_NE(Set("A", 2), 0);
    ASSERT_EQ(capture.messages().size(), 1u);
    EXPECT_NE(capture.messages()[0].text.find("disk I/O error"), std::string::npos);
  }
  EXPECT_EQ(NamesInFolder(), std::set<std::string>{"settings.db"});
  EXPECT_EQ(Get("A"), 1u);
  EXPECT_EQ(Set("A", 2), 0);
}

// A change is told as done only where the bytes that will stand in the file give it back.
TEST_F(DefaultStoreRace, AChangeThatDoesNotReadBackIsNotTaken) {
  for (const bool once : {true, false}) {
    std::filesystem::remove(path());
    Reopen();
    ASSERT_EQ(SetText(KX_DEFAULT_STORE, kSection, "Title", "Dawn"), 0);
    const Bytes before = ReadFile(path());
    MessageCapture capture;
    int spoiled = 0;
    handsOut = [&](unsigned char* bytes, size_t size) {
      const std::string_view dusk = "Dusk";
      unsigned char* const found = std::search(bytes, bytes + size, dusk.begin(), dusk.end());
      if (found == bytes + size || (once && spoiled != 0)) return;
      *found = 'H';
      ++spoiled;
    };
    const int32_t result = SetText(KX_DEFAULT_STORE, kSection, "Title", "Dusk");
    handsOut = nullptr;
    // The store counts as damaged and gives way to a new one, for which that holds as well.
    EXPECT_EQ(result == 0, once);
    EXPECT_EQ(spoiled, once ? 1 : 2);
    EXPECT_EQ(GetText(KX_DEFAULT_STORE, kSection, "Title"),
              once ? std::optional<std::string>("Dusk") : std::nullopt);
    EXPECT_EQ(capture.messages().size(), 1u);
    ASSERT_EQ(SetAside().size(), 1u);
    EXPECT_EQ(ReadFile(SetAside()[0]), before);
    std::filesystem::remove(SetAside()[0]);
  }
}

}  // namespace
}  // namespace qln::test

// In front of SQLite's own.
extern "C" __attribute__((visibility("default"))) unsigned char* sqlite3_serialize(sqlite3* database,
                                                                                   const char* schema,
                                                                                   sqlite3_int64* size,
                                                                                   unsigned int flags) {
  using Function = unsigned char*(sqlite3*, const char*, sqlite3_int64*, unsigned int);
  const auto real = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "sqlite3_serialize"));
  if (qln::test::SqliteCallFails() != SQLITE_OK) return nullptr;
  unsigned char* const bytes = real(database, schema, size, flags);
  if (bytes != nullptr && qln::test::handsOut) qln::test::handsOut(bytes, static_cast<size_t>(*size));
  return bytes;
}
