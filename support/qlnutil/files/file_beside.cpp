// Names, locks and renaming of files that wait beside their place.

#include "qlnutil/files/file_beside.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <memory>
#include <string_view>
#include <utility>

#include "kxutil/file_replacement.h"

namespace qln {
namespace {

constexpr std::string_view kPrefix = ".project-";

// Reads a number and removes it from the front. False if there is none above `least`.
bool TakeNumber(std::string_view& text, int least, int& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || number < least) return false;
  text.remove_prefix(static_cast<size_t>(end - text.data()));
  return true;
}

// The process that a file beside belongs to by its name; 0 for any other name.
pid_t OwnerOf(std::string_view name) {
  if (!name.starts_with(kPrefix)) return 0;
  name.remove_prefix(kPrefix.size());
  int owner = 0;
  int attempt = 0;
  if (!TakeNumber(name, 1, owner) || !name.starts_with('-')) return 0;
  name.remove_prefix(1);
  return TakeNumber(name, 0, attempt) && name.empty() ? owner : 0;
}

bool IsAlive(pid_t process) { return kill(process, 0) == 0 || errno != ESRCH; }

// A process that cannot be seen from here, in a container of its own, still holds its lock.
void RemoveUnlessLocked(int folder, const char* name) {
  const int descriptor = openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return;
  struct stat status;
  if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && flock(descriptor, LOCK_EX | LOCK_NB) == 0)
    unlinkat(folder, name, 0);
  close(descriptor);
}

void RemoveAbandoned(const std::string& folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder.c_str()), closedir);
  if (entries == nullptr) return;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread has this listing
  while (const dirent* const entry = readdir(entries.get())) {
    const pid_t owner = OwnerOf(entry->d_name);
    if (owner != 0 && !IsAlive(owner)) RemoveUnlessLocked(dirfd(entries.get()), entry->d_name);
  }
}

// Gives the file its name unless something has it. Some file systems know no renaming of that kind (of
// kernels without the call the C library says the same), others no second names for a file.
bool RenameToNew(const char* from, const char* to) {
  if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL) return false;
  if (link(from, to) == 0) {
    unlink(from);
    return true;
  }
  struct stat status;
  return errno != EEXIST && lstat(to, &status) != 0 && errno == ENOENT && rename(from, to) == 0;
}

}  // namespace

FileBeside::FileBeside(std::string target, const std::function<int(const char*)>& make)
    : target_(std::move(target)) {
  constexpr int kMostAttempts = 100;
  const std::string folder = FolderOf(target_);
  RemoveAbandoned(folder);
  int error = EEXIST;
  for (int attempt = 0; attempt < kMostAttempts && error == EEXIST; ++attempt) {
    path_ = folder + "/" + std::string(kPrefix) + std::to_string(getpid()) + "-" + std::to_string(attempt);
    error = make(path_.c_str());
  }
  if (error != 0) {
    path_.clear();
    return;
  }
  descriptor_ = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor_ >= 0) flock(descriptor_, LOCK_EX | LOCK_NB);
}

FileBeside::~FileBeside() {
  if (!path_.empty()) unlink(path_.c_str());
  if (descriptor_ >= 0) close(descriptor_);
}

bool FileBeside::MoveTo(bool replaces) {
  if (fsync(descriptor_) != 0) return false;
  const bool moved =
      replaces ? rename(path_.c_str(), target_.c_str()) == 0 : RenameToNew(path_.c_str(), target_.c_str());
  if (!moved) return false;
  path_.clear();
  FlushFolder(FolderOf(target_));  // the file stands, whether this can be done or not
  return true;
}

bool FileBeside::Replace() { return MoveTo(true); }

bool FileBeside::PutWhereNothingIs() { return MoveTo(false); }

}  // namespace qln
