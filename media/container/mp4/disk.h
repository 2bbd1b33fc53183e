// The calls that write to disk, so that tests can cut, fail or reorder them.
#ifndef MEDIA_CONTAINER_MP4_DISK_H
#define MEDIA_CONTAINER_MP4_DISK_H

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "container/mp4/bytes.h"

namespace qlnmedia::mp4 {

// Each call is the system's of that name, with its result and errno.
class Disk {
 public:
  virtual ~Disk() = default;
  virtual ssize_t Write(int descriptor, ByteSpan bytes, uint64_t at);
  virtual ssize_t CopyRange(int from, uint64_t at, int to, uint64_t toAt, size_t bytes);
  virtual int Flush(int descriptor);
  virtual int Truncate(int descriptor, uint64_t size);
  virtual int Rename(const std::string& from, const std::string& to);
  virtual int Remove(const std::string& path);

  static Disk& System();
};

// Writes all, or throws Error with `path` and the system's reason.
void WriteAll(Disk& disk, int descriptor, ByteSpan bytes, uint64_t at, const std::string& path);
void FlushFile(Disk& disk, int descriptor, const std::string& path);
// Makes the names in a file's folder lasting.
void FlushFolderOf(Disk& disk, const std::string& path);
std::string FolderOf(const std::string& path);

}  // namespace qlnmedia::mp4

#endif
