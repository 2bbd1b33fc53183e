// posix_spawn of /proc/self/exe, with pipes for what it says.

#include "apart.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>

#include "descriptor.h"
#include "qlnmedia/error.h"

namespace qlnmedia {

namespace {

constexpr char kSelf[] = "/proc/self/exe";
constexpr char kProgramName[] = "qlnmedia";

std::string ReadToEnd(int descriptor) {
  std::string text;
  char buffer[4096];
  while (true) {
    const ssize_t size = read(descriptor, buffer, sizeof buffer);
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) return text;
    text.append(buffer, static_cast<size_t>(size));
  }
}

[[noreturn]] void Fail(int number) {
  throw Error({}, std::string("cannot start a process: ") + std::strerror(number));
}

// Signals that wait for this process's own thread are the child's to take.
int Spawn(const std::vector<std::string>& arguments, int out, int error, pid_t* child) {
  std::vector<char*> list{const_cast<char*>(kProgramName)};
  for (const std::string& argument : arguments) list.push_back(const_cast<char*>(argument.c_str()));
  list.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_init(&attributes);
  posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, error, STDERR_FILENO);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  const int failed = posix_spawn(child, kSelf, &actions, &attributes, list.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  return failed;
}

}  // namespace

ApartResult RunApart(const std::vector<std::string>& arguments) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) Fail(errno);
  Descriptor reading(ends[0]), writing(ends[1]);
  // What it says of a failure is one line, and waits in a file that nobody else sees.
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> said(std::tmpfile(), &std::fclose);
  if (said == nullptr) Fail(errno);
  fcntl(fileno(said.get()), F_SETFD, FD_CLOEXEC);
  pid_t child = 0;
  const int failed = Spawn(arguments, writing.number(), fileno(said.get()), &child);
  if (failed != 0) Fail(failed);
  writing.Close();
  ApartResult result;
  result.out = ReadToEnd(reading.number());
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
  lseek(fileno(said.get()), 0, SEEK_SET);
  result.error = ReadToEnd(fileno(said.get()));
  result.error.resize(std::min(result.error.find('\n'), result.error.size()));
  const std::string name = std::string(kProgramName) + ": ";
  if (result.error.compare(0, name.size(), name) == 0) result.error.erase(0, name.size());
  return result;
}

}  // namespace qlnmedia
