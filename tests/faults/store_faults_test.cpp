// Settings stores that somebody left in the middle of something, with each call failing once: a log or a
// journal beside the file, the form without checksums, damage, and folders that are not there yet.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "faults/library_faults.h"
#include "kxutil/kxutil.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

// The table as it was before there were checksums.
constexpr char kEarlierTable[] =
    "CREATE TABLE settings (section BLOB NOT NULL, key BLOB NOT NULL, value NOT NULL, "
    "PRIMARY KEY (section, key)) WITHOUT ROWID";

class StoreFaults : public LibraryFaults {
 protected:
  using Files = std::map<std::string, Bytes>;

  std::string path() const { return PathOf("settings.db"); }
  void Empty() {
    for (const auto& entry : fs::directory_iterator(folder_)) fs::remove_all(entry.path());
  }
  Files FilesNow() const {
    Files files;
    for (const auto& entry : fs::directory_iterator(folder_))
      files[entry.path().filename()] = ReadFile(entry.path());
    return files;
  }
  // As a process that has not seen the store yet.
  void PutBack(const Files& files) {
    Empty();
    for (const auto& [name, bytes] : files) WriteFile(PathOf(name.c_str()), bytes);
    Reopen();
  }
  void Reopen() {
    kxCFGSetDefaultStore("/nonexistent");
    kxCFGSetDefaultStore(path().c_str());
  }
  // The files as another tool leaves them that is killed behind these statements.
  Files LeftBehind(const std::string& statements) {
    sqlite3* tool = nullptr;
    EXPECT_EQ(sqlite3_open(path().c_str(), &tool), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(tool, statements.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(tool);
    const Files files = FilesNow();
    sqlite3_close(tool);
    return files;
  }
  // A store of the earlier form whose texts are "old", enough of them for several pages.
  std::string EarlierStore() {
    std::string statements = std::string(kEarlierTable) + ";";
    for (int i = 0; i < 200; ++i) {
      statements += std::string("INSERT INTO settings VALUES (CAST('") + kSection + "' AS BLOB), CAST('K" +
                    std::to_string(i) + "' AS BLOB), CAST('old' AS BLOB));";
    }
    return statements;
  }
  // A store with "new" in its log, and one with half of a change to "half" in its file.
  Files WithLog() {
    return LeftBehind(EarlierStore() +
                      "PRAGMA journal_mode = WAL; UPDATE settings SET value = CAST('new' AS BLOB)");
  }
  Files WithJournal() {
    return LeftBehind(EarlierStore() +
                      "PRAGMA cache_size = 1; PRAGMA cache_spill = 1; BEGIN EXCLUSIVE; "
                      "UPDATE settings SET value = CAST('half' AS BLOB)");
  }
  static int32_t Set(const char* key, const char* value) {
    char text[16];
    std::strcpy(text, value);
    return kxCFGValueString(KX_DEFAULT_STORE, kSection, key, text, nullptr, KX_CONFIG_WRITE);
  }

  // Reading a key gives what is committed, or nothing where a call failed; what is committed stays.
  void ExpectReads(const Files& files, const char* key, const std::string& committed) {
    static char found[64];
    int32_t result = 0;
    ForEachFault([&] { PutBack(files); },
                 [&] {
                   uint32_t size = sizeof found;
                   result = kxCFGValueString(KX_DEFAULT_STORE, kSection, key, found, &size, KX_CONFIG_READ);
                 },
                 [&](bool fired) {
                   EXPECT_TRUE(result == 0 ? found == committed : fired) << result << " " << found;
                   Reopen();
                   EXPECT_EQ(TextIn(KX_DEFAULT_STORE, key), committed);
                 });
  }
};

TEST_F(StoreFaults, AStoreWithALogIsReadOrNot) { ExpectReads(WithLog(), "K7", "new"); }
TEST_F(StoreFaults, AStoreWithAJournalIsReadOrNot) { ExpectReads(WithJournal(), "K7", "old"); }

TEST_F(StoreFaults, AGroupOfChangesIsMadeAsAWholeOrNot) {
  const Files files = LeftBehind(EarlierStore());
  int32_t result = 0;
  ForEachFault([&] { PutBack(files); },
               [&] {
                 result = kxCFGBegin(KX_DEFAULT_STORE);
                 if (result != 0) return;
                 const int32_t first = Set("K1", "changed"), second = Set("K2", "changed");
                 result = kxCFGEnd(KX_DEFAULT_STORE);
                 if (first != 0 || second != 0) result = -1;
               },
               [&](bool fired) {
                 EXPECT_TRUE(result == 0 || fired);
                 Reopen();
                 const std::string first = TextIn(KX_DEFAULT_STORE, "K1");
                 EXPECT_TRUE(first == "changed" || (result != 0 && first == "old")) << first;
                 EXPECT_TRUE(result != 0 || TextIn(KX_DEFAULT_STORE, "K2") == "changed");
               });
}

// What was damaged is lost by nobody: it stands where it was or was set aside.
TEST_F(StoreFaults, ADamagedStoreIsSetAsideOrStays) {
  Files files = LeftBehind(EarlierStore());
  Bytes& damaged = files["settings.db"];
  damaged[100] = 0x77;  // SQLite file format, 1.6: the kind of the first page
  int32_t result = 0;
  ForEachFault([&] { PutBack(files); }, [&] { result = Set("K7", "changed"); },
               [&](bool fired) {
                 EXPECT_TRUE(result == 0 || fired);
                 bool kept = false;
                 for (const auto& [name, bytes] : FilesNow())
                   kept = kept || (name.starts_with("settings.db") && bytes == damaged);
                 EXPECT_TRUE(kept);
                 if (result != 0) return;
                 Reopen();
                 EXPECT_EQ(TextIn(KX_DEFAULT_STORE, "K7"), "changed");
               });
}

TEST_F(StoreFaults, AStoreThatIsNotThereIsMadeWithItsFoldersOrNot) {
  const std::string deep = PathOf("a/b/settings.db");
  int32_t result = 0;
  ForEachFault(
      [&] {
        Empty();
        kxCFGSetDefaultStore(deep.c_str());
      },
      [&] { result = Set("Title", "new"); },
      [&](bool fired) {
        EXPECT_TRUE(result == 0 || fired);
        kxCFGSetDefaultStore("/nonexistent");
        kxCFGSetDefaultStore(deep.c_str());
        const std::string now = TextIn(KX_DEFAULT_STORE, "Title");
        EXPECT_TRUE(now == "new" || (result != 0 && now == "absent")) << result << " " << now;
      });
}

// A block is there with its size, or there is none.
TEST_F(StoreFaults, ABlockIsThereWithItsSizeOrNot) {
  constexpr size_t kBlocks = 3000;
  static void* blocks[kBlocks];
  ForEachFault([] {},
               [&] {
                 for (size_t i = 0; i < kBlocks; ++i) blocks[i] = KXAlloc(i + 1);
               },
               [&](bool fired) {
                 bool all = true;
                 for (size_t i = 0; i < kBlocks; ++i) {
                   all = all && blocks[i] != nullptr;
                   if (blocks[i] == nullptr) continue;
                   EXPECT_EQ(KXAllocSize(blocks[i]), i + 1);
                   KXFree(blocks[i]);
                   EXPECT_EQ(KXAllocSize(blocks[i]), 0u);
                 }
                 EXPECT_TRUE(all || fired);
               });
}

}  // namespace
}  // namespace qln::test
