// The descriptors that a process has open.
#ifndef TESTS_SUPPORT_OPEN_DESCRIPTORS_H
#define TESTS_SUPPORT_OPEN_DESCRIPTORS_H

#include <fcntl.h>

#include <filesystem>
#include <map>
#include <string>
#include <system_error>

namespace qln::test {

// The numbers, and what each is open for.
inline std::map<int, std::string> OpenDescriptors() {
  std::map<int, std::string> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code closed;  // that of this very search, by now
    const std::string path = std::filesystem::read_symlink(entry, closed);
    if (!closed) found[std::stoi(entry.path().filename())] = path;
  }
  // The search's own.
  std::erase_if(found, [](const auto& one) { return fcntl(one.first, F_GETFD) < 0; });
  return found;
}

// How many descriptors are open for that path, and how many of them a program that this process starts would
// get.
struct DescriptorCounts {
  int open = 0, inherited = 0;
};
inline DescriptorCounts DescriptorsOf(const std::string& path) {
  DescriptorCounts counts;
  for (const auto& [number, name] : OpenDescriptors()) {
    if (name != path) continue;
    ++counts.open;
    if ((fcntl(number, F_GETFD) & FD_CLOEXEC) == 0) ++counts.inherited;
  }
  return counts;
}

}  // namespace qln::test

#endif
