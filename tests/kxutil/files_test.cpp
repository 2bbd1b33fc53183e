// The file calls: forms that open, counts, positions, sizes, and the last error after each of them.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "kxutil/kxutil.h"
#include "kxutil/store_test_support.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

KXFileHandle OpenToRead(const std::string& path) {
  return kxOSCreateFile(path.c_str(), 0x80000000u, 1, nullptr, 3, 0, nullptr);
}
KXFileHandle OpenNew(const std::string& path) {
  return kxOSCreateFile(path.c_str(), 0x40000000u, 1, nullptr, 1, 0, nullptr);
}

class Files : public testing::Test {
 protected:
  std::string Make(const std::string& name, const std::string& text) {
    WriteFile(folder_ / name, Bytes(text.begin(), text.end()));
    return folder_ / name;
  }
  TemporaryFolder folder_;
};

TEST_F(Files, WritesANewFileAndReadsItBack) {
  const KXFileHandle out = OpenNew(folder_ / "a");
  ASSERT_NE(out, KX_INVALID_FILE_HANDLE);
  EXPECT_GT(out, 0);  // 0 is no handle
  EXPECT_EQ(kxOSGetLastError(), 0u);
  uint32_t written = 99;
  EXPECT_NE(kxOSWriteFile(out, "hello", 5, &written, nullptr), 0);
  EXPECT_EQ(written, 5u);
  EXPECT_NE(kxOSWriteFile(out, " world", 6, nullptr, nullptr), 0);
  EXPECT_NE(kxOSCloseFile(out), 0);

  const KXFileHandle in = OpenToRead(folder_ / "a");
  ASSERT_NE(in, KX_INVALID_FILE_HANDLE);
  char buffer[12] = "###########";
  uint32_t read = 99;
  EXPECT_NE(kxOSReadFile(in, buffer, 5, &read, nullptr), 0);
  EXPECT_EQ(read, 5u);
  EXPECT_STREQ(buffer, "hello######");
  EXPECT_NE(kxOSCloseFile(in), 0);
}

TEST_F(Files, AShortReadAtTheEndIsASuccess) {
  const KXFileHandle file = OpenToRead(Make("a", "abc"));
  char buffer[8] = "#######";
  uint32_t read = 99;
  EXPECT_NE(kxOSReadFile(file, buffer, 7, &read, nullptr), 0);
  EXPECT_EQ(read, 3u);
  EXPECT_STREQ(buffer, "abc####");
  EXPECT_EQ(kxOSGetLastError(), 0u);
  EXPECT_NE(kxOSReadFile(file, buffer, 7, &read, nullptr), 0);
  EXPECT_EQ(read, 0u);
  EXPECT_EQ(kxOSGetLastError(), 0u);
  kxOSCloseFile(file);
}

TEST_F(Files, NewFilesAreNotTakenFromOthers) {
  const std::string path = Make("a", "keep");
  EXPECT_EQ(OpenNew(path), KX_INVALID_FILE_HANDLE);
  EXPECT_EQ(kxOSGetLastError(), static_cast<uint32_t>(EEXIST));
  EXPECT_EQ(ReadFile(path).size(), 4u);
  EXPECT_EQ(OpenToRead(folder_ / "none"), KX_INVALID_FILE_HANDLE);
  EXPECT_EQ(kxOSGetLastError(), static_cast<uint32_t>(ENOENT));
  EXPECT_EQ(OpenToRead(folder_.path()), KX_INVALID_FILE_HANDLE);
  EXPECT_EQ(kxOSGetLastError(), static_cast<uint32_t>(EISDIR));
}

TEST_F(Files, OtherFormsAreRefused) {
  const std::string path = Make("a", "x");
  struct Form {
    uint32_t access, share, disposition, flags;
  };
  for (const Form& form : {Form{0xC0000000u, 1, 3, 0}, Form{0x80000000u, 0, 3, 0}, Form{0x80000000u, 3, 3, 0},
                           Form{0x80000000u, 1, 1, 0}, Form{0x40000000u, 1, 3, 0}, Form{0x40000000u, 1, 2, 0},
                           Form{0x80000000u, 1, 4, 0}, Form{0x80000000u, 1, 3, 0x80}, Form{0, 1, 3, 0}}) {
    EXPECT_EQ(
        kxOSCreateFile(path.c_str(), form.access, form.share, nullptr, form.disposition, form.flags, nullptr),
        KX_INVALID_FILE_HANDLE);
    EXPECT_EQ(kxOSGetLastError(), KX_ERROR_INVALID_PARAMETER);
  }
  int something = 0;
  EXPECT_EQ(kxOSCreateFile(path.c_str(), 0x80000000u, 1, &something, 3, 0, nullptr), KX_INVALID_FILE_HANDLE);
  EXPECT_EQ(kxOSCreateFile(path.c_str(), 0x80000000u, 1, nullptr, 3, 0, &something), KX_INVALID_FILE_HANDLE);
  EXPECT_EQ(kxOSCreateFile(nullptr, 0x80000000u, 1, nullptr, 3, 0, nullptr), KX_INVALID_FILE_HANDLE);
  EXPECT_EQ(kxOSGetLastError(), KX_ERROR_INVALID_PARAMETER);
}

TEST_F(Files, ValuesThatAreNoHandleFail) {
  for (const KXFileHandle handle :
       {KXFileHandle{0}, KXFileHandle{-1}, KXFileHandle{-2}, KXFileHandle{1} << 40, KXFileHandle{100000}}) {
    char byte = 'x';
    uint32_t count = 99;
    uint64_t size = 77;
    EXPECT_EQ(kxOSReadFile(handle, &byte, 1, &count, nullptr), 0);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(kxOSGetLastError(), KX_ERROR_INVALID_HANDLE);
    EXPECT_EQ(kxOSWriteFile(handle, &byte, 1, &count, nullptr), 0);
    EXPECT_EQ(kxOSGetLastError(), KX_ERROR_INVALID_HANDLE);
    EXPECT_EQ(kxOSSeek(handle, 0), UINT64_MAX);
    EXPECT_EQ(kxOSGetLastError(), KX_ERROR_INVALID_HANDLE);
    EXPECT_EQ(kxOSGetFileSize(handle, nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(kxOSGetFileSizeEx(handle, &size), 0);
    EXPECT_EQ(size, 77u);
    EXPECT_EQ(kxOSCloseFile(handle), 0);
    EXPECT_EQ(kxOSGetLastError(), KX_ERROR_INVALID_HANDLE);
  }
}

TEST_F(Files, WrongBuffersAreRefused) {
  const KXFileHandle file = OpenToRead(Make("a", "abc"));
  uint32_t count = 99;
  EXPECT_EQ(kxOSReadFile(file, nullptr, 1, &count, nullptr), 0);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(kxOSGetLastError(), KX_ERROR_INVALID_PARAMETER);
  EXPECT_NE(kxOSReadFile(file, nullptr, 0, &count, nullptr), 0);
  EXPECT_EQ(kxOSGetLastError(), 0u);
  char byte = 'x';
  EXPECT_EQ(kxOSReadFile(file, &byte, 1, &count, &byte), 0);
  EXPECT_EQ(kxOSWriteFile(file, nullptr, 1, &count, nullptr), 0);
  EXPECT_EQ(kxOSWriteFile(file, &byte, 1, &count, nullptr), 0);  // opened to read
  EXPECT_EQ(kxOSGetLastError(), static_cast<uint32_t>(EBADF));
  EXPECT_EQ(kxOSGetFileSizeEx(file, nullptr), 0);
  EXPECT_EQ(byte, 'x');
  kxOSCloseFile(file);
}

TEST_F(Files, PositionsAndSizesHaveSixtyFourBits) {
  const std::string path = Make("big", "");
  constexpr uint64_t kSize = (uint64_t{5} << 32) + 7;
  ASSERT_EQ(truncate(path.c_str(), kSize), 0);
  const KXFileHandle file = OpenToRead(path);
  uint64_t size = 0;
  EXPECT_NE(kxOSGetFileSizeEx(file, &size), 0);
  EXPECT_EQ(size, kSize);
  EXPECT_EQ(kxOSGetFileSize(file, nullptr), 7u);
  EXPECT_EQ(kxOSSeek(file, kSize - 3), kSize - 3);
  char buffer[8];
  uint32_t read = 0;
  EXPECT_NE(kxOSReadFile(file, buffer, 8, &read, nullptr), 0);
  EXPECT_EQ(read, 3u);
  EXPECT_EQ(kxOSSeek(file, kSize + 10), kSize + 10);  // behind the end is a position too
  EXPECT_EQ(kxOSSeek(file, uint64_t{1} << 63), UINT64_MAX);
  EXPECT_EQ(kxOSGetLastError(), KX_ERROR_INVALID_PARAMETER);
  kxOSCloseFile(file);
}

TEST_F(Files, Exists) {
  const std::string path = Make("a", "");
  EXPECT_NE(kxOSFileExists(path.c_str()), 0);
  EXPECT_EQ(kxOSGetLastError(), 0u);
  EXPECT_NE(kxOSFileExists(folder_.path().c_str()), 0);
  EXPECT_EQ(kxOSFileExists((folder_ / "none").c_str()), 0);
  EXPECT_EQ(kxOSGetLastError(), static_cast<uint32_t>(ENOENT));
  EXPECT_EQ(kxOSFileExists(""), 0);
  EXPECT_EQ(kxOSFileExists(nullptr), 0);
}

TEST_F(Files, EachSuccessClearsTheLastErrorOfItsThreadOnly) {
  const std::string path = Make("a", "x");
  EXPECT_EQ(OpenToRead(folder_ / "none"), KX_INVALID_FILE_HANDLE);
  std::thread([&] {
    EXPECT_EQ(kxOSGetLastError(), 0u);
    EXPECT_EQ(kxOSCloseFile(0), 0);
    EXPECT_EQ(kxOSGetLastError(), KX_ERROR_INVALID_HANDLE);
  }).join();
  EXPECT_EQ(kxOSGetLastError(), static_cast<uint32_t>(ENOENT));
  const KXFileHandle file = OpenToRead(path);
  EXPECT_EQ(kxOSGetLastError(), 0u);
  const auto cleared = [](auto operation) {
    kxOSCloseFile(0);
    EXPECT_NE(kxOSGetLastError(), 0u);
    operation();
    return kxOSGetLastError() == 0;
  };
  char byte;
  uint64_t size;
  EXPECT_TRUE(cleared([&] { kxOSReadFile(file, &byte, 1, nullptr, nullptr); }));
  EXPECT_TRUE(cleared([&] { kxOSSeek(file, 0); }));
  EXPECT_TRUE(cleared([&] { kxOSGetFileSize(file, nullptr); }));
  EXPECT_TRUE(cleared([&] { kxOSGetFileSizeEx(file, &size); }));
  EXPECT_TRUE(cleared([&] { kxOSFileExists(path.c_str()); }));
  EXPECT_TRUE(cleared([&] { kxOSCloseFile(file); }));
}

TEST_F(Files, ReadsGoOnUntilTheCountOverAPipe) {
  const std::string path = folder_ / "pipe";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  std::thread writer([&] {
    const int out = open(path.c_str(), O_WRONLY);
    for (const char* piece : {"ab", "cd", "ef"}) {
      EXPECT_EQ(write(out, piece, 2), 2);
      Sleep(10);
    }
    close(out);
  });
  const KXFileHandle file = OpenToRead(path);
  char buffer[9] = "########";
  uint32_t read = 0;
  EXPECT_NE(kxOSReadFile(file, buffer, 8, &read, nullptr), 0);
  EXPECT_EQ(read, 6u);
  EXPECT_STREQ(buffer, "abcdef##");
  kxOSCloseFile(file);
  writer.join();
}

TEST_F(Files, InterruptedCallsAreResumed) {
  const std::string path = folder_ / "pipe";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  struct sigaction action = {};
  action.sa_handler = [](int) {};  // without SA_RESTART, so that blocking calls return
  struct sigaction old;
  sigaction(SIGUSR1, &action, &old);
  const pthread_t reader = pthread_self();
  std::atomic<bool> done = false;
  std::thread poker([&] {
    while (!done) {
      pthread_kill(reader, SIGUSR1);
      Sleep(1);
    }
  });
  std::thread writer([&] {
    Sleep(20);  // the open waits meanwhile
    const int out = open(path.c_str(), O_WRONLY);
    Sleep(20);  // and now the read
    EXPECT_EQ(write(out, "abc", 3), 3);
    close(out);
  });
  const KXFileHandle file = OpenToRead(path);
  EXPECT_NE(file, KX_INVALID_FILE_HANDLE);
  char buffer[4] = "###";
  uint32_t read = 0;
  EXPECT_NE(kxOSReadFile(file, buffer, 3, &read, nullptr), 0);
  EXPECT_EQ(read, 3u);
  EXPECT_STREQ(buffer, "abc");
  const uint32_t start = kxOSGetMs();
  Sleep(30);  // interrupted as well, and goes on
  EXPECT_GE(kxOSGetMs() - start, 29u);
  done = true;
  poker.join();
  writer.join();
  kxOSCloseFile(file);
  sigaction(SIGUSR1, &old, nullptr);
}

TEST_F(Files, AFullDiskTellsWhatWentOut) {
  // A limit on the file's size stands for the disk; in a child, since the limit is the process's.
  const std::string path = folder_ / "a";
  const pid_t child = fork();
  if (child == 0) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    const KXFileHandle file = OpenNew(path);
    const Bytes bytes(1500, 'x');
    uint32_t written = 0;
    const bool failed = kxOSWriteFile(file, bytes.data(), 1500, &written, nullptr) == 0;
    _exit(failed && written == 1000 && kxOSGetLastError() == EFBIG ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(ReadFile(path).size(), 1000u);
}

TEST_F(Files, HandlesAreNotInheritedByOtherPrograms) {
  const KXFileHandle file = OpenToRead(Make("a", "x"));
  EXPECT_NE(fcntl(static_cast<int>(file - 1), F_GETFD) & FD_CLOEXEC, 0);  // a handle is the descriptor plus 1
  kxOSCloseFile(file);
}

}  // namespace
}  // namespace qln::test
