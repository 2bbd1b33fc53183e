// Preloaded into a program, writes down what it does to files and folders, in order, for whoever works out
// what a disk may show after a cut of the power: tests/faults/disk_model.py, which also says how a record
// looks.
//
// QLN_POWER_LOG names the file of records, and QLN_POWER_FOLDER any file on the disk that is looked at. What
// is written into a mapping of a file is not seen, and of sync_file_range nothing is noted, since it promises
// nothing.

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <iterator>

#include "support/trapped_calls.h"

namespace {

enum Kind : uint32_t {
  kMade = 1,  // file, path
  kWritten,   // file, offset, bytes
  kSized,     // file, size
  kFlushed,   // file; of a folder its path
  kRenamed,   // from, to
  kLinked,    // from, to
  kUnlinked,  // path
  kFolder,    // path
  kNoFolder,  // path
  kSaid,      // bytes on standard output
};

struct Record {
  uint32_t kind;
  uint32_t firstBytes, secondBytes;  // of what follows
  uint32_t reserved;
  uint64_t file;   // its number on the disk
  uint64_t place;  // offset or size
};

constexpr unsigned kCalls[] = {
    SYS_open,     SYS_openat,    SYS_creat,     SYS_write,     SYS_pwrite64,        SYS_writev,
    SYS_pwritev,  SYS_ftruncate, SYS_truncate,  SYS_fallocate, SYS_copy_file_range, SYS_sendfile,
    SYS_rename,   SYS_renameat,  SYS_renameat2, SYS_link,      SYS_linkat,          SYS_unlink,
    SYS_unlinkat, SYS_rmdir,     SYS_mkdir,     SYS_mkdirat,   SYS_fsync,           SYS_fdatasync};

int record = -1;
dev_t disk = 0;
std::atomic_flag busy = ATOMIC_FLAG_INIT;

class Turn {
 public:
  Turn() {
    while (busy.test_and_set(std::memory_order_acquire)) qlnFaultGate(SYS_sched_yield, 0, 0, 0, 0, 0, 0);
  }
  ~Turn() { busy.clear(std::memory_order_release); }
};

template <typename Pointer>
long L(Pointer* pointer) {
  return reinterpret_cast<long>(pointer);
}

void Note(Kind kind, uint64_t file, uint64_t place, const char* first, size_t firstBytes,
          const char* second = "") {
  Record head = {kind, static_cast<uint32_t>(firstBytes), static_cast<uint32_t>(strlen(second)), 0, file,
                 place};
  iovec parts[] = {{&head, sizeof head},
                   {const_cast<char*>(first), firstBytes},
                   {const_cast<char*>(second), strlen(second)}};
  // What is not noted would be taken for never written.
  const auto all = static_cast<long>(sizeof head + firstBytes + strlen(second));
  if (qlnFaultGate(SYS_writev, record, L(parts), 3, 0, 0, 0) != all) abort();
}

bool StatusOf(long descriptor, struct stat& status) {
  return qlnFaultGate(SYS_fstat, descriptor, L(&status), 0, 0, 0, 0) == 0 && status.st_dev == disk;
}

// The path of an open folder, or of what a call names in one.
void PathOf(long folder, const char* name, char* path) {
  const int descriptor = static_cast<int>(folder);  // of its register only the lower half counts
  char link[40];
  path[0] = 0;
  long length = 0;
  if (name == nullptr || name[0] != '/') {
    if (descriptor == AT_FDCWD) {
      length = qlnFaultGate(SYS_getcwd, L(path), PATH_MAX, 0, 0, 0, 0) - 1;
    } else {
      snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
      length = qlnFaultGate(SYS_readlinkat, AT_FDCWD, L(link), L(path), PATH_MAX, 0, 0);
    }
    if (length < 0) length = 0;
    path[length] = 0;
  }
  if (name == nullptr) return;
  const auto room = static_cast<size_t>(2 * PATH_MAX - length);
  snprintf(path + length, room, "%s%s", length > 0 ? "/" : "", name);
}

// Bytes of another file that went into this one.
void NoteCopied(const struct stat& target, uint64_t place, long source, uint64_t from, long bytes) {
  static char piece[1 << 16];
  while (bytes > 0) {
    const long most = std::min<long>(bytes, sizeof piece);
    const long got = qlnFaultGate(SYS_pread64, source, L(piece), most, static_cast<long>(from), 0, 0);
    if (got <= 0) abort();
    Note(kWritten, target.st_ino, place, piece, static_cast<size_t>(got));
    place += static_cast<uint64_t>(got);
    from += static_cast<uint64_t>(got);
    bytes -= got;
  }
}

uint64_t PlaceBehind(long descriptor) {
  return static_cast<uint64_t>(qlnFaultGate(SYS_lseek, descriptor, 0, SEEK_CUR, 0, 0, 0));
}

long Open(long number, const long* a) {
  const bool at = number == SYS_openat;
  const long flags = number == SYS_creat ? O_CREAT | O_TRUNC : at ? a[2] : a[1];
  if ((flags & (O_CREAT | O_TRUNC)) == 0 || (flags & O_TMPFILE) == O_TMPFILE)
    return qln::test::MakeCall(number, a);
  const Turn turn;
  char path[2 * PATH_MAX];
  PathOf(at ? a[0] : AT_FDCWD, reinterpret_cast<const char*>(at ? a[1] : a[0]), path);
  struct stat status;
  const bool there = qlnFaultGate(SYS_newfstatat, AT_FDCWD, L(path), L(&status), 0, 0, 0) == 0;
  const long result = qln::test::MakeCall(number, a);
  if (result < 0 || !StatusOf(result, status) || !S_ISREG(status.st_mode)) return result;
  if (!there) Note(kMade, status.st_ino, 0, path, strlen(path));
  if (there && (flags & O_TRUNC) != 0) Note(kSized, status.st_ino, 0, "", 0);
  return result;
}

// What came of a call that wrote `result` bytes.
void NoteWritten(long number, const long* a, long result, const struct stat& status) {
  const bool placed = number == SYS_pwrite64 || number == SYS_pwritev;
  uint64_t place = placed ? static_cast<uint64_t>(a[3]) : PlaceBehind(a[0]) - static_cast<uint64_t>(result);
  const bool several = number == SYS_writev || number == SYS_pwritev;
  const iovec one = {reinterpret_cast<void*>(a[1]), static_cast<size_t>(result)};
  const iovec* const parts = several ? reinterpret_cast<const iovec*>(a[1]) : &one;
  for (long i = 0; result > 0; ++i) {
    const auto bytes = std::min(parts[i].iov_len, static_cast<size_t>(result));
    Note(kWritten, status.st_ino, place, static_cast<const char*>(parts[i].iov_base), bytes);
    place += bytes;
    result -= static_cast<long>(bytes);
  }
}

long Write(long number, const long* a) {
  struct stat status;
  const bool said = a[0] == STDOUT_FILENO;
  const bool watched = StatusOf(a[0], status) && S_ISREG(status.st_mode);
  if (!watched && !said) return qln::test::MakeCall(number, a);
  const Turn turn;
  const long result = qln::test::MakeCall(number, a);
  if (result > 0 && said && number == SYS_write)
    Note(kSaid, 0, 0, reinterpret_cast<const char*>(a[1]), static_cast<size_t>(result));
  if (result > 0 && watched) NoteWritten(number, a, result, status);
  return result;
}

long Copy(long number, const long* a) {
  const bool range = number == SYS_copy_file_range;
  const long target = range ? a[2] : a[0];
  const long source = range ? a[0] : a[1];
  struct stat status;
  if (!StatusOf(target, status) || !S_ISREG(status.st_mode)) return qln::test::MakeCall(number, a);
  const Turn turn;
  const long result = qln::test::MakeCall(number, a);
  if (result <= 0) return result;
  // An offset that is given points behind what was copied by now.
  const auto placeOf = [result](long descriptor, const void* given) {
    uint64_t behind = 0;
    if (given != nullptr) memcpy(&behind, given, sizeof behind);
    return (given != nullptr ? behind : PlaceBehind(descriptor)) - static_cast<uint64_t>(result);
  };
  const uint64_t from = placeOf(source, reinterpret_cast<const void*>(range ? a[1] : a[2]));
  const uint64_t place = placeOf(target, reinterpret_cast<const void*>(range ? a[3] : 0));
  NoteCopied(status, place, source, from, result);
  return result;
}

long Resize(long number, const long* a) {
  struct stat status;
  const Turn turn;
  const long result = qln::test::MakeCall(number, a);
  if (result != 0) return result;
  const bool known = number == SYS_truncate ? qlnFaultGate(SYS_stat, a[0], L(&status), 0, 0, 0, 0) == 0
                                            : StatusOf(a[0], status);
  // Room that is taken beforehand shows as a size.
  if (known && status.st_dev == disk)
    Note(kSized, status.st_ino, static_cast<uint64_t>(status.st_size), "", 0);
  return result;
}

long Flush(long number, const long* a) {
  struct stat status;
  const Turn turn;
  const long result = qln::test::MakeCall(number, a);
  if (result != 0 || !StatusOf(a[0], status)) return result;
  char path[2 * PATH_MAX] = "";
  if (S_ISDIR(status.st_mode)) PathOf(a[0], nullptr, path);
  Note(kFlushed, status.st_ino, 0, path, strlen(path));
  return result;
}

// Two names, or one.
long ChangeNames(long number, const long* a) {
  char first[2 * PATH_MAX], second[2 * PATH_MAX] = "";
  Kind kind = kRenamed;
  const auto text = [](long pointer) { return reinterpret_cast<const char*>(pointer); };
  switch (number) {
    case SYS_renameat:
    case SYS_renameat2:
    case SYS_linkat:
      PathOf(a[0], text(a[1]), first);
      PathOf(a[2], text(a[3]), second);
      if (number == SYS_linkat) kind = kLinked;
      break;
    case SYS_rename:
    case SYS_link:
      PathOf(AT_FDCWD, text(a[0]), first);
      PathOf(AT_FDCWD, text(a[1]), second);
      if (number == SYS_link) kind = kLinked;
      break;
    case SYS_unlinkat:
    case SYS_mkdirat:
      PathOf(a[0], text(a[1]), first);
      kind = number == SYS_mkdirat ? kFolder : (a[2] & AT_REMOVEDIR) != 0 ? kNoFolder : kUnlinked;
      break;
    default:
      PathOf(AT_FDCWD, text(a[0]), first);
      kind = number == SYS_mkdir ? kFolder : number == SYS_rmdir ? kNoFolder : kUnlinked;
      break;
  }
  const Turn turn;
  const long result = qln::test::MakeCall(number, a);
  if (result == 0) Note(kind, 0, 0, first, strlen(first), second);
  return result;
}

long Noted(long number, const long* a, const void*) {
  switch (number) {
    case SYS_open:
    case SYS_openat:
    case SYS_creat:
      return Open(number, a);
    case SYS_write:
    case SYS_pwrite64:
    case SYS_writev:
    case SYS_pwritev:
      return Write(number, a);
    case SYS_copy_file_range:
    case SYS_sendfile:
      return Copy(number, a);
    case SYS_ftruncate:
    case SYS_truncate:
    case SYS_fallocate:
      return Resize(number, a);
    case SYS_fsync:
    case SYS_fdatasync:
      return Flush(number, a);
    default:
      return ChangeNames(number, a);
  }
}

__attribute__((constructor)) void Begin() {
  const char* const log = getenv("QLN_POWER_LOG");
  const char* const folder = getenv("QLN_POWER_FOLDER");
  struct stat status;
  if (log == nullptr || folder == nullptr || stat(folder, &status) != 0) return;
  disk = status.st_dev;
  const int opened = open(log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  // Out of the way of those who count descriptors.
  record = fcntl(opened, F_DUPFD_CLOEXEC, 200);
  close(opened);
  if (record < 0 || !qln::test::TrapCalls(kCalls, std::size(kCalls), Noted)) abort();
}

}  // namespace
