// The calls as the system has them.

#include "container/mp4/disk.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/error.h"

namespace qlnmedia::mp4 {

ssize_t Disk::Write(int descriptor, ByteSpan bytes, uint64_t at) {
  return pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(at));
}

ssize_t Disk::CopyRange(int from, uint64_t at, int to, uint64_t toAt, size_t bytes) {
  auto source = static_cast<off64_t>(at);
  auto target = static_cast<off64_t>(toAt);
  return copy_file_range(from, &source, to, &target, bytes, 0);
}

int Disk::Flush(int descriptor) { return fsync(descriptor); }
int Disk::Truncate(int descriptor, uint64_t size) { return ftruncate(descriptor, static_cast<off_t>(size)); }
int Disk::Rename(const std::string& from, const std::string& to) {
  return std::rename(from.c_str(), to.c_str());
}
int Disk::Remove(const std::string& path) { return unlink(path.c_str()); }

Disk& Disk::System() {
  static Disk disk;
  return disk;
}

void WriteAll(Disk& disk, int descriptor, ByteSpan bytes, uint64_t at, const std::string& path) {
  while (!bytes.empty()) {
    const ssize_t put = disk.Write(descriptor, bytes, at);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) throw Error(path, std::string("cannot write: ") + std::strerror(put == 0 ? ENOSPC : errno));
    at += static_cast<uint64_t>(put);
    bytes = bytes.subspan(static_cast<size_t>(put));
  }
}

void FlushFile(Disk& disk, int descriptor, const std::string& path) {
  if (disk.Flush(descriptor) != 0) throw Error(path, std::string("cannot flush: ") + std::strerror(errno));
}

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

void FlushFolderOf(Disk& disk, const std::string& path) {
  const std::string folder = FolderOf(path);
  const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) throw Error(folder, std::strerror(errno));
  const int result = disk.Flush(descriptor);
  const int reason = errno;
  close(descriptor);
  // Some file systems have nothing to flush in a folder.
  if (result != 0 && reason != EINVAL && reason != EROFS) {
    throw Error(folder, std::string("cannot flush: ") + std::strerror(reason));
  }
}

}  // namespace qlnmedia::mp4
