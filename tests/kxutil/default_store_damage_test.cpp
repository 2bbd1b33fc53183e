// Damage to the default store: single values, the structure around them, and files that cannot be read at
// all.

#include <sys/stat.h>

#include <algorithm>

#include "kxutil/child_process.h"
#include "kxutil/crc64.h"
#include "kxutil/default_store_support.h"

namespace qln::test {
namespace {

class DefaultStoreDamage : public DefaultStoreTest {
 protected:
  void Put(const Bytes& bytes) {
    WriteFile(path(), bytes);
    Reopen();
  }
  // Replaces one text in the file by another of its length.
  void Patch(const std::string& from, const std::string& to) {
    Bytes bytes = ReadFile(path());
    const auto found = std::search(bytes.begin(), bytes.end(), from.begin(), from.end());
    ASSERT_NE(found, bytes.end()) << from;
    std::copy(to.begin(), to.end(), found);
    Put(bytes);
  }
  std::optional<std::string> GetTextOf(const char* key) { return GetText(KX_DEFAULT_STORE, kSection, key); }
  int32_t SetTextOf(const char* key, const std::string& text) {
    return SetText(KX_DEFAULT_STORE, kSection, key, text);
  }
};

TEST(Crc64, GivesThePublishedCheckValue) {
  Crc64 crc;
  crc.Add("123456789");
  EXPECT_EQ(crc.value(), 0x995DC9BBDF1939FAu);
}

// Whatever byte is wrong: a value is the one that was written, or absent with a message; and what a change
// has told as done is there.
TEST_F(DefaultStoreDamage, NoWrongByteGivesAnotherValue) {
  const std::string dawn = "Dawn over the harbour", dusk = "Dusk over the harbour";
  ASSERT_EQ(SetTextOf("Title", dawn), 0);
  ASSERT_EQ(SetTextOf("Titie", dusk), 0);
  ASSERT_EQ(Set("Number", 0x12345678), 0);
  ASSERT_EQ(SetText(KX_DEFAULT_STORE, "Tarnwick\\Other", "Title", dusk), 0);
  const Bytes whole = ReadFile(path());
  Random random(2);
  size_t absences = 0, asides = 0;
  for (size_t at = 0; at < whole.size(); at += 1 + random.below(whole[at] != 0 ? 2 : 80)) {
    Bytes bytes = whole;
    bytes[at] = static_cast<uint8_t>(bytes[at] ^ (1 + random.below(255)));
    Put(bytes);
    MessageCapture capture;
    const std::optional<std::string> title = GetTextOf("Title"), titie = GetTextOf("Titie"),
                                     other = GetText(KX_DEFAULT_STORE, "Tarnwick\\Other", "Title");
    const std::optional<uint32_t> number = Get("Number");
    ASSERT_EQ(title.value_or(dawn), dawn) << at;
    ASSERT_EQ(titie.value_or(dusk), dusk) << at;
    ASSERT_EQ(other.value_or(dusk), dusk) << at;
    ASSERT_EQ(number.value_or(0x12345678), 0x12345678u) << at;
    const bool complete = title && titie && other && number;
    ASSERT_EQ(capture.messages().empty(), complete) << at;
    absences += complete ? 0 : 1;
    ASSERT_EQ(ReadFile(path()), bytes) << at;  // reading changes nothing

    Reopen();
    const bool done = Set("New", 5) == 0;
    const std::vector<std::string> aside = SetAside();
    ASSERT_LE(aside.size(), 1u) << at;
    if (done) {
      ASSERT_EQ(Get("New"), 5u) << at;
    }
    if (!aside.empty()) {
      ASSERT_EQ(ReadFile(aside[0]), bytes) << at;
      std::filesystem::remove(aside[0]);
      ++asides;
    } else if (done) {
      ASSERT_EQ(GetTextOf("Title"), title) << at;
      ASSERT_EQ(GetTextOf("Titie"), titie) << at;
      ASSERT_EQ(Get("Number"), number) << at;
    } else {
      ASSERT_EQ(ReadFile(path()), bytes) << at;
    }
  }
  EXPECT_GT(absences, 100u);
  EXPECT_GT(asides, 50u);
}

TEST_F(DefaultStoreDamage, ADamagedValueIsToldOnceAndAbsentAndTheOthersGoOn) {
  ASSERT_EQ(SetTextOf("Title", "Dawn"), 0);
  ASSERT_EQ(Set("Number", 7), 0);
  Patch("Dawn", "Down");
  MessageCapture capture;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(GetTextOf("Title"), std::nullopt);
    EXPECT_NE(kxCFGValueDword(KX_DEFAULT_STORE, kSection, "Title", nullptr, 0), 0);
    EXPECT_EQ(Get("Number"), 7u);
  }
  EXPECT_EQ(Set("Number", 8), 0);
  EXPECT_EQ(GetTextOf("Title"), std::nullopt);
  ASSERT_EQ(capture.messages().size(), 1u);
  EXPECT_NE(capture.messages()[0].text.find("Title"), std::string::npos);
  EXPECT_TRUE(SetAside().empty());
  EXPECT_EQ(Get("Number"), 8u);
  EXPECT_EQ(SetTextOf("Title", "Dusk"), 0);
  EXPECT_EQ(GetTextOf("Title"), "Dusk");
}

// A row's checksum covers its names: a value under a wrong name is nobody's.
TEST_F(DefaultStoreDamage, AValueUnderAnotherNameIsNobodys) {
  ASSERT_EQ(SetTextOf("Title", "Dawn"), 0);
  Patch("TitleDawn", "TitieDawn");
  MessageCapture capture;
  EXPECT_EQ(GetTextOf("Titie"), std::nullopt);
  EXPECT_EQ(GetTextOf("Title"), std::nullopt);
  EXPECT_FALSE(capture.messages().empty());
}

// Nobody knows whether the key that is not found is the damaged one: such a read is no proof that it is
// absent, and the process must not go on as if it were.
TEST_F(DefaultStoreDamage, AfterAReadThatDamageMadeFailChangesWaitForOneThatSucceeds) {
  ASSERT_EQ(SetTextOf("Title", "Dawn"), 0);
  ASSERT_EQ(Set("XMLDisable", 0), 0);
  for (const auto& [from, to] :
       {std::pair("XMLDisable", "XMLDisablf"), std::pair("TitleDawn", "TitleDown")}) {
    const Bytes whole = ReadFile(path());
    Patch(from, to);
    const Bytes damaged = ReadFile(path());
    MessageCapture capture;
    EXPECT_EQ(Get(std::string(from) == "XMLDisable" ? "XMLDisable" : "Title"), std::nullopt);
    EXPECT_NE(Set("Number", 1), 0);
    EXPECT_NE(Remove("Title"), 0);
    ASSERT_EQ(kxCFGBegin(KX_DEFAULT_STORE), 0);
    Remove("Title");
    EXPECT_NE(kxCFGEnd(KX_DEFAULT_STORE), 0);
    EXPECT_EQ(ReadFile(path()), damaged);
    EXPECT_EQ(capture.messages().size(), 1u);
    if (std::string(from) == "XMLDisable") {
      EXPECT_EQ(GetTextOf("Title"), "Dawn");
    } else {
      EXPECT_EQ(Get("XMLDisable"), 0u);
    }
    EXPECT_EQ(Set("Number", 1), 0);
    Put(whole);
  }
}

TEST_F(DefaultStoreDamage, AStoreWithoutRightsTakesNoChangesUntilItWasRead) {
  ASSERT_EQ(Set("A", 1), 0);
  chmod(folder_.path().c_str(), 0777);
  if (chown(path().c_str(), kNobody, kNobody) != 0) GTEST_SKIP() << "only root gives files away";
  const Bytes before = ReadFile(path());
  const int code = ExitCodeAsNobody([this] {
    Reopen();
    chmod(path().c_str(), 0);
    MessageCapture capture;
    if (Get("A")) return 1;
    if (Set("A", 2) == 0 || Remove("A") == 0) return 2;
    if (capture.messages().size() != 1) return 3;
    chmod(path().c_str(), 0600);
    if (Set("A", 2) == 0) return 4;  // it has not been read yet
    if (Get("A") != 1u) return 5;
    return Set("A", 3) == 0 && Get("A") == 3u ? 0 : 6;
  });
  if (code == kCannotDropRights) GTEST_SKIP() << "rights cannot be dropped here";
  EXPECT_EQ(code, 0);
  EXPECT_NE(ReadFile(path()), before);
}

TEST_F(DefaultStoreDamage, AnEarlierStoreIsReadAsItIsAndGetsChecksumsWithTheFirstChange) {
  MakeEarlierStore({"A", "B", "C"});
  const Bytes before = ReadFile(path());
  MessageCapture capture;
  EXPECT_EQ(Get("B"), 2u);
  EXPECT_EQ(Get("Never"), std::nullopt);
  EXPECT_EQ(Set("B", 2), 0);  // as it is
  EXPECT_EQ(Remove("Never"), 0);
  EXPECT_EQ(ReadFile(path()), before);
  EXPECT_EQ(Set("D", 4), 0);
  Reopen();
  uint32_t value = 0;
  for (const char* const key : {"A", "B", "C", "D"}) EXPECT_EQ(Get(key), ++value);
  EXPECT_EQ(Tool(path()).Ask("SELECT count(*) FROM settings WHERE typeof(sum) = 'integer'"), "4");
  EXPECT_EQ(Tool(path()).Ask("PRAGMA integrity_check"), "ok");
  const std::string madeAnew = folder_ / "new.db";
  kxCFGSetDefaultStore(madeAnew.c_str());
  Set("A", 1);
  const char* const table = "SELECT sql FROM sqlite_schema";
  EXPECT_EQ(Tool(path()).Ask(table), Tool(madeAnew).Ask(table));
  EXPECT_TRUE(capture.messages().empty());
}

TEST_F(DefaultStoreDamage, WhatElseAToolKeepsInTheFileStays) {
  ASSERT_EQ(Set("A", 1), 0);
  ASSERT_TRUE(Tool(path()).Run("CREATE TABLE mine (x); INSERT INTO mine VALUES (5)"));
  EXPECT_EQ(Set("A", 3), 0);
  EXPECT_EQ(Tool(path()).Ask("SELECT x FROM mine"), "5");
}

// Damage can make a row look as if it had no checksum; so none is taken without.
TEST_F(DefaultStoreDamage, ARowWithoutAChecksumIsDamaged) {
  ASSERT_EQ(Set("A", 1), 0);
  ASSERT_TRUE(Tool(path()).Run("UPDATE settings SET sum = NULL"));
  MessageCapture capture;
  EXPECT_EQ(Get("A"), std::nullopt);
  EXPECT_EQ(capture.messages().size(), 1u);
}

// A name whose kind is damaged is found by nobody.
TEST_F(DefaultStoreDamage, ANameOfTheWrongKindIsDamage) {
  ASSERT_EQ(Set("A", 1), 0);
  ASSERT_TRUE(Tool(path()).Run("UPDATE settings SET section = CAST(section AS TEXT)"));
  MessageCapture capture;
  EXPECT_EQ(Get("A"), std::nullopt);
  EXPECT_EQ(capture.messages().size(), 1u);
}

// The mark in the header tells a store of ours from another database whose table looks different.
TEST_F(DefaultStoreDamage, AStoreWithADamagedTableIsSetAside) {
  ASSERT_EQ(Set("A", 1), 0);
  Patch("NOT NULL, value NOT", "NOT NULL, valve NOT");
  const Bytes damaged = ReadFile(path());
  MessageCapture capture;
  EXPECT_EQ(Set("A", 2), 0);
  EXPECT_EQ(Get("A"), 2u);
  ASSERT_EQ(SetAside().size(), 1u);
  EXPECT_EQ(ReadFile(SetAside()[0]), damaged);
}

// Rows out of order are whole as pages, but a search misses them: a change must not be told as done in there.
TEST_F(DefaultStoreDamage, AStoreOutOfOrderIsSetAsideWithOneMessage) {
  for (const bool earlier : {true, false}) {
    std::filesystem::remove(path());
    if (earlier) {
      MakeEarlierStore({"Aaa", "Bbb", "Ccc", "Ddd"});
    } else {
      for (const char* const key : {"Aaa", "Bbb", "Ccc", "Ddd"}) ASSERT_EQ(Set(key, 1), 0);
    }
    Patch("Bbb", "Zbb");
    const Bytes damaged = ReadFile(path());
    for (int round = 0; round < 2; ++round) {  // the second time in the same second
      Put(damaged);
      MessageCapture capture;
      EXPECT_EQ(Set("Ccc", 5), 0);
      EXPECT_EQ(Get("Ccc"), 5u);
      EXPECT_EQ(Get("Aaa"), std::nullopt);
      ASSERT_EQ(capture.messages().size(), 1u);
      const std::vector<std::string> aside = SetAside();
      ASSERT_EQ(aside.size(), static_cast<size_t>(round) + 1);
      EXPECT_NE(capture.messages()[0].text.find("settings.db.damaged-"), std::string::npos);
      for (const std::string& name : aside) EXPECT_EQ(ReadFile(name), damaged);
    }
    for (const std::string& name : SetAside()) std::filesystem::remove(name);
  }
}

// A name that became a text stands behind the blobs, where the order has all texts in front of them.
TEST_F(DefaultStoreDamage, ANameOfTheWrongKindInTheWrongPlaceSetsTheStoreAside) {
  constexpr uint8_t kBlobOfThree = 18, kTextOfThree = 19;  // SQLite file format, 2.1: serial types
  MakeEarlierStore({"Aaa", "Bbb", "Ccc", "Ddd"});
  Bytes damaged = ReadFile(path());
  const std::string names = std::string(kSection) + "Ddd";
  const auto found = std::search(damaged.begin(), damaged.end(), names.begin(), names.end());
  ASSERT_NE(found, damaged.end());
  uint8_t& kind = *(found - 2);  // in front of the value's
  ASSERT_EQ(kind, kBlobOfThree);
  kind = kTextOfThree;
  Put(damaged);
  MessageCapture capture;
  EXPECT_EQ(Set("Aaa", 5), 0);
  EXPECT_EQ(Get("Aaa"), 5u);
  ASSERT_EQ(SetAside().size(), 1u);
  EXPECT_EQ(ReadFile(SetAside()[0]), damaged);
  EXPECT_EQ(capture.messages().size(), 1u);
}

// A page that the file counts as free and that nobody can find is damage that no read of a key meets.
TEST_F(DefaultStoreDamage, AStoreWhosePagesDoNotAddUpIsSetAside) {
  ASSERT_EQ(Set("A", 1), 0);
  Bytes bytes = ReadFile(path());
  constexpr size_t kFreePages = 36;  // of the published header, big-endian
  ASSERT_EQ(bytes[kFreePages + 3], 0);
  bytes[kFreePages + 3] = 1;
  Put(bytes);
  MessageCapture capture;
  EXPECT_EQ(Get("A"), 1u);
  EXPECT_TRUE(capture.messages().empty());
  EXPECT_EQ(Set("A", 2), 0);
  EXPECT_EQ(Get("A"), 2u);
  EXPECT_EQ(capture.messages().size(), 1u);
  ASSERT_EQ(SetAside().size(), 1u);
  EXPECT_EQ(ReadFile(SetAside()[0]), bytes);
}

// A process that has met the damage in a read sets the store aside, but begins no new one in its place: what
// it wants to write may be what it took for absent.
TEST_F(DefaultStoreDamage, AfterAFailedReadADamagedStoreIsSetAsideAndNothingIsWritten) {
  MakeEarlierStore({"Aaa", "Bbb", "Ccc", "Ddd"});
  Patch("Bbb", "Zbb");
  const Bytes damaged = ReadFile(path());
  MessageCapture capture;
  EXPECT_EQ(Get("Ccd"), std::nullopt);
  EXPECT_EQ(capture.messages().size(), 1u);
  EXPECT_NE(Set("Ccd", 5), 0);
  ASSERT_EQ(SetAside().size(), 1u);
  EXPECT_EQ(ReadFile(SetAside()[0]), damaged);
  EXPECT_EQ(capture.messages().size(), 2u);
  EXPECT_NE(Set("Ccd", 5), 0);
  EXPECT_FALSE(std::filesystem::exists(path()));
  EXPECT_EQ(Get("Ccd"), std::nullopt);  // now it is absent
  EXPECT_EQ(Set("Ccd", 5), 0);
  EXPECT_EQ(Get("Ccd"), 5u);
}

TEST_F(DefaultStoreDamage, ADamagedStoreWithALogIsSetAsideWithIt) {
  MakeEarlierStore({"Aaa", "Bbb", "Ccc", "Ddd"});
  Patch("Bbb", "Zbb");
  const pid_t child = InChild([this] {
    Tool tool(path());
    if (!tool.Run("PRAGMA journal_mode = WAL; CREATE TABLE mine (x)")) return 1;
    _exit(0);  // without closing
    return 2;
  });
  ASSERT_EQ(ExitCodeOf(child), 0);
  const Bytes log = ReadFile(path() + "-wal");
  ASSERT_FALSE(log.empty());
  MessageCapture capture;
  EXPECT_EQ(Set("Ccc", 5), 0);
  EXPECT_EQ(Get("Ccc"), 5u);
  EXPECT_FALSE(std::filesystem::exists(path() + "-wal"));
  bool found = false;
  for (const std::string& name : SetAside()) {
    if (name.ends_with("-wal")) {
      found = true;
      EXPECT_EQ(ReadFile(name), log);
    }
  }
  EXPECT_TRUE(found);
}

TEST_F(DefaultStoreDamage, FilesThatWereNeverAStoreStayWhereTheyAre) {
  std::string text;
  while (text.size() < 5000) text += "This is a letter and no database. ";
  for (const std::string& other : {text, std::string("x"), std::string(50, 'y')}) {
    Put(Bytes(other.begin(), other.end()));
    MessageCapture capture;
    EXPECT_NE(Set("A", 1), 0);
    EXPECT_EQ(capture.messages().size(), 1u);
    EXPECT_EQ(ReadFile(path()), Bytes(other.begin(), other.end()));
    EXPECT_TRUE(SetAside().empty());
  }
  std::filesystem::remove(path());
  ASSERT_TRUE(Tool(path()).Run("CREATE TABLE settings (name, value)"));
  const Bytes foreign = ReadFile(path());
  MessageCapture capture;
  EXPECT_NE(Set("A", 1), 0);
  EXPECT_EQ(capture.messages().size(), 1u);
  EXPECT_EQ(ReadFile(path()), foreign);
}

TEST_F(DefaultStoreDamage, AStoreThatWasCutOffIsSetAside) {
  kxCFGBegin(KX_DEFAULT_STORE);
  for (int i = 0; i < 300; ++i) Set(("K" + std::to_string(i)).c_str(), 1);
  ASSERT_EQ(kxCFGEnd(KX_DEFAULT_STORE), 0);
  const Bytes whole = ReadFile(path());
  for (const size_t left : {size_t{60}, size_t{512}, size_t{4096}, whole.size() - 4096}) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(left));
    Put(cut);
    MessageCapture capture;
    EXPECT_EQ(Set("A", 1), 0) << left;
    EXPECT_EQ(Get("A"), 1u) << left;
    ASSERT_EQ(SetAside().size(), 1u) << left;
    EXPECT_EQ(ReadFile(SetAside()[0]), cut) << left;
    std::filesystem::remove(SetAside()[0]);
  }
}

}  // namespace
}  // namespace qln::test
