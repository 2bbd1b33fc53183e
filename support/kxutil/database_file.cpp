// Database files by POSIX calls. None of them opens the file itself: closing it again would drop the locks
// that this process's connections hold on it.

#include "kxutil/database_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <vector>

namespace qln {
namespace {

constexpr int kMostLinks = 40;
constexpr int kMostNames = 1000;
constexpr int kMostLockAttempts = 500;
constexpr useconds_t kLockPause = 10000;
constexpr size_t kLargestAttribute = 64 << 10;

std::string TextOf(int error) { return std::generic_category().message(error); }

// With its last separator. SQLite opens no file by a name that is not absolute here (AbsolutePath).
std::string FolderOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

// A descriptor that is closed at the end; -1 is none.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number() const { return number_; }

 private:
  int number_;
};

// False if what was renamed in a folder may be lost with the power. Some file systems cannot be asked.
bool FlushFolder(const std::string& path) {
  const std::string folder = FolderOf(path);
  const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (opened.number() < 0 || fsync(opened.number()) == 0) return true;
  return errno != EIO && errno != ENOSPC && errno != EDQUOT;
}

// What this user may not set, or the file system does not have, stays behind.
void TakeAttributes(const std::string& from, int to) {
  const ssize_t room = listxattr(from.c_str(), nullptr, 0);
  if (room <= 0) return;
  std::vector<char> names(static_cast<size_t>(room)), value(kLargestAttribute);
  const ssize_t length = listxattr(from.c_str(), names.data(), names.size());
  for (ssize_t at = 0; at < length;) {
    const std::string name = names.data() + at;
    const ssize_t size = getxattr(from.c_str(), name.c_str(), value.data(), value.size());
    if (size >= 0) static_cast<void>(fsetxattr(to, name.c_str(), value.data(), static_cast<size_t>(size), 0));
    at += static_cast<ssize_t>(name.size()) + 1;
  }
}

bool TakeOwnerAndAttributes(const std::string& from, int to) {
  struct stat old, made;
  if (stat(from.c_str(), &old) != 0 || fstat(to, &made) != 0) return false;
  mode_t mode = old.st_mode & 07777;
  const auto ids = [](const struct stat& status) { return std::pair(status.st_uid, status.st_gid); };
  if (ids(old) != ids(made) && fchown(to, old.st_uid, old.st_gid) != 0) {
    // A user may give a file to a group of theirs, though not to another owner.
    const uid_t same = static_cast<uid_t>(-1);
    const bool hasGroup = old.st_gid == made.st_gid || fchown(to, same, old.st_gid) == 0;
    // Another group gets no more than everybody had.
    if (!hasGroup) mode &= ~static_cast<mode_t>(070) | ((mode & 7) << 3);
  }
  TakeAttributes(from, to);
  return fchmod(to, mode) == 0;
}

bool WriteAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    bytes.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

bool IsFile(const std::string& path, int descriptor) {
  struct stat named, opened;
  return stat(path.c_str(), &named) == 0 && fstat(descriptor, &opened) == 0 &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

bool PutInPlace(const std::string& path, const FileState& old, const std::string& beside,
                std::string_view bytes, FileState& made, std::string& problem) {
  const Descriptor file(open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (file.number() < 0 || !TakeOwnerAndAttributes(path, file.number()) || !WriteAll(file.number(), bytes) ||
      fsync(file.number()) != 0) {
    problem = TextOf(errno);
    return false;
  }
  // A journal of the old file whose removal were lost with the power, and the renaming not, would be taken
  // for the new one's.
  if (!FlushFolder(path)) {
    problem = TextOf(errno);
    return false;
  }
  FileState now;
  if (!LookAt(path, now, problem)) return false;
  if (!now.SameFile(old) || !LookAt(beside, made, problem) || !IsFile(beside, file.number())) {
    problem = "it was replaced meanwhile";
    return false;
  }
  if (rename(beside.c_str(), path.c_str()) != 0) {
    problem = TextOf(errno);
    return false;
  }
  return true;
}

bool LockSoon(int descriptor) {
  for (int i = 0; i < kMostLockAttempts; ++i) {
    if (flock(descriptor, LOCK_EX | LOCK_NB) == 0) return true;
    if (errno != EWOULDBLOCK && errno != EINTR) return false;
    usleep(kLockPause);
  }
  return false;
}

// Renames without taking a name that is there. 0 or an error number.
int RenameToFreeName(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  if (access(to.c_str(), F_OK) == 0) return EEXIST;
  return rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

std::string Today() {
  const std::time_t now = std::time(nullptr);
  std::tm parts = {};
  gmtime_r(&now, &parts);
  char text[32];
  (void)std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &parts);
  return text;
}

}  // namespace

bool LookAt(const std::string& path, FileState& state, std::string& problem) {
  struct stat status;
  state = {};
  if (stat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return true;
    problem = TextOf(errno);
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    problem = "it is no plain file";
    return false;
  }
  state.exists = true;
  state.device = status.st_dev;
  state.inode = status.st_ino;
  state.size = status.st_size;
  state.changed = int64_t{status.st_mtim.tv_sec} * 1000000000 + status.st_mtim.tv_nsec;
  return true;
}

std::string AbsolutePath(const std::string& path) {
  if (path.empty() || path[0] == '/') return path;
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::current_path(error);
  return error ? path : folder.string() + "/" + path;
}

std::string TargetOf(const std::string& path) {
  std::string target = path;
  for (int links = 0; links < kMostLinks; ++links) {
    char text[PATH_MAX];
    const ssize_t length = readlink(target.c_str(), text, sizeof text);
    if (length <= 0 || length == sizeof text) break;
    const std::string link(text, static_cast<size_t>(length));
    target = link[0] == '/' ? link : FolderOf(target) + link;
  }
  return target;
}

bool MakeFile(const std::string& path, std::string& problem) {
  // Who locks the file comes through here first, so that this close drops nobody's lock.
  static std::mutex mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  if (access(path.c_str(), F_OK) == 0) return true;
  for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    const std::string folder = path.substr(0, slash);
    // A folder that is lost with the power takes along what was kept in it.
    if (mkdir(folder.c_str(), 0700) == 0) FlushFolder(folder);
  }
  const Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (file.number() >= 0 || errno == EEXIST) return true;
  problem = TextOf(errno);
  return false;
}

bool ReplaceFile(const std::string& path, const FileState& old, std::string_view bytes, FileState& made,
                 std::string& problem) {
  const std::string folder = FolderOf(path);
  const std::string beside = folder + "." + path.substr(folder.size()) + ".new";
  // What a killed writer left behind; nobody else is at it.
  unlink(beside.c_str());
  if (!PutInPlace(path, old, beside, bytes, made, problem)) {
    unlink(beside.c_str());
    return false;
  }
  if (FlushFolder(path)) return true;
  problem = TextOf(errno);
  return false;
}

std::string SetAside(const std::string& path, const FileState& old, std::string& problem) {
  // Of two processes that find the same damage, one renames and the other then sees another file.
  const std::string folder = FolderOf(path);
  const Descriptor lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (lock.number() < 0 || !LockSoon(lock.number())) {
    problem = TextOf(errno);
    return "";
  }
  FileState now;
  if (!LookAt(path, now, problem) || !now.SameFile(old)) return "";
  const std::string base = path + ".damaged-" + Today();
  std::string name = base;
  int error = RenameToFreeName(path, name);
  for (int i = 2; error == EEXIST && i < kMostNames; ++i) {
    name = base + "-" + std::to_string(i);
    error = RenameToFreeName(path, name);
  }
  if (error != 0) {
    problem = TextOf(error);
    return "";
  }
  // What belongs to it goes with it: a later file of that name must not be taken for what these continue.
  for (const char* const journal : {"-journal", "-wal", "-shm"}) {
    RenameToFreeName(path + journal, name + journal);
  }
  FlushFolder(path);
  return name;
}

}  // namespace qln
