// Settings files through the file calls of this library (a host may have brought its own), with what POSIX
// adds for a replacement that cannot be half done.

#include "kxutil/store_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "kxutil/file_replacement.h"
#include "kxutil/kxutil.h"
#include "kxutil/open_file.h"

namespace qln {
namespace {

constexpr uint64_t kLargestFile = 256u << 20;
constexpr uint32_t kLockWaitMs = 30000;
constexpr uint32_t kLockPollMs = 5;

std::string TextOf(int error) { return std::generic_category().message(error); }
std::string LastProblem() { return TextOf(static_cast<int>(kxOSGetLastError())); }

// A descriptor of a file, for what the file calls do not have; it closes when it goes.
class Descriptor {
 public:
  explicit Descriptor(const std::string& path)
      : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC)), error_(descriptor_ < 0 ? errno : 0) {}
  ~Descriptor() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return descriptor_; }
  int error() const { return error_; }  // 0 if the file is open

 private:
  int descriptor_;
  int error_;
};

bool WriteBeside(const std::string& target, const std::string& beside, std::string_view text,
                 std::string& problem) {
  struct stat old;
  const bool replaces = stat(target.c_str(), &old) == 0;
  if (replaces && access(target.c_str(), W_OK) != 0) {
    problem = TextOf(errno);
    return false;
  }
  OpenFile file;
  if (!file.Make(beside.c_str())) {
    problem = LastProblem();
    return false;
  }
  const Descriptor made(beside);
  if (replaces && made.error() == 0 && !TakeOver(target, old, made.get())) {
    problem = TextOf(errno);
    return false;
  }
  if (!file.Write(text.data(), static_cast<uint32_t>(text.size())) || !file.Close()) {
    problem = LastProblem();
    return false;
  }
  if (made.error() != 0) {
    problem = TextOf(made.error());
    return false;
  }
  if (fsync(made.get()) != 0 || rename(beside.c_str(), target.c_str()) != 0) {
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
  OpenFile file;
  if (!file.Open(path.c_str())) {
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

StoreFolderLock::StoreFolderLock(const std::string& path, std::string& problem)
    : target_(FileBehindLinks(path)) {
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
  FlushFolder(FolderOf(target));
  return true;
}

}  // namespace qln
