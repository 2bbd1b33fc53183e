// A file that is one run's alone.
#ifndef MEDIA_CONTAINER_MP4_LOCKED_FILE_H
#define MEDIA_CONTAINER_MP4_LOCKED_FILE_H

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "base/error.h"

namespace qlnmedia::mp4 {

// The file, open for writing, and nobody else's while this lives. Throws Error where it
// cannot be opened, or another has it.
class LockedFile {
 public:
  explicit LockedFile(const std::string& path) : descriptor_(open(path.c_str(), O_RDWR | O_CLOEXEC)) {
    if (descriptor_ < 0) throw Error(path, std::strerror(errno));
    if (flock(descriptor_, LOCK_EX | LOCK_NB) == 0) return;
    const bool busy = errno == EWOULDBLOCK;
    const std::string reason = busy ? "another run is changing it" : std::strerror(errno);
    close(descriptor_);
    throw Error(path, reason);
  }
  ~LockedFile() { close(descriptor_); }
  LockedFile(const LockedFile&) = delete;
  LockedFile& operator=(const LockedFile&) = delete;
  int descriptor() const { return descriptor_; }

 private:
  int descriptor_;
};

}  // namespace qlnmedia::mp4

#endif
