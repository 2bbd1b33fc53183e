// The default store where a call of SQLite's fails, each one in turn: the told result, and nothing lost.

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <map>

#include "kxutil/default_store_support.h"
#include "kxutil/sqlite_calls.h"

namespace qln::test {
namespace {

namespace fs = std::filesystem;

// Each run flushes what it writes: in memory, where there is such a folder.
class InMemory {
 public:
  InMemory() {
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 1);
  }
  ~InMemory() { unsetenv("TMPDIR"); }
};

class DefaultStoreSqlite : private InMemory, public DefaultStoreTest {
 protected:
  using Files = std::map<std::string, Bytes>;

  Files FilesNow() const {
    Files files;
    for (const auto& entry : fs::directory_iterator(folder_.path()))
      files[entry.path().filename()] = ReadFile(entry.path());
    return files;
  }
  void PutBack(const Files& files) {
    for (const auto& entry : fs::directory_iterator(folder_.path())) fs::remove_all(entry.path());
    for (const auto& [name, bytes] : files) WriteFile(folder_ / name, bytes);
    // As a process that has not seen the store yet.
    kxCFGSetDefaultStore("/nonexistent");
    Reopen();
  }
  // Stores in which K is 1, in each form that a store is found in.
  std::map<std::string, Files> Stores() {
    std::map<std::string, Files> stores;
    EXPECT_EQ(Set("K", 1), 0);
    stores["whole"] = FilesNow();
    PutBack({});
    MakeEarlierStore({"K", "L"});
    stores["earlier"] = FilesNow();
    {
      Tool tool(path());
      EXPECT_TRUE(tool.Run("PRAGMA journal_mode = WAL; UPDATE settings SET value = 1"));
      stores["with a log"] = FilesNow();
    }
    PutBack(stores["earlier"]);
    {
      Tool tool(path());
      EXPECT_TRUE(
          tool.Run("PRAGMA cache_size = 1; PRAGMA cache_spill = 1; BEGIN EXCLUSIVE; "
                   "UPDATE settings SET value = 7"));
      stores["with a journal"] = FilesNow();
    }
    return stores;
  }

  // Runs `work` with the first, the second, ... call failing; `judge` is told whether one did.
  void ForEachCall(const Files& files, int code, int systemError, const std::function<void()>& work,
                   const std::function<void(bool)>& judge) {
    const MessageCapture capture;
    for (int64_t at = 1;; ++at) {
      PutBack(files);
      SCOPED_TRACE(std::to_string(code) + " " + std::to_string(at));
      bool fired = false;
      {
        const SqliteFault fault(code, at, systemError);
        work();
        fired = SqliteFault::fired();
      }
      kxCFGSetDefaultStore("/nonexistent");
      Reopen();
      judge(fired);
      if (HasFailure()) return;
      if (fired) continue;
      EXPECT_GT(at, 5) << "calls that fail";
      return;
    }
  }
  // What was taken for damaged is there, under another name: as it was, or with its log worked in.
  bool IsSetAside(const Files& files) const {
    for (const std::string& name : SetAside()) {
      if (ReadFile(name) == files.at("settings.db")) return true;
      if (Tool(name).Ask("SELECT value FROM settings WHERE key = CAST('K' AS BLOB)") == "1") return true;
    }
    return false;
  }

  void ExpectAChangeOrNot(int code, const std::string& only, const std::function<int32_t()>& change,
                          std::optional<uint32_t> changed) {
    for (const auto& store : Stores()) {
      const std::string& kind = store.first;
      const Files& files = store.second;
      if (!only.empty() && kind != only) continue;
      SCOPED_TRACE(kind);
      int32_t result = 0;
      ForEachCall(
          files, code, 0, [&] { result = change(); },
          [&](bool fired) {
            EXPECT_TRUE(result == 0 || fired);
            const std::optional<uint32_t> now = Get("K");
            const bool isOld = now == 1u;
            if (result == 0) {
              EXPECT_EQ(now, changed);
            } else {
              EXPECT_TRUE(isOld || IsSetAside(files));
            }
            EXPECT_TRUE(SetAside().empty() || (code == SQLITE_CORRUPT && IsSetAside(files)));
          });
    }
  }
};

TEST_F(DefaultStoreSqlite, AValueIsWrittenOrNot) {
  const auto set = [] { return Set("K", 2); };
  ExpectAChangeOrNot(SQLITE_NOMEM, "", set, 2);
}

TEST_F(DefaultStoreSqlite, AValueIsWrittenOrNotWhereSqliteSpeaksOfDamage) {
  ExpectAChangeOrNot(
      SQLITE_CORRUPT, "whole", [] { return Set("K", 2); }, 2);
}

// A disk that does not read is no damage.
TEST_F(DefaultStoreSqlite, WhatTheDiskDoesNotReadIsNotSetAside) {
  const Files files = Stores()["whole"];
  for (const int error : {EIO, ERANGE, ENXIO}) {
    ForEachCall(
        files, SQLITE_CORRUPT, error, [] { Get("K"); },
        [&](bool) { EXPECT_TRUE(SetAside().empty()) << error; });
  }
}

TEST_F(DefaultStoreSqlite, AValueIsRemovedOrNot) {
  ExpectAChangeOrNot(
      SQLITE_NOMEM, "whole", [] { return Remove("K"); }, std::nullopt);
}

TEST_F(DefaultStoreSqlite, ATextIsWrittenOrNot) {
  ExpectAChangeOrNot(
      SQLITE_NOMEM, "whole",
      [] {
        char text[] = "two";
        const int32_t result =
            kxCFGValueString(KX_DEFAULT_STORE, kSection, "L", text, nullptr, KX_CONFIG_WRITE);
        return result == 0 ? Set("K", 2) : result;
      },
      2);
}

TEST_F(DefaultStoreSqlite, AValueIsReadOrNot) {
  for (const int code : {SQLITE_NOMEM, SQLITE_CORRUPT}) {
    for (const auto& store : Stores()) {
      const std::string& kind = store.first;
      const Files& files = store.second;
      if (code == SQLITE_CORRUPT && kind != "whole") continue;
      SCOPED_TRACE(kind);
      std::optional<uint32_t> value, none;
      ForEachCall(
          files, code, 0,
          [&] {
            value = Get("K");
            none = Get("none");
          },
          [&](bool fired) {
            EXPECT_TRUE(value == 1u || (fired && value == std::nullopt));
            EXPECT_EQ(none, std::nullopt);
            EXPECT_TRUE(Get("K") == 1u || (code == SQLITE_CORRUPT && IsSetAside(files)));
          });
    }
  }
}

// Somebody else has the log for a moment.
TEST_F(DefaultStoreSqlite, ALockedLogIsWaitedFor) {
  const Files files = Stores()["with a log"];
  for (const int code : {SQLITE_BUSY, SQLITE_LOCKED}) {
    int32_t result = 0;
    ForEachCall(
        files, code, 0, [&] { result = Set("K", 2); },
        [&](bool fired) {
          EXPECT_TRUE(result == 0 || fired);
          if (result == 0) {
            EXPECT_EQ(Get("K"), 2u);
          } else {
            EXPECT_TRUE(Get("K") == 1u || IsSetAside(files));
          }
        });
  }
}

TEST_F(DefaultStoreSqlite, AConnectionThatTellsNoFileIsATrouble) {
  const std::map<std::string, Files> stores = Stores();
  for (const bool hasFile : {false, true}) {
    for (const auto& store : stores) {
      const std::string& kind = store.first;
      const Files& files = store.second;
      PutBack(files);
      const MessageCapture capture;
      {
        const NoSqliteFile none(hasFile);
        EXPECT_NE(Set("K", 2), 0) << kind;
      }
      Reopen();
      EXPECT_EQ(Get("K"), 1u) << kind;
      EXPECT_TRUE(SetAside().empty());
    }
  }
}

}  // namespace
}  // namespace qln::test
