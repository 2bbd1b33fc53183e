// Stands in front of allocations by their names, and of system calls by a filter that has them trapped: so
// the calls that the C library makes for itself count as well (those of stdio).

#include "support/fault_layer.h"

#include <dlfcn.h>
#include <elf.h>
#include <errno.h>
#include <execinfo.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <iterator>

#include "support/fault_share.h"
#include "support/trapped_calls.h"

#define QLN_IN_FRONT extern "C" __attribute__((visibility("default")))

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);
}

namespace qln::test {
FaultShare* faultShare = nullptr;
}

namespace {

using qln::test::kMostMarks;

enum Group : int {
  kNone,
  kAllocate,
  kOpen,
  kRead,
  kWrite,
  kSync,
  kRename,
  kTruncate,
  kCopy,
  kMap,
  kUnlink,
  kStatus,
  kOther,
  kClock,
  kThread
};
constexpr const char* kGroupNames[] = {"none",   "allocate", "open",     "read",  "write",
                                       "sync",   "rename",   "truncate", "copy",  "map",
                                       "unlink", "status",   "other",    "clock", "thread"};

struct Call {
  unsigned number;
  Group group;
};
constexpr Call kCalls[] = {
    {SYS_open, kOpen},         {SYS_openat, kOpen},        {SYS_read, kRead},
    {SYS_pread64, kRead},      {SYS_readv, kRead},         {SYS_preadv, kRead},
    {SYS_write, kWrite},       {SYS_pwrite64, kWrite},     {SYS_writev, kWrite},
    {SYS_pwritev, kWrite},     {SYS_fsync, kSync},         {SYS_fdatasync, kSync},
    {SYS_rename, kRename},     {SYS_renameat, kRename},    {SYS_renameat2, kRename},
    {SYS_link, kRename},       {SYS_linkat, kRename},      {SYS_ftruncate, kTruncate},
    {SYS_truncate, kTruncate}, {SYS_fallocate, kTruncate}, {SYS_copy_file_range, kCopy},
    {SYS_sendfile, kCopy},     {SYS_mmap, kMap},           {SYS_mremap, kMap},
    {SYS_unlink, kUnlink},     {SYS_unlinkat, kUnlink},    {SYS_rmdir, kUnlink},
    {SYS_newfstatat, kStatus}, {SYS_fstat, kStatus},       {SYS_stat, kStatus},
    {SYS_lstat, kStatus},      {SYS_statx, kStatus},       {SYS_mkdir, kOther},
    {SYS_mkdirat, kOther},     {SYS_fchmod, kOther},       {SYS_chmod, kOther},
    {SYS_fchown, kOther},      {SYS_getdents64, kOther},   {SYS_fcntl, kOther},
    {SYS_flock, kOther},       {SYS_fsetxattr, kOther},    {SYS_fgetxattr, kOther},
    {SYS_flistxattr, kOther},  {SYS_readlink, kOther},     {SYS_pipe2, kOther},
    {SYS_eventfd2, kOther},    {SYS_signalfd4, kOther},    {SYS_dup, kOther},
    {SYS_access, kOther},      {SYS_faccessat2, kOther},   {SYS_getxattr, kOther},
    {SYS_listxattr, kOther},
};

struct Error {
  const char* name;
  int number;
};
constexpr int kShort = -1;
constexpr int kKill = -2;
constexpr int kCount = 0;
constexpr Error kEffects[] = {{"none", kCount},   {"short", kShort},  {"kill", kKill},    {"EINTR", EINTR},
                              {"EIO", EIO},       {"ENOSPC", ENOSPC}, {"EDQUOT", EDQUOT}, {"ENOMEM", ENOMEM},
                              {"EMFILE", EMFILE}, {"EACCES", EACCES}, {"EAGAIN", EAGAIN}, {"ENOLCK", ENOLCK},
                              {"EINVAL", EINVAL}, {"EXDEV", EXDEV},   {"EPERM", EPERM}};

constexpr int kFrames = 24;
// Calls with the same mark come from the same place, as far as so many callers tell.
constexpr int kMarkFrames = 12;

std::atomic<bool> armed;
std::atomic<uint64_t> counted, fired;
std::atomic<int64_t> live;
Group wanted = kNone;
int effect = kCount;
bool onwards = false;
uint64_t place = 0;
uintptr_t loaderBegin = 0, loaderEnd = 0;
thread_local bool inside __attribute__((tls_model("initial-exec"))) = false;

bool IsOfLoader(const void* caller) {
  const auto at = reinterpret_cast<uintptr_t>(caller);
  return at >= loaderBegin && at < loaderEnd;
}

void FindLoader() {
  dl_iterate_phdr(
      [](dl_phdr_info* object, size_t, void*) {
        if (object->dlpi_addr != getauxval(AT_BASE)) return 0;
        for (int i = 0; i < object->dlpi_phnum; ++i) {
          const auto& header = object->dlpi_phdr[i];
          if (header.p_type != PT_LOAD || (header.p_flags & PF_X) == 0) continue;
          loaderBegin = object->dlpi_addr + header.p_vaddr;
          loaderEnd = loaderBegin + header.p_memsz;
        }
        return 1;
      },
      nullptr);
}

void NotePlace() {
  void* frames[kFrames];
  const int count = backtrace(frames, kFrames);
  size_t used = 0;
  for (int i = 2; i < count && used + 300 < sizeof qln::test::faultShare->where; ++i) {
    Dl_info found{};
    const bool known = dladdr(frames[i], &found) != 0 && found.dli_fname != nullptr;
    const auto base = reinterpret_cast<uintptr_t>(found.dli_fbase);
    const char* const file = known ? found.dli_fname : "?";
    const size_t length = strnlen(file, 200);
    memcpy(qln::test::faultShare->where + used, file, length);
    used += length;
    qln::test::faultShare->where[used++] = ' ';
    uintptr_t offset = reinterpret_cast<uintptr_t>(frames[i]) - base - 1;
    char digits[17];
    int n = 0;
    do digits[n++] = "0123456789abcdef"[offset & 15];
    while ((offset >>= 4) != 0);
    while (n > 0) qln::test::faultShare->where[used++] = digits[--n];
    qln::test::faultShare->where[used++] = '\n';
  }
  qln::test::faultShare->where[used] = 0;
}

void Mark(uint64_t n) {
  void* frames[kMarkFrames + 2];
  const int count = backtrace(frames, kMarkFrames + 2);
  uint64_t mark = 1469598103934665603u;
  for (int i = 2; i < count; ++i) mark = (mark ^ reinterpret_cast<uintptr_t>(frames[i])) * 1099511628211u;
  qln::test::faultShare->marks[n - 1] = mark;
}

// A program may have allocation calls of its own, which go on to ours: who calls those counts.
bool IsOfFront(const void* caller) {
  static uintptr_t fronts[4] = {};
  static bool known = false;
  if (!known) {
    known = true;
    const char* const names[] = {"malloc", "calloc", "realloc", "posix_memalign"};
    for (int i = 0; i < 4; ++i) fronts[i] = reinterpret_cast<uintptr_t>(dlsym(RTLD_DEFAULT, names[i]));
  }
  constexpr uintptr_t kLongestFront = 512;
  const auto at = reinterpret_cast<uintptr_t>(caller);
  for (const uintptr_t front : fronts)
    if (at > front && at - front < kLongestFront) return true;
  return false;
}

// Counts a call. Whether it has the effect.
bool Meets(Group group, const void* caller) {
  if (!armed.load(std::memory_order_relaxed) || group != wanted || inside || IsOfLoader(caller)) return false;
  if (group == kAllocate && IsOfFront(caller)) {
    inside = true;
    void* frames[6] = {};
    const int frameCount = backtrace(frames, 6);
    int i = 0;
    while (i < frameCount && frames[i] != caller) ++i;
    inside = false;
    if (i + 1 < frameCount && IsOfLoader(frames[i + 1])) return false;
  }
  const uint64_t n = ++counted;
  const bool here = place != 0 && (n == place || (onwards && n > place));
  if (qln::test::faultShare == nullptr && !here) return false;
  inside = true;
  const int error = errno;
  if (qln::test::faultShare != nullptr && effect == kCount && n <= kMostMarks) Mark(n);
  if (qln::test::faultShare != nullptr && here && fired == 0) NotePlace();
  if (here) fired = 1;
  if (qln::test::faultShare != nullptr) {
    qln::test::faultShare->count = n;
    qln::test::faultShare->fired = fired;
  }
  inside = false;
  errno = error;
  if (here && effect == kKill) kill(getpid(), SIGKILL);
  return here && effect != kCount;
}

Group GroupOf(long number) {
  for (const Call& call : kCalls)
    if (call.number == number) return call.group;
  return kNone;
}

long ShortCall(long number, const long* a) {
  constexpr long kOne = 1;
  switch (number) {
    case SYS_read:
    case SYS_pread64:
    case SYS_write:
    case SYS_pwrite64:
      return qlnFaultGate(number, a[0], a[1], a[2] > kOne ? kOne : a[2], a[3], a[4], a[5]);
    case SYS_readv:
    case SYS_preadv:
    case SYS_writev:
    case SYS_pwritev: {
      auto* const first = reinterpret_cast<iovec*>(a[1]);
      for (long i = 0; i < a[2]; ++i) {
        if (first[i].iov_len == 0) continue;
        iovec one = {first[i].iov_base, 1};
        return qlnFaultGate(number, a[0], reinterpret_cast<long>(&one), 1, a[3], a[4], a[5]);
      }
      break;
    }
    case SYS_copy_file_range:
      return qlnFaultGate(number, a[0], a[1], a[2], a[3], a[4] > kOne ? kOne : a[4], a[5]);
    case SYS_sendfile:
      return qlnFaultGate(number, a[0], a[1], a[2], a[3] > kOne ? kOne : a[3], a[4], a[5]);
    default:
      break;
  }
  return qln::test::MakeCall(number, a);
}

long Trapped(long number, const long* a, const void* caller) {
  Group group = GroupOf(number);
  // A full disk refuses to make files, and opens those that are there.
  const long flags = number == SYS_openat ? a[2] : a[1];
  if (group == kOpen && effect == ENOSPC && (flags & O_CREAT) == 0) group = kNone;
  // Calls of our own allocator's mapping come from the C library, the loader's from itself.
  if (Meets(group, caller)) return effect == kShort ? ShortCall(number, a) : -effect;
  return qln::test::MakeCall(number, a);
}

bool TrapGroup(Group group) {
  unsigned numbers[std::size(kCalls)];
  size_t count = 0;
  for (const Call& call : kCalls)
    if (call.group == group) numbers[count++] = call.number;
  return qln::test::TrapCalls(numbers, count, Trapped);
}

bool IsSystemCall(Group group) {
  return group != kNone && group != kAllocate && group != kClock && group != kThread;
}

void* Allocated(void* block) {
  if (block != nullptr) live.fetch_add(1, std::memory_order_relaxed);
  return block;
}

}  // namespace

QLN_IN_FRONT int qlnFaultArm(const char* group, const char* how, uint64_t at) {
  if (loaderEnd == 0) FindLoader();
  qlnFaultDisarm();
  char name[32];
  snprintf(name, sizeof name, "%s", how);
  const size_t length = strlen(name);
  onwards = length > 0 && name[length - 1] == '+';
  if (onwards) name[length - 1] = 0;
  wanted = kNone;
  for (int i = 1; i < static_cast<int>(std::size(kGroupNames)); ++i)
    if (strcmp(kGroupNames[i], group) == 0) wanted = static_cast<Group>(i);
  bool known = false;
  for (const Error& one : kEffects) {
    if (strcmp(one.name, name) != 0) continue;
    effect = one.number;
    known = true;
  }
  if (wanted == kNone || !known) return 0;
  static uint64_t trapped = 0;  // groups, a bit each
  if (IsSystemCall(wanted) && (trapped >> wanted & 1) == 0) {
    if (!TrapGroup(wanted)) return 0;
    trapped |= uint64_t{1} << wanted;
  }
  place = at;
  counted = 0;
  fired = 0;
  armed = true;
  return 1;
}

QLN_IN_FRONT uint64_t qlnFaultDisarm(void) {
  armed = false;
  return counted;
}

QLN_IN_FRONT int qlnFaultFired(void) { return static_cast<int>(fired.load()); }
QLN_IN_FRONT int64_t qlnFaultLiveBlocks(void) { return live; }

#define QLN_FAILS(group) (Meets(group, __builtin_return_address(0)))

QLN_IN_FRONT void* malloc(size_t size) {
  if (QLN_FAILS(kAllocate)) return errno = ENOMEM, nullptr;
  return Allocated(__libc_malloc(size));
}
QLN_IN_FRONT void* calloc(size_t count, size_t size) {
  if (QLN_FAILS(kAllocate)) return errno = ENOMEM, nullptr;
  return Allocated(__libc_calloc(count, size));
}
QLN_IN_FRONT void* realloc(void* block, size_t size) {
  if (size != 0 && QLN_FAILS(kAllocate)) return errno = ENOMEM, nullptr;
  void* const moved = __libc_realloc(block, size);
  if (block == nullptr) return Allocated(moved);
  if (size == 0) live.fetch_sub(1, std::memory_order_relaxed);
  return moved;
}
QLN_IN_FRONT void* memalign(size_t alignment, size_t size) {
  if (QLN_FAILS(kAllocate)) return errno = ENOMEM, nullptr;
  return Allocated(__libc_memalign(alignment, size));
}
QLN_IN_FRONT void* aligned_alloc(size_t alignment, size_t size) {
  if (QLN_FAILS(kAllocate)) return errno = ENOMEM, nullptr;
  return Allocated(__libc_memalign(alignment, size));
}
QLN_IN_FRONT int posix_memalign(void** block, size_t alignment, size_t size) {
  if (QLN_FAILS(kAllocate)) return errno = ENOMEM;  // as the C library leaves it, and no standard wants
  void* const made = Allocated(__libc_memalign(alignment, size));
  if (made == nullptr) return ENOMEM;
  *block = made;
  return 0;
}
QLN_IN_FRONT void free(void* block) {
  if (block != nullptr) live.fetch_sub(1, std::memory_order_relaxed);
  __libc_free(block);
}

QLN_IN_FRONT int clock_gettime(clockid_t clock, timespec* time) noexcept {
  static const auto real = reinterpret_cast<int (*)(clockid_t, timespec*)>(dlsym(RTLD_NEXT, "clock_gettime"));
  if (QLN_FAILS(kClock)) return errno = EINVAL, -1;
  return real(clock, time);
}

QLN_IN_FRONT int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                                void* argument) noexcept {
  static const auto real = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  if (QLN_FAILS(kThread)) return EAGAIN;
  return real(thread, attributes, run, argument);
}
