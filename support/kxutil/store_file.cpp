// Settings files through the file calls of this library (a host may have brought its own), with what POSIX
// adds for a replacement that cannot be half done.

#include "kxutil/store_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "kxutil/kxutil.h"

namespace qln {
namespace {

constexpr uint64_t kLargestFile = 256u << 20;
constexpr uint32_t kLockWaitMs = 30000;
constexpr uint32_t kLockPollMs = 5;

std::string TextOf(int error) { return std::generic_category().message(error); }
std::string LastProblem() { return TextOf(static_cast<int>(kxOSGetLastError())); }

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

class OpenFile {
 public:
  explicit OpenFile(KXFileHandle handle) : handle_(handle) {}
  ~OpenFile() { Close(); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  bool valid() const { return handle_ != KX_INVALID_FILE_HANDLE; }
  KXFileHandle handle() const { return handle_; }
  bool Close() {
    const KXFileHandle handle = std::exchange(handle_, KX_INVALID_FILE_HANDLE);
    return handle == KX_INVALID_FILE_HANDLE || kxOSCloseFile(handle) != 0;
  }

 private:
  KXFileHandle handle_;
};

// Flushes a file or folder to the disk.
bool Flush(const std::string& path, int flags) {
  const int descriptor = open(path.c_str(), flags | O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return false;
  const bool flushed = fsync(descriptor) == 0;
  const int error = errno;
  close(descriptor);
  errno = error;
  return flushed;
}

// The owner and permissions of the file that is to be replaced. Another's file keeps its owner if we may.
bool TakeOver(const struct stat& old, const std::string& path) {
  struct stat made;
  if (stat(path.c_str(), &made) != 0) return false;
  if ((made.st_uid != old.st_uid || made.st_gid != old.st_gid) &&
      chown(path.c_str(), old.st_uid, old.st_gid) != 0 && errno != EPERM) {
    return false;
  }
  return chmod(path.c_str(), old.st_mode & 07777) == 0;
}

bool WriteBeside(const std::string& target, const std::string& beside, std::string_view text,
                 std::string& problem) {
  struct stat old;
  const bool replaces = stat(target.c_str(), &old) == 0;
  if (replaces && access(target.c_str(), W_OK) != 0) {
    problem = TextOf(errno);
    return false;
  }
  OpenFile file(
      kxOSCreateFile(beside.c_str(), KX_ACCESS_WRITE, KX_SHARE_READ, nullptr, KX_CREATE_NEW, 0, nullptr));
  if (!file.valid()) {
    problem = LastProblem();
    return false;
  }
  if (replaces && !TakeOver(old, beside)) {
    problem = TextOf(errno);
    return false;
  }
  uint32_t written = 0;
  const uint32_t size = static_cast<uint32_t>(text.size());
  if (kxOSWriteFile(file.handle(), text.data(), size, &written, nullptr) == 0 || written != size ||
      !file.Close()) {
    problem = LastProblem();
    return false;
  }
  if (!Flush(beside, 0) || rename(beside.c_str(), target.c_str()) != 0) {
    problem = TextOf(errno);
    return false;
  }
  return true;
}

}  // namespace

StoreText::~StoreText() {
  if (block_ != nullptr) KXFree(block_);
}

char* StoreText::Allocate(size_t size) {
  block_ = static_cast<char*>(KXAlloc(size));
  return block_;
}

StoreFileState ReadStoreFile(const std::string& path, StoreText& text, std::string& problem) {
  // A pipe or a device would block, or never end.
  struct stat status;
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    problem = "it is no plain file";
    return StoreFileState::kUnreadable;
  }
  OpenFile file(
      kxOSCreateFile(path.c_str(), KX_ACCESS_READ, KX_SHARE_READ, nullptr, KX_OPEN_EXISTING, 0, nullptr));
  if (!file.valid()) {
    if (kxOSGetLastError() == ENOENT) return StoreFileState::kMissing;
    problem = LastProblem();
    return StoreFileState::kUnreadable;
  }
  uint64_t size = 0;
  if (kxOSGetFileSizeEx(file.handle(), &size) == 0) {
    problem = LastProblem();
    return StoreFileState::kUnreadable;
  }
  if (size > kLargestFile) {
    problem = "it is too large";
    return StoreFileState::kUnreadable;
  }
  char* const block = text.Allocate(static_cast<size_t>(size));
  if (block == nullptr) {
    problem = TextOf(ENOMEM);
    return StoreFileState::kUnreadable;
  }
  uint32_t bytesRead = 0;
  if (kxOSReadFile(file.handle(), block, static_cast<uint32_t>(size), &bytesRead, nullptr) == 0) {
    problem = LastProblem();
    return StoreFileState::kUnreadable;
  }
  text.SetSize(bytesRead);
  return StoreFileState::kRead;
}

StoreFolderLock::StoreFolderLock(const std::string& path, std::string& problem) : target_(path) {
  char resolved[PATH_MAX];
  if (realpath(path.c_str(), resolved) != nullptr) target_ = resolved;
  const int folder = open(FolderOf(target_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) {
    problem = TextOf(errno);
    return;
  }
  const uint32_t start = kxOSGetMs();
  while (flock(folder, LOCK_EX | LOCK_NB) != 0) {
    if ((errno != EWOULDBLOCK && errno != EINTR) || kxOSGetMs() - start >= kLockWaitMs) {
      problem = TextOf(errno);
      close(folder);
      return;
    }
    Sleep(kLockPollMs);
  }
  descriptor_ = folder;
}

StoreFolderLock::~StoreFolderLock() {
  if (descriptor_ >= 0) close(descriptor_);
}

bool ReplaceStoreFile(const std::string& target, std::string_view text, std::string& problem) {
  if (text.size() > kLargestFile) {
    problem = "it would become too large";
    return false;
  }
  const size_t name = target.rfind('/') + 1;  // 0 if there is no slash
  const std::string beside = target.substr(0, name) + "." + target.substr(name) + ".new";
  // What a killed writer left behind; under the lock nobody else is at it.
  unlink(beside.c_str());
  if (!WriteBeside(target, beside, text, problem)) {
    unlink(beside.c_str());
    return false;
  }
  // The new file stands; that its name is flushed too is for the case of a power cut.
  Flush(FolderOf(target), O_DIRECTORY);
  return true;
}

}  // namespace qln
