// What the tests of the default store share: a store in a folder of its own, looked at by another tool's
// connection as well.
#ifndef TESTS_KXUTIL_DEFAULT_STORE_SUPPORT_H
#define TESTS_KXUTIL_DEFAULT_STORE_SUPPORT_H

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "kxutil/kxutil.h"
#include "kxutil/store_test_support.h"
#include "support/test_support.h"

namespace qln::test {

// Another tool that has the database open.
class Tool {
 public:
  explicit Tool(const std::string& path) { EXPECT_EQ(sqlite3_open(path.c_str(), &database_), SQLITE_OK); }
  ~Tool() { sqlite3_close(database_); }
  Tool(const Tool&) = delete;
  Tool& operator=(const Tool&) = delete;

  bool Run(const std::string& text) {
    return sqlite3_exec(database_, text.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  // The first column of the first row.
  std::string Ask(const std::string& text) {
    std::string answer;
    sqlite3_exec(
        database_, text.c_str(),
        [](void* to, int, char** columns, char**) {
          *static_cast<std::string*>(to) = columns[0] != nullptr ? columns[0] : "NULL";
          return 1;
        },
        &answer, nullptr);
    return answer;
  }

 private:
  sqlite3* database_ = nullptr;
};

class DefaultStoreTest : public testing::Test {
 protected:
  static constexpr char kSection[] = "Tarnwick\\Test";
  // The table as it was before there were checksums.
  static constexpr char kEarlierTable[] =
      "CREATE TABLE settings (section BLOB NOT NULL, key BLOB NOT NULL, value NOT NULL, "
      "PRIMARY KEY (section, key)) WITHOUT ROWID";

  void SetUp() override { Reopen(); }
  void TearDown() override { kxCFGSetDefaultStore(nullptr); }
  std::string path() const { return folder_ / "settings.db"; }
  // As a process that has not seen the store yet.
  void Reopen() { kxCFGSetDefaultStore(path().c_str()); }

  static int32_t Set(const char* key, uint32_t value) {
    return SetNumber(KX_DEFAULT_STORE, kSection, key, value);
  }
  static std::optional<uint32_t> Get(const char* key) { return GetNumber(KX_DEFAULT_STORE, kSection, key); }
  static int32_t Remove(const char* key) { return kxCFGDeleteValue(KX_DEFAULT_STORE, kSection, key); }

  std::set<std::string> NamesInFolder() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path()))
      names.insert(entry.path().filename());
    return names;
  }
  // The files that damaged stores were set aside as.
  std::vector<std::string> SetAside() const {
    std::vector<std::string> found;
    for (const std::string& name : NamesInFolder()) {
      if (name.find("settings.db.damaged-") == 0) found.push_back(folder_ / name);
    }
    return found;
  }
  // A store of the earlier form, with these numbers in kSection.
  void MakeEarlierStore(const std::vector<std::string>& keys) {
    Tool tool(path());
    ASSERT_TRUE(tool.Run(kEarlierTable));
    int value = 0;
    for (const std::string& key : keys) {
      ASSERT_TRUE(tool.Run("INSERT INTO settings VALUES (CAST('" + std::string(kSection) +
                           "' AS BLOB), CAST('" + key + "' AS BLOB), " + std::to_string(++value) + ")"));
    }
  }

  TemporaryFolder folder_;
};

}  // namespace qln::test

#endif
