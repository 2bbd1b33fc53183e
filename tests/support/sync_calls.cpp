// The calls in front of the system's own, which they go on to.

#include "support/sync_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>

namespace qln::test {
namespace {

SyncLog* current = nullptr;

std::string LastPart(const std::string& path) { return path.substr(path.rfind('/') + 1); }

void Note(const std::string& line) {
  if (current == nullptr) return;
  current->lines.push_back(line);
  if (current->each) current->each(line);
}

void NoteFlush(int descriptor) {
  if (current == nullptr) return;
  struct stat status;
  char path[PATH_MAX + 1] = {};
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  if (fstat(descriptor, &status) != 0 || readlink(link.c_str(), path, PATH_MAX) < 0) return;
  Note((S_ISDIR(status.st_mode) ? "flush folder " : "flush ") + LastPart(path));
}

template <class Function>
Function* Real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

SyncLog::SyncLog() { current = this; }
SyncLog::~SyncLog() { current = nullptr; }

}  // namespace qln::test

#define QLN_IN_FRONT __attribute__((visibility("default")))

QLN_IN_FRONT int fsync(int descriptor) {
  qln::test::NoteFlush(descriptor);
  return qln::test::Real<int(int)>("fsync")(descriptor);
}

QLN_IN_FRONT int rename(const char* from, const char* to) noexcept {
  qln::test::Note("rename " + qln::test::LastPart(to));
  return qln::test::Real<int(const char*, const char*)>("rename")(from, to);
}

QLN_IN_FRONT int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                           unsigned int flags) noexcept {
  qln::test::Note("rename " + qln::test::LastPart(to));
  return qln::test::Real<int(int, const char*, int, const char*, unsigned int)>("renameat2")(
      fromFolder, from, toFolder, to, flags);
}
