// Owners, groups, access lists and attributes of files, and processes of another user, for tests of what is
// kept when a file is replaced.
#ifndef TESTS_SUPPORT_FILE_STATUS_H
#define TESTS_SUPPORT_FILE_STATUS_H

#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qln::test {

inline constexpr char kAccessList[] = "system.posix_acl_access";

// An access list as the system lays it out: the owner reads and writes, one more user reads, the group has
// nothing, others nothing; what list entries may at most is to read.
inline std::string AccessListWithUser(uint32_t user) {
  std::string bytes;
  const auto add = [&bytes](uint64_t value, int size) {
    for (int i = 0; i < size; ++i) bytes.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
  };
  constexpr uint32_t kNobody = 0xFFFFFFFFu;
  struct Entry {
    uint16_t tag;
    uint16_t rights;
    uint32_t id;
  };
  add(2, 4);  // version
  for (const Entry& entry : {Entry{1, 6, kNobody}, Entry{2, 4, user}, Entry{4, 0, kNobody},
                             Entry{0x10, 4, kNobody}, Entry{0x20, 0, kNobody}}) {
    add(entry.tag, 2);
    add(entry.rights, 2);
    add(entry.id, 4);
  }
  return bytes;
}

// Nothing where the attribute is not there.
inline std::optional<std::string> Attribute(const std::string& path, const char* name) {
  char value[1024];
  const ssize_t size = getxattr(path.c_str(), name, value, sizeof value);
  if (size < 0) return std::nullopt;
  return std::string(value, static_cast<size_t>(size));
}

inline bool SetAttribute(const std::string& path, const char* name, const std::string& value) {
  return setxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
}

inline struct stat StatusOf(const std::string& path) {
  struct stat status = {};
  stat(path.c_str(), &status);
  return status;
}

// Runs an action in a process of its own. The action's result; 1000 and the signal if one ended it.
template <typename Action>
int ResultInChild(Action action) {
  const pid_t child = fork();
  if (child == 0) _exit(action());
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

// The same as another user with these groups, the first one being its own; 99 if the process may not become
// that user.
template <typename Action>
int ResultAs(uid_t user, const std::vector<gid_t>& groups, Action action) {
  return ResultInChild([&] {
    if (setgroups(groups.size(), groups.data()) != 0 || setgid(groups[0]) != 0 || setuid(user) != 0)
      return 99;
    return action();
  });
}

}  // namespace qln::test

#endif
