// The files of stores: where they are, whose they stay, and in which order they reach the disk.

#include <gtest/gtest.h>

#include <filesystem>

#include "kxutil/kxutil.h"
#include "kxutil/store_test_support.h"
#include "support/cpu_time.h"
#include "support/file_status.h"
#include "support/open_descriptors.h"
#include "support/sync_calls.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

namespace fs = std::filesystem;

constexpr char kSection[] = "Tarnwick\\Test";

class StoreFiles : public testing::Test {
 protected:
  std::string file() const { return folder_ / "User.xml"; }
  void Make(const std::string& path, const std::string& text) {
    WriteFile(path, Bytes(text.begin(), text.end()));
  }
  static int32_t Set(const std::string& path, const char* key, uint32_t value) {
    const KXConfigHandle store = kxCFGOpen(path.c_str(), 0);
    if (store == 0) return -1;
    SetNumber(store, kSection, key, value);
    return kxCFGClose(store, KX_CONFIG_SAVE);
  }
  static std::optional<uint32_t> Get(const std::string& path, const char* key) {
    const KXConfigHandle store = kxCFGOpen(path.c_str(), 0);
    const std::optional<uint32_t> value = GetNumber(store, kSection, key);
    kxCFGClose(store, KX_CONFIG_DISCARD);
    return value;
  }
  TemporaryFolder folder_;
};

TEST_F(StoreFiles, ARelativeNameCountsFromTheFolderOfTheOpening) {
  fs::create_directory(folder_ / "first");
  fs::create_directory(folder_ / "second");
  const fs::path before = fs::current_path();
  fs::current_path(folder_ / "first");
  const KXConfigHandle made = kxCFGOpen("User.xml", 0);
  const KXConfigHandle dropped = kxCFGOpen("./User.xml", 0);
  fs::current_path(folder_ / "second");
  SetNumber(made, kSection, "A", 1);
  EXPECT_EQ(kxCFGClose(made, KX_CONFIG_SAVE), 0);
  EXPECT_EQ(kxCFGClose(dropped, KX_CONFIG_SAVE), 0);
  fs::current_path(before);
  EXPECT_EQ(Get(folder_ / "first/User.xml", "A"), 1u);
  EXPECT_FALSE(fs::exists(folder_ / "second/User.xml"));
}

TEST_F(StoreFiles, WithoutAWorkingFolderARelativeNameDoesNotOpen) {
  fs::create_directory(folder_ / "gone");
  const fs::path before = fs::current_path();
  fs::current_path(folder_ / "gone");
  fs::remove(folder_ / "gone");
  MessageCapture capture;
  EXPECT_EQ(kxCFGOpen("User.xml", 0), 0);
  const KXConfigHandle store = kxCFGOpen(file().c_str(), 0);
  EXPECT_NE(store, 0) << "a name from the root on does";
  EXPECT_EQ(kxCFGClose(store, KX_CONFIG_DISCARD), 0);
  fs::current_path(before);
  EXPECT_EQ(capture.messages().size(), 1u);
}

TEST_F(StoreFiles, ADanglingLinkMakesItsTarget) {
  fs::create_directory(folder_ / "real");
  fs::create_symlink("real/User.xml", folder_ / "inner.xml");
  fs::create_symlink(folder_ / "inner.xml", file());
  EXPECT_EQ(Set(file(), "A", 1), 0);
  EXPECT_TRUE(fs::is_symlink(file()));
  EXPECT_TRUE(fs::is_symlink(folder_ / "inner.xml"));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder_ / "real/User.xml")));
  EXPECT_EQ(Get(folder_ / "real/User.xml", "A"), 1u);
  // The same link again, over what is there by now.
  EXPECT_EQ(Set(file(), "A", 2), 0);
  EXPECT_EQ(Get(folder_ / "real/User.xml", "A"), 2u);
}

TEST_F(StoreFiles, LinksThatLeadNowhereFailAndStay) {
  fs::create_symlink(folder_ / "none/User.xml", file());
  fs::create_symlink("loop.xml", folder_ / "loop.xml");
  MessageCapture capture;
  EXPECT_NE(Set(file(), "A", 1), 0);
  EXPECT_NE(Set(folder_ / "loop.xml", "A", 1), 0);
  EXPECT_EQ(capture.messages().size(), 2u);
  EXPECT_TRUE(fs::is_symlink(file()));
  EXPECT_TRUE(fs::is_symlink(folder_ / "loop.xml"));
}

TEST_F(StoreFiles, AttributesAndAccessListComeAlong) {
  ASSERT_EQ(Set(file(), "A", 1), 0);
  const std::string list = AccessListWithUser(12345);
  const std::string odd("a\0b", 3);
  if (!SetAttribute(file(), "user.colour", odd) || !SetAttribute(file(), kAccessList, list))
    GTEST_SKIP() << "a file system without attributes or access lists";
  ASSERT_TRUE(SetAttribute(file(), "user.empty", ""));
  ASSERT_EQ(Set(file(), "A", 2), 0);
  EXPECT_EQ(Attribute(file(), "user.colour"), odd);
  EXPECT_EQ(Attribute(file(), "user.empty"), "");
  EXPECT_EQ(Attribute(file(), kAccessList), list);
  EXPECT_EQ(StatusOf(file()).st_mode & 07777u, 0640u);
}

TEST_F(StoreFiles, AListThatTheFolderGivesNewFilesIsNotTheOldFiles) {
  ASSERT_EQ(Set(file(), "A", 1), 0);
  chmod(file().c_str(), 0600);
  if (!SetAttribute(folder_.path(), "system.posix_acl_default", AccessListWithUser(12345)))
    GTEST_SKIP() << "a file system without access lists";
  ASSERT_EQ(Set(file(), "A", 2), 0);
  EXPECT_EQ(Attribute(file(), kAccessList), std::nullopt);
  EXPECT_EQ(StatusOf(file()).st_mode & 07777u, 0600u);
}

// A user of the group that a file belongs to, in a folder of its own.
class StoreOwners : public StoreFiles {
 protected:
  static constexpr uid_t kUser = 3000;
  static constexpr uid_t kOther = 3001;
  static constexpr gid_t kOwnGroup = 3000;
  static constexpr gid_t kShared = 4000;
  static constexpr gid_t kForeign = 5000;
  void SetUp() override {
    if (getuid() != 0) GTEST_SKIP() << "only root makes files of other users";
    ASSERT_EQ(Set(file(), "A", 1), 0);
    ASSERT_EQ(chown(folder_.path().c_str(), kUser, kOwnGroup), 0);
  }
  void Own(uid_t user, gid_t group, mode_t mode) {
    ASSERT_EQ(chown(file().c_str(), user, group), 0);
    ASSERT_EQ(chmod(file().c_str(), mode), 0);
  }
  int SetAsUser(uint32_t value) {
    return ResultAs(kUser, {kOwnGroup, kShared}, [&] { return Set(file(), "A", value) == 0 ? 0 : 1; });
  }
};

TEST_F(StoreOwners, RootKeepsOwnerAndGroup) {
  Own(kOther, kForeign, 02664);
  ASSERT_EQ(Set(file(), "A", 2), 0);
  EXPECT_EQ(StatusOf(file()).st_uid, kOther);
  EXPECT_EQ(StatusOf(file()).st_gid, kForeign);
  EXPECT_EQ(StatusOf(file()).st_mode & 07777u, 02664u);
}

TEST_F(StoreOwners, RootKeepsAnOwnerWhoseGroupIsItsOwn) {
  Own(kOther, getegid(), 0664);
  ASSERT_EQ(Set(file(), "A", 2), 0);
  EXPECT_EQ(StatusOf(file()).st_uid, kOther);
  EXPECT_EQ(StatusOf(file()).st_gid, getegid());
}

TEST_F(StoreOwners, RootKeepsTheGroupOfAFileThatIsItsOwn) {
  Own(geteuid(), kForeign, 0664);
  ASSERT_EQ(Set(file(), "A", 2), 0);
  EXPECT_EQ(StatusOf(file()).st_uid, geteuid());
  EXPECT_EQ(StatusOf(file()).st_gid, kForeign);
}

TEST_F(StoreOwners, TheGroupIsKeptByAUserWhoMayOnlySetTheGroup) {
  Own(kOther, kShared, 0664);
  ASSERT_EQ(SetAsUser(2), 0);
  EXPECT_EQ(Get(file(), "A"), 2u);
  EXPECT_EQ(StatusOf(file()).st_uid, kUser);
  EXPECT_EQ(StatusOf(file()).st_gid, kShared);
  EXPECT_EQ(StatusOf(file()).st_mode & 07777u, 0664u);
}

TEST_F(StoreOwners, AnotherGroupGetsNoMoreThanAllOthersHad) {
  Own(kUser, kForeign, 06764);
  SetAttribute(file(), kAccessList, AccessListWithUser(12345));
  ASSERT_EQ(chmod(file().c_str(), 06764), 0);
  ASSERT_EQ(SetAsUser(2), 0);
  EXPECT_EQ(Get(file(), "A"), 2u);
  EXPECT_EQ(StatusOf(file()).st_gid, kOwnGroup);
  EXPECT_EQ(StatusOf(file()).st_mode & 07777u, 0744u);
  EXPECT_EQ(Attribute(file(), kAccessList), std::nullopt);
}

TEST_F(StoreFiles, TheFileIsFlushedInFrontOfItsRenamingAndTheFolderBehind) {
  const std::string name = fs::path(folder_.path()).filename();
  for (uint32_t round = 0; round < 2; ++round) {  // made, then replaced
    SyncLog log;
    DescriptorCounts counts;
    log.each = [&](const std::string& line) {
      if (line == "flush folder " + name) counts = DescriptorsOf(folder_.path());
    };
    ASSERT_EQ(Set(file(), "A", round), 0);
    EXPECT_EQ(counts.open, 2) << "for the lock and for the flushing";
    EXPECT_EQ(counts.inherited, 0) << "by a program that is started meanwhile";
    EXPECT_EQ(log.lines,
              (std::vector<std::string>{"flush .User.xml.new", "rename User.xml", "flush folder " + name}));
  }
}

TEST_F(StoreFiles, NewSectionsTakeLinearTime) {
  // Four times the sections take about four times as long; where the time were quadratic, sixteen times.
  const auto seconds = [this](uint32_t sections) {
    return LeastCpuSeconds(2, [this, sections] {
      fs::remove(file());
      const KXConfigHandle store = kxCFGOpen(file().c_str(), 0);
      for (uint32_t i = 0; i < sections; ++i) SetNumber(store, std::to_string(i).c_str(), "K", i);
      EXPECT_EQ(kxCFGClose(store, KX_CONFIG_SAVE), 0);
    });
  };
  EXPECT_LT(seconds(12000), 9 * seconds(3000));
  const KXConfigHandle store = kxCFGOpen(file().c_str(), 0);
  for (const uint32_t i : {0u, 1u, 2999u}) {
    EXPECT_EQ(GetNumber(store, std::to_string(i).c_str(), "K"), i);
  }
  kxCFGClose(store, KX_CONFIG_DISCARD);
}

TEST_F(StoreFiles, NewKeysGoToTheFirstSectionOfTheirPath) {
  Make(file(), "<settings><section path='S' n='1'/><section path='S' n='2'/><section path='T'/></settings>");
  const KXConfigHandle store = kxCFGOpen(file().c_str(), 0);
  SetNumber(store, "S", "K", 1);
  SetNumber(store, "T", "K", 2);
  SetNumber(store, "U", "K", 3);
  SetNumber(store, "U", "L", 4);
  ASSERT_EQ(kxCFGClose(store, KX_CONFIG_SAVE), 0);
  const Bytes bytes = ReadFile(file());
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()),
            "<settings>\n    <section path=\"S\" n=\"1\">\n        <value key=\"K\" number=\"1\" />\n"
            "    </section>\n    <section path=\"S\" n=\"2\" />\n    <section path=\"T\">\n"
            "        <value key=\"K\" number=\"2\" />\n    </section>\n    <section path=\"U\">\n"
            "        <value key=\"K\" number=\"3\" />\n        <value key=\"L\" number=\"4\" />\n"
            "    </section>\n</settings>\n");
}

}  // namespace
}  // namespace qln::test
