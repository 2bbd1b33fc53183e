// What the file calls and the stores do where the system refuses a call: the told error, and files as they
// were.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include "kxutil/default_store_support.h"
#include "kxutil/kxutil.h"
#include "support/cpu_time.h"
#include "support/file_status.h"
#include "support/refused_calls.h"

namespace qln::test {
namespace {

namespace fs = std::filesystem;

// A lock of somebody else's on a folder.
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder) : number_(open(folder.c_str(), O_RDONLY | O_DIRECTORY)) {
    EXPECT_EQ(flock(number_, LOCK_EX), 0);
  }
  ~FolderLock() { Release(); }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;
  void Release() {
    if (number_ >= 0) close(number_);
    number_ = -1;
  }

 private:
  int number_;
};

class RefusedCallsTest : public DefaultStoreTest {
 protected:
  std::string file() const { return folder_ / "User.xml"; }
  int32_t SetInFile(uint32_t value) const {
    const KXConfigHandle store = kxCFGOpen(file().c_str(), 0);
    if (store == 0) return -1;
    SetNumber(store, kSection, "A", value);
    return kxCFGClose(store, KX_CONFIG_SAVE);
  }
  // SQLite file format, 1.3: a free page that is not there.
  Bytes Damage() {
    Bytes bytes = ReadFile(path());
    bytes[39] = 1;
    WriteFile(path(), bytes);
    Reopen();
    return bytes;
  }
  // A save of the file store with these calls refused fails with that error's text and leaves the file.
  void ExpectNotSaved(const RefusedCalls& calls, int error) {
    ASSERT_EQ(SetInFile(1), 0);
    const Bytes before = ReadFile(file());
    const bool refused = RunWithout(calls, [&] {
      MessageCapture capture;
      EXPECT_NE(SetInFile(2), 0);
      ASSERT_EQ(capture.messages().size(), 1u);
      EXPECT_TRUE(capture.messages()[0].text.ends_with(std::strerror(error))) << capture.messages()[0].text;
    });
    if (!refused) GTEST_SKIP() << "calls cannot be refused here";
    EXPECT_EQ(ReadFile(file()), before);
    EXPECT_EQ(NamesInFolder(), std::set<std::string>{"User.xml"});
  }
  // The same for a change of the default store.
  void ExpectNotChanged(const RefusedCalls& calls, int error) {
    ASSERT_EQ(Set("A", 1), 0);
    const Bytes before = ReadFile(path());
    const bool refused = RunWithout(calls, [&] {
      MessageCapture capture;
      EXPECT_NE(Set("A", 2), 0);
      ASSERT_EQ(capture.messages().size(), 1u);
      EXPECT_NE(capture.messages()[0].text.find(std::strerror(error)), std::string::npos)
          << capture.messages()[0].text;
    });
    if (!refused) GTEST_SKIP() << "calls cannot be refused here";
    EXPECT_EQ(ReadFile(path()), before);
    EXPECT_EQ(NamesInFolder(), std::set<std::string>{"settings.db"});
  }
};

TEST_F(RefusedCallsTest, AnInterruptedCloseIsNoFailure) {
  const std::string name = folder_ / "data";
  const KXFileHandle handle =
      kxOSCreateFile(name.c_str(), KX_ACCESS_WRITE, KX_SHARE_READ, nullptr, KX_CREATE_NEW, 0, nullptr);
  ASSERT_NE(handle, KX_INVALID_FILE_HANDLE);
  int32_t interrupted = 0, failed = 1;
  uint32_t error = 0;
  if (!RunWithout({{SYS_close, EINTR}}, [&] { interrupted = kxOSCloseFile(handle); }) ||
      !RunWithout({{SYS_close, EIO}}, [&] {
        failed = kxOSCloseFile(handle);
        error = kxOSGetLastError();
      }))
    GTEST_SKIP() << "calls cannot be refused here";
  EXPECT_NE(interrupted, 0);
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(error, uint32_t{EIO});
  EXPECT_NE(kxOSCloseFile(handle), 0);
}

// A device that takes nothing and tells no error must not be asked for ever.
TEST_F(RefusedCallsTest, AWriteThatMovesNothingFails) {
  const std::string name = folder_ / "data";
  const KXFileHandle handle =
      kxOSCreateFile(name.c_str(), KX_ACCESS_WRITE, KX_SHARE_READ, nullptr, KX_CREATE_NEW, 0, nullptr);
  ASSERT_NE(handle, KX_INVALID_FILE_HANDLE);
  int32_t result = 1;
  uint32_t written = 7, error = 0;
  const bool refused = RunWithout({{SYS_write, 0}}, [&] {
    result = kxOSWriteFile(handle, "abc", 3, &written, nullptr);
    error = kxOSGetLastError();
  });
  if (!refused) GTEST_SKIP() << "calls cannot be refused here";
  EXPECT_EQ(result, 0);
  EXPECT_EQ(written, 0u);
  EXPECT_EQ(error, uint32_t{EIO});
  int overlapped = 0;
  EXPECT_EQ(kxOSWriteFile(handle, "abc", 3, &written, &overlapped), 0);
  EXPECT_EQ(kxOSGetLastError(), uint32_t{EINVAL});
  EXPECT_NE(kxOSWriteFile(handle, nullptr, 0, &written, nullptr), 0);
  EXPECT_NE(kxOSCloseFile(handle), 0);
  EXPECT_TRUE(ReadFile(name).empty());
}

TEST_F(RefusedCallsTest, AFileWhoseStatusIsNotToldOpens) {
  const std::string name = folder_ / "data";
  WriteFile(name, Bytes{1, 2, 3});
  KXFileHandle handle = KX_INVALID_FILE_HANDLE;
  if (!RunWithout({{SYS_newfstatat, EACCES}, {SYS_fstat, EACCES}}, [&] {
        handle = kxOSCreateFile(name.c_str(), KX_ACCESS_READ, KX_SHARE_READ, nullptr, KX_OPEN_EXISTING, 0,
                                nullptr);
      }))
    GTEST_SKIP() << "calls cannot be refused here";
  ASSERT_NE(handle, KX_INVALID_FILE_HANDLE);
  uint8_t got[4] = {};
  uint32_t count = 0;
  EXPECT_NE(kxOSReadFile(handle, got, sizeof got, &count, nullptr), 0);
  EXPECT_EQ(count, 3u);
  EXPECT_NE(kxOSCloseFile(handle), 0);
}

TEST_F(RefusedCallsTest, ASleepThatTheSystemRefusesEnds) {
  bool ended = false;
  if (!RunWithout({{SYS_clock_nanosleep, EINVAL}, {SYS_nanosleep, EINVAL}}, [&] {
        Sleep(1000000);
        ended = true;
      }))
    GTEST_SKIP() << "calls cannot be refused here";
  EXPECT_TRUE(ended);
}

TEST_F(RefusedCallsTest, AFileStoreThatIsNotReplacedStays) {
  ExpectNotSaved({{SYS_access, EROFS}, {SYS_faccessat, EROFS}}, EROFS);
  ExpectNotSaved({{SYS_fchmod, EIO}}, EIO);
  ExpectNotSaved({{SYS_fsync, EIO}}, EIO);
  ExpectNotSaved({{SYS_rename, EIO}}, EIO);
  ExpectNotSaved({{SYS_write, ENOSPC}}, ENOSPC);
  ExpectNotSaved({{SYS_flock, ENOLCK}}, ENOLCK);
  ExpectNotSaved({{SYS_read, EIO}}, EIO);
}

TEST_F(RefusedCallsTest, ADefaultStoreThatIsNotReplacedStays) {
  ExpectNotChanged({{SYS_fchmod, EIO}}, EIO);
  ExpectNotChanged({{SYS_fsync, EDQUOT}}, EDQUOT);
  ExpectNotChanged({{SYS_rename, EIO}}, EIO);
  ExpectNotChanged({{SYS_write, ENOSPC}}, ENOSPC);
}

// Who may not give the owner and the group gives nobody a right that they did not have.
TEST_F(RefusedCallsTest, WhoMayNotGiveAFileAwayGivesNoRights) {
  constexpr uid_t kOther = 1234;
  constexpr gid_t kForeign = 2345;
  for (const bool database : {true, false}) {
    const std::string& name = database ? path() : file();
    ASSERT_EQ(database ? Set("A", 1) : SetInFile(1), 0);
    for (const int error : {EPERM, EINVAL}) {
      for (const gid_t group : {kForeign, getgid()}) {
        if (chown(name.c_str(), kOther, group) != 0) GTEST_SKIP() << "only root gives files away";
        chmod(name.c_str(), 0676);
        static uint32_t value = 1;
        ++value;
        if (!RunWithout({{SYS_fchown, static_cast<uint32_t>(error)}},
                        [&] { EXPECT_EQ(database ? Set("A", value) : SetInFile(value), 0); }))
          GTEST_SKIP() << "calls cannot be refused here";
        const auto status = StatusOf(name);
        EXPECT_EQ(status.st_uid, getuid());
        EXPECT_EQ(status.st_gid, getgid());
        EXPECT_EQ(status.st_mode & 07777, group == kForeign ? 0666u : 0676u) << name;
      }
    }
  }
  if (chown(file().c_str(), kOther, kForeign) == 0) {
    const Bytes before = ReadFile(file());
    RunWithout({{SYS_fchown, EIO}}, [&] {
      MessageCapture capture;
      EXPECT_NE(SetInFile(100), 0);
    });
    EXPECT_EQ(ReadFile(file()), before);
  }
}

TEST_F(RefusedCallsTest, ASaveWaitsForTheFoldersLock) {
  ASSERT_EQ(SetInFile(1), 0);
  FolderLock lock(folder_.path());
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    lock.Release();
  });
  EXPECT_EQ(SetInFile(2), 0);
  other.join();
}

TEST_F(RefusedCallsTest, ADamagedStoreIsSetAsideUnderTheFoldersLock) {
  ASSERT_EQ(Set("A", 1), 0);
  const Bytes damaged = Damage();
  MessageCapture capture;
  // Nobody waits long where no call waits.
  {
    const FolderLock lock(folder_.path());
    if (!RunWithout({{SYS_clock_nanosleep, EINTR}, {SYS_nanosleep, EINTR}},
                    [&] { EXPECT_NE(Set("A", 2), 0); }))
      GTEST_SKIP() << "calls cannot be refused here";
  }
  RunWithout({{SYS_flock, ENOLCK}}, [&] { EXPECT_NE(Set("A", 2), 0); });
  ASSERT_EQ(capture.messages().size(), 2u);
  EXPECT_NE(capture.messages()[0].text.find("cannot be set aside"), std::string::npos);
  EXPECT_NE(capture.messages()[1].text.find(std::strerror(ENOLCK)), std::string::npos);
  EXPECT_EQ(ReadFile(path()), damaged);
  FolderLock lock(folder_.path());
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    lock.Release();
  });
  EXPECT_EQ(Set("A", 2), 0);
  other.join();
  ASSERT_EQ(SetAside().size(), 1u);
  EXPECT_EQ(ReadFile(SetAside()[0]), damaged);
  EXPECT_EQ(Get("A"), 2u);
}

// A name that is taken gets a number behind it, also where no call renames to a free name only.
TEST_F(RefusedCallsTest, ASecondDamagedStoreOfTheSameSecondGetsANameOfItsOwn) {
  size_t found = 0;
  const bool refused = RunWithout({{SYS_renameat2, ENOSYS}}, [&] {
    MessageCapture capture;
    for (uint32_t i = 0; i < 4; ++i) {
      ASSERT_EQ(Set("A", i), 0);
      Damage();
    }
    ASSERT_EQ(Set("A", 5), 0);
    found = SetAside().size();
  });
  if (!refused) GTEST_SKIP() << "calls cannot be refused here";
  EXPECT_EQ(found, 4u);
}

// Where nobody can tell the working folder there is no store of a relative name.
TEST_F(RefusedCallsTest, ARelativeNameWithoutAFolderIsTold) {
  const fs::path before = fs::current_path();
  fs::current_path(folder_.path());
  const bool refused = RunWithout({{SYS_getcwd, EACCES}}, [&] {
    MessageCapture capture;
    kxCFGSetDefaultStore("settings.db");
    EXPECT_NE(Set("A", 1), 0);
    EXPECT_EQ(Get("A"), std::nullopt);
    EXPECT_EQ(capture.messages().size(), 1u);
  });
  fs::current_path(before);
  if (!refused) GTEST_SKIP() << "calls cannot be refused here";
}

TEST_F(RefusedCallsTest, LinksAreFollowedAsFarAsTheSystemFollowsThem) {
  const std::string target = folder_ / "target.db";
  fs::create_symlink(target, path());
  ASSERT_EQ(Set("A", 1), 0);
  EXPECT_TRUE(fs::is_symlink(path()));
  EXPECT_TRUE(fs::is_regular_file(target));
  const std::string loop = folder_ / "loop.db";
  fs::create_symlink(loop, loop);
  kxCFGSetDefaultStore(loop.c_str());
  MessageCapture capture;
  EXPECT_NE(Set("A", 1), 0);
  ASSERT_FALSE(capture.messages().empty());
  EXPECT_NE(capture.messages()[0].text.find(std::strerror(ELOOP)), std::string::npos);
  EXPECT_TRUE(fs::is_symlink(loop));
}

// A store with a journal is read through a copy in a folder of the reader's own.
TEST_F(RefusedCallsTest, ACopyThatCannotBeMadeIsTold) {
  ASSERT_EQ(Set("A", 1), 0);
  ASSERT_EQ(Tool(path()).Ask("PRAGMA journal_mode = WAL"), "wal");
  WriteFile(path() + "-wal", Bytes(40, 0));
  const auto told = [&](const RefusedCalls& calls) {
    std::string text;
    Reopen();
    RunWithout(calls, [&] {
      MessageCapture capture;
      EXPECT_EQ(Get("A"), std::nullopt);
      if (capture.messages().size() == 1) text = capture.messages()[0].text;
    });
    return text;
  };
  EXPECT_TRUE(told({{SYS_mkdir, EROFS}, {SYS_mkdirat, EROFS}}).ends_with(std::strerror(EROFS)));
  EXPECT_TRUE(told({{SYS_write, ENOSPC}}).ends_with(std::strerror(ENOSPC)));
  const char* const configured = std::getenv("TMPDIR");
  const std::string before = configured != nullptr ? configured : "";
  setenv("TMPDIR", "not/absolute", 1);
  Reopen();
  EXPECT_EQ(Get("A"), 1u);
  if (configured != nullptr) {
    setenv("TMPDIR", before.c_str(), 1);
  } else {
    unsetenv("TMPDIR");
  }
}

}  // namespace
}  // namespace qln::test
