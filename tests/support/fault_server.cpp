// The fault layer preloaded into a program: in front of main, a server that lets the program run once a
// request.

#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <initializer_list>

#include "support/fault_layer.h"
#include "support/fault_share.h"

namespace {

using qln::test::FaultShare;
using qln::test::faultShare;

int (*realMain)(int, char**, char**) = nullptr;

// Standard streams of a run.
void Redirect(const char* prefix) {
  if (prefix == nullptr) return;
  char path[4096];
  for (int stream = 0; stream < 3; ++stream) {
    constexpr const char* kNames[] = {"in", "out", "err"};
    snprintf(path, sizeof path, "%s%s", prefix, kNames[stream]);
    const int opened = stream == 0 ? open(path, O_RDONLY) : open(path, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int got = opened >= 0 ? opened : open("/dev/null", O_RDWR);
    dup2(got, stream);
    close(got);
  }
}

[[noreturn]] void RunProgram(int argc, char** argv, char** envp, const char* group, const char* how,
                             uint64_t at) {
  const char* const streams = getenv("QLN_FAULT_STREAMS");
  Redirect(streams);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  for (const char* name :
       {"LD_PRELOAD", "QLN_FAULT_CONTROL", "QLN_FAULT_SHARE", "QLN_FAULT_STREAMS", "QLN_FAULT_WARM"})
    unsetenv(name);
  if (qlnFaultArm(group, how, at) == 0) _exit(125);
  exit(realMain(argc, argv, envp));
}

// The status of a child, or -1 where its time was over.
int WaitFor(pid_t child, long milliseconds) {
  sigset_t ended;
  sigemptyset(&ended);
  sigaddset(&ended, SIGCHLD);
  timespec until{};
  clock_gettime(CLOCK_MONOTONIC, &until);
  int status = 0;
  for (;;) {
    if (waitpid(child, &status, WNOHANG) == child) return status;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const long left =
        milliseconds - (now.tv_sec - until.tv_sec) * 1000 - (now.tv_nsec - until.tv_nsec) / 1000000;
    if (left <= 0) break;
    const timespec wait = {left / 1000, left % 1000 * 1000000};
    sigtimedwait(&ended, nullptr, &wait);
  }
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
  return -1;
}

int Serve(int argc, char** argv, char** envp, int in, int out) {
  if (const char* const path = getenv("QLN_FAULT_SHARE")) {
    const int file = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0 || ftruncate(file, sizeof(FaultShare)) != 0) return 125;
    void* const mapped = mmap(nullptr, sizeof(FaultShare), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (mapped == MAP_FAILED) return 125;
    faultShare = static_cast<FaultShare*>(mapped);
    close(file);
  }
  if (const char* const warm = getenv("QLN_FAULT_WARM")) {
    char list[1 << 15];
    snprintf(list, sizeof list, "%s", warm);
    for (char* name = strtok(list, ":"); name != nullptr; name = strtok(nullptr, ":"))
      dlopen(name, RTLD_NOW | RTLD_LOCAL);
  }
  sigset_t ended;
  sigemptyset(&ended);
  sigaddset(&ended, SIGCHLD);
  sigprocmask(SIG_BLOCK, &ended, nullptr);
  FILE* const requests = fdopen(in, "r");
  char line[256];
  while (fgets(line, sizeof line, requests) != nullptr) {
    char group[32], how[32];
    unsigned long long at = 0;
    long milliseconds = 0;
    if (sscanf(line, "%31s %31s %llu %ld", group, how, &at, &milliseconds) != 4) return 125;
    if (faultShare != nullptr) faultShare->count = faultShare->fired = faultShare->where[0] = 0;
    const pid_t child = fork();
    if (child == 0) {
      close(in);
      close(out);
      RunProgram(argc, argv, envp, group, how, at);
    }
    const int status = WaitFor(child, milliseconds);
    dprintf(out, "%d %llu %d\n", status,
            faultShare == nullptr ? 0ull : static_cast<unsigned long long>(faultShare->count),
            faultShare == nullptr ? 0 : static_cast<int>(faultShare->fired));
  }
  return 0;
}

int MainInFront(int argc, char** argv, char** envp) {
  void* frames[4];
  backtrace(frames, 4);  // what it loads is loaded now
  int in = -1, out = -1;
  const char* const control = getenv("QLN_FAULT_CONTROL");
  if (control == nullptr || sscanf(control, "%d,%d", &in, &out) != 2) return realMain(argc, argv, envp);
  return Serve(argc, argv, envp, in, out);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int __libc_start_main(int (*program)(int, char**, char**),
                                                                        int argc, char** argv,
                                                                        void (*begin)(), void (*end)(),
                                                                        void (*loaderEnds)(),
                                                                        void* stackEnd) {
  using Start = int (*)(int (*)(int, char**, char**), int, char**, void (*)(), void (*)(), void (*)(), void*);
  realMain = program;
  const auto real = reinterpret_cast<Start>(dlsym(RTLD_NEXT, "__libc_start_main"));
  return real(MainInFront, argc, argv, begin, end, loaderEnds, stackEnd);
}
