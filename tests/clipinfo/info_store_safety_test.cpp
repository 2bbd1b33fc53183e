// A record's defaults in the default store when others use it, or it is damaged: nothing that a user has set
// is lost.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "clipinfo/clip_info_support.h"
#include "kxutil/child_process.h"
#include "kxutil/default_store_support.h"

namespace qln::test {
namespace {

constexpr char kDefaults[] = "Tarnwick\\MetaData\\Default";
constexpr char kMetaData[] = "Tarnwick\\MetaData";

class InfoStoreSafety : public DefaultStoreTest {
 protected:
  // What the user has: a title, and the key without which a read seeds.
  void SetUserValues() {
    ASSERT_EQ(SetText(KX_DEFAULT_STORE, kDefaults, "Title", "Dawn"), 0);
    ASSERT_EQ(SetNumber(KX_DEFAULT_STORE, kMetaData, "XMLDisable", 1), 0);
  }
};

TEST_F(InfoStoreSafety, AReadOfALockedStoreReadsAndDeletesNothing) {
  SetUserValues();
  Tool tool(path());
  ASSERT_TRUE(tool.Run("BEGIN EXCLUSIVE"));
  Reopen();
  Record record;
  MessageCapture capture;
  qlnInfoReadReg(&record.info, 1, 0);
  EXPECT_EQ(record.text(8), "Dawn");
  ASSERT_TRUE(tool.Run("ROLLBACK"));
  EXPECT_EQ(GetText(KX_DEFAULT_STORE, kDefaults, "Title"), "Dawn");
  EXPECT_TRUE(capture.messages().empty());
}

TEST_F(InfoStoreSafety, AProbeThatFailsForDamageSeedsNothing) {
  SetUserValues();
  Bytes bytes = ReadFile(path());
  const std::string key = "XMLDisable";
  const auto found = std::search(bytes.begin(), bytes.end(), key.begin(), key.end());
  ASSERT_NE(found, bytes.end());
  for (const size_t at : {size_t{3}, key.size()}) {  // in the key, and in what stands behind it
    Bytes damaged = bytes;
    damaged[static_cast<size_t>(found - bytes.begin()) + at] ^= 0x10;
    WriteFile(path(), damaged);
    Reopen();
    Record record;
    record.setText(9, "the program's own");
    MessageCapture capture;
    qlnInfoReadReg(&record.info, 1, 0);
    EXPECT_EQ(capture.messages().size(), 1u);
    EXPECT_EQ(ReadFile(path()), damaged);
    EXPECT_EQ(GetText(KX_DEFAULT_STORE, kDefaults, "Title"), "Dawn");
  }
}

TEST_F(InfoStoreSafety, AStoreThatMayNotBeReadIsNotSeeded) {
  SetUserValues();
  std::filesystem::permissions(folder_.path(), std::filesystem::perms::all);
  if (chown(path().c_str(), kNobody, kNobody) != 0) GTEST_SKIP() << "only root gives files away";
  std::filesystem::permissions(path(), std::filesystem::perms::none);
  const Bytes before = ReadFile(path());
  const int code = ExitCodeAsNobody([this] {
    Reopen();
    Record record;
    MessageCapture capture;
    qlnInfoReadReg(&record.info, 1, 0);
    return capture.messages().size() == 1 ? 0 : 1;
  });
  if (code == kCannotDropRights) GTEST_SKIP() << "rights cannot be dropped here";
  EXPECT_EQ(code, 0);
  EXPECT_EQ(ReadFile(path()), before);
}

TEST_F(InfoStoreSafety, OthersSeeARecordWhole) {
  const auto write = [](uint32_t value) {
    Record record;
    for (size_t i = 0; i < kSlots; ++i) record.setText(i, std::to_string(value));
    for (size_t i = 0; i < kNumbers; ++i) *record.number(i) = value;
    qlnInfoWriteReg(&record.info, 1, 0);
  };
  const auto start = std::chrono::steady_clock::now();
  write(1);
  const std::chrono::duration<double, std::milli> first = std::chrono::steady_clock::now() - start;
  std::printf("a full record takes %.1f ms\n", first.count());
  const pid_t writer = InChild([&] {
    for (uint32_t i = 2;; ++i) write(i);
    return 1;
  });
  const std::string copy = folder_ / "copy.db";
  std::set<std::string> seen;
  for (int i = 0; i < 60; ++i) {
    WriteFile(copy, ReadFile(path()));
    Tool tool(copy);
    ASSERT_EQ(tool.Ask("SELECT count(*) FROM settings"), "142");
    ASSERT_EQ(tool.Ask("SELECT count(DISTINCT CAST(value AS TEXT)) FROM settings"), "1");
    seen.insert(tool.Ask("SELECT CAST(value AS TEXT) FROM settings"));
    usleep(2000);
  }
  kill(writer, SIGKILL);
  EXPECT_EQ(ExitCodeOf(writer), 1000 + SIGKILL);
  EXPECT_GT(seen.size(), 1u);
}

}  // namespace
}  // namespace qln::test
