// Landlock for files, by its system calls, since not every C library has them; a seccomp filter for what is
// no file.

#include "sandbox.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "descriptor.h"
#include "qlnmedia/error.h"

namespace qlnmedia {

namespace {

// The kernel's interface (Documentation/userspace-api/landlock.rst), of which older headers have a part.
constexpr long kCreateRuleset = 444, kAddRule = 445, kRestrictSelf = 446;
constexpr uint32_t kAskVersion = 1;
constexpr int kPathBeneath = 1;
struct RulesetAttributes {
  uint64_t handledFiles;
  uint64_t handledNetwork;
};
struct __attribute__((packed)) PathBeneath {
  uint64_t allowed;
  int32_t folder;
};
constexpr uint64_t kWriteFile = 1 << 1, kReadFile = 1 << 2, kReadFolder = 1 << 3;
constexpr uint64_t kFirstVersion =
    (uint64_t{1} << 13) - 1;                       // execution, reading, writing, making and removing
constexpr uint64_t kRefer = uint64_t{1} << 13;     // from version 2: renaming from folder to folder
constexpr uint64_t kTruncate = uint64_t{1} << 14;  // from version 3
constexpr uint64_t kExecute = 1;
constexpr uint64_t kMakeDevices = 1 << 6 | 1 << 9 | 1 << 10 | 1 << 11 | 1 << 12;  // and sockets, pipes, links
constexpr uint64_t kNetwork = 3;  // from version 4: binding and connecting of TCP

uint64_t HandledBy(int version) {
  return kFirstVersion | (version >= 2 ? kRefer : 0) | (version >= 3 ? kTruncate : 0);
}

int LandlockVersion() {
  const long version = syscall(kCreateRuleset, nullptr, 0, kAskVersion);
  return version < 0 ? 0 : static_cast<int>(version);
}

void Allow(int ruleset, const std::string& path, uint64_t rights) {
  const Descriptor place(open(path.c_str(), O_PATH | O_CLOEXEC));
  struct stat status {};
  const bool known = place.number() >= 0 && fstat(place.number(), &status) == 0;
  if (!known && errno != ENOENT && errno != ENOTDIR && errno != EACCES)
    throw Error(path, std::strerror(errno));
  if (!known) return;
  if (!S_ISDIR(status.st_mode)) rights &= kReadFile | kWriteFile | kTruncate;
  const PathBeneath rule = {rights, place.number()};
  // Pipes and what is in memory alone belong to no folder, and need no rule.
  static_cast<void>(syscall(kAddRule, ruleset, kPathBeneath, &rule, 0));
}

// Where libraries stand that are loaded when they are first needed, with what they read of the system's
// set-up.
std::vector<std::string> LibraryFolders() {
  std::vector<std::string> folders = {"/usr", "/lib", "/lib64", "/opt", "/etc", "/nix/store", "/gnu/store"};
#ifdef QLNMEDIA_SANITIZED  // whose search for leaks lists the threads
  folders.emplace_back("/proc");
#endif
  const char* const configured = std::getenv("LD_LIBRARY_PATH");
  std::string_view left = configured == nullptr ? "" : configured;
  while (!left.empty()) {
    const size_t end = left.find_first_of(":;");
    if (end != 0) folders.emplace_back(left.substr(0, end));
    left = end == std::string_view::npos ? std::string_view() : left.substr(end + 1);
  }
  return folders;
}

bool ConfineFiles(const SandboxPlaces& places, int version) {
  const uint64_t handled = HandledBy(version);
  const RulesetAttributes attributes = {handled, version >= 4 ? kNetwork : 0};
  const size_t size = version >= 4 ? sizeof attributes : sizeof attributes.handledFiles;
  const Descriptor ruleset(static_cast<int>(syscall(kCreateRuleset, &attributes, size, 0)));
  if (ruleset.number() < 0) return false;
  const uint64_t reading = kReadFile | kReadFolder;
  const uint64_t writing = handled & ~kExecute & ~kMakeDevices;
  for (const std::string& path : LibraryFolders()) Allow(ruleset.number(), path, reading);
  for (const std::string& path : places.read)
    Allow(ruleset.number(), path == "-" ? "/dev/stdin" : path, reading);
  for (const std::string& path : places.write) Allow(ruleset.number(), path, writing);
  return syscall(kRestrictSelf, ruleset.number(), 0) == 0;
}

#if defined(__x86_64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#else
constexpr uint32_t kArchitecture = 0;  // no filter
#endif

// Networks, other programs, other processes, and ways around a filter or into the kernel.
constexpr uint32_t kRefused[] = {SYS_socket,
                                 SYS_socketpair,
                                 SYS_connect,
                                 SYS_bind,
                                 SYS_listen,
                                 SYS_accept,
                                 SYS_accept4,
                                 SYS_execve,
                                 SYS_execveat,
#ifdef SYS_fork
                                 SYS_fork,
                                 SYS_vfork,
#endif
#ifndef QLNMEDIA_SANITIZED  // whose search for leaks stops the process from another one
                                 SYS_ptrace,
#endif
                                 SYS_process_vm_readv,
                                 SYS_process_vm_writev,
                                 SYS_bpf,
                                 SYS_perf_event_open,
                                 SYS_userfaultfd,
                                 SYS_add_key,
                                 SYS_request_key,
                                 SYS_keyctl,
                                 SYS_mount,
                                 SYS_umount2,
                                 SYS_pivot_root,
                                 SYS_chroot,
                                 SYS_unshare,
                                 SYS_setns,
                                 SYS_init_module,
                                 SYS_finit_module,
                                 SYS_delete_module,
                                 SYS_kexec_load,
                                 SYS_open_by_handle_at,
                                 SYS_personality,
                                 SYS_swapon,
                                 SYS_swapoff,
                                 SYS_reboot,
                                 425 /* io_uring_setup, whose calls no filter sees */,
                                 435 /* clone3, whose flags no filter sees */};

bool ConfineCalls() {
  if (kArchitecture == 0) return false;
  std::vector<sock_filter> filter;
  const auto refuse = [&filter](uint32_t error) {
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error));
  };
  filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)));
  filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kArchitecture, 1, 0));
  refuse(EPERM);
  filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
#ifdef __x86_64__
  constexpr uint32_t kOtherInterface = 0x40000000;  // x32, under the same architecture
  filter.push_back(BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, kOtherInterface, 0, 1));
  refuse(EPERM);
#endif
  for (const uint32_t call : kRefused) {
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
    // The C library then starts its threads by clone.
    refuse(call == 435 ? ENOSYS : EPERM);
  }
#ifndef QLNMEDIA_SANITIZED
  filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone, 0, 3));
  filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args)));
  filter.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, CLONE_THREAD, 1, 0));
  refuse(EPERM);
#endif
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
  return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

bool used = true;

}  // namespace

Sandbox EnterSandbox(const SandboxPlaces& places) {
  Sandbox sandbox;
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return sandbox;
  const int version = LandlockVersion();
  if (version > 0 && ConfineFiles(places, version)) sandbox.landlock = version;
  sandbox.seccomp = ConfineCalls();
  return sandbox;
}

Sandbox SandboxOfKernel() {
  // Asked with no filter, a kernel that takes some says that there is none.
  const bool seccomp =
      kArchitecture != 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, nullptr) != 0 && errno == EFAULT;
  return {LandlockVersion(), seccomp};
}

std::string SandboxText(const Sandbox& sandbox) {
  std::string text = sandbox.landlock > 0 ? fmt::format("Landlock {}", sandbox.landlock) : "";
  if (sandbox.seccomp) text += text.empty() ? "seccomp" : ", seccomp";
  return text.empty() ? "none on this kernel" : text;
}

void UseSandbox(bool use) { used = use; }
bool SandboxIsUsed() { return used; }

void ConfineCommand(const SandboxPlaces& places) {
#ifndef QLNMEDIA_MEASURED  // what was run is written down elsewhere at the end
  if (used) EnterSandbox(places);
#else
  static_cast<void>(places);
#endif
}

std::string FolderOfPath(const std::string& path) {
  const size_t slash =
      path.find_last_not_of('/') == std::string::npos ? 0 : path.rfind('/', path.find_last_not_of('/'));
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace qlnmedia
