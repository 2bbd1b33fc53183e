// What the process gives up: files, networks, programs and processes, each tried where it is refused.

#include "sandbox.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "support/sanitizers.h"

namespace qlnmedia {
namespace {

namespace fs = std::filesystem;

class InSandbox : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = testing::TempDir() + "sandboxXXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    folder_ = name;
    fs::create_directories(folder_ / "out");
    for (const char* const file : {"in", "other", "out/old"}) std::ofstream(folder_ / file) << "text";
    places_ = {{folder_ / "in"}, {folder_ / "out"}};
  }
  void TearDown() override { fs::remove_all(folder_); }

  // What an action comes to in a process that is confined: 0 or an error number.
  int Tried(const std::function<int()>& action) const {
    const pid_t child = fork();
    if (child == 0) {
      EnterSandbox(places_);
      _exit(action() == 0 ? 0 : errno);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  int Opened(const std::string& name, int flags) const {
    return Tried([&] { return open((folder_ / name).c_str(), flags, 0600) < 0 ? -1 : 0; });
  }

  fs::path folder_;
  SandboxPlaces places_;
};

TEST_F(InSandbox, FilesAreThoseOfTheCommand) {
  if (SandboxOfKernel().landlock == 0) GTEST_SKIP() << "the kernel has no Landlock";
  EXPECT_EQ(Opened("in", O_RDONLY), 0);
  EXPECT_EQ(Opened("in", O_RDWR), EACCES);
  EXPECT_EQ(Opened("other", O_RDONLY), EACCES);
  EXPECT_EQ(Opened("new", O_WRONLY | O_CREAT), EACCES);
  EXPECT_EQ(Opened("gone", O_RDONLY), ENOENT);
  EXPECT_EQ(Opened("out/new", O_WRONLY | O_CREAT), 0);
  EXPECT_EQ(Opened("out/old", O_RDWR), 0);
  const auto path = [this](const char* name) { return folder_ / name; };
  EXPECT_EQ(Tried([&] { return rename(path("out/old").c_str(), path("out/named").c_str()); }), 0);
  EXPECT_EQ(Tried([&] { return unlink(path("other").c_str()); }), EACCES);
  EXPECT_EQ(Tried([&] { return unlink(path("out/named").c_str()); }), 0);
  EXPECT_EQ(Tried([&] { return mkdir(path("out/folder").c_str(), 0700); }), 0);
  EXPECT_EQ(Tried([&] { return rmdir(path("out/folder").c_str()); }), 0);
  EXPECT_EQ(Tried([] { return open("/etc/ld.so.cache", O_RDONLY) < 0 ? -1 : 0; }), 0);
}

// Threads that are started behind it are confined as well.
TEST_F(InSandbox, ThreadsGainNothing) {
  if (!SandboxOfKernel().seccomp) GTEST_SKIP() << "the kernel has no filters of calls";
  EXPECT_EQ(Tried([] {
              int error = 0;
              std::thread([&error] {
                if (socket(AF_INET, SOCK_STREAM, 0) < 0) error = errno;
              }).join();
              errno = error;
              return error == 0 ? 0 : -1;
            }),
            EPERM);
}

TEST_F(InSandbox, NetworksProgramsAndProcessesAreRefused) {
  if (!SandboxOfKernel().seccomp) GTEST_SKIP() << "the kernel has no filters of calls";
  for (const int family : {AF_INET, AF_INET6, AF_UNIX})
    EXPECT_EQ(Tried([family] { return socket(family, SOCK_STREAM, 0) < 0 ? -1 : 0; }), EPERM);
  EXPECT_EQ(Tried([] {
              int ends[2];
              return socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
            }),
            EPERM);
  EXPECT_EQ(Tried([] { return execl("/bin/true", "true", nullptr); }), EPERM);
#if !defined(QLN_ADDRESS_SANITIZER) && !defined(QLN_THREAD_SANITIZER)
  EXPECT_EQ(Tried([] {
              const pid_t child = fork();
              if (child == 0) _exit(0);
              return child < 0 ? -1 : 0;
            }),
            EPERM);
#endif
}

TEST(Sandbox, IsNamedByItsParts) {
  EXPECT_EQ(SandboxText({4, true}), "Landlock 4, seccomp");
  EXPECT_EQ(SandboxText({0, true}), "seccomp");
  EXPECT_EQ(SandboxText({3, false}), "Landlock 3");
  EXPECT_EQ(SandboxText({}), "none on this kernel");
}

TEST(Sandbox, FoldersOfPaths) {
  EXPECT_EQ(FolderOfPath("a.mp4"), ".");
  EXPECT_EQ(FolderOfPath("b/a.mp4"), "b");
  EXPECT_EQ(FolderOfPath("/a.mp4"), "/");
  EXPECT_EQ(FolderOfPath("/b/c/"), "/b");
  EXPECT_EQ(FolderOfPath("c/"), ".");
}

}  // namespace
}  // namespace qlnmedia
