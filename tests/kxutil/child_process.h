// Actions in processes of their own, for tests of what processes do to each other.
#ifndef TESTS_KXUTIL_CHILD_PROCESS_H
#define TESTS_KXUTIL_CHILD_PROCESS_H

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qln::test {

// Runs an action in a process of its own; its result is the exit code.
template <typename Action>
pid_t InChild(Action action) {
  const pid_t child = fork();
  if (child == 0) _exit(action());
  return child;
}

inline int ExitCodeOf(pid_t child) {
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

constexpr uid_t kNobody = 65534;
constexpr int kCannotDropRights = 99;

// As a user who is not root, for whom permissions hold; a further group if one is given.
template <typename Action>
int ExitCodeAsNobody(Action action, gid_t furtherGroup = kNobody) {
  return ExitCodeOf(InChild([&] {
    if (getuid() == 0 && (setgroups(1, &furtherGroup) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0))
      return kCannotDropRights;
    return action();
  }));
}

}  // namespace qln::test

#endif
