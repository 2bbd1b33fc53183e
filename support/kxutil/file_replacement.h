// What it takes to put a new file in the place of an old one: where that place is, whose the file stays, and
// that its name lasts.
#ifndef KXUTIL_FILE_REPLACEMENT_H
#define KXUTIL_FILE_REPLACEMENT_H

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace qln {

// The folder that a file of that path lies in.
inline std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// The path of the file itself where a path leads over symbolic links, also where there is no file at the end
// of them. A path that leads nowhere comes back as far as it could be followed.
inline std::string FileBehindLinks(const std::string& path) {
  constexpr int kMostLinks = 40;  // as the system follows
  char text[PATH_MAX];
  std::string file = path;
  for (int link = 0; link < kMostLinks; ++link) {
    if (realpath(file.c_str(), text) != nullptr) return text;
    const ssize_t length = readlink(file.c_str(), text, sizeof text);
    if (length < 0) return file;
    const std::string next(text, static_cast<size_t>(length));
    file = next.starts_with('/') ? next : FolderOf(file).append("/").append(next);
  }
  return file;
}

// Flushes a folder to the disk, so that a name in it outlives a power cut. False if that could not be done.
inline bool FlushFolder(const std::string& folder) {
  const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return false;
  const bool flushed = fsync(descriptor) == 0;
  close(descriptor);
  return flushed;
}

// Where Linux keeps a file's access control list.
inline constexpr char kAccessListAttribute[] = "system.posix_acl_access";

// Copies one extended attribute. False with errno set; true also if it is gone by now.
inline bool CopyAttribute(const std::string& from, const char* name, int to) {
  const ssize_t size = getxattr(from.c_str(), name, nullptr, 0);
  if (size < 0) return errno == ENODATA;
  std::string value(static_cast<size_t>(size), '\0');
  const ssize_t got = getxattr(from.c_str(), name, value.data(), value.size());
  if (got < 0) return errno == ENODATA;
  return fsetxattr(to, name, value.data(), static_cast<size_t>(got), 0) == 0;
}

// Copies the extended attributes that users set ("user."). Those that may not be set are left off; false,
// with errno set, for any other failure.
inline bool CopyUserAttributes(const std::string& from, int to) {
  const ssize_t size = listxattr(from.c_str(), nullptr, 0);
  if (size <= 0) return true;  // none, or a file system without them
  std::string names(static_cast<size_t>(size), '\0');
  const ssize_t got = listxattr(from.c_str(), names.data(), names.size());
  if (got < 0) return false;
  names.resize(static_cast<size_t>(got));
  for (size_t at = 0; at < names.size(); at += std::strlen(names.c_str() + at) + 1) {
    const char* const name = names.c_str() + at;
    if (!std::string_view(name).starts_with("user.") || CopyAttribute(from, name, to)) continue;
    if (errno != EPERM && errno != EACCES && errno != ENOTSUP) return false;
  }
  return true;
}

// Gives the open file `made`, which is to replace `target` with its status `old`, what that one has: owner,
// group, permissions, access control list, and the attributes that users set. A user who may not give the
// owner still gives the group. Where the group cannot be given either, its rights are those of all others and
// the list is left off, so that nobody gains a right by it; special mode bits go with owner and group.
// Security labels and capabilities are the system's to make. False with errno set.
inline bool TakeOver(const std::string& target, const struct stat& old, int made) {
  if (!CopyUserAttributes(target, made)) return false;
  const auto refused = [] { return errno == EPERM || errno == EINVAL; };
  struct stat now;
  if (fstat(made, &now) != 0) return false;
  const bool differs = now.st_uid != old.st_uid || now.st_gid != old.st_gid;
  if (differs && fchown(made, old.st_uid, old.st_gid) != 0) {
    if (!refused()) return false;
    constexpr uid_t kSameOwner = static_cast<uid_t>(-1);
    if (fchown(made, kSameOwner, old.st_gid) != 0 && !refused()) return false;
  }
  if (fstat(made, &now) != 0) return false;
  const bool sameGroup = now.st_gid == old.st_gid;
  mode_t mode = old.st_mode & 07777;
  if (!sameGroup || now.st_uid != old.st_uid) mode &= 0777;
  if (!sameGroup) mode = (mode & ~mode_t{S_IRWXG}) | (mode & S_IRWXO) << 3;
  // A list that the folder gave the new file is not the old one's.
  fremovexattr(made, kAccessListAttribute);
  if (fchmod(made, mode) != 0) return false;
  return !sameGroup || CopyAttribute(target, kAccessListAttribute, made) || errno == ENOTSUP;
}

}  // namespace qln

#endif
