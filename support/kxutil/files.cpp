// The file calls over POSIX descriptors, with the last error kept per thread.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "kxutil/kxutil.h"

namespace {

thread_local uint32_t lastError = 0;

// Remembers how a call ended: 0, or an errno value. Returns whether it succeeded.
bool Finish(int error) {
  lastError = static_cast<uint32_t>(error);
  return error == 0;
}

// The descriptor behind a handle; -1 for a value that no handle has.
int DescriptorOf(KXFileHandle handle) {
  return handle > 0 && handle - 1 <= INT_MAX ? static_cast<int>(handle - 1) : -1;
}

int OpenDescriptor(const char* path, int flags) {
  for (;;) {
    const int descriptor = open(path, flags | O_CLOEXEC, 0666);
    if (descriptor >= 0 || errno != EINTR) return descriptor;
  }
}

// A folder opens for reading, but no read from it succeeds: better to say so at once.
bool IsFolder(int descriptor) {
  struct stat status;
  return fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
}

// One call of the system takes at most this much at a time.
constexpr uint32_t kLargestTransfer = 0x40000000u;

// Runs `transfer` (a read or a write of some bytes at an offset into the buffer) until the count is reached,
// it gives nothing more, or it fails.
template <typename Transfer>
int TransferAll(uint32_t count, uint32_t* done, Transfer transfer) {
  *done = 0;
  do {
    const ssize_t moved = transfer(*done, std::min(count - *done, kLargestTransfer));
    if (moved < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    if (moved == 0) return 0;
    *done += static_cast<uint32_t>(moved);
  } while (*done < count);
  return 0;
}

}  // namespace

KXFileHandle kxOSCreateFile(const char* path, uint32_t access, uint32_t share, void* security,
                            uint32_t disposition, uint32_t flags, void* file_template) {
  const bool reads = access == KX_ACCESS_READ && disposition == KX_OPEN_EXISTING;
  const bool makes = access == KX_ACCESS_WRITE && disposition == KX_CREATE_NEW;
  if (path == nullptr || (!reads && !makes) || share != KX_SHARE_READ || security != nullptr || flags != 0 ||
      file_template != nullptr) {
    Finish(EINVAL);
    return KX_INVALID_FILE_HANDLE;
  }
  const int descriptor = OpenDescriptor(path, reads ? O_RDONLY : O_WRONLY | O_CREAT | O_EXCL);
  if (descriptor < 0) {
    Finish(errno);
    return KX_INVALID_FILE_HANDLE;
  }
  if (reads && IsFolder(descriptor)) {
    close(descriptor);
    Finish(EISDIR);
    return KX_INVALID_FILE_HANDLE;
  }
  Finish(0);
  return KXFileHandle{descriptor} + 1;
}

int32_t kxOSCloseFile(KXFileHandle handle) {
  // A close that a signal interrupts has closed the descriptor all the same.
  const bool failed = close(DescriptorOf(handle)) != 0 && errno != EINTR;
  return Finish(failed ? errno : 0);
}

int32_t kxOSReadFile(KXFileHandle handle, void* buffer, uint32_t count, uint32_t* bytes_read,
                     void* overlapped) {
  uint32_t done = 0;
  int error = EINVAL;
  if (overlapped == nullptr && (buffer != nullptr || count == 0)) {
    const int descriptor = DescriptorOf(handle);
    error = TransferAll(count, &done, [=](uint32_t offset, uint32_t size) {
      return read(descriptor, static_cast<char*>(buffer) + offset, size);
    });
  }
  if (bytes_read != nullptr) *bytes_read = done;
  return Finish(error);
}

int32_t kxOSWriteFile(KXFileHandle handle, const void* buffer, uint32_t count, uint32_t* bytes_written,
                      void* overlapped) {
  uint32_t done = 0;
  int error = EINVAL;
  if (overlapped == nullptr && (buffer != nullptr || count == 0)) {
    const int descriptor = DescriptorOf(handle);
    error = TransferAll(count, &done, [=](uint32_t offset, uint32_t size) {
      return write(descriptor, static_cast<const char*>(buffer) + offset, size);
    });
    if (error == 0 && done != count) error = EIO;
  }
  if (bytes_written != nullptr) *bytes_written = done;
  return Finish(error);
}

uint64_t kxOSSeek(KXFileHandle handle, uint64_t offset) {
  if (offset > static_cast<uint64_t>(INT64_MAX)) {
    Finish(EINVAL);
    return UINT64_MAX;
  }
  static_assert(sizeof(off_t) == 8, "positions have 64 bits");
  const off_t reached = lseek(DescriptorOf(handle), static_cast<off_t>(offset), SEEK_SET);
  return Finish(reached < 0 ? errno : 0) ? static_cast<uint64_t>(reached) : UINT64_MAX;
}

uint32_t kxOSGetFileSize(KXFileHandle handle, void*) {
  uint64_t size = 0;
  return kxOSGetFileSizeEx(handle, &size) != 0 ? static_cast<uint32_t>(size) : 0xFFFFFFFFu;
}

int32_t kxOSGetFileSizeEx(KXFileHandle handle, uint64_t* size) {
  if (size == nullptr) return Finish(EINVAL);
  struct stat status;
  if (!Finish(fstat(DescriptorOf(handle), &status) != 0 ? errno : 0)) return 0;
  *size = static_cast<uint64_t>(status.st_size);
  return 1;
}

int32_t kxOSFileExists(const char* path) {
  if (path == nullptr) return Finish(EINVAL);
  struct stat status;
  return Finish(stat(path, &status) != 0 ? errno : 0);
}

uint32_t kxOSGetLastError() { return lastError; }
