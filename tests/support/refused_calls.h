// System calls that a file system refuses, for tests of what is done instead.
#ifndef TESTS_SUPPORT_REFUSED_CALLS_H
#define TESTS_SUPPORT_REFUSED_CALLS_H

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cstddef>
#include <cstdint>
#include <thread>
#include <utility>
#include <vector>

namespace qln::test {

// A call by its number, and the error number that it fails with.
using RefusedCalls = std::vector<std::pair<uint32_t, uint32_t>>;

// Runs an action in a thread of its own, where the system refuses these calls. False if that cannot be had.
template <typename Action>
bool RunWithout(const RefusedCalls& calls, Action action) {
  bool refuses = false;
  std::thread([&] {
    std::vector<sock_filter> filter = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const auto& [call, error] : calls) {
      filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
      filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
    refuses = prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
              prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
    if (refuses) action();
  }).join();
  return refuses;
}

}  // namespace qln::test

#endif
