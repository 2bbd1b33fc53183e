// The files of a project on the disk: whose they stay, what is left of killed and failed writers, and in
// which order things reach the disk.

#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>

#include "files/file_calls.h"
#include "kxutil/kxutil.h"
#include "qlnutil/kxprojecttoxml.h"
#include "support/cpu_time.h"
#include "support/file_status.h"
#include "support/open_descriptors.h"
#include "support/refused_calls.h"
#include "support/sync_calls.h"
#include "support/temporary_folder.h"

namespace qln {
namespace {

namespace fs = std::filesystem;
using test::Bytes;
using test::FileCalls;
using test::StatusOf;
using Texts = std::vector<std::string>;

std::string TextOfFile(const std::string& path) {
  const Bytes bytes = test::ReadFile(path);
  return std::string(bytes.begin(), bytes.end());
}
void Write(const std::string& path, const std::string& text) {
  test::WriteFile(path, Bytes(text.begin(), text.end()));
}

class ProjectFiles : public testing::Test {
 protected:
  std::string In(const std::string& name) const { return folder + "/" + name; }
  // Saves a project with one setting.
  static uint32_t SaveTo(const std::string& path, uint32_t value) {
    CKXProjectToXML project;
    project.SetConfigDWORD("A", value);
    project.SetXMLName(path.c_str());
    return project.SaveXMLFile();
  }
  static uint32_t ValueIn(const std::string& path) {
    CKXProjectToXML project;
    project.LoadXMLFile(path.c_str());
    return project.GetConfigDWORD("A");
  }
  // A project file that carries a clip of that many characters, which is nowhere.
  void WriteProjectWithClip(size_t characters) {
    Write(In("p.xml"),
          "<ClipList FileName=\"/gone/clips.txt\" Data=\"" + std::string(characters, 'c') + "\"/>");
  }
  uint32_t LoadProject() const {
    CKXProjectToXML project;
    return project.LoadXMLFile(In("p.xml").c_str());
  }
  Texts Names() const {
    Texts names;
    for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }
  test::TemporaryFolder temporary;
  const std::string& folder = temporary.path();
};

// No file of this process grows beyond a limit while one lives.
class SmallDisk {
 public:
  explicit SmallDisk(rlim_t limit) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &before_), 0);
    const rlimit small = {limit, before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  }
  ~SmallDisk() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

 private:
  void (*handler_)(int);
  rlimit before_;
};

TEST_F(ProjectFiles, ATextThatDoesNotFitOnTheDiskIsNotThereAndIsMadeWholeLater) {
  WriteProjectWithClip(120000);
  {
    const SmallDisk disk(81920);
    EXPECT_NE(LoadProject(), 0u);
  }
  EXPECT_EQ(Names(), Texts{"p.xml"});
  EXPECT_NE(LoadProject(), 0u);
  EXPECT_EQ(TextOfFile(In("clips.txt")), std::string(120000, 'c'));
  EXPECT_EQ(Names(), (Texts{"clips.txt", "p.xml"}));
}

// Ends the process, or makes the file that is about to be put in its place, when a text is written.
class WritingCalls : public FileCalls {
 public:
  std::string makes;
  bool ends = false;
  int32_t closes = 1;
  int32_t Write(KXFileHandle handle, const void* buffer, uint32_t count, uint32_t* written) override {
    const int32_t result = FileCalls::Write(handle, buffer, count / 2, written);
    if (ends) raise(SIGKILL);
    if (!makes.empty()) qln::Write(makes, "mine");
    *written = count;
    return result;
  }
  int32_t Close(KXFileHandle handle) override { return FileCalls::Close(handle) != 0 ? closes : 0; }
};

TEST_F(ProjectFiles, ATextWhoseWriterIsKilledIsNotThereAndIsMadeWholeLater) {
  WriteProjectWithClip(1000);
  EXPECT_EQ(test::ResultInChild([this] {
              WritingCalls calls;
              calls.ends = true;
              LoadProject();
              return 1;
            }),
            1000 + SIGKILL);
  EXPECT_FALSE(fs::exists(In("clips.txt")));
  EXPECT_EQ(Names().size(), 2u) << "what the killed one left";
  EXPECT_NE(LoadProject(), 0u);
  EXPECT_EQ(TextOfFile(In("clips.txt")), std::string(1000, 'c'));
  EXPECT_EQ(Names(), (Texts{"clips.txt", "p.xml"}));
}

TEST_F(ProjectFiles, ATextThatIsLostAtItsClosingIsNotThere) {
  WriteProjectWithClip(1000);
  WritingCalls calls;
  calls.closes = 0;
  LoadProject();
  EXPECT_EQ(Names(), Texts{"p.xml"});
}

TEST_F(ProjectFiles, AFileThatAppearsMeanwhileIsNotWrittenOver) {
  WriteProjectWithClip(1000);
  WritingCalls calls;
  calls.makes = In("clips.txt");
  LoadProject();
  EXPECT_EQ(TextOfFile(In("clips.txt")), "mine");
  EXPECT_EQ(Names(), (Texts{"clips.txt", "p.xml"}));
}

// The number of a process that is no more.
pid_t DeadProcess() {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  waitpid(child, nullptr, 0);
  return child;
}

TEST_F(ProjectFiles, WhatDeadProcessesLeftIsRemovedByTheNextSave) {
  const std::string dead = std::to_string(DeadProcess());
  const std::string living = std::to_string(getppid());
  const Texts kept = {".project-" + living + "-0",
                      ".project-" + dead,
                      ".project-" + dead + "-x",
                      ".project--1-0",
                      ".project-0-0",
                      ".project-99999999999999999999-0",
                      "project-" + dead + "-0",
                      ".project-" + dead + "-0-1",
                      ".project-" + dead + "-",
                      ".project-" + dead + "-99999999999999999999"};
  for (const std::string& name : kept) Write(In(name), "kept");
  for (const std::string& name : {".project-" + dead + "-0", ".project-" + dead + "-17"}) {
    Write(In(name), "left");
  }
  fs::create_directory(In(".project-" + dead + "-1"));
  fs::create_symlink(In("p.xml"), In(".project-" + dead + "-2"));
  ASSERT_NE(SaveTo(In("p.xml"), 1), 0u);
  for (const std::string& name : kept) EXPECT_TRUE(fs::exists(In(name))) << name;
  EXPECT_TRUE(fs::exists(In(".project-" + dead + "-1"))) << "a folder is none of ours";
  EXPECT_EQ(Names().size(), kept.size() + 3);
  EXPECT_EQ(ValueIn(In("p.xml")), 1u);
}

// A process that may not be signalled lives all the same.
TEST_F(ProjectFiles, WhatAnotherUsersProcessWritesIsNotRemoved) {
  if (getuid() != 0) GTEST_SKIP() << "only root becomes another user";
  constexpr uid_t kUser = 3000;
  const std::string name = In(".project-" + std::to_string(getpid()) + "-0");
  Write(name, "at work");
  ASSERT_EQ(chown(name.c_str(), kUser, kUser), 0);
  ASSERT_EQ(chown(folder.c_str(), kUser, kUser), 0);
  ASSERT_EQ(test::ResultAs(kUser, {kUser}, [this] { return SaveTo(In("p.xml"), 1) != 0 ? 0 : 1; }), 0);
  EXPECT_EQ(TextOfFile(name), "at work");
}

TEST_F(ProjectFiles, AFileWhoseLockIsHeldIsNotRemoved) {
  // So does a process in another container, which cannot be seen from here.
  const std::string name = In(".project-" + std::to_string(DeadProcess()) + "-0");
  Write(name, "at work");
  const int descriptor = open(name.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(descriptor, LOCK_EX | LOCK_NB), 0);
  ASSERT_NE(SaveTo(In("p.xml"), 1), 0u);
  EXPECT_TRUE(fs::exists(name));
  close(descriptor);
  ASSERT_NE(SaveTo(In("p.xml"), 2), 0u);
  EXPECT_FALSE(fs::exists(name));
}

TEST_F(ProjectFiles, AFileThatIsBeingWrittenIsLocked) {
  WriteProjectWithClip(1000);
  class LockCalls : public FileCalls {
   public:
    std::string path;
    int locked = 0;
    test::DescriptorCounts descriptors;
    int32_t Write(KXFileHandle handle, const void* buffer, uint32_t count, uint32_t* written) override {
      const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
      locked += descriptor >= 0 && flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
      close(descriptor);
      descriptors = test::DescriptorsOf(path);
      return FileCalls::Write(handle, buffer, count, written);
    }
  } calls;
  calls.path = In(".project-" + std::to_string(getpid()) + "-0");
  LoadProject();
  EXPECT_EQ(calls.locked, 1);
  EXPECT_EQ(calls.descriptors.open, 2) << "what is written to, and what holds the lock";
  EXPECT_EQ(calls.descriptors.inherited, 0) << "a program started meanwhile would hold the lock on";
}

TEST_F(ProjectFiles, ANameInUseIsLeftAlone) {
  const std::string mine = In(".project-" + std::to_string(getpid()) + "-0");
  Write(mine, "of another thread");
  ASSERT_NE(SaveTo(In("p.xml"), 1), 0u);
  EXPECT_EQ(TextOfFile(mine), "of another thread");
  EXPECT_EQ(ValueIn(In("p.xml")), 1u);
}

TEST_F(ProjectFiles, FilesAreFlushedInFrontOfTheirRenamingAndTheFolderBehind) {
  const std::string mine = ".project-" + std::to_string(getpid()) + "-0";
  const std::string name = fs::path(folder).filename();
  for (uint32_t round = 0; round < 2; ++round) {  // made, then replaced
    test::SyncLog log;
    ASSERT_NE(SaveTo(In("p.xml"), round), 0u);
    EXPECT_EQ(log.lines, (Texts{"flush " + mine, "rename p.xml", "flush folder " + name}));
  }
  WriteProjectWithClip(1000);
  test::SyncLog log;
  LoadProject();
  EXPECT_EQ(log.lines, (Texts{"flush " + mine, "rename clips.txt", "flush folder " + name}));
}

// Some file systems know no renaming that leaves what is there, others no second names either.
TEST_F(ProjectFiles, ATextIsMadeOnFileSystemsThatKnowLess) {
  for (const test::RefusedCalls& calls :
       {test::RefusedCalls{{SYS_renameat2, EINVAL}}, test::RefusedCalls{{SYS_renameat2, ENOSYS}},
        test::RefusedCalls{{SYS_renameat2, EINVAL}, {SYS_link, EPERM}}}) {
    fs::remove(In("clips.txt"));
    WriteProjectWithClip(1000);
    if (!test::RunWithout(calls, [this] { LoadProject(); })) GTEST_SKIP() << "calls cannot be refused here";
    EXPECT_EQ(TextOfFile(In("clips.txt")), std::string(1000, 'c'));
    EXPECT_EQ(Names(), (Texts{"clips.txt", "p.xml"}));
    fs::remove(In("clips.txt"));
    WritingCalls writing;
    writing.makes = In("clips.txt");
    test::RunWithout(calls, [this] { LoadProject(); });
    EXPECT_EQ(TextOfFile(In("clips.txt")), "mine") << "nor is one that appears meanwhile written over";
    EXPECT_EQ(Names(), (Texts{"clips.txt", "p.xml"}));
  }
}

TEST_F(ProjectFiles, ATextThatCannotGetItsNameIsNotThere) {
  for (const test::RefusedCalls& calls :
       {test::RefusedCalls{{SYS_renameat2, EIO}},
        test::RefusedCalls{{SYS_renameat2, EINVAL}, {SYS_link, EPERM}, {SYS_rename, EIO}},
        test::RefusedCalls{
            {SYS_renameat2, EINVAL}, {SYS_link, EPERM}, {SYS_newfstatat, EIO}, {SYS_lstat, EIO}}}) {
    WriteProjectWithClip(1000);
    class NothingThere : public FileCalls {  // whatever the system says of it
      int32_t Exists(const char*) override { return 0; }
    } none;
    if (!test::RunWithout(calls, [this] { LoadProject(); })) GTEST_SKIP() << "calls cannot be refused here";
    EXPECT_EQ(Names(), Texts{"p.xml"});
  }
}

// One try for a failure that the utility layer has no number for.
TEST_F(ProjectFiles, ATextWhoseFileCannotBeMadeForNoReasonIsNotThere) {
  WriteProjectWithClip(1000);
  class NoFile : public FileCalls {
   public:
    int made = 0;
    KXFileHandle Create(const char* path, uint32_t access, uint32_t share, uint32_t disposition) override {
      if (disposition != KX_CREATE_NEW) return FileCalls::Create(path, access, share, disposition);
      ++made;
      return KX_INVALID_FILE_HANDLE;
    }
    uint32_t LastError() override { return 0; }
  } calls;
  EXPECT_NE(LoadProject(), 0u);
  EXPECT_EQ(calls.made, 1);
  EXPECT_EQ(Names(), Texts{"p.xml"});
}

TEST_F(ProjectFiles, ADanglingLinkMakesItsTarget) {
  fs::create_directory(In("real"));
  fs::create_symlink("real/p.xml", In("p.xml"));
  ASSERT_NE(SaveTo(In("p.xml"), 7), 0u);
  EXPECT_TRUE(fs::is_symlink(In("p.xml")));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(In("real/p.xml"))));
  EXPECT_EQ(ValueIn(In("p.xml")), 7u);
  fs::create_symlink("none/p.xml", In("q.xml"));
  EXPECT_EQ(SaveTo(In("q.xml"), 7), 0u);
  EXPECT_TRUE(fs::is_symlink(In("q.xml")));
}

TEST_F(ProjectFiles, AttributesAndAccessListComeAlong) {
  ASSERT_NE(SaveTo(In("p.xml"), 1), 0u);
  const std::string list = test::AccessListWithUser(12345);
  if (!test::SetAttribute(In("p.xml"), "user.colour", "red") ||
      !test::SetAttribute(In("p.xml"), test::kAccessList, list))
    GTEST_SKIP() << "a file system without attributes or access lists";
  ASSERT_NE(SaveTo(In("p.xml"), 2), 0u);
  EXPECT_EQ(test::Attribute(In("p.xml"), "user.colour"), "red");
  EXPECT_EQ(test::Attribute(In("p.xml"), test::kAccessList), list);
  EXPECT_EQ(StatusOf(In("p.xml")).st_mode & 07777u, 0640u);
}

TEST_F(ProjectFiles, TheGroupIsKeptByAUserWhoMayOnlySetTheGroup) {
  if (getuid() != 0) GTEST_SKIP() << "only root makes files of other users";
  constexpr uid_t kUser = 3000;
  constexpr uid_t kOther = 3001;
  constexpr gid_t kShared = 4000;
  const std::string path = In("p.xml");
  ASSERT_NE(SaveTo(path, 1), 0u);
  ASSERT_EQ(chown(folder.c_str(), kUser, kUser), 0);
  ASSERT_EQ(chown(path.c_str(), kOther, kShared), 0);
  ASSERT_EQ(chmod(path.c_str(), 0664), 0);
  EXPECT_EQ(test::ResultAs(kUser, {kUser, kShared}, [&] { return SaveTo(path, 2) != 0 ? 0 : 1; }), 0);
  EXPECT_EQ(ValueIn(path), 2u);
  EXPECT_EQ(StatusOf(path).st_uid, kUser);
  EXPECT_EQ(StatusOf(path).st_gid, kShared);
  EXPECT_EQ(StatusOf(path).st_mode & 07777u, 0664u);
}

TEST_F(ProjectFiles, AReplacedFileKeepsItsRightsAndANewOneHasThoseOfTheProcess) {
  ASSERT_NE(SaveTo(In("p.xml"), 1), 0u);
  chmod(In("p.xml").c_str(), 0600);
  const mode_t before = umask(0);
  ASSERT_NE(SaveTo(In("p.xml"), 2), 0u);
  ASSERT_NE(SaveTo(In("new.xml"), 2), 0u);
  umask(before);
  EXPECT_EQ(StatusOf(In("p.xml")).st_mode & 07777u, 0600u);
  EXPECT_EQ(StatusOf(In("new.xml")).st_mode & 07777u, 0666u);
}

TEST_F(ProjectFiles, AFileWithHolesTakesNoMoreMemoryThanItsText) {
  Write(In("p.xml"), "<Settings A='5'/>");
  ASSERT_EQ(truncate(In("p.xml").c_str(), off_t{1} << 40), 0);
  // In a process of its own, whose largest use of memory is known.
  const int result = test::ResultInChild([this] {
    rusage before;
    rusage after;
    getrusage(RUSAGE_SELF, &before);
    if (ValueIn(In("p.xml")) != 5) return 1;
    getrusage(RUSAGE_SELF, &after);
    constexpr long kMostKilobytes = 100000;
    return after.ru_maxrss - before.ru_maxrss < kMostKilobytes ? 0 : 2;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(ProjectFiles, HostileDocumentsTakeHardlyLongerThanPlainOnes) {
  constexpr size_t kSize = 2000000;
  const auto seconds = [this](const std::string& start, const std::string& piece) {
    std::string text = start;
    while (text.size() < kSize) text += piece;
    Write(In("p.xml"), text);
    return test::LeastCpuSeconds(1, [this] { ValueIn(In("p.xml")); });
  };
  std::string wide = "<a";
  for (int i = 0; i < 10000; ++i) wide += " a" + std::to_string(i) + "='1'";
  std::string deep;
  for (int i = 0; i < 900; ++i) deep += "<a>";
  const double plain = seconds("<a>", "<b/>");
  EXPECT_LT(seconds(deep, "<b/>"), 5 * plain);
  EXPECT_LT(seconds("<a>", wide + "/>"), 5 * plain);
}

}  // namespace
}  // namespace qln
