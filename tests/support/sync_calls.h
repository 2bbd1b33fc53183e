// What reaches the disk, and in which order: the flushing and renaming calls of the system, written down.
// Only for programs that build sync_calls.cpp in, which puts itself in front of these calls.
#ifndef TESTS_SUPPORT_SYNC_CALLS_H
#define TESTS_SUPPORT_SYNC_CALLS_H

#include <functional>
#include <string>
#include <vector>

namespace qln::test {

// While one lives: "flush NAME" for a flushed file, "flush folder NAME" for a folder, "rename NAME", with the
// last part of the path each; of a renaming the name that the file gets.
class SyncLog {
 public:
  SyncLog();
  ~SyncLog();
  SyncLog(const SyncLog&) = delete;
  SyncLog& operator=(const SyncLog&) = delete;

  std::vector<std::string> lines;
  std::function<void(const std::string&)> each;  // called with each line, in front of the call itself
};

}  // namespace qln::test

#endif
