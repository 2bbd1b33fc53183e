// Where the default store stands: folders and files that refuse, journals that others left, links, owners.

#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cstring>

#include "kxutil/child_process.h"
#include "kxutil/default_store_support.h"
#include "support/open_descriptors.h"
#include "support/sync_calls.h"

namespace qln::test {
namespace {

class DefaultStorePlace : public DefaultStoreTest {
 protected:
  // Another tool is killed: in the middle of a change, or with a log that is not worked in.
  void KillATool(const std::string& statements) {
    const pid_t child = InChild([&] {
      Tool tool(path());
      if (!tool.Run(statements)) return 1;
      kill(getpid(), SIGKILL);
      return 2;
    });
    ASSERT_EQ(ExitCodeOf(child), 1000 + SIGKILL);
  }
  void MakeManyKeys() {
    std::vector<std::string> keys;
    for (int i = 0; i < 300; ++i) keys.push_back("K" + std::to_string(i));
    MakeEarlierStore(keys);
  }
  static bool AllKeysAre(uint32_t offset) {
    for (uint32_t i = 0; i < 300; ++i) {
      if (Get(("K" + std::to_string(i)).c_str()) != i + offset) return false;
    }
    return true;
  }
  // All can be read by someone who can change nothing, and nothing in the folder changes by it.
  void ExpectAllReadWhereNothingMayChange(uint32_t offset) {
    const std::set<std::string> names = NamesInFolder();
    for (const std::string& name : names) chmod((folder_ / name).c_str(), 0444);
    chmod(folder_.path().c_str(), 0555);
    const Bytes before = ReadFile(path());
    const int code = ExitCodeAsNobody([&] {
      MessageCapture capture;
      if (!AllKeysAre(offset)) return 1;
      if (Get("Never")) return 2;
      if (!capture.messages().empty()) return 3;
      if (Set("K0", 5) == 0) return 4;
      if (!AllKeysAre(offset)) return 5;
      if (capture.messages().size() != 1) return 6;
      return capture.messages()[0].text.find("locked") == std::string::npos ? 0 : 7;  // by nobody
    });
    EXPECT_EQ(NamesInFolder(), names);
    EXPECT_EQ(ReadFile(path()), before);
    chmod(folder_.path().c_str(), 0700);
    for (const std::string& name : names) chmod((folder_ / name).c_str(), 0600);
    if (code == kCannotDropRights) GTEST_SKIP() << "rights cannot be dropped here";
    EXPECT_EQ(code, 0);
  }
  // Once the folder lets it, a change cleans up and loses nothing.
  void ExpectTheNextChangeCleansUp(uint32_t offset) {
    Reopen();
    EXPECT_TRUE(AllKeysAre(offset));
    EXPECT_EQ(Set("New", 1), 0);
    EXPECT_EQ(NamesInFolder(), std::set<std::string>{"settings.db"});
    EXPECT_TRUE(AllKeysAre(offset));
    EXPECT_EQ(Get("New"), 1u);
    EXPECT_EQ(Tool(path()).Ask("PRAGMA integrity_check"), "ok");
  }
};

constexpr char kHalfAChange[] =
    "PRAGMA cache_size = 1; PRAGMA cache_spill = 1; BEGIN EXCLUSIVE; UPDATE settings SET value = value + "
    "1000";
constexpr char kChangeInALog[] =
    "PRAGMA journal_mode = WAL; UPDATE settings SET value = value + 1000; UPDATE settings SET value = value "
    "+ 1";

TEST_F(DefaultStorePlace, AJournalLeftByAKillIsReadPastInAReadOnlyFolder) {
  MakeManyKeys();
  const Bytes before = ReadFile(path());
  KillATool(kHalfAChange);
  ASSERT_NE(ReadFile(path()), before);  // half of a change is in the file
  ASSERT_EQ(NamesInFolder(), (std::set<std::string>{"settings.db", "settings.db-journal"}));
  ExpectAllReadWhereNothingMayChange(1);
  ExpectTheNextChangeCleansUp(1);
}

TEST_F(DefaultStorePlace, ALogLeftByAKillIsReadInAReadOnlyFolder) {
  MakeManyKeys();
  KillATool(kChangeInALog);
  ASSERT_TRUE(NamesInFolder().contains("settings.db-wal"));
  ExpectAllReadWhereNothingMayChange(1002);
  ExpectTheNextChangeCleansUp(1002);
}

TEST_F(DefaultStorePlace, ALogWithoutItsIndexIsReadInAReadOnlyFolder) {
  MakeManyKeys();
  KillATool(kChangeInALog);
  std::filesystem::remove(path() + "-shm");
  ExpectAllReadWhereNothingMayChange(1002);
  ExpectTheNextChangeCleansUp(1002);
}

TEST_F(DefaultStorePlace, ADatabaseForALogIsReadWithoutOne) {
  MakeManyKeys();
  ASSERT_TRUE(Tool(path()).Run("PRAGMA journal_mode = WAL; UPDATE settings SET value = value + 1000"));
  ASSERT_EQ(NamesInFolder(), std::set<std::string>{"settings.db"});
  ExpectAllReadWhereNothingMayChange(1001);
  ExpectTheNextChangeCleansUp(1001);
}

TEST_F(DefaultStorePlace, ReadingPutsNothingBesideTheFile) {
  MakeManyKeys();
  EXPECT_TRUE(AllKeysAre(1));
  EXPECT_EQ(Get("Never"), std::nullopt);
  EXPECT_EQ(NamesInFolder(), std::set<std::string>{"settings.db"});
  std::filesystem::remove(path());
  EXPECT_EQ(Get("K0"), std::nullopt);
  EXPECT_TRUE(NamesInFolder().empty());
}

TEST_F(DefaultStorePlace, ALinkIsFollowedAndStays) {
  const std::string target = folder_ / "elsewhere.db";
  std::filesystem::create_symlink("elsewhere.db", path());  // dangling at first
  EXPECT_EQ(Get("A"), std::nullopt);
  EXPECT_EQ(Set("A", 1), 0);
  EXPECT_EQ(Set("A", 2), 0);
  EXPECT_TRUE(std::filesystem::is_symlink(path()));
  EXPECT_TRUE(std::filesystem::is_regular_file(target));
  EXPECT_EQ(Get("A"), 2u);
}

TEST_F(DefaultStorePlace, ALinkThatLeadsElsewhereIsNoticed) {
  for (const char* const name : {"one.db", "two.db"}) {
    std::filesystem::remove(path());
    std::filesystem::create_symlink(name, path());
    EXPECT_EQ(Get("A"), std::nullopt);
    EXPECT_EQ(Set("A", static_cast<uint32_t>(name[0])), 0);
    EXPECT_EQ(Get("A"), static_cast<uint32_t>(name[0]));
  }
  std::filesystem::remove(path());
  std::filesystem::create_symlink("one.db", path());
  EXPECT_EQ(Get("A"), static_cast<uint32_t>('o'));
}

TEST_F(DefaultStorePlace, WhatAKilledWriterLeftBesideTheFileGoes) {
  WriteFile(folder_ / ".settings.db.new", Bytes(100, 'x'));
  EXPECT_EQ(Set("A", 1), 0);
  EXPECT_EQ(NamesInFolder(), std::set<std::string>{"settings.db"});
  EXPECT_EQ(Get("A"), 1u);
}

TEST_F(DefaultStorePlace, ARelativeNameCountsFromTheFolderOfItsCall) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.path());
  kxCFGSetDefaultStore("relative.db");
  std::filesystem::current_path(before);
  EXPECT_EQ(Set("A", 1), 0);
  EXPECT_EQ(NamesInFolder(), std::set<std::string>{"relative.db"});
  EXPECT_EQ(Get("A"), 1u);
}

TEST_F(DefaultStorePlace, OddNamesAreNames) {
  for (const char* const name : {"a b%20?c=d#e&f.db", "file:x.db", "\xC3\xA4;'\".db", ":memory:"}) {
    kxCFGSetDefaultStore((folder_ / name).c_str());
    EXPECT_EQ(Set("A", 1), 0) << name;
    EXPECT_EQ(Get("A"), 1u) << name;
    EXPECT_TRUE(NamesInFolder().contains(name));
  }
}

TEST_F(DefaultStorePlace, OwnerGroupAndPermissionsAreKept) {
  ASSERT_EQ(Set("A", 1), 0);
  if (chown(path().c_str(), 1234, 2345) != 0) GTEST_SKIP() << "only root gives files away";
  chmod(path().c_str(), 0640);
  const bool hasAttributes = setxattr(path().c_str(), "user.kept", "yes", 3, 0) == 0 &&
                             setxattr(path().c_str(), "user.empty", "", 0, 0) == 0;
  ASSERT_EQ(Set("A", 2), 0);
  struct stat status;
  ASSERT_EQ(stat(path().c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 1234u);
  EXPECT_EQ(status.st_gid, 2345u);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
  char value[8] = {};
  if (hasAttributes) {
    EXPECT_EQ(getxattr(path().c_str(), "user.kept", value, sizeof value), 3);
    EXPECT_STREQ(value, "yes");
    EXPECT_EQ(getxattr(path().c_str(), "user.empty", value, sizeof value), 0);
  }
}

// Who may not give a file away may still give it to a group of theirs; another group gets no rights by a
// save.
TEST_F(DefaultStorePlace, AUserKeepsTheGroupOfAFile) {
  ASSERT_EQ(Set("A", 1), 0);
  chmod(folder_.path().c_str(), 0777);
  constexpr gid_t kShared = 2345;
  for (const gid_t member : {kShared, gid_t{7777}}) {
    if (chown(path().c_str(), 1234, kShared) != 0) GTEST_SKIP() << "only root gives files away";
    chmod(path().c_str(), 0676);
    const int code = ExitCodeAsNobody([&] { return Set("A", member) == 0 ? 0 : 1; }, member);
    if (code == kCannotDropRights) GTEST_SKIP() << "rights cannot be dropped here";
    EXPECT_EQ(code, 0);
    struct stat status;
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, kNobody);
    EXPECT_EQ(status.st_gid, member == kShared ? kShared : gid_t{kNobody});
    EXPECT_EQ(status.st_mode & 07777, member == kShared ? 0676u : 0666u);
  }
}

TEST_F(DefaultStorePlace, ATroubleIsToldAgainAfterAChangeThatWasDone) {
  ASSERT_EQ(Set("A", 1), 0);
  if (chown(path().c_str(), kNobody, kNobody) != 0 || chown(folder_.path().c_str(), kNobody, kNobody) != 0)
    GTEST_SKIP() << "only root gives files away";
  const int code = ExitCodeAsNobody([this] {
    Reopen();
    MessageCapture capture;
    chmod(folder_.path().c_str(), 0555);
    if (Set("A", 2) == 0 || Set("A", 2) == 0 || capture.messages().size() != 1) return 1;
    chmod(folder_.path().c_str(), 0700);
    if (Set("A", 2) != 0 || capture.messages().size() != 1) return 2;
    chmod(folder_.path().c_str(), 0555);
    if (Set("A", 3) == 0 || Set("A", 3) == 0) return 3;
    return capture.messages().size() == 2 ? 0 : 4;
  });
  chmod(folder_.path().c_str(), 0700);
  if (code == kCannotDropRights) GTEST_SKIP() << "rights cannot be dropped here";
  EXPECT_EQ(code, 0);
}

// A folder that lets a user replace files does not make them the user's.
TEST_F(DefaultStorePlace, AFileThatMayOnlyBeReadIsNotReplaced) {
  ASSERT_EQ(Set("A", 1), 0);
  chmod(path().c_str(), 0444);
  if (chown(folder_.path().c_str(), kNobody, kNobody) != 0) GTEST_SKIP() << "only root gives files away";
  const Bytes before = ReadFile(path());
  const int code = ExitCodeAsNobody([this] {
    Reopen();
    MessageCapture capture;
    if (Get("A") != 1u) return 1;
    if (Set("A", 2) == 0 || Set("A", 2) == 0) return 2;
    if (capture.messages().size() != 1) return 3;
    if (capture.messages()[0].text.find("may not be written") == std::string::npos) return 4;
    return Get("A") == 1u ? 0 : 5;
  });
  if (code == kCannotDropRights) GTEST_SKIP() << "rights cannot be dropped here";
  EXPECT_EQ(code, 0);
  EXPECT_EQ(ReadFile(path()), before);
  EXPECT_EQ(NamesInFolder(), std::set<std::string>{"settings.db"});
}

TEST_F(DefaultStorePlace, AStoreMayStandInTheRootFolder) {
  const int code = ExitCodeOf(InChild([this] {
    if (chroot(folder_.path().c_str()) != 0 || chdir("/") != 0) return kCannotDropRights;
    kxCFGSetDefaultStore("/settings.db");
    if (Set("A", 1) != 0 || Set("A", 2) != 0) return 1;
    return Get("A") == 2u ? 0 : 2;
  }));
  if (code == kCannotDropRights) GTEST_SKIP() << "the root folder cannot be changed here";
  EXPECT_EQ(code, 0);
  EXPECT_EQ(NamesInFolder(), std::set<std::string>{"settings.db"});
}

// A folder whose name is lost with the power takes along what is kept in it.
TEST_F(DefaultStorePlace, FoldersThatAreMadeAreFlushedWithTheFirstChange) {
  const std::string top = folder_.path().substr(folder_.path().rfind('/') + 1);
  kxCFGSetDefaultStore((folder_ / "config/own/settings.db").c_str());
  SyncLog log;
  EXPECT_EQ(Set("A", 1), 0);
  EXPECT_EQ(log.lines,
            (std::vector<std::string>{"flush folder " + top, "flush folder config", "flush .settings.db.new",
                                      "flush folder own", "rename settings.db", "flush folder own"}));
}

// Some file systems cannot be asked to flush a folder; a pipe, which stands for one, cannot either.
TEST_F(DefaultStorePlace, AChangeIsDoneWhereAFolderCannotBeFlushed) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  int replaced = 0;
  {
    SyncLog log;
    log.each = [&](const std::string& line) {
      if (!line.starts_with("flush folder ")) return;
      for (const auto& [number, name] : OpenDescriptors()) {
        if (name == folder_.path()) replaced += dup2(ends[0], number) == number;
      }
    };
    EXPECT_EQ(Set("A", 1), 0);
  }
  EXPECT_EQ(replaced, 2);
  EXPECT_EQ(Get("A"), 1u);
  for (const int end : ends) close(end);
}

// While one lives, the process is a user whom the system has no home folder for.
class Homeless {
 public:
  Homeless() : is_(getuid() == 0 && setreuid(kUser, static_cast<uid_t>(-1)) == 0) {
    for (const char* const name : {"HOME", "XDG_CONFIG_HOME"}) {
      const char* const value = getenv(name);
      if (value != nullptr) before_.emplace_back(name, value);
      unsetenv(name);
    }
  }
  ~Homeless() {
    if (is_ && setreuid(0, static_cast<uid_t>(-1)) != 0) ADD_FAILURE();
    unsetenv("HOME");
    for (const auto& [name, value] : before_) setenv(name.c_str(), value.c_str(), 1);
  }
  Homeless(const Homeless&) = delete;
  Homeless& operator=(const Homeless&) = delete;
  bool is() const { return is_; }

 private:
  static constexpr uid_t kUser = 54321;
  bool is_;
  std::vector<std::pair<std::string, std::string>> before_;
};

TEST_F(DefaultStorePlace, AUserWithoutAHomeHasNoStore) {
  const Homeless homeless;
  if (!homeless.is()) GTEST_SKIP() << "only root becomes another user";
  kxCFGSetDefaultStore(nullptr);
  MessageCapture capture;
  EXPECT_EQ(Get("A"), std::nullopt);
  EXPECT_NE(Set("A", 1), 0);
  ASSERT_EQ(capture.messages().size(), 2u);
  for (const auto& message : capture.messages()) {
    EXPECT_NE(message.text.find("the user has no home folder"), std::string::npos);
  }
  setenv("HOME", folder_.path().c_str(), 1);
  EXPECT_EQ(Get("A"), std::nullopt);
  EXPECT_EQ(Set("A", 1), 0);
  EXPECT_EQ(capture.messages().size(), 2u);
  EXPECT_TRUE(std::filesystem::exists(folder_ / ".config/tarnwick/settings.db"));
}

}  // namespace
}  // namespace qln::test
