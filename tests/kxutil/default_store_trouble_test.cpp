// What a damaged or unreadable default store is told with, and where it goes on file systems that refuse.

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "kxutil/child_process.h"
#include "kxutil/default_store_support.h"
#include "support/refused_calls.h"

namespace qln::test {
namespace {

class DefaultStoreTrouble : public DefaultStoreTest {
 protected:
  // SQLite file format, 1.3 and 1.6: the last byte of the count of free pages, and the kind of the first
  // page.
  static constexpr size_t kFreePages = 39, kPageKind = 100;

  // Puts a wrong byte into the file, or into the text of its table; gives what is there then.
  Bytes Spoil(size_t at, uint8_t byte) {
    Bytes bytes = ReadFile(path());
    bytes[at] = byte;
    WriteFile(path(), bytes);
    Reopen();
    return bytes;
  }
  Bytes SpoilTable() {
    const Bytes bytes = ReadFile(path());
    const std::string_view table = "TABLE settings";
    const auto found = std::search(bytes.begin(), bytes.end(), table.begin(), table.end());
    EXPECT_NE(found, bytes.end());
    return Spoil(static_cast<size_t>(found - bytes.begin()), 'X');
  }
};

// The schema cannot be read, and what SQLite says of it is told.
TEST_F(DefaultStoreTrouble, AStoreWhoseSchemaIsDamagedIsSetAside) {
  for (const bool text : {false, true}) {
    ASSERT_EQ(Set("A", 1), 0);
    const Bytes damaged = text ? SpoilTable() : Spoil(kPageKind, 0x77);
    {
      MessageCapture capture;
      EXPECT_EQ(Get("A"), std::nullopt);
      ASSERT_EQ(capture.messages().size(), 1u);
      EXPECT_EQ(capture.messages()[0].text.find("malformed database schema") != std::string::npos, text);
      EXPECT_EQ(ReadFile(path()), damaged);
    }
    Reopen();
    MessageCapture capture;
    EXPECT_EQ(Set("A", 2), 0);
    EXPECT_EQ(Get("A"), 2u);
    EXPECT_EQ(capture.messages().size(), 1u);
    ASSERT_EQ(SetAside().size(), 1u);
    EXPECT_EQ(ReadFile(SetAside()[0]), damaged);
    std::filesystem::remove(SetAside()[0]);
  }
}

TEST_F(DefaultStoreTrouble, ADamagedStoreIsSetAsideByWhatTheFileSystemKnows) {
  for (const bool renames : {true, false}) {
    ASSERT_EQ(Set("A", 1), 0);
    const Bytes damaged = Spoil(kFreePages, 1);
    // No renaming that leaves what is there; then none at all.
    RefusedCalls calls = {{SYS_renameat2, EINVAL}};
    if (!renames) calls.emplace_back(SYS_rename, EPERM);
    const bool refused = RunWithout(calls, [&] {
      MessageCapture capture;
      EXPECT_EQ(Set("A", 2) == 0, renames);
      ASSERT_EQ(capture.messages().size(), 1u);
      EXPECT_EQ(capture.messages()[0].text.find(std::strerror(EPERM)) == std::string::npos, renames);
    });
    if (!refused) GTEST_SKIP() << "calls cannot be refused here";
    EXPECT_EQ(SetAside().size(), renames ? 1u : 0u);
    EXPECT_EQ(ReadFile(renames ? SetAside()[0] : path()), damaged);
    for (const std::string& name : SetAside()) std::filesystem::remove(name);
  }
}

TEST_F(DefaultStoreTrouble, ADamagedStoreStaysWhereItsFolderCannotBeOpened) {
  ASSERT_EQ(Set("A", 1), 0);
  const Bytes damaged = Spoil(kFreePages, 1);
  chmod(path().c_str(), 0666);
  chmod(folder_.path().c_str(), 0333);
  const int code = ExitCodeAsNobody([this] {
    Reopen();
    MessageCapture capture;
    if (Set("A", 2) == 0) return 1;
    if (capture.messages().size() != 1) return 2;
    return capture.messages()[0].text.find(std::strerror(EACCES)) != std::string::npos ? 0 : 3;
  });
  chmod(folder_.path().c_str(), 0700);
  if (code == kCannotDropRights) GTEST_SKIP() << "rights cannot be dropped here";
  EXPECT_EQ(code, 0);
  EXPECT_EQ(ReadFile(path()), damaged);
  EXPECT_TRUE(SetAside().empty());
}

// A journal that cannot be read leaves nobody knowing what is committed.
TEST_F(DefaultStoreTrouble, AStoreWhoseJournalCannotBeReadIsNotReadAndTheReasonIsTold) {
  ASSERT_EQ(Set("A", 1), 0);
  std::filesystem::create_directory(path() + "-journal");
  Reopen();
  MessageCapture capture;
  EXPECT_EQ(Get("A"), std::nullopt);
  ASSERT_EQ(capture.messages().size(), 1u);
  EXPECT_NE(capture.messages()[0].text.find(std::strerror(EISDIR)), std::string::npos);
  std::filesystem::remove(path() + "-journal");
  EXPECT_EQ(Get("A"), 1u);
}

}  // namespace
}  // namespace qln::test
